// The extension libraries of printers' drivers, each loaded once.
#pragma once

#include <cstdint>
#include <string>

#include "base/windows_api.h"
#include "kova/extension.h"

namespace kova {

// The functions of an extension library, as it exports them.
inline constexpr char kVersionsExport[] = "WSIE_GetInterfaceVersionsSupported";
inline constexpr char kInitializeExport[] = "WSIE_WebServerInitialize";
inline constexpr char kHandleExport[] = "WSIE_HandleServerRequest";
inline constexpr char kLengthExport[] = "WSIE_GetResponseLength";
inline constexpr char kCopyExport[] = "WSIE_GetResponse";
inline constexpr char kReleaseExport[] = "WSIE_ReleaseResponse";
inline constexpr char kRestartExport[] = "WSIE_SetKOVAServerRestartRoutine";

}  // namespace kova

// The entry points and the context of one extension library. After its
// construction an interface is only read, so any number of threads may call
// through it at once. Every entry may be null, in a library that lacks it as
// in one that could not be used; a missing entry counts as a failed call.
class WebServerInterface {
 public:
  // Loads the library at `libraryPath`, checks its version, resolves its
  // entries, hands it `restart` and initialises it. Never fails towards its
  // caller: what goes wrong is logged and leaves null entries. Calls into the
  // library.
  WebServerInterface(const std::wstring& libraryPath,
                     KOVA_RestartRoutine* restart);
  // Deliberate: keeps a loaded library loaded. Its restart routine and its
  // threads may still be in use; nothing tells it that it is going away.
  ~WebServerInterface();

  WebServerInterface(const WebServerInterface&) = delete;
  WebServerInterface& operator=(const WebServerInterface&) = delete;

  // The interface of the printer's driver, from the cache, made on first use.
  // Null when the printer names no extension library; an interface without
  // entries when that library could not be used. Owned by the cache, valid
  // until process detach. Logs failures. May be called from any thread.
  [[nodiscard]] static WebServerInterface* GetV3WebServerInterface(
      const std::wstring& printerName);

  [[nodiscard]] KOVA_Context Context() const { return m_context; }
  // 1 after a successful negotiation, else 0.
  [[nodiscard]] uint32_t Version() const { return m_version; }
  [[nodiscard]] KOVA_HandleServerRequest* HandleServerRequest() const {
    return m_handleServerRequest;
  }
  [[nodiscard]] KOVA_GetResponseLength* GetResponseLength() const {
    return m_getResponseLength;
  }
  [[nodiscard]] KOVA_GetResponse* GetResponse() const { return m_getResponse; }
  [[nodiscard]] KOVA_ReleaseResponse* ReleaseResponse() const {
    return m_releaseResponse;
  }

 private:
  [[nodiscard]] bool Load(const std::wstring& libraryPath);
  void NegotiateVersion();
  void ResolveEntries(KOVA_RestartRoutine* restart);
  void Initialize();
  void Undo();
  FARPROC GetProcAddressWithLogging(const char* name) const;
  template <typename Function>
  void Resolve(const char* name, Function*& entry) const;

  HMODULE m_module = nullptr;
  KOVA_Context m_context = nullptr;
  uint32_t m_version = 0;
  KOVA_GetInterfaceVersionsSupported* m_getVersions = nullptr;
  KOVA_WebServerInitialize* m_initialize = nullptr;
  KOVA_HandleServerRequest* m_handleServerRequest = nullptr;
  KOVA_GetResponseLength* m_getResponseLength = nullptr;
  KOVA_GetResponse* m_getResponse = nullptr;
  KOVA_ReleaseResponse* m_releaseResponse = nullptr;
  KOVA_SetKOVAServerRestartRoutine* m_setRestartRoutine = nullptr;
};

namespace kova {

// Makes the process-wide cache: one interface per library path. Paths are
// compared exactly, so that two spellings of one path are two entries. An entry
// is kept whatever came of loading it, and for as long as the cache lives: a
// library that failed is not tried again. `restart` is handed to every
// extension that is loaded and must stay callable for as long as extensions
// run. Called at process attach, under the loader lock; throws std::bad_alloc
// when memory runs out.
void CreateExtensionCache(KOVA_RestartRoutine* restart);

// Frees the process-wide cache, if there is one. Called at process detach,
// under the loader lock. The extension libraries stay loaded.
void DestroyExtensionCache();

}  // namespace kova
