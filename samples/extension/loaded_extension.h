// For tests: the built sample extension, loaded as the server loads it.
#pragma once

#include <gtest/gtest.h>

#include <string>

#include "base/handles.h"
#include "base/windows_api.h"
#include "dispatch/web_server_interface.h"
#include "test/support/server_fixture.h"

namespace kova::test {

// Loads the library that lies beside the test programs' folder and looks its
// seven functions up. Requests may be asked on several threads at once.
class LoadedExtension {
 public:
  LoadedExtension() : m_module(::LoadLibraryW(Path().c_str())) {
    Find(kVersionsExport, versions);
    Find(kRestartExport, setRestart);
    Find(kInitializeExport, initialize);
    Find(kHandleExport, handle);
    Find(kLengthExport, length);
    Find(kCopyExport, copy);
    Find(kReleaseExport, release);
    context = initialize();
  }

  [[nodiscard]] HMODULE Module() const { return m_module.Get(); }

  // One request's four calls; the response's bytes, or "" after a failure.
  std::string Ask(const std::string& request, uint32_t* keepOpen) const {
    const std::wstring client = L"192.0.2.7:50123";
    KOVA_Response response =
        handle(context, request.data(), static_cast<uint32_t>(request.size()),
               client.c_str(), static_cast<uint32_t>(client.size()), keepOpen);
    if (response == nullptr) return {};
    std::string bytes(length(context, response), '\0');
    const int32_t copied = copy(context, response, bytes.data(),
                                static_cast<uint32_t>(bytes.size()));
    release(context, response);
    return copied != 0 ? bytes : std::string();
  }

  std::string Ask(const std::string& request) const {
    uint32_t keepOpen = 0;
    return Ask(request, &keepOpen);
  }

  KOVA_GetInterfaceVersionsSupported* versions = nullptr;
  KOVA_SetKOVAServerRestartRoutine* setRestart = nullptr;
  KOVA_WebServerInitialize* initialize = nullptr;
  KOVA_HandleServerRequest* handle = nullptr;
  KOVA_GetResponseLength* length = nullptr;
  KOVA_GetResponse* copy = nullptr;
  KOVA_ReleaseResponse* release = nullptr;
  KOVA_Context context = nullptr;

 private:
  static std::wstring Path() {
    return TestProgramFolder() + L"\\..\\bin\\sample-extension\\" +
           KOVA_EXTENSION_FILE_NAME;
  }

  template <typename Function>
  void Find(const char* name, Function*& found) const {
    found = reinterpret_cast<Function*>(
        reinterpret_cast<void*>(::GetProcAddress(m_module.Get(), name)));
    if (found == nullptr) ADD_FAILURE() << "no export " << name;
  }

  UniqueModule m_module;
};

}  // namespace kova::test
