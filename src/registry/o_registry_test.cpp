// Patched: registry values in the real registry; chosen calls are replaced.
#include "registry/o_registry.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <vector>

#include "test/support/import_patch.h"
#include "test/support/virtual_slot.h"
#include "test/support/watched_heap.h"

namespace {

using kova::test::ImportPatch;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr wchar_t kDrivers[] = L"SOFTWARE\\Corvane Tessaly\\Drivers\\";

void RemoveTree(HKEY root, const std::wstring& path) {
  ::RegDeleteTreeW(root, path.c_str());
  ::RegDeleteKeyW(root, path.c_str());
}

void WriteNative(HKEY root, const std::wstring& path, const wchar_t* name,
                 const std::vector<BYTE>& data) {
  kova::UniqueRegistryKey key;
  ASSERT_EQ(::RegCreateKeyExW(root, path.c_str(), 0, nullptr, 0, KEY_WRITE,
                              nullptr, key.Receive(), nullptr),
            ERROR_SUCCESS);
  ASSERT_EQ(::RegSetValueExW(key.Get(), name, 0, REG_BINARY, data.data(),
                             static_cast<DWORD>(data.size())),
            ERROR_SUCCESS);
}

class ORegistryTest : public testing::Test {
 protected:
  ORegistryTest() {
    Clean();
    m_registry.SetKeyPath(L"LOCAL:Test Keys/@MYPC");
  }
  ~ORegistryTest() override { Clean(); }

  static void Clean() {
    RemoveTree(HKEY_LOCAL_MACHINE, std::wstring(kDrivers) + L"Test Keys");
    RemoveTree(HKEY_CURRENT_USER, L"KovaTestFoo");
  }
  static std::wstring NativeKey() {
    return std::wstring(kDrivers) + L"Test Keys\\@MYPC";
  }
  // The bytes a value holds; empty where reading fails.
  std::vector<BYTE> Read(const std::wstring& name) {
    std::vector<BYTE> bytes(64);
    const int32_t count = m_registry.ReadValue(name, bytes.data(), 64);
    bytes.resize(count < 0 ? 0 : static_cast<size_t>(count));
    return bytes;
  }

  ORegistry m_registry;
};

TEST_F(ORegistryTest, ReadsAValueOfTheKey) {
  WriteNative(HKEY_LOCAL_MACHINE, NativeKey(), L"KOVA Server Port",
              {0x0A, 0x14, 0, 0});
  EXPECT_THAT(Read(L"KOVA Server Port"), ElementsAre(0x0A, 0x14, 0, 0));
  EXPECT_THAT(Read(L"kova server port"), ElementsAre(0x0A, 0x14, 0, 0));
  EXPECT_THAT(Read(L"Missing"), IsEmpty());
}

TEST_F(ORegistryTest, ReadsTheDefaultValueUnderAnEmptyName) {
  WriteNative(HKEY_LOCAL_MACHINE, NativeKey(), L"", {7});
  EXPECT_THAT(Read(L""), ElementsAre(7));
}

TEST_F(ORegistryTest, ReachesAKeyWhoseNameHasSeparators) {
  const std::wstring component = ORegistry::EscapeName(L"A/B:C%");
  EXPECT_EQ(component, L"A%2FB%3AC%25");
  m_registry.SetKeyPath(L"LOCAL:Test Keys/" + component);
  const char data = 9;
  EXPECT_EQ(m_registry.WriteValue(L"Val", &data), 1);
  m_registry.SetKeyPath(L"");
  kova::UniqueRegistryKey key;
  EXPECT_EQ(
      ::RegOpenKeyExW(HKEY_LOCAL_MACHINE,
                      (std::wstring(kDrivers) + L"Test Keys\\A/B:C%").c_str(),
                      0, KEY_READ, key.Receive()),
      ERROR_SUCCESS);
}

TEST_F(ORegistryTest, AValueNameMayExtendOrReplaceThePath) {
  WriteNative(HKEY_LOCAL_MACHINE, NativeKey() + L"\\Sub", L"Val", {1});
  WriteNative(HKEY_CURRENT_USER, L"KovaTestFoo", L"Val", {2});
  EXPECT_THAT(Read(L"Sub/Val"), ElementsAre(1));
  EXPECT_THAT(Read(L"1:KovaTestFoo/Val"), ElementsAre(2));
  EXPECT_THAT(Read(L"CURRENT_USER:KovaTestFoo\\Val"), ElementsAre(2));
}

TEST_F(ORegistryTest, FailsOnPathsThatLeadNowhere) {
  BYTE byte = 0;
  EXPECT_EQ(m_registry.ReadValue(L"7:Foo/Val", &byte, 1), -1);
  EXPECT_EQ(m_registry.WriteValue(L"7:Foo/Val", &byte), -1);
  EXPECT_EQ(m_registry.ReadValue(L"LOCAL:/Foo/Val", &byte, 1), -1);
  m_registry.SetKeyPath(L"2:");
  EXPECT_EQ(m_registry.ReadValue(L"Val", &byte, 1), -1);
  EXPECT_EQ(m_registry.ReadValue(L"", &byte, 1), -1);
  m_registry.SetKeyPath(L"2:%00");
  EXPECT_EQ(m_registry.WriteValue(L"Val", &byte), -1);
  m_registry.SetKeyPath(L"");
  EXPECT_EQ(m_registry.ReadValue(L"Val", &byte, 1), -1);
  EXPECT_EQ(m_registry.WriteValue(L"Val", &byte), -1);
}

// Cut off at the zero, each would be the name of another value.
TEST_F(ORegistryTest, AValueNameWithAZeroNamesNoValue) {
  WriteNative(HKEY_LOCAL_MACHINE, NativeKey(), L"Val", {1});
  WriteNative(HKEY_LOCAL_MACHINE, NativeKey(), L"", {2});
  const char data = 3;
  for (const std::wstring& name :
       {std::wstring(L"Val%00"), std::wstring(L"Val%00x"), std::wstring(L"%00"),
        std::wstring(L"Val\0x", 5)}) {
    BYTE byte = 0;
    EXPECT_EQ(m_registry.ReadValue(name, &byte, 1), -1);
    EXPECT_EQ(m_registry.WriteValue(name, &data), -1);
  }
  EXPECT_THAT(Read(L"Val"), ElementsAre(1));
  EXPECT_THAT(Read(L""), ElementsAre(2));
  EXPECT_EQ(m_registry.WriteValue(L"New/Val%00", &data), -1);
  kova::UniqueRegistryKey key;
  EXPECT_EQ(
      ::RegOpenKeyExW(HKEY_LOCAL_MACHINE, (NativeKey() + L"\\New").c_str(), 0,
                      KEY_READ, key.Receive()),
      ERROR_FILE_NOT_FOUND);
}

TEST_F(ORegistryTest, ABufferThatHasNoDoubleInMemoryIsNotFilled) {
  WriteNative(HKEY_LOCAL_MACHINE, NativeKey(), L"Val", {1});
  constexpr int32_t kVeryLarge = 0x7FFF0000;
  const kova::test::WatchedHeap heap;
  heap.RefuseAbove(kVeryLarge - 1);
  BYTE byte = 9;
  EXPECT_EQ(m_registry.ReadValue(L"Val", &byte, kVeryLarge), -1);
  EXPECT_EQ(byte, 9);
}

TEST_F(ORegistryTest, AValueLargerThanTheBufferFails) {
  WriteNative(HKEY_LOCAL_MACHINE, NativeKey(), L"Four", {1, 2, 3, 4});
  WriteNative(HKEY_LOCAL_MACHINE, NativeKey(), L"None", {});
  BYTE bytes[4] = {};
  EXPECT_EQ(m_registry.ReadValue(L"Four", bytes, 1), -1);
  EXPECT_EQ(m_registry.ReadValue(L"Four", bytes, 3), -1);
  EXPECT_EQ(bytes[0], 0);
  EXPECT_EQ(m_registry.ReadValue(L"Four", bytes, 0), -1);
  EXPECT_EQ(m_registry.ReadValue(L"Four", bytes, 4), 4);
  EXPECT_THAT(bytes, ElementsAre(1, 2, 3, 4));
  EXPECT_EQ(m_registry.ReadValue(L"None", bytes, 0), 0);
}

TEST_F(ORegistryTest, AValueSmallerThanTheBufferLeavesTheRestAlone) {
  WriteNative(HKEY_LOCAL_MACHINE, NativeKey(), L"One", {5});
  BYTE bytes[4] = {9, 9, 9, 9};
  EXPECT_EQ(m_registry.ReadValue(L"One", bytes, 4), 1);
  EXPECT_THAT(bytes, ElementsAre(5, 9, 9, 9));
}

TEST_F(ORegistryTest, RefusesMissingBuffers) {
  WriteNative(HKEY_LOCAL_MACHINE, NativeKey(), L"One", {5});
  BYTE byte = 0;
  EXPECT_EQ(m_registry.ReadValue(L"One", nullptr, 1), -1);
  EXPECT_EQ(m_registry.ReadValue(L"One", &byte, -1), -1);
  EXPECT_EQ(m_registry.WriteValue(L"One", nullptr), -1);
}

TEST_F(ORegistryTest, WritesOneByteAndMakesTheKey) {
  const char data[] = {1, 2};
  EXPECT_EQ(m_registry.WriteValue(L"New/Val", data), 1);
  EXPECT_THAT(Read(L"New/Val"), ElementsAre(1));
  DWORD type = 0;
  DWORD sizeBytes = 0;
  EXPECT_EQ(::RegGetValueW(HKEY_LOCAL_MACHINE, (NativeKey() + L"\\New").c_str(),
                           L"Val", RRF_RT_ANY, &type, nullptr, &sizeBytes),
            ERROR_SUCCESS);
  EXPECT_EQ(type, static_cast<DWORD>(REG_BINARY));
  EXPECT_EQ(sizeBytes, 1u);
}

TEST_F(ORegistryTest, ReadingMakesNoKey) {
  EXPECT_THAT(Read(L"Absent/Val"), IsEmpty());
  EXPECT_FALSE(m_registry
                   .OpenKey(L"2:SOFTWARE/Corvane Tessaly/Drivers/"
                            L"Test Keys/@MYPC/Absent",
                            false)
                   .IsValid());
}

// Which access each opening of a key asked for, and which are refused.
std::vector<REGSAM> g_asked;
bool g_refuseWriting = false;
bool g_refuseAll = false;
decltype(RegOpenKeyExW)* g_openKey = nullptr;

LSTATUS WINAPI RecordOpenKey(HKEY root, LPCWSTR path, DWORD options,
                             REGSAM access, HKEY* key) {
  g_asked.push_back(access);
  const bool isToWrite = (access & KEY_SET_VALUE) != 0;
  if (g_refuseAll || (g_refuseWriting && isToWrite)) {
    return ERROR_ACCESS_DENIED;
  }
  return g_openKey(root, path, options, access, key);
}

LSTATUS WINAPI RefuseToCreateKey(HKEY, LPCWSTR, DWORD, LPWSTR, DWORD,
                                 REGSAM access, SECURITY_ATTRIBUTES*, HKEY*,
                                 DWORD*) {
  g_asked.push_back(access);
  return ERROR_ACCESS_DENIED;
}

class ORegistryAccessTest : public ORegistryTest {
 protected:
  ORegistryAccessTest() : m_patch(nullptr, "RegOpenKeyExW", &RecordOpenKey) {
    g_openKey = m_patch.Original();
    g_asked.clear();
    g_refuseWriting = false;
    g_refuseAll = false;
  }
  const ImportPatch<decltype(RegOpenKeyExW)> m_patch;
};

TEST_F(ORegistryAccessTest, AReadOnlyKeyIsReadButNotWritten) {
  WriteNative(HKEY_LOCAL_MACHINE, NativeKey(), L"Val", {6});
  g_refuseWriting = true;
  EXPECT_THAT(Read(L"Val"), ElementsAre(6));
  EXPECT_THAT(g_asked, ElementsAre(0x2001Fu, 0x20019u));
  const char data = 1;
  EXPECT_EQ(m_registry.WriteValue(L"Val", &data), -1);
  EXPECT_THAT(Read(L"Val"), ElementsAre(6));
}

TEST_F(ORegistryAccessTest, AddsTheAdditionalAccess) {
  const ImportPatch<decltype(RegCreateKeyExW)> create(
      nullptr, "RegCreateKeyExW", &RefuseToCreateKey);
  g_refuseAll = true;
  m_registry.SetAdditionalAccess(0x100);
  const char data = 1;
  EXPECT_EQ(m_registry.WriteValue(L"Val", &data), -1);
  EXPECT_THAT(g_asked, ElementsAre(0x2011Fu, 0x20119u, 0x2011Fu));
}

LSTATUS WINAPI CheckCreateKey(HKEY root, LPCWSTR path, DWORD reserved,
                              LPWSTR className, DWORD options, REGSAM access,
                              SECURITY_ATTRIBUTES* security, HKEY*, DWORD*) {
  g_asked.push_back(access);
  EXPECT_EQ(root, HKEY_LOCAL_MACHINE);
  EXPECT_STREQ(path, L"SOFTWARE\\Corvane Tessaly\\Drivers\\Test Keys\\@MYPC");
  EXPECT_EQ(reserved, 0u);
  EXPECT_EQ(className, nullptr);
  EXPECT_EQ(options, static_cast<DWORD>(REG_OPTION_NON_VOLATILE));
  EXPECT_EQ(security, nullptr);
  return ERROR_ACCESS_DENIED;
}

TEST_F(ORegistryAccessTest, AKeyIsMadeToLastWithDefaultSecurity) {
  const ImportPatch<decltype(RegCreateKeyExW)> create(
      nullptr, "RegCreateKeyExW", &CheckCreateKey);
  const char data = 1;
  EXPECT_EQ(m_registry.WriteValue(L"Val", &data), -1);
  EXPECT_THAT(g_asked, ElementsAre(0x2001Fu, 0x20019u, 0x2001Fu));
}

LSTATUS WINAPI RefuseToSet(HKEY, LPCWSTR, DWORD, DWORD, const BYTE*, DWORD) {
  return ERROR_ACCESS_DENIED;
}

TEST_F(ORegistryTest, AFailedWriteIsReported) {
  const ImportPatch<decltype(RegSetValueExW)> patch(nullptr, "RegSetValueExW",
                                                    &RefuseToSet);
  const char data = 1;
  EXPECT_EQ(m_registry.WriteValue(L"Val", &data), -1);
}

int g_openKeys = 0;
decltype(RegCloseKey)* g_closeKey = nullptr;

LSTATUS WINAPI CountOpenKey(HKEY root, LPCWSTR path, DWORD options,
                            REGSAM access, HKEY* key) {
  const LSTATUS status = g_openKey(root, path, options, access, key);
  if (status == ERROR_SUCCESS) ++g_openKeys;
  return status;
}

LSTATUS WINAPI CountCloseKey(HKEY key) {
  --g_openKeys;
  return g_closeKey(key);
}

TEST_F(ORegistryTest, ClosesEveryKeyItOpens) {
  WriteNative(HKEY_LOCAL_MACHINE, NativeKey(), L"Val", {6});
  const ImportPatch<decltype(RegOpenKeyExW)> open(nullptr, "RegOpenKeyExW",
                                                  &CountOpenKey);
  const ImportPatch<decltype(RegCloseKey)> close(nullptr, "RegCloseKey",
                                                 &CountCloseKey);
  g_openKey = open.Original();
  g_closeKey = close.Original();
  g_openKeys = 0;
  const char data = 1;
  EXPECT_THAT(Read(L"Val"), ElementsAre(6));
  EXPECT_THAT(Read(L"Missing"), IsEmpty());
  EXPECT_EQ(m_registry.WriteValue(L"Val", &data), 1);
  EXPECT_EQ(g_openKeys, 0);
}

class OtherAliases : public ORegistry {
 public:
  void ExpandAliases(std::wstring& path) override { path = L"1:KovaTestFoo"; }
};

TEST_F(ORegistryTest, AnHeirMayHaveAliasesOfItsOwn) {
  OtherAliases registry;
  registry.SetKeyPath(L"ANY:Path");
  std::wstring path = L"ANY:Path";
  std::wstring name = L"Val";
  EXPECT_TRUE(registry.ResolvePath(path, name));
  EXPECT_EQ(path, L"1:KovaTestFoo");
  const char data = 4;
  EXPECT_EQ(registry.WriteValue(L"Val", &data), 1);
  EXPECT_THAT(Read(L"1:KovaTestFoo/Val"), ElementsAre(4));
}

TEST_F(ORegistryTest, HasItsDestructorThenExpandAliasesThenOpenKey) {
  constexpr size_t kNext = kova::test::kDestructorSlots;
  EXPECT_EQ(kova::test::SlotOf(&ORegistry::ExpandAliases), kNext);
  EXPECT_EQ(kova::test::SlotOf(&ORegistry::OpenKey), kNext + 1);
}

TEST_F(ORegistryTest, SplitsRoots) {
  const HKEY expected[] = {HKEY_CLASSES_ROOT, HKEY_CURRENT_USER,
                           HKEY_LOCAL_MACHINE, HKEY_USERS};
  HKEY root = nullptr;
  std::wstring subkey;
  for (int number = 0; number < 4; ++number) {
    EXPECT_TRUE(
        ORegistry::SplitRoot(std::to_wstring(number) + L":A/B", root, subkey));
    EXPECT_EQ(root, expected[number]);
    EXPECT_EQ(subkey, L"A\\B");
  }
  EXPECT_FALSE(ORegistry::SplitRoot(L"4:A", root, subkey));
  EXPECT_EQ(root, nullptr);
}

}  // namespace
