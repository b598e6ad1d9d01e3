// Patched: values as words, and changing one for a while in the real registry;
// single calls fail where a test wants them to.
#include "common/registry_value.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>

#include "test/support/import_patch.h"

namespace {

using ::kova::UniqueRegistryKey;
using ::kova::ctl::BytesText;
using ::kova::ctl::ParseRawForm;
using ::kova::ctl::RawForm;
using ::kova::ctl::ReadValueState;
using ::kova::ctl::SavedValue;
using ::kova::ctl::ShapeText;
using ::kova::ctl::TypeText;
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

TEST(ValueText, NamesTypeAndSize) {
  EXPECT_EQ(BytesText(0), L"0 bytes");
  EXPECT_EQ(BytesText(1), L"1 byte");
  EXPECT_EQ(BytesText(2), L"2 bytes");
  EXPECT_EQ(TypeText(4), L"REG_DWORD");
  EXPECT_EQ(TypeText(99), L"type 99");
  EXPECT_EQ(ShapeText({true, 3, {0}}), L"REG_BINARY, 1 byte");
}

TEST(RawForm, GivesEveryByteAndComesBackAsItWas) {
  EXPECT_EQ(RawForm({true, 3, {0x0A, 0x00, 0xFF}}), L"REG_BINARY:0A00FF");
  EXPECT_EQ(RawForm({true, 1, {}}), L"REG_SZ:");
  for (const uint32_t type : {0u, 1u, 2u, 3u, 4u, 5u, 7u, 11u, 99u, ~0u}) {
    ValueState value{true, type, {}};
    for (int byte = 0; byte < 256; ++byte) {
      value.data.push_back(static_cast<uint8_t>(byte));
    }
    EXPECT_EQ(ParseRawForm(RawForm(value)), value) << type;
  }
}

TEST(RawForm, IsTakenInAnyLetterCase) {
  EXPECT_EQ(ParseRawForm(L"reg_binary:aB"), (ValueState{true, 3, {0xAB}}));
}

TEST(RawForm, IsRefusedWhenMalformed) {
  const std::wstring kMalformed[] = {
      L"",         L"REG_DWORD",      L":00",
      L"REG_X:00", L"REG_DWORD:0",    L"REG_DWORD:0g",
      L"-1:00",    L"4294967296:00",  L"00000000004:00",
      L"4:00 ",    L"REG_DWORD:0:00", std::wstring(L"REG_DWORD:\0\0", 12)};
  for (const std::wstring& text : kMalformed) {
    EXPECT_FALSE(ParseRawForm(text)) << ::testing::PrintToString(text);
  }
}

}  // namespace
