// Patched: the registry calls that make event sources, recorded on their way.
#include "log/event_source.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <optional>
#include <string>
#include <vector>

#include "base/handles.h"
#include "log/logger.h"
#include "test/support/import_patch.h"
#include "test/support/log_capture.h"

namespace {

using kova::test::ImportPatch;
using kova::test::LogCapture;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

const std::wstring kName = L"test recorded event source";
const std::wstring kLog = L"SYSTEM\\CurrentControlSet\\Services\\Eventlog\\";
const std::wstring kInApplication = kLog + L"Application\\" + kName;
const std::wstring kInSystem = kLog + L"System\\" + kName;

struct Creation {
  std::wstring path;
  DWORD options;
  REGSAM access;

  bool operator==(const Creation&) const = default;
};
struct Setting {
  std::wstring name;
  DWORD type;
  std::vector<BYTE> bytes;

  bool operator==(const Setting&) const = default;
};

std::vector<Creation> g_creations;
decltype(RegCreateKeyExW)* g_createKey = nullptr;
LSTATUS WINAPI RecordCreation(HKEY root, LPCWSTR path, DWORD reserved,
                              LPWSTR keyClass, DWORD options, REGSAM access,
                              SECURITY_ATTRIBUTES* security, HKEY* key,
                              DWORD* disposition) {
  EXPECT_EQ(root, HKEY_LOCAL_MACHINE);
  EXPECT_EQ(reserved, 0u);
  EXPECT_EQ(keyClass, nullptr);
  EXPECT_EQ(security, nullptr);
  g_creations.push_back({path, options, access});
  return g_createKey(root, path, reserved, keyClass, options, access, security,
                     key, disposition);
}

std::vector<Setting> g_settings;
decltype(RegSetValueExW)* g_setValue = nullptr;
LSTATUS WINAPI RecordSetting(HKEY key, LPCWSTR name, DWORD reserved, DWORD type,
                             const BYTE* data, DWORD sizeBytes) {
  EXPECT_EQ(reserved, 0u);
  g_settings.push_back({name, type, std::vector<BYTE>(data, data + sizeBytes)});
  return g_setValue(key, name, reserved, type, data, sizeBytes);
}

std::vector<std::wstring> g_deletions;
LSTATUS WINAPI FailToDelete(HKEY root, LPCWSTR path) {
  EXPECT_EQ(root, HKEY_LOCAL_MACHINE);
  g_deletions.emplace_back(path);
  return ERROR_ACCESS_DENIED;
}

// The bytes of `text` with its terminator.
std::vector<BYTE> TextBytes(const std::wstring& text) {
  std::vector<BYTE> bytes(2 * text.size() + 2);
  std::memcpy(bytes.data(), text.c_str(), bytes.size());
  return bytes;
}

std::vector<Setting> SourceSettings(const std::wstring& messageFile) {
  return {{L"EventMessageFile", 1, TextBytes(messageFile)},
          {L"TypesSupported", 4, {7, 0, 0, 0}},
          {L"CategoryMessageFile", 1, TextBytes(messageFile)},
          {L"CategoryCount", 4, {2, 0, 0, 0}}};
}
const std::wstring kMessageFile =
    L"C:\\windows\\system32\\Corvane_EventMessages.dll";

class EventSourceTest : public testing::Test {
 protected:
  EventSourceTest() {
    Clean();
    m_create.emplace(nullptr, "RegCreateKeyExW", &RecordCreation);
    m_set.emplace(nullptr, "RegSetValueExW", &RecordSetting);
    g_createKey = m_create->Original();
    g_setValue = m_set->Original();
    g_creations.clear();
    g_settings.clear();
    g_deletions.clear();
  }
  ~EventSourceTest() override {
    m_create.reset();
    m_set.reset();
    Clean();
  }
  static void Clean() {
    ::RegDeleteKeyW(HKEY_LOCAL_MACHINE, kInApplication.c_str());
    ::RegDeleteKeyW(HKEY_LOCAL_MACHINE, kInSystem.c_str());
    kova::test::DeleteLogMask(kName.c_str());
  }

  std::optional<ImportPatch<decltype(RegCreateKeyExW)>> m_create;
  std::optional<ImportPatch<decltype(RegSetValueExW)>> m_set;
  LogCapture m_capture;
};

TEST_F(EventSourceTest, PreparingWritesFourValuesInTheirOrder) {
  ::SetLastError(4660);
  EXPECT_TRUE(tk::PrepareEventSource(kName.c_str()));
  EXPECT_EQ(::GetLastError(), 4660u);
  EXPECT_THAT(g_creations,
              ElementsAre(Creation{kInApplication, 0, 0x20019 | 0x20006}));
  EXPECT_EQ(g_settings, SourceSettings(kMessageFile));
}

TEST_F(EventSourceTest, PreparingAnExistingSourceWritesNothing) {
  EXPECT_TRUE(tk::PrepareEventSource(kName.c_str()));
  g_settings.clear();
  const ImportPatch<decltype(RegDeleteKeyW)> remove(nullptr, "RegDeleteKeyW",
                                                    &FailToDelete);
  EXPECT_TRUE(tk::PrepareEventSource(kName.c_str()));
  EXPECT_THAT(g_settings, IsEmpty());
  EXPECT_THAT(g_deletions, IsEmpty());
}

TEST_F(EventSourceTest, ASystemSourceThatCannotBeDeletedDoesNotMatter) {
  const ImportPatch<decltype(RegDeleteKeyW)> remove(nullptr, "RegDeleteKeyW",
                                                    &FailToDelete);
  EXPECT_TRUE(tk::PrepareEventSource(kName.c_str()));
  EXPECT_THAT(g_deletions, ElementsAre(kInSystem));
  EXPECT_EQ(g_settings, SourceSettings(kMessageFile));
  EXPECT_THAT(m_capture.Lines(), IsEmpty());
}

LSTATUS WINAPI FailToCreateKey(HKEY, LPCWSTR, DWORD, LPWSTR, DWORD, REGSAM,
                               SECURITY_ATTRIBUTES*, HKEY*, DWORD*) {
  return ERROR_ACCESS_DENIED;
}

TEST_F(EventSourceTest, PreparingFailsWithoutAKeyOrAName) {
  EXPECT_FALSE(tk::PrepareEventSource(nullptr));
  const ImportPatch<decltype(RegCreateKeyExW)> patch(nullptr, "RegCreateKeyExW",
                                                     &FailToCreateKey);
  EXPECT_FALSE(tk::PrepareEventSource(kName.c_str()));
  EXPECT_THAT(m_capture.Lines(), IsEmpty());
}

TEST_F(EventSourceTest, ALoggerMakesItsSourceBeforeItOpensItsMask) {
  tk::Logger logger(kName, 0x20000000, {}, {}, 0);
  EXPECT_THAT(
      g_creations,
      ElementsAre(
          Creation{kInApplication, 0, KEY_ALL_ACCESS},
          Creation{L"SOFTWARE\\Corvane Tessaly\\Drivers\\DebugLogMasks\\", 0,
                   KEY_ALL_ACCESS}));
  std::vector<Setting> expected = SourceSettings(kMessageFile);
  expected.push_back({kName, 4, {0, 0, 0, 0x20}});
  EXPECT_EQ(g_settings, expected);
}

TEST_F(EventSourceTest, ALoggerLeavesAnExistingSourceAlone) {
  EXPECT_TRUE(tk::PrepareEventSource(kName.c_str()));
  g_settings.clear();
  tk::Logger logger(kName, 0, {}, {}, 0);
  EXPECT_THAT(g_settings, ElementsAre(Setting{kName, 4, {0, 0, 0, 0}}));
}

TEST_F(EventSourceTest, ALoggerOfTheSystemKindMakesItsSourceThere) {
  tk::Logger logger(kName, 0, {}, {}, 1);
  ASSERT_FALSE(g_creations.empty());
  EXPECT_EQ(g_creations[0], (Creation{kInSystem, 0, KEY_ALL_ACCESS}));
}

// What GetSystemDirectoryW gives; it tells how much room it needs where there
// is too little.
std::wstring g_systemFolder;
UINT WINAPI GiveSystemFolder(LPWSTR buffer, UINT characters) {
  EXPECT_EQ(characters, 260u);
  const UINT length = static_cast<UINT>(g_systemFolder.size());
  if (length >= characters) return length + 1;
  std::memcpy(buffer, g_systemFolder.c_str(), 2 * length + 2);
  return length;
}

TEST_F(EventSourceTest, TheSystemFolderMayHave259Characters) {
  const ImportPatch<decltype(GetSystemDirectoryW)> patch(
      nullptr, "GetSystemDirectoryW", &GiveSystemFolder);
  g_systemFolder = L"D:\\" + std::wstring(256, L's');
  EXPECT_TRUE(tk::PrepareEventSource(kName.c_str()));
  EXPECT_EQ(g_settings,
            SourceSettings(g_systemFolder + L"\\Corvane_EventMessages.dll"));
  Clean();
  g_settings.clear();
  g_systemFolder += L's';
  EXPECT_TRUE(tk::PrepareEventSource(kName.c_str()));
  EXPECT_EQ(g_settings, SourceSettings(L"\\Corvane_EventMessages.dll"));
}

TEST(EventSourceKeyPathTest, NamesTheLogByItsKind) {
  EXPECT_EQ(kova::EventSourceKeyPath(0, kName), kInApplication);
  EXPECT_EQ(kova::EventSourceKeyPath(1, kName), kInSystem);
  EXPECT_EQ(kova::EventSourceKeyPath(2, kName), kInApplication);
  EXPECT_EQ(kova::EventSourceKeyPath(0xFFFFFFFF, kName), kInApplication);
}

std::vector<std::wstring> g_masks;
std::vector<DWORD> g_asked;
LSTATUS WINAPI GiveMasks(HKEY, DWORD index, LPWSTR name, DWORD* characters,
                         DWORD*, DWORD*, BYTE*, DWORD*) {
  EXPECT_EQ(*characters, 261u);
  g_asked.push_back(index);
  if (index >= g_masks.size()) return ERROR_NO_MORE_ITEMS;
  std::memcpy(name, g_masks[index].c_str(), 2 * g_masks[index].size() + 2);
  *characters = static_cast<DWORD>(g_masks[index].size());
  return ERROR_SUCCESS;
}

// No key can have a name that long, but the names after it still count.
TEST_F(EventSourceTest, PopulatingGoesOnAfterANameThatCannotBeASource) {
  kova::test::SetLogMask(0, kName.c_str());
  g_creations.clear();
  const ImportPatch<decltype(RegEnumValueW)> patch(nullptr, "RegEnumValueW",
                                                   &GiveMasks);
  g_asked.clear();
  g_masks = {std::wstring(260, L'n'), kName};
  tk::Logger::PopulateEventSourceRegKeys();
  EXPECT_THAT(g_asked, ElementsAre(0u, 1u, 2u));
  ASSERT_EQ(g_creations.size(), 2u);
  EXPECT_EQ(g_creations[0].path, kLog + L"Application\\" + g_masks[0]);
  EXPECT_EQ(g_creations[1].path, kInApplication);
  EXPECT_THAT(m_capture.Lines(), IsEmpty());
  ::RegDeleteKeyW(HKEY_LOCAL_MACHINE, g_creations[0].path.c_str());
}

std::vector<REGSAM> g_access;
bool g_refuseReading = false;
decltype(RegOpenKeyExW)* g_openKey = nullptr;

LSTATUS WINAPI RefuseToOpenForWriting(HKEY root, LPCWSTR path, DWORD options,
                                      REGSAM access, HKEY* key) {
  EXPECT_STREQ(path, L"SOFTWARE\\Corvane Tessaly\\Drivers\\DebugLogMasks");
  g_access.push_back(access);
  if (g_refuseReading || (access & KEY_SET_VALUE) != 0) {
    return ERROR_ACCESS_DENIED;
  }
  return g_openKey(root, path, options, access, key);
}

TEST_F(EventSourceTest, PopulatingReadsMasksThatItMayNotWrite) {
  kova::test::SetLogMask(1, kName.c_str());
  const ImportPatch<decltype(RegOpenKeyExW)> patch(nullptr, "RegOpenKeyExW",
                                                   &RefuseToOpenForWriting);
  g_openKey = patch.Original();
  g_access.clear();
  g_refuseReading = false;
  tk::Logger::PopulateEventSourceRegKeys();
  EXPECT_THAT(g_access, ElementsAre(0x2001Fu, 0x20019u));
  EXPECT_THAT(g_creations,
              Contains(Creation{kInApplication, 0, 0x20019 | 0x20006}));
}

TEST_F(EventSourceTest, PopulatingSaysSoWhereTheMasksCannotBeRead) {
  const ImportPatch<decltype(RegOpenKeyExW)> patch(nullptr, "RegOpenKeyExW",
                                                   &RefuseToOpenForWriting);
  g_refuseReading = true;
  tk::Logger::PopulateEventSourceRegKeys();
  EXPECT_THAT(
      m_capture.Lines(),
      ElementsAre(L"Logger::PopulateEventSourceRegKeys  Cannot open registry "
                  L"key  HKEY_LOCAL_MACHINE:SOFTWARE\\Corvane Tessaly\\Drivers"
                  L"\\DebugLogMasks\n"));
}

}  // namespace
