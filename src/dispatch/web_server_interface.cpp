#include "dispatch/web_server_interface.h"

#include <algorithm>
#include <iterator>

#include "log/last_error_text.h"
#include "log/log_line.h"

using kova::LogLine;
using tk::LogChannel;

namespace {

constexpr const char* kConstructor = "WebServerInterface::WebServerInterface";
constexpr const char* kGetProcAddress =
    "WebServerInterface::GetProcAddressWithLogging";

constexpr uint32_t kVersionsOffered = 10;

}  // namespace

WebServerInterface::WebServerInterface(const std::wstring& libraryPath,
                                       KOVA_RestartRoutine* restart) {
  if (!Load(libraryPath)) return;
  NegotiateVersion();
  if (m_version != KOVA_INTERFACE_VERSION) {
    LogLine(LogChannel::Error, kConstructor)
        << L"Driver doesn't have a compatible Interface";
    Undo();
    return;
  }
  ResolveEntries(restart);
  Initialize();
}

WebServerInterface::~WebServerInterface() {
  // Deliberate: the inverted test. Only an interface without a module reaches
  // the call, with its null handle; see the header for whom that protects.
  if (m_module == nullptr) ::FreeLibrary(m_module);
}

bool WebServerInterface::Load(const std::wstring& libraryPath) {
  m_module = ::LoadLibraryW(libraryPath.c_str());
  if (m_module != nullptr) return true;
  const std::wstring error = tk::LastErrorText();
  // Deliberate: the quote stays open.
  LogLine(LogChannel::Error, kConstructor)
      << L"LoadLibrary failed on \"" << libraryPath << error;
  return false;
}

void WebServerInterface::NegotiateVersion() {
  Resolve(kova::kVersionsExport, m_getVersions);
  // Zeroed, so that an entry which the extension leaves alone is no version.
  uint32_t versions[kVersionsOffered] = {};
  if (m_getVersions != nullptr) m_getVersions(versions, kVersionsOffered);
  const bool compatible =
      std::find(std::begin(versions), std::end(versions),
                KOVA_INTERFACE_VERSION) != std::end(versions);
  m_version = compatible ? KOVA_INTERFACE_VERSION : 0;
}

void WebServerInterface::ResolveEntries(KOVA_RestartRoutine* restart) {
  Resolve(kova::kInitializeExport, m_initialize);
  Resolve(kova::kVersionsExport, m_getVersions);
  Resolve(kova::kHandleExport, m_handleServerRequest);
  Resolve(kova::kLengthExport, m_getResponseLength);
  Resolve(kova::kCopyExport, m_getResponse);
  Resolve(kova::kReleaseExport, m_releaseResponse);
  Resolve(kova::kRestartExport, m_setRestartRoutine);
  if (m_setRestartRoutine != nullptr) m_setRestartRoutine(restart);
}

void WebServerInterface::Initialize() {
  if (m_initialize == nullptr) return;
  m_context = m_initialize();
  if (m_context != nullptr) return;
  LogLine(LogChannel::Error, kConstructor) << L"WSIWebServerInitialize Failed";
  Undo();
}

// Unloads the library of an interface that cannot be used.
void WebServerInterface::Undo() {
  m_version = 0;
  m_getVersions = nullptr;
  m_initialize = nullptr;
  m_handleServerRequest = nullptr;
  m_getResponseLength = nullptr;
  m_getResponse = nullptr;
  m_releaseResponse = nullptr;
  m_setRestartRoutine = nullptr;
  ::FreeLibrary(m_module);
  m_module = nullptr;
}

FARPROC WebServerInterface::GetProcAddressWithLogging(const char* name) const {
  const FARPROC address = ::GetProcAddress(m_module, name);
  if (address != nullptr) return address;
  const std::wstring error = tk::LastErrorText();
  // Deliberate: the quote stays open.
  LogLine(LogChannel::Error, kGetProcAddress)
      << L"GetProcAddress failed on \"" << name << error;
  return nullptr;
}

template <typename Function>
void WebServerInterface::Resolve(const char* name, Function*& entry) const {
  entry = reinterpret_cast<Function*>(
      reinterpret_cast<void*>(GetProcAddressWithLogging(name)));
}
