#include "check/guarded_area.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <mutex>

#include "check/extension_call.h"

namespace kova::ctl::check {
namespace {

constexpr size_t kPageBytes = 4096;
// Larger than any stride of a loop that runs over an end.
constexpr size_t kGuardBytes = 16 * kPageBytes;
// In front of the placed bytes, filled with kUnwritten.
constexpr size_t kFrontBytes = 64;

// Looked through by the handler, which must not wait for a lock.
constexpr size_t kMostAreas = 512;
std::atomic<GuardedArea*> g_areas[kMostAreas];
std::atomic<uint32_t> g_lateAccesses{0};

// What LentArea lends: the area that lies idle longest.
class Store {
 public:
  Store() {
    for (GuardedArea& area : m_areas) m_idle.push_back(&area);
  }

  GuardedArea* Take() {
    const std::lock_guard lock(m_mutex);
    if (m_idle.empty()) std::abort();
    GuardedArea* const area = m_idle.front();
    m_idle.pop_front();
    return area;
  }

  void Return(GuardedArea* area) {
    const std::lock_guard lock(m_mutex);
    m_idle.push_back(area);
  }

 private:
  // More than all threads of a check use at once.
  GuardedArea m_areas[kMostAreas - 128];
  std::mutex m_mutex;
  std::deque<GuardedArea*> m_idle;
};

// Never destroyed: the extension's threads may run until the process ends.
Store& TheStore() {
  static auto* const store = new Store;
  return *store;
}

bool Exchange(GuardedArea* before, GuardedArea* after) {
  return std::ranges::any_of(g_areas, [&](std::atomic<GuardedArea*>& place) {
    GuardedArea* expected = before;
    return place.compare_exchange_strong(expected, after);
  });
}

void Protect(char* from, size_t lengthBytes, DWORD protection) {
  DWORD old = 0;
  ::VirtualProtect(from, lengthBytes, protection, &old);
}

}  // namespace

GuardedArea::GuardedArea() {
  // Unlisted, an area would still guard, only end the process when touched.
  (void)Exchange(nullptr, this);
}

GuardedArea::~GuardedArea() {
  (void)Exchange(this, nullptr);
  Free();
}

const char* GuardedArea::PlaceReadOnly(std::string_view bytes,
                                       const char* what) {
  char* const placed = Place(bytes.size(), what);
  if (placed == nullptr) std::abort();
  std::memcpy(placed, bytes.data(), bytes.size());
  Protect(m_data, m_capacityBytes, PAGE_READONLY);
  return placed;
}

char* GuardedArea::Place(size_t lengthBytes, const char* what, char fill) {
  if (!Reserve(lengthBytes + kFrontBytes)) return nullptr;
  if (m_sealed.exchange(false)) {
    // A late access may have opened them.
    Protect(m_data + m_capacityBytes, kGuardBytes, PAGE_NOACCESS);
  }
  m_what = what;
  Protect(m_data, m_capacityBytes, PAGE_READWRITE);
  m_placed = m_data + m_capacityBytes - lengthBytes;
  std::memset(m_placed - kFrontBytes, kUnwritten, kFrontBytes);
  std::memset(m_placed, fill, lengthBytes);
  return m_placed;
}

void GuardedArea::Seal() {
  if (m_data == nullptr) return;
  m_sealed = true;
  Protect(m_data, m_capacityBytes, PAGE_NOACCESS);
}

std::vector<LateAccess> GuardedArea::TakeLateAccesses() {
  std::vector<LateAccess> accesses;
  if (g_lateAccesses.exchange(0) == 0) return accesses;
  for (const std::atomic<GuardedArea*>& place : g_areas) {
    GuardedArea* const area = place;
    if (area == nullptr || !area->m_hasLate.exchange(false)) continue;
    accesses.push_back(area->m_late);
    area->m_lateNoted = false;
  }
  return accesses;
}

// The first of several threads notes what it did.
void GuardedArea::NoteLate(const EXCEPTION_RECORD& record, bool isWrite) {
  if (m_lateNoted.exchange(true)) return;
  const Callee callee = CalleeOfThisThread();
  m_late = {m_what, isWrite,
            callee == Callee::kNone ? Callee::kOwnThread : callee,
            record.ExceptionAddress};
  m_hasLate = true;
  ++g_lateAccesses;
}

Breach GuardedArea::TakeBreach() {
  Breach breach;
  breach.wrote = m_wrote.exchange(false);
  breach.readPast = m_readPast.exchange(false);
  breach.wrotePast = m_wrotePast.exchange(false);
  breach.offset = m_offset;
  m_hasOffset = false;
  breach.wroteFront = std::any_of(m_placed - kFrontBytes, m_placed,
                                  [](char c) { return c != kUnwritten; });
  if (breach.readPast || breach.wrotePast) {
    Protect(m_data + m_capacityBytes, kGuardBytes, PAGE_NOACCESS);
  }
  return breach;
}

void GuardedArea::StartWatching() {
  ::AddVectoredExceptionHandler(1, &OnException);
}

LONG CALLBACK GuardedArea::OnException(EXCEPTION_POINTERS* exception) {
  const EXCEPTION_RECORD& record = *exception->ExceptionRecord;
  if (record.ExceptionCode != EXCEPTION_ACCESS_VIOLATION) {
    return EXCEPTION_CONTINUE_SEARCH;
  }
  for (const std::atomic<GuardedArea*>& place : g_areas) {
    GuardedArea* const area = place;
    if (area != nullptr && area->Forgive(record)) {
      return EXCEPTION_CONTINUE_EXECUTION;
    }
  }
  return EXCEPTION_CONTINUE_SEARCH;
}

// False if the access was somewhere else.
bool GuardedArea::Forgive(const EXCEPTION_RECORD& record) {
  constexpr ULONG_PTR kWrite = 1;
  const bool isWrite = record.ExceptionInformation[0] == kWrite;
  const auto at = record.ExceptionInformation[1];
  const auto start = reinterpret_cast<ULONG_PTR>(m_data);
  if (m_data == nullptr || at < start ||
      at >= start + m_capacityBytes + kGuardBytes) {
    return false;
  }
  if (m_sealed) {
    NoteLate(record, isWrite);
    Protect(m_data, m_capacityBytes + kGuardBytes, PAGE_READWRITE);
    return true;
  }
  const bool isInside = at < start + m_capacityBytes;
  // A late reader whose area was placed anew just now; it reads what it finds.
  if (isInside && !isWrite) return true;
  if (!m_hasOffset.exchange(true)) {
    m_offset = at - reinterpret_cast<ULONG_PTR>(m_placed);
  }
  if (isInside) {
    m_wrote = true;
    Protect(m_data, m_capacityBytes, PAGE_READWRITE);
  } else {
    (isWrite ? m_wrotePast : m_readPast) = true;
    // A first read makes room for reads alone, so that a write shows, too.
    Protect(m_data + m_capacityBytes, kGuardBytes,
            isWrite ? PAGE_READWRITE : PAGE_READONLY);
  }
  return true;
}

bool GuardedArea::Reserve(size_t lengthBytes) {
  if (lengthBytes <= m_capacityBytes) return true;
  Free();
  const size_t capacity =
      (lengthBytes + kPageBytes - 1) / kPageBytes * kPageBytes;
  m_data = static_cast<char*>(::VirtualAlloc(nullptr, capacity + kGuardBytes,
                                             MEM_RESERVE | MEM_COMMIT,
                                             PAGE_READWRITE));
  if (m_data == nullptr) return false;
  m_capacityBytes = capacity;
  Protect(m_data + capacity, kGuardBytes, PAGE_NOACCESS);
  return true;
}

void GuardedArea::Free() {
  if (m_data != nullptr) ::VirtualFree(m_data, 0, MEM_RELEASE);
  m_data = nullptr;
  m_capacityBytes = 0;
}

LentArea::LentArea() : m_area(TheStore().Take()) {}

LentArea::~LentArea() {
  m_area->Seal();
  TheStore().Return(m_area);
}

}  // namespace kova::ctl::check
