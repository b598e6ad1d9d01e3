#include "base/kernel_lock.h"

#include "base/handles.h"
#include "base/windows_api.h"

namespace kova {
namespace {

HANDLE MakeMutex() {
  const LastErrorKeeper keeper;
  return ::CreateMutexW(nullptr, FALSE, nullptr);
}

bool Take(HANDLE mutex) {
  const DWORD result = ::WaitForSingleObjectEx(mutex, INFINITE, FALSE);
  return result == WAIT_OBJECT_0 || result == WAIT_ABANDONED;
}

}  // namespace

KernelLock::KernelLock() : m_mutex(MakeMutex()) {}

// No object with a destructor may live in this function.
void KernelLock::Run(Body* body,
                     const void* work) KOVA_NO_THREAD_SAFETY_ANALYSIS {
  const HANDLE mutex = m_mutex.Get();
  const bool isHeld = mutex != nullptr && Take(mutex);
  if (!isHeld) m_standIn.Enter();
  __try {
    body(work);
  } __finally {
    if (isHeld) {
      ::ReleaseMutex(mutex);
    } else {
      m_standIn.Leave();
    }
  }
}

}  // namespace kova
