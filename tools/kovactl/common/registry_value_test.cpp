// Unit: values as words, and written to the real registry as they are.
#include "common/registry_value.h"

#include <gtest/gtest.h>

#include <string>

#include "base/handles.h"

namespace {

using ::kova::UniqueRegistryKey;
using ::kova::ctl::BytesText;
using ::kova::ctl::ParseRawForm;
using ::kova::ctl::RawForm;
using ::kova::ctl::ReadValueState;
using ::kova::ctl::ShapeText;
using ::kova::ctl::TypeText;
using ::kova::ctl::ValueState;
using ::kova::ctl::WriteValueState;

TEST(RegistryValue, WritesTextWithoutItsZeroAsItIs) {
  constexpr wchar_t kPath[] = L"Software\\KovaTest\\Value";
  constexpr wchar_t kName[] = L"Port";
  UniqueRegistryKey key;
  ::RegCreateKeyExW(HKEY_CURRENT_USER, kPath, 0, nullptr, 0, KEY_ALL_ACCESS,
                    nullptr, key.Receive(), nullptr);
  const auto now = [&] {
    ValueState state;
    EXPECT_EQ(ReadValueState(key.Get(), kName, state), ERROR_SUCCESS);
    return state;
  };
  const ValueState state{true, REG_SZ, {'a', 0, 'b', 0}};
  // What lies behind the bytes in memory is zero here.
  ValueState roomy = state;
  roomy.data.resize(64, 0);
  roomy.data.resize(4);
  EXPECT_EQ(WriteValueState(key.Get(), kName, roomy), ERROR_SUCCESS);
  EXPECT_EQ(now(), state);
  EXPECT_EQ(WriteValueState(key.Get(), kName, {}), ERROR_SUCCESS);
  EXPECT_EQ(now(), ValueState());
  EXPECT_EQ(WriteValueState(key.Get(), kName, {}), ERROR_SUCCESS);
  ::RegDeleteKeyW(HKEY_CURRENT_USER, kPath);
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
