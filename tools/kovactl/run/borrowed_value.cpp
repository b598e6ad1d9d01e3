#include "run/borrowed_value.h"

#include <algorithm>
#include <atomic>
#include <cstring>
#include <exception>
#include <optional>
#include <utility>

#include "base/handles.h"
#include "common/json.h"
#include "common/registry_value.h"
#include "common/utf8.h"

namespace kova::ctl {
namespace {

constexpr DWORD kPatienceMs = 5000;
constexpr size_t kNameCharacters = 16384;

// One entry of the journal. It is one registry value, so that there is all of
// it or nothing.
struct Loan {
  std::wstring entry;  // its name
  DWORD processId = 0;
  uint64_t processStart = 0;
  std::wstring keyPath;
  std::wstring valueName;
  ValueState before;
  ValueState ours;
};

// Of the runs on this machine, one at a time works on the journal.
class JournalLock {
 public:
  JournalLock()
      : m_mutex(::CreateMutexW(nullptr, FALSE, L"Global\\Corvane kovactl run")),
        m_wait(::WaitForSingleObject(m_mutex.Get(), kPatienceMs)) {}
  ~JournalLock() {
    if (m_wait == WAIT_OBJECT_0 || m_wait == WAIT_ABANDONED) {
      ::ReleaseMutex(m_mutex.Get());
    }
  }

  JournalLock(const JournalLock&) = delete;
  JournalLock& operator=(const JournalLock&) = delete;

 private:
  const UniqueKernelHandle m_mutex;
  const DWORD m_wait;
};

// When the process began, in units of 100 ns since 1601; 0 if it is gone.
uint64_t StartOf(HANDLE process) {
  FILETIME start{};
  FILETIME end{};
  FILETIME kernel{};
  FILETIME user{};
  DWORD code = 0;
  if (!::GetExitCodeProcess(process, &code) || code != STILL_ACTIVE ||
      !::GetProcessTimes(process, &start, &end, &kernel, &user)) {
    return 0;
  }
  return (uint64_t{start.dwHighDateTime} << 32) | start.dwLowDateTime;
}

bool IsAbandoned(const Loan& loan) {
  const UniqueKernelHandle process(
      ::OpenProcess(PROCESS_QUERY_LIMITED_INFORMATION, FALSE, loan.processId));
  if (!process.IsValid()) return ::GetLastError() != ERROR_ACCESS_DENIED;
  return StartOf(process.Get()) != loan.processStart;
}

Json StateJson(const ValueState& state) {
  return state.present ? Json(ToUtf8(RawForm(state))) : Json(nullptr);
}

ValueState StateOf(const Json& json) {
  if (json.is_null()) return {};
  return ParseRawForm(ToWide(json.get<std::string>())).value_or(ValueState());
}

std::wstring TextOf(const Loan& loan) {
  const Json json = {
      {"process", loan.processId},        {"started", loan.processStart},
      {"key", ToUtf8(loan.keyPath)},      {"value", ToUtf8(loan.valueName)},
      {"before", StateJson(loan.before)}, {"ours", StateJson(loan.ours)}};
  return JsonText(json, -1);
}

// Nothing for what no run has written.
std::optional<Loan> ParseLoan(const std::wstring& entry,
                              const std::wstring& text) {
  try {
    const Json json = Json::parse(ToUtf8(text));
    return Loan{entry,
                json.at("process").get<DWORD>(),
                json.at("started").get<uint64_t>(),
                ToWide(json.at("key").get<std::string>()),
                ToWide(json.at("value").get<std::string>()),
                StateOf(json.at("before")),
                StateOf(json.at("ours"))};
  } catch (const Json::exception&) {
    return std::nullopt;
  }
}

LSTATUS Write(HKEY journal, const Loan& loan) {
  const std::wstring text = TextOf(loan);
  return ::RegSetValueExW(
      journal, loan.entry.c_str(), 0, REG_SZ,
      reinterpret_cast<const BYTE*>(text.c_str()),
      static_cast<DWORD>((text.size() + 1) * sizeof(wchar_t)));
}

std::vector<Loan> ReadLoans(HKEY journal) {
  std::vector<Loan> loans;
  std::wstring name(kNameCharacters, L'\0');
  for (DWORD index = 0;; ++index) {
    DWORD length = kNameCharacters;
    if (::RegEnumValueW(journal, index, name.data(), &length, nullptr, nullptr,
                        nullptr, nullptr) != ERROR_SUCCESS) {
      return loans;
    }
    const std::wstring entry(name, 0, length);
    ValueState state;
    if (ReadValueState(journal, entry.c_str(), state) != ERROR_SUCCESS) {
      continue;
    }
    std::wstring text(state.data.size() / sizeof(wchar_t), L'\0');
    std::memcpy(text.data(), state.data.data(), text.size() * sizeof(wchar_t));
    text.erase(std::find(text.begin(), text.end(), L'\0'), text.end());
    if (auto loan = ParseLoan(entry, text)) loans.push_back(std::move(*loan));
  }
}

// Another run borrowed what is there from this one: it is to put back what this
// one would have.
bool IsHandedOn(HKEY journal, const Loan& loan, std::vector<Loan>& loans) {
  for (Loan& other : loans) {
    if (other.entry == loan.entry || other.keyPath != loan.keyPath ||
        other.valueName != loan.valueName || other.before != loan.ours) {
      continue;
    }
    other.before = loan.before;
    return Write(journal, other) == ERROR_SUCCESS;
  }
  return false;
}

// Puts the value back where it is still this run's. Returns the error code.
LSTATUS PutBack(const Loan& loan, std::vector<std::wstring>& changed) {
  UniqueRegistryKey key;
  LSTATUS status = ::RegOpenKeyExW(HKEY_LOCAL_MACHINE, loan.keyPath.c_str(), 0,
                                   KEY_READ | KEY_SET_VALUE, key.Receive());
  if (status == ERROR_FILE_NOT_FOUND) return ERROR_SUCCESS;
  if (status != ERROR_SUCCESS) return status;
  const wchar_t* const name = loan.valueName.c_str();
  ValueState now;
  status = ReadValueState(key.Get(), name, now);
  if (status != ERROR_SUCCESS || now != loan.ours) return status;
  status = WriteValueState(key.Get(), name, loan.before);
  if (status == ERROR_SUCCESS) changed.push_back(loan.valueName);
  return status;
}

bool IsEmpty(HKEY key) {
  DWORD count = 0;
  return ::RegQueryInfoKeyW(key, nullptr, nullptr, nullptr, nullptr, nullptr,
                            nullptr, &count, nullptr, nullptr, nullptr,
                            nullptr) == ERROR_SUCCESS &&
         count == 0;
}

// Puts back the loans that `isDue` picks; the names of the values that this
// changed.
template <typename Predicate>
std::vector<std::wstring> PutBackAll(Predicate isDue) {
  const JournalLock lock;
  UniqueRegistryKey journal;
  std::vector<std::wstring> changed;
  if (::RegOpenKeyExW(HKEY_LOCAL_MACHINE, kBorrowedKey, 0,
                      KEY_READ | KEY_SET_VALUE,
                      journal.Receive()) != ERROR_SUCCESS) {
    return changed;
  }
  std::vector<Loan> loans = ReadLoans(journal.Get());
  while (true) {
    const auto due = std::ranges::find_if(loans, isDue);
    if (due == loans.end()) break;
    const Loan loan = *due;
    loans.erase(due);
    if (IsHandedOn(journal.Get(), loan, loans) ||
        PutBack(loan, changed) == ERROR_SUCCESS) {
      ::RegDeleteValueW(journal.Get(), loan.entry.c_str());
    }
  }
  const bool isEmpty = IsEmpty(journal.Get());
  journal.Reset();
  if (isEmpty) ::RegDeleteKeyW(HKEY_LOCAL_MACHINE, kBorrowedKey);
  return changed;
}

LSTATUS Create(const wchar_t* path, UniqueRegistryKey& key) {
  return ::RegCreateKeyExW(HKEY_LOCAL_MACHINE, path, 0, nullptr,
                           REG_OPTION_NON_VOLATILE, KEY_READ | KEY_WRITE,
                           nullptr, key.Receive(), nullptr);
}

// A loan of this process; its entry has a name that no other gets.
Loan NewLoan(const std::wstring& keyPath, const std::wstring& valueName,
             DWORD number) {
  static std::atomic<uint32_t> count = 0;
  Loan loan;
  loan.processId = ::GetCurrentProcessId();
  loan.processStart = StartOf(::GetCurrentProcess());
  loan.entry = std::to_wstring(loan.processId) + L" " +
               std::to_wstring(loan.processStart) + L" " +
               std::to_wstring(++count);
  loan.keyPath = keyPath;
  loan.valueName = valueName;
  loan.ours = {true, REG_DWORD, std::vector<uint8_t>(sizeof(number))};
  std::memcpy(loan.ours.data.data(), &number, sizeof(number));
  return loan;
}

}  // namespace

BorrowedValue::BorrowedValue(std::wstring keyPath, std::wstring valueName)
    : m_keyPath(std::move(keyPath)), m_valueName(std::move(valueName)) {}

BorrowedValue::~BorrowedValue() {
  if (m_entry.empty()) return;
  try {
    static_cast<void>(
        PutBackAll([this](const Loan& loan) { return loan.entry == m_entry; }));
  } catch (const std::exception&) {
    // Without memory; the journal still has it, for the next run.
  }
}

LSTATUS BorrowedValue::Set(DWORD number) {
  const JournalLock lock;
  UniqueRegistryKey key;
  LSTATUS status = Create(m_keyPath.c_str(), key);
  if (status != ERROR_SUCCESS) return status;
  const wchar_t* const name = m_valueName.c_str();
  Loan loan = NewLoan(m_keyPath, m_valueName, number);
  status = ReadValueState(key.Get(), name, loan.before);
  if (status != ERROR_SUCCESS) return status;
  UniqueRegistryKey journal;
  status = Create(kBorrowedKey, journal);
  if (status == ERROR_SUCCESS) status = Write(journal.Get(), loan);
  if (status != ERROR_SUCCESS) return status;
  // Should this fail, what is there is not ours, and is left alone.
  m_entry = loan.entry;
  return WriteValueState(key.Get(), name, loan.ours);
}

std::vector<std::wstring> ReturnAbandonedValues() {
  return PutBackAll(&IsAbandoned);
}

}  // namespace kova::ctl
