// Memory that is handed to an extension and notices misuse.
#pragma once

#include <atomic>
#include <cstddef>
#include <string_view>

#include "base/windows_api.h"

namespace kova::ctl::check {

// What an extension did to an area and must not do.
struct Breach {
  bool wrote = false;       // to bytes that are read-only
  bool readPast = false;    // behind the end
  bool wrotePast = false;   // behind the end
  bool wroteFront = false;  // to the bytes in front of the placed ones
  size_t offset = 0;  // of the first access that was caught, from the start
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

  // A copy of `bytes`, read-only, valid until the next Place. Address of its
  // first byte; never null.
  [[nodiscard]] const char* PlaceReadOnly(std::string_view bytes);

  // `lengthBytes` writable bytes, each kUnwritten. Null without memory.
  static constexpr char kUnwritten = '\xA5';
  [[nodiscard]] char* Place(size_t lengthBytes);

  // What was done to the bytes since they were placed. Call once for each
  // Place.
  [[nodiscard]] Breach TakeBreach();

  // Notes wrong accesses of the whole process from now on. Once, early.
  static void StartWatching();

 private:
  static LONG CALLBACK OnException(EXCEPTION_POINTERS* exception);
  bool Forgive(const EXCEPTION_RECORD& record);
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
};

}  // namespace kova::ctl::check
