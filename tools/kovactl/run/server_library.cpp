#include "run/server_library.h"

#include "common/file_path.h"

namespace kova::ctl {
namespace {

template <typename Function>
Function* Find(HMODULE module, const char* name) {
  return reinterpret_cast<Function*>(
      reinterpret_cast<void*>(::GetProcAddress(module, name)));
}

}  // namespace

std::optional<Failure> ServerLibrary::Load(const std::wstring& path) {
  const std::wstring full = FullPath(path);
  if (!FileExists(full)) {
    return Failure{ExitCode::kMissingFile,
                   L"there is no library " + full +
                       L"; build it, or name the one to run with --dll"};
  }
  UniqueModule module(::LoadLibraryW(full.c_str()));
  if (!module.IsValid()) {
    const DWORD error = ::GetLastError();
    return SystemFailure(ExitCode::kUnsuitableLibrary,
                         L"cannot load " + full +
                             L" as a 64-bit library; name another with --dll",
                         error);
  }
  m_start = Find<KOVA_StartServer>(module.Get(), "StartKOVAServer");
  m_stop = Find<KOVA_StopServer>(module.Get(), "StopKOVAServer");
  if (m_start == nullptr || m_stop == nullptr) {
    return Failure{ExitCode::kUnsuitableLibrary,
                   full +
                       L" does not export StartKOVAServer and "
                       L"StopKOVAServer; name the server with --dll"};
  }
  m_module = std::move(module);
  return std::nullopt;
}

}  // namespace kova::ctl
