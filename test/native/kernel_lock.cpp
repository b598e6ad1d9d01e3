// The stand-in's lock that is passed on: there are no mutexes of a kernel here,
// and no faults to give it back after.
#include "base/kernel_lock.h"

#include <mutex>

namespace kova {

KernelLock::KernelLock() : m_mutex(new std::recursive_mutex) {}

void KernelLock::Run(Body* body, const void* work) {
  const std::lock_guard<std::recursive_mutex> held(
      *static_cast<std::recursive_mutex*>(m_mutex.Get()));
  body(work);
}

}  // namespace kova
