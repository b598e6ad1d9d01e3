// Unit: conversion between the two forms of a text.
#include "text/string_codec.h"

#include <gtest/gtest.h>

#include <string>

#include "test/support/import_patch.h"

namespace kova {
namespace {

constexpr uint32_t kWestern = 1252;
constexpr uint32_t kJapanese = 932;
constexpr uint32_t kNoCodePage = 4711;

std::string ToNarrow(uint32_t codePage, const std::wstring& text,
                     size_t room = 64) {
  std::string out(room, '#');
  const size_t length =
      ConvertToNarrow(codePage, text.c_str(), text.size(), out.data(), room);
  EXPECT_EQ(out[length], '\0');
  EXPECT_EQ(out.find('\0'), length);
  return out.substr(0, length);
}

std::wstring ToWide(uint32_t codePage, const std::string& text,
                    size_t room = 64) {
  std::wstring out(room, L'#');
  const size_t length =
      ConvertToWide(codePage, text.c_str(), text.size(), out.data(), room);
  EXPECT_EQ(out[length], L'\0');
  EXPECT_EQ(out.find(L'\0'), length);
  return out.substr(0, length);
}

TEST(Utf8CodecTest, EncodesAtTheBoundariesOfTheLengths) {
  EXPECT_EQ(ToNarrow(kCodePageUtf8, L"\x01\x7F"), "\x01\x7F");
  EXPECT_EQ(ToNarrow(kCodePageUtf8, L"\x80"), "\xC2\x80");
  EXPECT_EQ(ToNarrow(kCodePageUtf8, L"\u07FF"), "\xDF\xBF");
  EXPECT_EQ(ToNarrow(kCodePageUtf8, L"\u0800"), "\xE0\xA0\x80");
  EXPECT_EQ(ToNarrow(kCodePageUtf8, L"\u20AC"), "\xE2\x82\xAC");
  EXPECT_EQ(ToNarrow(kCodePageUtf8, L"\uFFFF"), "\xEF\xBF\xBF");
}

TEST(Utf8CodecTest, EncodesSurrogateHalvesOneByOne) {
  const std::wstring pair = {wchar_t{0xD83D}, wchar_t{0xDE00}};
  EXPECT_EQ(ToNarrow(kCodePageUtf8, pair), "\xED\xA0\xBD\xED\xB8\x80");
  EXPECT_EQ(ToWide(kCodePageUtf8, "\xED\xA0\xBD\xED\xB8\x80"), pair);
}

TEST(Utf8CodecTest, DecodesWithoutValidation) {
  EXPECT_EQ(ToWide(kCodePageUtf8, "\xC3\xA9x"), L"\u00E9x");
  EXPECT_EQ(ToWide(kCodePageUtf8, "\xE2\x82\xAC"), L"\u20AC");
  // An overlong A, plain bytes taken as continuation, a lone continuation
  // byte and a lead byte of four taken as leads of three.
  EXPECT_EQ(ToWide(kCodePageUtf8, "\xC1\x81"), L"A");
  EXPECT_EQ(ToWide(kCodePageUtf8, "\xC3i"), L"\u00E9");
  EXPECT_EQ(ToWide(kCodePageUtf8, "\x82\x82\xAC"), L"\u20AC");
  EXPECT_EQ(ToWide(kCodePageUtf8, "\xF0\x9F\x98\x80\x81\x82"),
            L"\u07D8"
            L"B");
}

TEST(Utf8CodecTest, StopsAtASequenceThatTheTextCutsShort) {
  EXPECT_EQ(ToWide(kCodePageUtf8, "ab\xC3"), L"ab");
  EXPECT_EQ(ToWide(kCodePageUtf8, "ab\xE2"), L"ab");
  EXPECT_EQ(ToWide(kCodePageUtf8, "ab\xE2\x82"), L"ab");
  EXPECT_EQ(ToWide(kCodePageUtf8, "\xFF"), L"");
}

TEST(Utf8CodecTest, EndsAtAUnitOfZero) {
  EXPECT_EQ(ToWide(kCodePageUtf8, "a\xC0\x80z"), L"a");
  EXPECT_EQ(ToWide(kCodePageUtf8, "a\xE0\x80\x80z"), L"a");
  EXPECT_EQ(ToWide(kCodePageUtf8, std::string("a\0z", 3)), L"a");
  EXPECT_EQ(ToNarrow(kCodePageUtf8, std::wstring(L"a\0z", 3)), "a");
}

TEST(Utf8CodecTest, IsBoundedByTheRoom) {
  EXPECT_EQ(ToNarrow(kCodePageUtf8, L"a\u20AC", 5), "a\xE2\x82\xAC");
  EXPECT_EQ(ToNarrow(kCodePageUtf8, L"a\u20AC", 4), "a");
  EXPECT_EQ(ToNarrow(kCodePageUtf8, L"abc", 3), "ab");
  EXPECT_EQ(ToNarrow(kCodePageUtf8, L"abc", 1), "");
  EXPECT_EQ(ToWide(kCodePageUtf8, "abc", 3), L"ab");
  EXPECT_EQ(ToWide(kCodePageUtf8, "abc", 1), L"");
}

TEST(ByteCodecTest, TakesEachByteForAUnit) {
  for (int value = 1; value < 256; ++value) {
    const std::string bytes(1, static_cast<char>(value));
    const std::wstring units(1, static_cast<wchar_t>(value));
    EXPECT_EQ(ToWide(kCodePageBytes, bytes), units);
    EXPECT_EQ(ToNarrow(kCodePageBytes, units), bytes);
  }
}

TEST(ByteCodecTest, KeepsTheLowByteAndEndsWhereItIsZero) {
  EXPECT_EQ(ToNarrow(kCodePageBytes, L"\u0141"), "A");
  EXPECT_EQ(ToNarrow(kCodePageBytes, L"a\u0100b"), "a");
  EXPECT_EQ(ToNarrow(kCodePageBytes, L"abc", 3), "ab");
  EXPECT_EQ(ToWide(kCodePageBytes, "abc", 3), L"ab");
}

TEST(WindowsCodecTest, ConvertsBySingleByteCodePages) {
  EXPECT_EQ(ToWide(kWestern, "a\x80\xE9"), L"a\u20AC\u00E9");
  EXPECT_EQ(ToNarrow(kWestern, L"a\u20AC\u00E9"), "a\x80\xE9");
  EXPECT_EQ(ToNarrow(kWestern, L"\u4E2D"), "?");
}

TEST(WindowsCodecTest, TakesCodePageZeroForTheAnsiOne) {
  EXPECT_EQ(ToWide(kCodePageAnsi, "\x80"), L"\u20AC");
  EXPECT_EQ(ToNarrow(kCodePageAnsi, L"\u20AC"), "\x80");
}

TEST(WindowsCodecTest, ConvertsByMultiByteCodePages) {
  EXPECT_EQ(ToWide(kJapanese, "a\x93\xFA"), L"a\u65E5");
  EXPECT_EQ(ToNarrow(kJapanese, L"a\u65E5"), "a\x93\xFA");
}

TEST(WindowsCodecTest, GivesEmptyTextWhereNothingConverts) {
  EXPECT_EQ(ToWide(kNoCodePage, "abc"), L"");
  EXPECT_EQ(ToNarrow(kNoCodePage, L"abc"), "");
  EXPECT_EQ(ToWide(kWestern, "abc", 3), L"");
  EXPECT_EQ(ToNarrow(kWestern, L"abc", 3), "");
  EXPECT_EQ(ToNarrow(kWestern, L"abc", 4), "abc");
}

TEST(MultiByteCodePageTest, KnowsTheCodePagesWhoseTextIsHandledWide) {
  for (const uint32_t codePage :
       {1208u, 932u, 936u, 949u, 950u, 1361u, 54936u}) {
    EXPECT_TRUE(IsMultiByteCodePage(codePage)) << codePage;
  }
  for (const uint32_t codePage : {0u, 437u, 1252u, 64999u, 65001u, 931u}) {
    EXPECT_FALSE(IsMultiByteCodePage(codePage)) << codePage;
  }
}

UINT WINAPI JapaneseAcp() { return kJapanese; }

TEST(MultiByteCodePageTest, LooksTheAnsiCodePageUpAtEachUse) {
  EXPECT_FALSE(IsMultiByteCodePage(kCodePageAnsi));
  {
    const test::ImportPatch<decltype(GetACP)> patch(nullptr, "GetACP",
                                                    &JapaneseAcp);
    EXPECT_TRUE(IsMultiByteCodePage(kCodePageAnsi));
    EXPECT_FALSE(IsMultiByteCodePage(kWestern));
  }
  EXPECT_FALSE(IsMultiByteCodePage(kCodePageAnsi));
}

}  // namespace
}  // namespace kova
