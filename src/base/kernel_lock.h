// A lock that is passed on when the thread that holds it goes.
#pragma once

#include "base/handles.h"
#include "base/o_critical_section.h"

namespace kova {

// For work that a thread may never finish: it is killed there, or it crashes
// there and whoever handles the exception takes it out of the work, with no
// destructor run on the way. A lock that gave itself back in a destructor would
// be held for ever. This one is a mutex of the kernel, which the next thread
// takes over from one that is gone, and it is given back whatever takes the
// thread out of the work: its end, a thrown exception, a machine fault.
//
// Recursive: a crash in the work is logged by the thread that holds the lock.
class KOVA_CAPABILITY("lock") KernelLock {
 public:
  // Where the system has no mutex left, this is a lock like any other, which is
  // not passed on. Keeps the thread's last error.
  KernelLock();

  KernelLock(const KernelLock&) = delete;
  KernelLock& operator=(const KernelLock&) = delete;

  // Waits without limit for the lock and calls work() while the calling thread
  // holds it. A wait that fails does not keep the work from being done: it then
  // keeps out only those whose wait failed, too. What the work guards must bear
  // that it was left half done.
  template <typename Work>
  void Hold(const Work& work) {
    Run(
        [](const void* it) KOVA_NO_THREAD_SAFETY_ANALYSIS {
          (*static_cast<const Work*>(it))();
        },
        &work);
  }

 private:
  using Body = void(const void* work);
  void Run(Body* body, const void* work);

  const UniqueKernelHandle m_mutex;
  OCriticalSection m_standIn;
};

}  // namespace kova
