// The extension libraries that this process has tried to load.
#pragma once

#include <map>
#include <memory>
#include <string>

#include "base/kernel_lock.h"
#include "base/thread_annotations.h"
#include "dispatch/web_server_interface.h"

namespace kova {

// One interface per library path; paths are compared exactly, so that two
// spellings of one path are two entries. An entry is kept whatever came of
// loading it and never removed while the cache lives: a library that failed
// is not tried again.
class ExtensionCache {
 public:
  // `restart` is handed to every extension that is loaded; it must stay
  // callable for as long as extensions run.
  explicit ExtensionCache(KOVA_RestartRoutine* restart) : m_restart(restart) {}

  ExtensionCache(const ExtensionCache&) = delete;
  ExtensionCache& operator=(const ExtensionCache&) = delete;

  // The interface for the library, loaded and initialised on first use while
  // the lock is held: each library at most once, and look-ups wait meanwhile.
  // A thread that is killed in there passes the lock on, and the next look-up
  // begins with its library anew.
  // Never null; owned by the cache. May be called from any thread.
  [[nodiscard]] WebServerInterface* Get(const std::wstring& libraryPath);

 private:
  KOVA_RestartRoutine* const m_restart;
  std::map<std::wstring, std::unique_ptr<WebServerInterface>> m_interfaces
      KOVA_GUARDED_BY(m_lock);
  KernelLock m_lock;
};

// Makes the process-wide cache. Called at process attach, under the loader
// lock; throws std::bad_alloc when memory runs out.
void CreateExtensionCache(KOVA_RestartRoutine* restart);

// Frees the process-wide cache, if there is one. Called at process detach,
// under the loader lock. The extension libraries stay loaded.
void DestroyExtensionCache();

// The process-wide cache; null before process attach and after detach.
[[nodiscard]] ExtensionCache* TheExtensionCache();

}  // namespace kova
