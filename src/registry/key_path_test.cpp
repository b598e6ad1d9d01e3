// Patched: the key-path language as text; a conversion of Windows is replaced.
#include "registry/key_path.h"

#include <gtest/gtest.h>

#include <string>

#include "base/windows_api.h"
#include "test/support/import_patch.h"

namespace {

using kova::CombinePath;
using kova::EscapeName;
using kova::ExpandKeyAliases;
using kova::RootedKey;
using kova::SplitRootedKey;
using kova::UnescapeName;

// "<key path>|<value name>" of a combination; "fails" where it fails.
std::wstring Combined(std::wstring path, std::wstring name) {
  return CombinePath(path, name) ? path + L"|" + name : L"fails";
}

std::wstring Expanded(std::wstring path) {
  ExpandKeyAliases(path);
  return path;
}

// "<root>|<subkey>" of a split; "fails" where it fails.
std::wstring Split(const std::wstring& path) {
  RootedKey key;
  if (!SplitRootedKey(path, key)) return L"fails";
  return std::to_wstring(key.root) + L"|" + key.subkey;
}

TEST(EscapeNameTest, EscapesThePercentSignFirst) {
  EXPECT_EQ(EscapeName(L"A/B:C%"), L"A%2FB%3AC%25");
  EXPECT_EQ(EscapeName(L"%2F"), L"%252F");
  EXPECT_EQ(EscapeName(L"//"), L"%2F%2F");
  EXPECT_EQ(EscapeName(L"A\\B"), L"A\\B");
  EXPECT_EQ(EscapeName(L""), L"");
  EXPECT_EQ(EscapeName(std::wstring(L"a\0/b", 4)), std::wstring(L"a\0%2Fb", 6));
}

TEST(UnescapeNameTest, UndoesEscapeName) {
  for (const wchar_t* text : {L"A/B:C%", L"", L"%", L"%%", L"%2F", L"://%"}) {
    EXPECT_EQ(UnescapeName(EscapeName(text)), text);
  }
}

TEST(UnescapeNameTest, LeavesAPercentSignWithoutTwoCharactersAlone) {
  EXPECT_EQ(UnescapeName(L"%"), L"%");
  EXPECT_EQ(UnescapeName(L"%2"), L"%2");
  EXPECT_EQ(UnescapeName(L"%41"), L"A");
  EXPECT_EQ(UnescapeName(L"x%4"), L"x%4");
  EXPECT_EQ(UnescapeName(L"x%41"), L"xA");
  EXPECT_EQ(UnescapeName(L"%41%4"), L"A%4");
}

TEST(UnescapeNameTest, DoesNotReadItsOwnResultAgain) {
  EXPECT_EQ(UnescapeName(L"%2541"), L"%41");
  EXPECT_EQ(UnescapeName(L"%25%34%31"), L"%41");
}

TEST(UnescapeNameTest, TakesEitherCaseAndAnyCharacterForADigit) {
  EXPECT_EQ(UnescapeName(L"%2f%2F%3a%3A"), L"//::");
  // 'G' counts 16 and '@' 9; the sum is kept to eight bits.
  EXPECT_EQ(UnescapeName(L"%3G"), L"@");
  EXPECT_EQ(UnescapeName(L"%4@"), L"I");
  EXPECT_EQ(UnescapeName(L"%G4"), std::wstring(L"\4"));
  // U+0141 has the low bits of 'A'.
  EXPECT_EQ(UnescapeName(L"%4\x0141"), L"J");
}

TEST(UnescapeNameTest, InsertsAZeroAsACharacter) {
  EXPECT_EQ(UnescapeName(L"a%00b"), std::wstring(L"a\0b", 3));
}

// Each byte is a letter of its own, so that nothing is right by luck.
int WINAPI ConvertByte(UINT codePage, DWORD flags, const char* text, int length,
                       wchar_t* out, int outUnits) {
  EXPECT_EQ(codePage, static_cast<UINT>(CP_ACP));
  EXPECT_EQ(flags, 0u);
  EXPECT_EQ(length, 1);
  EXPECT_GT(outUnits, 0);
  out[0] = static_cast<wchar_t>(0x4E00 + static_cast<unsigned char>(*text));
  return 1;
}

TEST(UnescapeNameTest, TakesACodeForAByteOfTheAnsiCodePage) {
  EXPECT_EQ(UnescapeName(L"%80%E9%FF"), L"\u20AC\u00E9\u00FF");
  const kova::test::ImportPatch<int WINAPI(UINT, DWORD, const char*, int,
                                           wchar_t*, int)>
      patch(nullptr, "MultiByteToWideChar", &ConvertByte);
  EXPECT_EQ(UnescapeName(L"%80a%FF"), L"\u4E80a\u4EFF");
}

TEST(CombinePathTest, AppendsTheValueName) {
  EXPECT_EQ(Combined(L"2:A", L"Val"), L"2:A|Val");
  EXPECT_EQ(Combined(L"2:A", L"Sub/Val"), L"2:A/Sub|Val");
  EXPECT_EQ(Combined(L"2:A/B//C", L"Val"), L"2:A/B%2FC|Val");
  EXPECT_EQ(Combined(L"2:", L"Name"), L"2:|Name");
  EXPECT_EQ(Combined(L"2:A/", L"V"), L"2:A|V");
  EXPECT_EQ(Combined(L"", L"A/V"), L"A|V");
}

TEST(CombinePathTest, TakesABackslashAsASeparator) {
  EXPECT_EQ(Combined(L"2:A\\B", L"C\\V"), L"2:A/B/C|V");
  EXPECT_EQ(Combined(L"2:A\\", L"V"), L"2:A|V");
  // Not as half of a literal slash.
  EXPECT_EQ(Combined(L"2:A\\\\B", L"V"), L"2:A//B|V");
}

TEST(CombinePathTest, AValueNameWithARootReplacesTheKeyPath) {
  EXPECT_EQ(Combined(L"LOCAL:Network", L"2:SOFTWARE/X/Val"),
            L"2:SOFTWARE/X|Val");
  EXPECT_EQ(Combined(L"LOCAL:Network", L"2:Name"), L"2:|Name");
  // A colon in front is no root, and a doubled one is a character.
  EXPECT_EQ(Combined(L"2:A", L":Val"), L"2:A/:|Val");
  EXPECT_EQ(Combined(L"2:A", L"B::Val"), L"2:A|B:Val");
}

TEST(CombinePathTest, AnEmptyValueNameMeansTheKeyItself) {
  EXPECT_EQ(Combined(L"2:A/B", L""), L"2:A/B|");
  EXPECT_EQ(Combined(L"2:A/B///", L""), L"2:A/B%2F|");
  EXPECT_EQ(Combined(L"2:A/B/", L""), L"2:A/B|");
  EXPECT_EQ(Combined(L"2:", L""), L"2:|");
}

TEST(CombinePathTest, UnescapesTheValueNameAlone) {
  EXPECT_EQ(Combined(L"2:A%2FB", L"C%2FV%25"), L"2:A%2FB|C/V%");
  EXPECT_EQ(Combined(L"2:A", L"100%%"), L"2:A|100%");
  EXPECT_EQ(Combined(L"2:A", L"Sub/A//B"), L"2:A/Sub|A/B");
}

TEST(CombinePathTest, FailsWithoutAnySeparatorAndChangesNothing) {
  EXPECT_EQ(Combined(L"", L"Val"), L"fails");
  EXPECT_EQ(Combined(L"", L""), L"fails");
  EXPECT_EQ(Combined(L"A", L""), L"fails");
  EXPECT_EQ(Combined(L"/", L""), L"fails");
  std::wstring path = L"a%%";
  std::wstring name;
  EXPECT_FALSE(CombinePath(path, name));
  EXPECT_EQ(path, L"a%%");
}

TEST(CombinePathTest, AKeyPathWithoutARootStillSplits) {
  EXPECT_EQ(Combined(L"A", L"Val"), L"A|Val");
}

struct AliasRow {
  const wchar_t* alias;
  const wchar_t* whole;
  const wchar_t* withRest;
};
constexpr AliasRow kAliases[] = {
    {L"CLASSES_ROOT:", L"0:", L"0:x"},
    {L"CURRENT_USER:", L"1:", L"1:x"},
    {L"LOCAL_MACHINE:", L"2:", L"2:x"},
    {L"USERS:", L"3:", L"3:x"},
    {L"USER:", L"1:SOFTWARE/Corvane Tessaly/Drivers",
     L"1:SOFTWARE/Corvane Tessaly/Drivers/x"},
    {L"LOCAL:", L"2:SOFTWARE/Corvane Tessaly/Drivers",
     L"2:SOFTWARE/Corvane Tessaly/Drivers/x"},
    {L"GLOBAL:", L"2:SOFTWARE/Corvane Tessaly/Drivers/Global Settings",
     L"2:SOFTWARE/Corvane Tessaly/Drivers/Global Settings/x"},
    {L"CONTROL:", L"2:SYSTEM/CurrentControlSet/Control",
     L"2:SYSTEM/CurrentControlSet/Control/x"},
    {L"PRINT:", L"2:SYSTEM/CurrentControlSet/Control/Print",
     L"2:SYSTEM/CurrentControlSet/Control/Print/x"},
    {L"ENUM:", L"2:SYSTEM/CurrentControlSet/Enum",
     L"2:SYSTEM/CurrentControlSet/Enum/x"},
};

TEST(ExpandKeyAliasesTest, KnowsEachAlias) {
  for (const AliasRow& row : kAliases) {
    const std::wstring alias = row.alias;
    EXPECT_EQ(Expanded(alias), row.whole);
    EXPECT_EQ(Expanded(alias + L"x"), row.withRest);
  }
}

TEST(ExpandKeyAliasesTest, IgnoresTheCaseOfLetters) {
  EXPECT_EQ(Expanded(L"local:Foo/Bar"), Expanded(L"LOCAL:Foo/Bar"));
  EXPECT_EQ(Expanded(L"Local_Machine:Foo"), L"2:Foo");
  EXPECT_EQ(Expanded(L"LOCAL:Network/@HOST"),
            L"2:SOFTWARE/Corvane Tessaly/Drivers/Network/@HOST");
}

TEST(ExpandKeyAliasesTest, PutsASlashInFrontOfWhateverIsLeft) {
  EXPECT_EQ(Expanded(L"LOCAL:/Foo"),
            L"2:SOFTWARE/Corvane Tessaly/Drivers//Foo");
  EXPECT_EQ(Expanded(L"LOCAL_MACHINE:/Foo"), L"2:/Foo");
}

TEST(ExpandKeyAliasesTest, LeavesOtherPathsAlone) {
  for (const wchar_t* path :
       {L"", L":", L"LOCAL", L"2:LOCAL:x", L"HKLM:Foo", L" LOCAL:x"}) {
    EXPECT_EQ(Expanded(path), path);
  }
}

TEST(SplitRootedKeyTest, SplitsAtTheFirstColon) {
  EXPECT_EQ(Split(L"2:SOFTWARE/X"), L"2|SOFTWARE\\X");
  EXPECT_EQ(Split(L"0:A:B"), L"0|A:B");
  EXPECT_EQ(Split(L"1:A///"), L"1|A");
  EXPECT_EQ(Split(L"3:A//B"), L"3|A\\\\B");
}

TEST(SplitRootedKeyTest, AnEscapedSlashIsNoSeparator) {
  EXPECT_EQ(Split(L"2:X/A%2FB%3AC%25"), L"2|X\\A/B:C%");
  // An escaped backslash is one, though: the registry knows no other use.
  EXPECT_EQ(Split(L"2:A%5C"), L"2|A");
}

TEST(SplitRootedKeyTest, ReadsTheRootAsTheCLibraryReadsANumber) {
  EXPECT_EQ(Split(L"2x:A"), L"2|A");
  EXPECT_EQ(Split(L" 3:A"), L"3|A");
  EXPECT_EQ(Split(L"+1:A"), L"1|A");
  EXPECT_EQ(Split(L"HKLM:Foo"), L"0|Foo");
  EXPECT_EQ(Split(L"4:A"), L"fails");
  EXPECT_EQ(Split(L"7:A"), L"fails");
  EXPECT_EQ(Split(L"-1:A"), L"fails");
  EXPECT_EQ(Split(L"4294967298:A"), L"fails");
}

TEST(SplitRootedKeyTest, FailsWithoutARootOrASubkey) {
  EXPECT_EQ(Split(L""), L"fails");
  EXPECT_EQ(Split(L"A/B"), L"fails");
  EXPECT_EQ(Split(L":A"), L"fails");
  EXPECT_EQ(Split(L"2:"), L"fails");
  EXPECT_EQ(Split(L"2:///"), L"fails");
  RootedKey key{2, L"old"};
  EXPECT_FALSE(SplitRootedKey(L"9:A", key));
  EXPECT_EQ(key.root, -1);
}

}  // namespace
