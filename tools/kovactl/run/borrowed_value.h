// Registry values that a run changes for as long as it lasts, and a journal of
// them in the registry, from which the next run puts right what one that was
// killed, or whose extension crashed, has left changed.
#pragma once

#include <string>
#include <vector>

#include "base/windows_api.h"

namespace kova::ctl {

// The journal, below HKEY_LOCAL_MACHINE: a value for each that is borrowed. The
// key is there only while there is one.
inline constexpr wchar_t kBorrowedKey[] =
    L"SOFTWARE\\Corvane Tessaly\\Drivers\\kovactl run";

// Changes a value below HKEY_LOCAL_MACHINE and, when destroyed, puts back
// exactly what was there: type, bytes and size, or its absence. One that
// somebody else has changed meanwhile is left as it is. Where several runs have
// borrowed one value, the last of them puts back what was there before the
// first. A key that had to be created stays.
class BorrowedValue {
 public:
  // Nothing is touched until Set.
  BorrowedValue(std::wstring keyPath, std::wstring valueName);
  ~BorrowedValue();

  BorrowedValue(const BorrowedValue&) = delete;
  BorrowedValue& operator=(const BorrowedValue&) = delete;

  // Writes down what is there, then writes `number` as REG_DWORD, creating the
  // key if needed. Once. Returns the error code; after a failure nothing is
  // changed.
  [[nodiscard]] LSTATUS Set(DWORD number);

 private:
  const std::wstring m_keyPath;
  const std::wstring m_valueName;
  std::wstring m_entry;  // the journal's; empty: nothing is borrowed
};

// Puts back what processes that are gone have borrowed and not put back; the
// names of the values that this changed. What cannot be put back for want of
// rights stays in the journal.
std::vector<std::wstring> ReturnAbandonedValues();

}  // namespace kova::ctl
