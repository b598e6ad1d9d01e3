#include "dispatch/web_server_interface.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <functional>
#include <iterator>
#include <memory>
#include <string>

#include "base/kernel_lock.h"
#include "log/log_line.h"
#include "spooler/printers.h"

using kova::LogLine;
using tk::LogChannel;

namespace {

constexpr const char* kConstructor = "WebServerInterface::WebServerInterface";
constexpr const char* kGetProcAddress =
    "WebServerInterface::GetProcAddressWithLogging";
constexpr const char* kGetInterface =
    "WebServerInterface::GetV3WebServerInterface";

constexpr uint32_t kVersionsOffered = 10;

// Grows only. An entry that is in a list never changes again, so that lists are
// read without a lock: a request need not ask the system for one.
class ExtensionCache {
 public:
  explicit ExtensionCache(KOVA_RestartRoutine* restart) : m_restart(restart) {}
  ~ExtensionCache() {
    for (std::atomic<Entry*>& list : m_lists) {
      for (Entry* entry = list; entry != nullptr;) {
        const std::unique_ptr<Entry> owned(entry);
        entry = owned->next;
      }
    }
  }

  ExtensionCache(const ExtensionCache&) = delete;
  ExtensionCache& operator=(const ExtensionCache&) = delete;

  // The interface for the library, loaded and initialised on first use while
  // the lock is held: each library at most once, and look-ups wait meanwhile.
  // A thread that is killed in there passes the lock on, and the next look-up
  // begins with its library anew. Never null.
  [[nodiscard]] WebServerInterface* Get(const std::wstring& libraryPath) {
    std::atomic<Entry*>& list = ListOf(libraryPath);
    Entry* found = m_isLoading ? nullptr : Find(list, libraryPath);
    if (found != nullptr) return &found->library;
    m_lock.Hold([&]() KOVA_REQUIRES(m_lock) {
      found = Find(list, libraryPath);
      m_isLoading = found == nullptr;
      if (found == nullptr) found = Load(list, libraryPath);
      m_isLoading = false;
    });
    return &found->library;
  }

 private:
  struct Entry {
    const std::wstring path;
    WebServerInterface library;
    Entry* const next;
  };

  [[nodiscard]] std::atomic<Entry*>& ListOf(const std::wstring& libraryPath) {
    return m_lists[std::hash<std::wstring>()(libraryPath) % m_lists.size()];
  }

  [[nodiscard]] static Entry* Find(const std::atomic<Entry*>& list,
                                   const std::wstring& libraryPath) {
    Entry* entry = list;
    while (entry != nullptr && entry->path != libraryPath) entry = entry->next;
    return entry;
  }

  [[nodiscard]] Entry* Load(std::atomic<Entry*>& list,
                            const std::wstring& libraryPath)
      KOVA_REQUIRES(m_lock) {
    list = new Entry{libraryPath, {libraryPath, m_restart}, list};
    return list;
  }

  KOVA_RestartRoutine* const m_restart;
  // By the hash of the path; changed under the lock alone.
  std::array<std::atomic<Entry*>, 64> m_lists{};
  // Whether look-ups have to wait. One whose thread was killed meanwhile leaves
  // it set until the next one has had the lock.
  std::atomic<bool> m_isLoading{false};
  kova::KernelLock m_lock;
};

// Written under the loader lock alone, while no thread of the server runs.
ExtensionCache* g_cache = nullptr;

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

WebServerInterface* WebServerInterface::GetV3WebServerInterface(
    const std::wstring& printerName) {
  const std::wstring libraryPath =
      GetV3PrintMonitorDllFullPath(printerName.c_str());
  if (libraryPath.empty()) {
    LogLine(LogChannel::Error, kGetInterface)
        << L"GetV3PrintMonitorDllFullPath failed for printer \"" << printerName
        << L"\"";
    return nullptr;
  }
  LogLine(LogChannel::DetailInfoI, kGetInterface)
      << L"Getting Network Monitor Interface for printer: \"" << printerName
      << L"\" from: \"" << libraryPath << L"\"";
  return g_cache == nullptr ? nullptr : g_cache->Get(libraryPath);
}

void kova::CreateExtensionCache(KOVA_RestartRoutine* restart) {
  g_cache = new ExtensionCache(restart);
}

void kova::DestroyExtensionCache() {
  delete g_cache;
  g_cache = nullptr;
}
