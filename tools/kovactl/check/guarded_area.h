// Memory that is handed to an extension and notices misuse.
#pragma once

#include <atomic>
#include <cstddef>
#include <string_view>
#include <vector>

#include "base/windows_api.h"
#include "check/extension.h"

namespace kova::ctl::check {

// What an extension did to an area and must not do.
struct Breach {
  bool wrote = false;       // to bytes that are read-only
  bool readPast = false;    // behind the end
  bool wrotePast = false;   // behind the end
  bool wroteFront = false;  // to the bytes in front of the placed ones
  size_t offset = 0;  // of the first access that was caught, from the start
};

// An access to bytes whose time was over.
struct LateAccess {
  const char* what = "";  // what the bytes were; static
  bool isWrite = false;
  Callee callee = Callee::kNone;  // kOwnThread if on a thread of its own
  const void* code = nullptr;     // the instruction
};

// Bytes that end where memory ends. The first wrong access faults; it is noted
// and then let pass, so that the extension goes on as it would in the host. One
// thread places and takes; any thread of the process may touch the bytes.
class GuardedArea {
 public:
  GuardedArea();
  ~GuardedArea();

  GuardedArea(const GuardedArea&) = delete;
  GuardedArea& operator=(const GuardedArea&) = delete;

  // A copy of `bytes`, read-only, valid until the next Place or Seal. Address
  // of its first byte; never null. `what` says what the bytes are; static.
  [[nodiscard]] const char* PlaceReadOnly(std::string_view bytes,
                                          const char* what = "");

  // `lengthBytes` writable bytes, each `fill`. Null without memory.
  static constexpr char kUnwritten = '\xA5';
  [[nodiscard]] char* Place(size_t lengthBytes, const char* what = "",
                            char fill = kUnwritten);

  // What was done to the bytes since they were placed. Call once for each
  // Place.
  [[nodiscard]] Breach TakeBreach();

  // Ends the time in which the bytes may be touched. The first access after it
  // is noted and let pass, until the next Place.
  void Seal();

  // What was touched after its time, in any area, since the last call.
  static std::vector<LateAccess> TakeLateAccesses();

  // Notes wrong accesses of the whole process from now on. Once, early.
  static void StartWatching();

 private:
  static LONG CALLBACK OnException(EXCEPTION_POINTERS* exception);
  bool Forgive(const EXCEPTION_RECORD& record);
  void NoteLate(const EXCEPTION_RECORD& record, bool isWrite);
  [[nodiscard]] bool Reserve(size_t lengthBytes);
  void Free();

  char* m_data = nullptr;
  size_t m_capacityBytes = 0;
  char* m_placed = nullptr;
  std::atomic<bool> m_wrote{false};
  std::atomic<bool> m_readPast{false};
  std::atomic<bool> m_wrotePast{false};
  std::atomic<size_t> m_offset{0};
  std::atomic<bool> m_hasOffset{false};
  const char* m_what = "";  // static
  std::atomic<bool> m_sealed{false};
  std::atomic<bool> m_lateNoted{false};
  LateAccess m_late;  // of the one that set m_lateNoted
  std::atomic<bool> m_hasLate{false};
};

// An area from a common store. Given back it is sealed, and lies idle while the
// store has others, so that what an extension keeps stays out of its reach.
class LentArea {
 public:
  LentArea();
  ~LentArea();

  LentArea(const LentArea&) = delete;
  LentArea& operator=(const LentArea&) = delete;

  GuardedArea& operator*() const { return *m_area; }
  GuardedArea* operator->() const { return m_area; }

 private:
  GuardedArea* const m_area;  // weak; the store's
};

}  // namespace kova::ctl::check
