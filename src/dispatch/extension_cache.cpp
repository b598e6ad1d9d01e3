#include "dispatch/extension_cache.h"

#include "log/log_line.h"
#include "spooler/driver_location.h"

namespace kova {
namespace {

constexpr const char* kGetInterface =
    "WebServerInterface::GetV3WebServerInterface";

// Written under the loader lock alone, while no thread of the server runs.
ExtensionCache* g_cache = nullptr;

}  // namespace

WebServerInterface* ExtensionCache::Get(const std::wstring& libraryPath) {
  WebServerInterface* found = nullptr;
  m_lock.Hold([&]() KOVA_REQUIRES(m_lock) {
    std::unique_ptr<WebServerInterface>& entry = m_interfaces[libraryPath];
    if (entry == nullptr) {
      // Calls out while it holds the lock: a library must be loaded and
      // initialised once even when many requests for it arrive together.
      entry = std::make_unique<WebServerInterface>(libraryPath, m_restart);
    }
    found = entry.get();
  });
  return found;
}

void CreateExtensionCache(KOVA_RestartRoutine* restart) {
  g_cache = new ExtensionCache(restart);
}

void DestroyExtensionCache() {
  delete g_cache;
  g_cache = nullptr;
}

ExtensionCache* TheExtensionCache() { return g_cache; }

}  // namespace kova

WebServerInterface* WebServerInterface::GetV3WebServerInterface(
    const std::wstring& printerName) {
  const std::wstring libraryPath =
      GetV3PrintMonitorDllFullPath(printerName.c_str());
  if (libraryPath.empty()) {
    kova::LogLine(tk::LogChannel::Error, kova::kGetInterface)
        << L"GetV3PrintMonitorDllFullPath failed for printer \"" << printerName
        << L"\"";
    return nullptr;
  }
  kova::LogLine(tk::LogChannel::DetailInfoI, kova::kGetInterface)
      << L"Getting Network Monitor Interface for printer: \"" << printerName
      << L"\" from: \"" << libraryPath << L"\"";
  kova::ExtensionCache* const cache = kova::TheExtensionCache();
  return cache == nullptr ? nullptr : cache->Get(libraryPath);
}
