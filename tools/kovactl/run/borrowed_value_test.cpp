// Patched: changing values for a while in the real registry; single calls fail
// where a test wants them to.
#include "run/borrowed_value.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>

#include "base/handles.h"
#include "common/registry_value.h"
#include "test/support/import_patch.h"

namespace {

using ::kova::UniqueRegistryKey;
using ::kova::ctl::BorrowedValue;
using ::kova::ctl::kBorrowedKey;
using ::kova::ctl::ReadValueState;
using ::kova::ctl::ReturnAbandonedValues;
using ::kova::ctl::ValueState;
using ::kova::test::ImportPatch;

constexpr wchar_t kKeyPath[] = L"Software\\KovaTest\\BorrowedValue";
constexpr wchar_t kName[] = L"Port";

LSTATUS WINAPI DeniedCreate(HKEY, const wchar_t*, DWORD, wchar_t*, DWORD,
                            REGSAM, SECURITY_ATTRIBUTES*, HKEY*, DWORD*) {
  return ERROR_ACCESS_DENIED;
}

LSTATUS WINAPI DeniedSet(HKEY, const wchar_t*, DWORD, DWORD, const BYTE*,
                         DWORD) {
  return ERROR_ACCESS_DENIED;
}

LSTATUS WINAPI DeniedDelete(HKEY, const wchar_t*) {
  return ERROR_ACCESS_DENIED;
}

class BorrowedValueTest : public ::testing::Test {
 protected:
  BorrowedValueTest() {
    ::RegCreateKeyExW(HKEY_LOCAL_MACHINE, kKeyPath, 0, nullptr, 0,
                      KEY_ALL_ACCESS, nullptr, m_key.Receive(), nullptr);
    ::RegDeleteValueW(m_key.Get(), kName);
  }
  ~BorrowedValueTest() override {
    ::RegDeleteKeyW(HKEY_LOCAL_MACHINE, kKeyPath);
  }

  void Write(DWORD type, const std::string& bytes) const {
    ::RegSetValueExW(m_key.Get(), kName, 0, type,
                     reinterpret_cast<const BYTE*>(bytes.data()),
                     static_cast<DWORD>(bytes.size()));
  }

  [[nodiscard]] ValueState Now() const {
    ValueState state;
    EXPECT_EQ(ReadValueState(m_key.Get(), kName, state), ERROR_SUCCESS);
    return state;
  }

  static bool HasJournal() {
    UniqueRegistryKey key;
    return ::RegOpenKeyExW(HKEY_LOCAL_MACHINE, kBorrowedKey, 0, KEY_READ,
                           key.Receive()) == ERROR_SUCCESS;
  }

  static ValueState Dword(uint8_t lowByte) {
    return {true, REG_DWORD, {lowByte, 0, 0, 0}};
  }

  UniqueRegistryKey m_key;
};

TEST_F(BorrowedValueTest, TouchesNothingBeforeItIsSet) {
  Write(REG_SZ, "x");
  const ValueState before = Now();
  {
    const BorrowedValue borrowed(kKeyPath, kName);
  }
  EXPECT_EQ(Now(), before);
}

TEST_F(BorrowedValueTest, PutsAbsenceBack) {
  {
    BorrowedValue borrowed(kKeyPath, kName);
    EXPECT_EQ(borrowed.Set(7), ERROR_SUCCESS);
    EXPECT_EQ(Now(), Dword(7));
  }
  EXPECT_EQ(Now(), ValueState());
}

TEST_F(BorrowedValueTest, PutsBackWhateverTypeAndSizeTheValueHad) {
  const std::string everySize[] = {"", "a", std::string("a\0b", 3),
                                   std::string(4, '\x12'),
                                   std::string(5000, 'z')};
  for (const DWORD type : {REG_BINARY, REG_SZ, REG_DWORD, REG_NONE}) {
    for (const std::string& bytes : everySize) {
      Write(type, bytes);
      const ValueState before = Now();
      {
        BorrowedValue borrowed(kKeyPath, kName);
        EXPECT_EQ(borrowed.Set(7), ERROR_SUCCESS);
        EXPECT_EQ(Now(), Dword(7));
      }
      EXPECT_EQ(Now(), before) << "type " << type << ", " << bytes.size();
    }
  }
}

TEST_F(BorrowedValueTest, LeavesWhatSomebodyElseChangedMeanwhile) {
  for (const bool deletes : {false, true}) {
    Write(REG_BINARY, "ab");
    {
      BorrowedValue borrowed(kKeyPath, kName);
      EXPECT_EQ(borrowed.Set(7), ERROR_SUCCESS);
      Write(REG_SZ, "y");
      if (deletes) ::RegDeleteValueW(m_key.Get(), kName);
    }
    EXPECT_EQ(Now(), deletes ? ValueState() : (ValueState{true, 1, {'y'}}));
  }
}

// However two runs overlap, and also when both want the same.
TEST_F(BorrowedValueTest, TheLastOfSeveralPutsTheFirstStateBack) {
  const ValueState before{true, REG_BINARY, {'a', 'b'}};
  for (const bool firstEndsFirst : {true, false}) {
    for (const DWORD second : {7, 8}) {
      Write(REG_BINARY, "ab");
      std::optional<BorrowedValue> runs[2];
      for (auto& run : runs) run.emplace(kKeyPath, kName);
      EXPECT_EQ(runs[0]->Set(7), ERROR_SUCCESS);
      EXPECT_EQ(runs[1]->Set(second), ERROR_SUCCESS);
      runs[firstEndsFirst ? 0 : 1].reset();
      EXPECT_EQ(Now(),
                Dword(firstEndsFirst ? static_cast<uint8_t>(second) : 7));
      runs[firstEndsFirst ? 1 : 0].reset();
      EXPECT_EQ(Now(), before);
    }
  }
}

TEST_F(BorrowedValueTest, IsNotAbandonedWhileItsRunLives) {
  BorrowedValue borrowed(kKeyPath, kName);
  EXPECT_EQ(borrowed.Set(7), ERROR_SUCCESS);
  EXPECT_TRUE(ReturnAbandonedValues().empty());
  EXPECT_EQ(Now(), Dword(7));
}

TEST_F(BorrowedValueTest, LeavesNoJournal) {
  {
    BorrowedValue borrowed(kKeyPath, kName);
    EXPECT_EQ(borrowed.Set(7), ERROR_SUCCESS);
    EXPECT_TRUE(HasJournal());
  }
  EXPECT_FALSE(HasJournal());
}

// So that the next run can try again.
TEST_F(BorrowedValueTest, KeepsTheJournalWhileTheValueCannotBePutBack) {
  {
    std::optional<BorrowedValue> borrowed;
    borrowed.emplace(kKeyPath, kName);
    EXPECT_EQ(borrowed->Set(7), ERROR_SUCCESS);
    const ImportPatch<decltype(DeniedDelete)> patch(nullptr, "RegDeleteValueW",
                                                    &DeniedDelete);
    borrowed.reset();
  }
  EXPECT_EQ(Now(), Dword(7));
  EXPECT_TRUE(HasJournal());
  ::RegDeleteKeyW(HKEY_LOCAL_MACHINE, kBorrowedKey);
}

TEST_F(BorrowedValueTest, MakesAKeyThatIsMissing) {
  m_key.Reset();
  ::RegDeleteKeyW(HKEY_LOCAL_MACHINE, kKeyPath);
  {
    BorrowedValue borrowed(kKeyPath, kName);
    EXPECT_EQ(borrowed.Set(7), ERROR_SUCCESS);
    ASSERT_EQ(::RegOpenKeyExW(HKEY_LOCAL_MACHINE, kKeyPath, 0, KEY_READ,
                              m_key.Receive()),
              ERROR_SUCCESS);
    EXPECT_EQ(Now(), Dword(7));
  }
  EXPECT_EQ(Now(), ValueState());
}

TEST_F(BorrowedValueTest, ChangesNothingWhenTheKeyIsDenied) {
  Write(REG_BINARY, "ab");
  const ValueState before = Now();
  {
    BorrowedValue borrowed(kKeyPath, kName);
    const ImportPatch<decltype(DeniedCreate)> patch(nullptr, "RegCreateKeyExW",
                                                    &DeniedCreate);
    EXPECT_EQ(borrowed.Set(7), ERROR_ACCESS_DENIED);
  }
  EXPECT_EQ(Now(), before);
}

TEST_F(BorrowedValueTest, ChangesNothingWhenTheValueIsDenied) {
  std::optional<BorrowedValue> borrowed;
  borrowed.emplace(kKeyPath, kName);
  {
    const ImportPatch<decltype(DeniedSet)> patch(nullptr, "RegSetValueExW",
                                                 &DeniedSet);
    EXPECT_EQ(borrowed->Set(7), ERROR_ACCESS_DENIED);
  }
  Write(REG_BINARY, "ab");
  borrowed.reset();
  EXPECT_EQ(Now(), (ValueState{true, REG_BINARY, {'a', 'b'}}));
}

}  // namespace
