#include "test/schedules/kernel_model.h"

#include <algorithm>
#include <utility>

namespace kova::test {
namespace {

// Above every handle of the system.
constexpr uintptr_t kFirstHandle = 0x7A000000;
constexpr uintptr_t kHandleStep = 4;
constexpr DWORD kFirstThreadId = 0x7000;

using Query = LONG(WINAPI*)(HANDLE, int, void*, ULONG, ULONG*);

Query SystemQuery(const char* name) {
  return reinterpret_cast<Query>(reinterpret_cast<void*>(
      ::GetProcAddress(::GetModuleHandleW(L"ntdll.dll"), name)));
}

}  // namespace

KernelModel::KernelModel(Scheduler& scheduler, Complain complain)
    : m_scheduler(scheduler), m_complain(std::move(complain)) {
  Reset();
}

void KernelModel::Reset() {
  m_handles.clear();
  m_adopted.clear();
  m_threads.clear();
  m_starts.clear();
  m_next = kFirstHandle;
}

HANDLE KernelModel::Add(KernelObjectPtr object) {
  m_next += kHandleStep;
  m_handles[m_next] = std::move(object);
  return reinterpret_cast<HANDLE>(m_next);
}

bool KernelModel::IsOurs(HANDLE handle) {
  const auto number = reinterpret_cast<uintptr_t>(handle);
  return number >= kFirstHandle && number < 2 * kFirstHandle;
}

KernelObjectPtr KernelModel::Find(HANDLE handle, const char* call) {
  if (handle == ::GetCurrentThread()) {
    return m_threads[m_scheduler.Current()];
  }
  if (!IsOurs(handle)) return Adopt(handle);
  const auto found = m_handles.find(reinterpret_cast<uintptr_t>(handle));
  if (found != m_handles.end()) return found->second;
  m_complain(std::string(call) + " got a handle that is closed");
  return nullptr;
}

// What the library made while it was being loaded.
KernelObjectPtr KernelModel::Adopt(HANDLE handle) {
  if (handle == nullptr || handle == INVALID_HANDLE_VALUE) return nullptr;
  KernelObjectPtr& adopted = m_adopted[reinterpret_cast<uintptr_t>(handle)];
  if (adopted != nullptr) return adopted;
  struct EventState {
    LONG type;
    LONG signalled;
  } event = {};
  struct MutexState {
    LONG count;
    BOOLEAN owned;
    BOOLEAN abandoned;
  } mutex = {};
  auto object = std::make_shared<KernelObject>();
  if (SystemQuery("NtQueryEvent")(handle, 0, &event, sizeof(event), nullptr) ==
      0) {
    object->manual = event.type == 0;
    object->signalled = event.signalled != 0;
  } else if (SystemQuery("NtQueryMutant")(handle, 0, &mutex, sizeof(mutex),
                                          nullptr) == 0) {
    object->kind = KernelObject::Kind::kMutex;
  } else {
    return nullptr;
  }
  adopted = object;
  return adopted;
}

bool KernelModel::Close(HANDLE handle, const char* call) {
  if (!IsOurs(handle)) {
    m_adopted.erase(reinterpret_cast<uintptr_t>(handle));
    return false;
  }
  if (Find(handle, call) != nullptr) {
    m_handles.erase(reinterpret_cast<uintptr_t>(handle));
  }
  return true;
}

bool KernelModel::IsSignalled(const KernelObject& object, ThreadId waiter) {
  switch (object.kind) {
    case KernelObject::Kind::kEvent:
      return object.signalled;
    case KernelObject::Kind::kThread:
      return object.exitCode != STILL_ACTIVE;
    case KernelObject::Kind::kMutex:
      return !object.owned || object.thread == waiter;
  }
  return false;
}

DWORD KernelModel::Take(KernelObject& object, ThreadId waiter) {
  if (object.kind == KernelObject::Kind::kEvent && !object.manual) {
    object.signalled = false;
  }
  if (object.kind != KernelObject::Kind::kMutex) return WAIT_OBJECT_0;
  object.depth = object.owned ? object.depth + 1 : 1;
  object.owned = true;
  object.thread = waiter;
  return std::exchange(object.abandoned, false) ? WAIT_ABANDONED_0
                                                : WAIT_OBJECT_0;
}

DWORD KernelModel::Wait(const char* call, std::span<const HANDLE> handles,
                        uint64_t timeoutMs) {
  std::vector<KernelObjectPtr> objects;
  for (const HANDLE handle : handles) {
    objects.push_back(Find(handle, call));
    if (objects.back() == nullptr) {
      ::SetLastError(ERROR_INVALID_HANDLE);
      return WAIT_FAILED;
    }
  }
  // The scheduler asks on other threads, too.
  const ThreadId self = m_scheduler.Current();
  const auto signalled = [self](const KernelObjectPtr& object) {
    return IsSignalled(*object, self);
  };
  const bool ready = m_scheduler.Await(
      call, [&] { return std::ranges::any_of(objects, signalled); }, timeoutMs);
  for (const HANDLE handle : handles) {
    if (IsOurs(handle)) (void)Find(handle, call);  // closed while waited for
  }
  if (!ready) return WAIT_TIMEOUT;
  const auto first = std::ranges::find_if(objects, signalled);
  return Take(**first, self) + static_cast<DWORD>(first - objects.begin());
}

// The server's threads in the order in which their procedures appear.
std::string KernelModel::NameThread(void* start) {
  constexpr const char* kNames[] = {"restart", "accept", "worker"};
  auto found = std::ranges::find(m_starts, start);
  if (found == m_starts.end()) found = m_starts.insert(found, start);
  const auto index = static_cast<size_t>(found - m_starts.begin());
  return index < std::size(kNames) ? kNames[index] : "server thread";
}

HANDLE KernelModel::BeginThread(unsigned(__stdcall* start)(void*),
                                void* argument, bool suspended, unsigned* id) {
  auto object = std::make_shared<KernelObject>();
  object->kind = KernelObject::Kind::kThread;
  object->thread = m_scheduler.Begin(
      NameThread(reinterpret_cast<void*>(start)),
      [this, start, argument] { ExitThread(start(argument)); }, true,
      suspended);
  m_threads[object->thread] = object;
  if (id != nullptr) *id = IdOf(object->thread);
  return Add(object);
}

DWORD KernelModel::IdOf(ThreadId thread) {
  return kFirstThreadId + static_cast<DWORD>(thread);
}

void KernelModel::ExitThread(DWORD exitCode) {
  const ThreadId self = m_scheduler.Current();
  EndOfThread(self, exitCode);
  m_scheduler.Exit();
}

void KernelModel::Terminate(const KernelObject& thread, DWORD exitCode) {
  const ThreadId victim = thread.thread;
  if (m_scheduler.HasEnded(victim)) return;
  m_scheduler.Kill(victim);
  EndOfThread(victim, exitCode);
}

void KernelModel::EndOfThread(ThreadId thread, DWORD exitCode) {
  const auto found = m_threads.find(thread);
  if (found == m_threads.end()) return;
  found->second->exitCode = exitCode;
  m_threads.erase(found);
  for (auto* const objects : {&m_handles, &m_adopted}) {
    for (const auto& [handle, object] : *objects) {
      if (object == nullptr || object->kind != KernelObject::Kind::kMutex ||
          !object->owned || object->thread != thread) {
        continue;
      }
      object->owned = false;
      object->abandoned = true;
    }
  }
}

}  // namespace kova::test
