// Patched: the machine's folders; chosen calls are replaced.
#include "crash/dump.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cwchar>
#include <filesystem>
#include <string>
#include <vector>

#include "base/windows_api.h"
#include "test/support/import_patch.h"

namespace {

using kova::test::ImportPatch;

bool IsFolder(const std::wstring& path) {
  const DWORD attributes = ::GetFileAttributesW(path.c_str());
  return attributes != INVALID_FILE_ATTRIBUTES &&
         (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
}

HMODULE WINAPI LoadNothing(LPCWSTR name) {
  EXPECT_STREQ(name, L"Shell32.dll");
  return nullptr;
}

HRESULT WINAPI RefuseFolder(HWND owner, int folder, HANDLE token, DWORD flags,
                            LPWSTR path) {
  EXPECT_EQ(owner, nullptr);
  EXPECT_EQ(folder, 0x8023);
  EXPECT_EQ(token, nullptr);
  EXPECT_EQ(flags, 0u);
  path[0] = L'C';
  return E_FAIL;
}

bool g_hasFunction = false;

FARPROC WINAPI FindRefusal(HMODULE, LPCSTR name) {
  EXPECT_STREQ(name, "SHGetFolderPathW");
  if (!g_hasFunction) return nullptr;
  return reinterpret_cast<FARPROC>(reinterpret_cast<void*>(&RefuseFolder));
}

int g_freed = 0;
BOOL WINAPI CountFree(HMODULE) {
  ++g_freed;
  return TRUE;
}

TEST(CommonAppDataFolderTest, IsAnExistingFolder) {
  const std::wstring folder = GetCommonAppDataFolder();
  EXPECT_NE(folder, L"");
  EXPECT_TRUE(IsFolder(folder));
}

TEST(CommonAppDataFolderTest, IsEmptyWithoutTheShellLibrary) {
  const ImportPatch<decltype(LoadLibraryW)> patch(nullptr, "LoadLibraryW",
                                                  &LoadNothing);
  EXPECT_EQ(GetCommonAppDataFolder(), L"");
}

TEST(CommonAppDataFolderTest, IsEmptyWhereTheShellHasOrKnowsNone) {
  const ImportPatch<decltype(GetProcAddress)> find(nullptr, "GetProcAddress",
                                                   &FindRefusal);
  const ImportPatch<decltype(FreeLibrary)> free(nullptr, "FreeLibrary",
                                                &CountFree);
  g_freed = 0;
  g_hasFunction = false;
  EXPECT_EQ(GetCommonAppDataFolder(), L"");
  EXPECT_EQ(g_freed, 1);
  g_hasFunction = true;
  EXPECT_EQ(GetCommonAppDataFolder(), L"");
  EXPECT_EQ(g_freed, 2);
}

DWORD WINAPI TempPathFails(DWORD, LPWSTR) { return 0; }
DWORD WINAPI TempPathIsTooLong(DWORD size, LPWSTR) {
  EXPECT_EQ(size, 260u);
  return 261;
}

TEST(TempFolderTest, EndsInABackslash) {
  const std::wstring folder = GetTempFolder();
  ASSERT_NE(folder, L"");
  EXPECT_EQ(folder.back(), L'\\');
  EXPECT_TRUE(IsFolder(folder));
}

TEST(TempFolderTest, IsEmptyWhereItCannotBeHad) {
  {
    const ImportPatch<decltype(GetTempPathW)> patch(nullptr, "GetTempPathW",
                                                    &TempPathFails);
    EXPECT_EQ(GetTempFolder(), L"");
  }
  const ImportPatch<decltype(GetTempPathW)> patch(nullptr, "GetTempPathW",
                                                  &TempPathIsTooLong);
  EXPECT_EQ(GetTempFolder(), L"");
}

class CreateSubdirectoriesTest : public testing::Test {
 protected:
  CreateSubdirectoriesTest() { Clean(); }
  ~CreateSubdirectoriesTest() override { Clean(); }

  void Clean() {
    for (const wchar_t* part : {L"a\\b\\c", L"a\\b", L"a", L""}) {
      ::RemoveDirectoryW((m_base + L"\\" + part).c_str());
    }
    ::DeleteFileW((m_base + L"\\a").c_str());
    ::CreateDirectoryW(m_base.c_str(), nullptr);
  }
  void MakeFile(const std::wstring& path) {
    ::CloseHandle(::CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr,
                                CREATE_NEW, 0, nullptr));
  }

  const std::wstring m_base = GetTempFolder() + L"kova_folders_test";
};

TEST_F(CreateSubdirectoriesTest, MakesEveryLevel) {
  EXPECT_TRUE(CreateSubdirectories(m_base, L"a/b\\c"));
  EXPECT_TRUE(IsFolder(m_base + L"\\a\\b\\c"));
  EXPECT_TRUE(CreateSubdirectories(m_base, L"a/b/c"));
}

TEST_F(CreateSubdirectoriesTest, FillsUpWhatIsMissing) {
  ASSERT_TRUE(::CreateDirectoryW((m_base + L"\\a").c_str(), nullptr));
  EXPECT_TRUE(CreateSubdirectories(m_base + L"\\", L"a//b/"));
  EXPECT_TRUE(IsFolder(m_base + L"\\a\\b"));
}

TEST_F(CreateSubdirectoriesTest, AnEmptyRelativePathIsThereAlready) {
  EXPECT_TRUE(CreateSubdirectories(m_base, L""));
}

TEST_F(CreateSubdirectoriesTest, RefusesPathsThatLeaveTheBase) {
  const std::wstring outside = GetTempFolder() + L"kova_folders_test_outside";
  const std::wstring drive = outside.substr(0, 2);
  const std::wstring rooted = outside.substr(2);
  for (const std::wstring& path :
       {outside, rooted, L"/" + rooted, drive + L"kova_folders_test_outside",
        drive, std::wstring(L"\\\\host\\share\\x"),
        std::wstring(L"//host/share/x"), std::wstring(L".."),
        std::wstring(L".\\..\\kova_folders_test_outside"),
        std::wstring(L"..\\kova_folders_test_outside"),
        std::wstring(L"a\\..\\..\\kova_folders_test_outside")}) {
    EXPECT_FALSE(CreateSubdirectories(m_base, path));
    EXPECT_FALSE(IsFolder(outside));
    ::RemoveDirectoryW(outside.c_str());
  }
  EXPECT_FALSE(IsFolder(m_base + L"\\a"));
}

TEST_F(CreateSubdirectoriesTest, TakesDotsThatStayWithinTheBase) {
  EXPECT_TRUE(CreateSubdirectories(m_base, L"./a/../a/b/."));
  EXPECT_TRUE(IsFolder(m_base + L"\\a\\b"));
}

TEST_F(CreateSubdirectoriesTest, FailsWithoutABaseFolder) {
  EXPECT_FALSE(CreateSubdirectories(m_base + L"\\missing", L"a"));
  EXPECT_FALSE(CreateSubdirectories(L"", L"a"));
  MakeFile(m_base + L"\\a");
  EXPECT_FALSE(CreateSubdirectories(m_base + L"\\a", L"b"));
}

TEST_F(CreateSubdirectoriesTest, StopsWhereALevelCannotBeMade) {
  MakeFile(m_base + L"\\a");
  EXPECT_FALSE(CreateSubdirectories(m_base, L"a/b"));
  EXPECT_FALSE(IsFolder(m_base + L"\\a"));
}

std::vector<std::wstring> g_made;

BOOL WINAPI MadeFoldersAreThere(LPCWSTR path, GET_FILEEX_INFO_LEVELS,
                                LPVOID data) {
  const bool isBase = std::wcscmp(path, L"C:\\base") == 0;
  const auto made = std::find(g_made.begin(), g_made.end(), path);
  static_cast<WIN32_FILE_ATTRIBUTE_DATA*>(data)->dwFileAttributes =
      FILE_ATTRIBUTE_DIRECTORY;
  return isBase || made != g_made.end();
}

BOOL WINAPI Make(LPCWSTR path, LPSECURITY_ATTRIBUTES) {
  g_made.emplace_back(path);
  return TRUE;
}

// What the standard library's way of walking a path makes of it.
bool MakesAsTheStandardDoes(const std::filesystem::path& relative,
                            std::vector<std::wstring>& made) {
  if (relative.has_root_path()) return false;
  int depth = 0;
  for (const auto& level : relative) {
    if (level != L"." && !level.empty()) depth += level == L".." ? -1 : 1;
    if (depth < 0) return false;
  }
  std::filesystem::path path = L"C:\\base";
  for (const auto& level : relative) {
    if (level.empty()) continue;
    path /= level;
    if (std::find(made.begin(), made.end(), path.native()) == made.end()) {
      made.push_back(path.native());
    }
  }
  return true;
}

TEST(EveryRelativePathTest, IsWalkedAsTheStandardLibraryDoes) {
  const ImportPatch<decltype(GetFileAttributesExW)> there(
      nullptr, "GetFileAttributesExW", &MadeFoldersAreThere);
  const ImportPatch<decltype(CreateDirectoryW)> make(nullptr,
                                                     "CreateDirectoryW", &Make);
  constexpr wchar_t kUnits[] = {L'a', L'.', L'/', L'\\', L':'};
  std::vector<std::wstring> paths = {L""};
  for (size_t i = 0; i < paths.size(); ++i) {
    g_made.clear();
    std::vector<std::wstring> expected;
    const bool canBeMade = MakesAsTheStandardDoes(paths[i], expected);
    EXPECT_EQ(CreateSubdirectories(L"C:\\base", paths[i]), canBeMade)
        << paths[i];
    EXPECT_EQ(g_made, expected) << paths[i];
    if (paths[i].size() == 6) continue;
    for (const wchar_t unit : kUnits) paths.push_back(paths[i] + unit);
  }
}

}  // namespace
