// Patched: changing a value for a while, in the real registry; single calls
// fail where a test wants them to.
#include "common/saved_value.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>

#include "test/support/import_patch.h"

namespace {

using ::kova::UniqueRegistryKey;
using ::kova::ctl::ReadValueState;
using ::kova::ctl::SavedValue;
using ::kova::ctl::ValueState;
using ::kova::ctl::WriteValueState;
using ::kova::test::ImportPatch;

constexpr wchar_t kKeyPath[] = L"Software\\KovaTest\\SavedValue";
constexpr wchar_t kName[] = L"Port";

class SavedValueTest : public ::testing::Test {
 protected:
  SavedValueTest() {
    ::RegCreateKeyExW(HKEY_CURRENT_USER, kKeyPath, 0, nullptr, 0,
                      KEY_ALL_ACCESS, nullptr, m_key.Receive(), nullptr);
    ::RegDeleteValueW(m_key.Get(), kName);
  }
  ~SavedValueTest() override { ::RegDeleteKeyW(HKEY_CURRENT_USER, kKeyPath); }

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

  static ValueState Dword(uint8_t lowByte) {
    return {true, REG_DWORD, {lowByte, 0, 0, 0}};
  }

  UniqueRegistryKey m_key;
};

TEST_F(SavedValueTest, TouchesNothingBeforeItIsSet) {
  Write(REG_SZ, "x");
  const ValueState before = Now();
  {
    const SavedValue saved(HKEY_CURRENT_USER, kKeyPath, kName);
  }
  EXPECT_EQ(Now(), before);
}

TEST_F(SavedValueTest, PutsAbsenceBack) {
  {
    SavedValue saved(HKEY_CURRENT_USER, kKeyPath, kName);
    EXPECT_EQ(saved.Set(7), ERROR_SUCCESS);
    EXPECT_EQ(Now(), Dword(7));
  }
  EXPECT_EQ(Now(), ValueState());
}

TEST_F(SavedValueTest, PutsBackWhateverTypeAndSizeTheValueHad) {
  const std::string everySize[] = {"", "a", std::string("a\0b", 3),
                                   std::string(4, '\x12'),
                                   std::string(5000, 'z')};
  for (const DWORD type : {REG_BINARY, REG_SZ, REG_DWORD, REG_NONE}) {
    for (const std::string& bytes : everySize) {
      Write(type, bytes);
      const ValueState before = Now();
      {
        SavedValue saved(HKEY_CURRENT_USER, kKeyPath, kName);
        EXPECT_EQ(saved.Set(7), ERROR_SUCCESS);
        EXPECT_EQ(Now(), Dword(7));
      }
      EXPECT_EQ(Now(), before) << "type " << type << ", " << bytes.size();
    }
  }
}

TEST_F(SavedValueTest, WritesTextWithoutItsZeroAsItIs) {
  const ValueState state{true, REG_SZ, {'a', 0, 'b', 0}};
  // What lies behind the bytes in memory is zero here.
  ValueState roomy = state;
  roomy.data.resize(64, 0);
  roomy.data.resize(4);
  EXPECT_EQ(WriteValueState(m_key.Get(), kName, roomy), ERROR_SUCCESS);
  EXPECT_EQ(Now(), state);
  EXPECT_EQ(WriteValueState(m_key.Get(), kName, {}), ERROR_SUCCESS);
  EXPECT_EQ(Now(), ValueState());
  EXPECT_EQ(WriteValueState(m_key.Get(), kName, {}), ERROR_SUCCESS);
}

TEST_F(SavedValueTest, PutsTheFirstStateBackHoweverOftenItIsSet) {
  Write(REG_BINARY, "ab");
  {
    SavedValue saved(HKEY_CURRENT_USER, kKeyPath, kName);
    EXPECT_EQ(saved.Set(7), ERROR_SUCCESS);
    EXPECT_EQ(saved.Set(8), ERROR_SUCCESS);
    EXPECT_EQ(Now(), Dword(8));
  }
  EXPECT_EQ(Now(), (ValueState{true, REG_BINARY, {'a', 'b'}}));
}

TEST_F(SavedValueTest, MakesAKeyThatIsMissing) {
  m_key.Reset();
  ::RegDeleteKeyW(HKEY_CURRENT_USER, kKeyPath);
  {
    SavedValue saved(HKEY_CURRENT_USER, kKeyPath, kName);
    EXPECT_EQ(saved.Set(7), ERROR_SUCCESS);
    ASSERT_EQ(::RegOpenKeyExW(HKEY_CURRENT_USER, kKeyPath, 0, KEY_READ,
                              m_key.Receive()),
              ERROR_SUCCESS);
    EXPECT_EQ(Now(), Dword(7));
  }
  EXPECT_EQ(Now(), ValueState());
}

LSTATUS WINAPI DeniedCreate(HKEY, const wchar_t*, DWORD, wchar_t*, DWORD,
                            REGSAM, SECURITY_ATTRIBUTES*, HKEY*, DWORD*) {
  return ERROR_ACCESS_DENIED;
}

LSTATUS WINAPI DeniedSet(HKEY, const wchar_t*, DWORD, DWORD, const BYTE*,
                         DWORD) {
  return ERROR_ACCESS_DENIED;
}

TEST_F(SavedValueTest, ChangesNothingWhenTheKeyIsDenied) {
  Write(REG_BINARY, "ab");
  const ValueState before = Now();
  {
    SavedValue saved(HKEY_CURRENT_USER, kKeyPath, kName);
    const ImportPatch<decltype(DeniedCreate)> patch(nullptr, "RegCreateKeyExW",
                                                    &DeniedCreate);
    EXPECT_EQ(saved.Set(7), ERROR_ACCESS_DENIED);
  }
  EXPECT_EQ(Now(), before);
}

TEST_F(SavedValueTest, ChangesNothingWhenTheValueIsDenied) {
  std::optional<SavedValue> saved;
  saved.emplace(HKEY_CURRENT_USER, kKeyPath, kName);
  {
    const ImportPatch<decltype(DeniedSet)> patch(nullptr, "RegSetValueExW",
                                                 &DeniedSet);
    EXPECT_EQ(saved->Set(7), ERROR_ACCESS_DENIED);
  }
  Write(REG_BINARY, "ab");
  saved.reset();
  EXPECT_EQ(Now(), (ValueState{true, REG_BINARY, {'a', 'b'}}));
}

}  // namespace
