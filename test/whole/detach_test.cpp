// Whole: what becomes of extensions when the server library goes.
#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

#include "test/support/demo_printer.h"
#include "test/support/import_patch.h"
#include "test/support/server_fixture.h"
#include "test/support/test_client.h"
#include "test/support/test_extension.h"

namespace {

using kova::test::DemoPrinter;
using kova::test::ExtensionFolder;
using kova::test::FindImportSlot;
using kova::test::WriteImportSlot;

std::vector<HMODULE> g_freed;
decltype(::FreeLibrary)* g_freeLibrary = nullptr;

BOOL WINAPI NoteFree(HMODULE module) {
  g_freed.push_back(module);
  return module == nullptr ? FALSE : g_freeLibrary(module);
}

HMODULE LoadedFrom(const wchar_t* extension) {
  const std::wstring path =
      ExtensionFolder(extension) + L"\\" + KOVA_EXTENSION_FILE_NAME;
  return ::GetModuleHandleW(path.c_str());
}

TEST(DetachTest, ExtensionsStayLoadedAndOnlyNullModulesAreFreed) {
  kova::test::ServerFixture server;
  ASSERT_TRUE(server.IsLoaded());
  DemoPrinter printer(L"KOVA detach");
  server.Start();
  const wchar_t* const kExtensions[] = {L"no_release", L"version_2",
                                        L"null_context"};
  for (const wchar_t* const extension : kExtensions) {
    ASSERT_TRUE(printer.SetDriverPackage(ExtensionFolder(extension)));
    EXPECT_NE(kova::test::Ask(server.Port(),
                              "GET /?printer=KOVA+detach HTTP/1.1\r\n\r\n"),
              "");
  }
  server.Stop();
  const HMODULE kept = LoadedFrom(L"no_release");
  EXPECT_NE(kept, nullptr);
  // Never written back: the slot goes with the library.
  void** const slot = FindImportSlot(server.Module(), "FreeLibrary");
  ASSERT_NE(slot, nullptr);
  g_freed.clear();
  g_freeLibrary = reinterpret_cast<decltype(::FreeLibrary)*>(
      kova::test::ReadImportSlot(slot));
  WriteImportSlot(slot, reinterpret_cast<void*>(&NoteFree));
  EXPECT_TRUE(server.Unload());
  EXPECT_EQ(std::count(g_freed.begin(), g_freed.end(), nullptr), 2);
  EXPECT_EQ(std::count(g_freed.begin(), g_freed.end(), kept), 0);
  EXPECT_EQ(LoadedFrom(L"no_release"), kept);
  EXPECT_EQ(LoadedFrom(L"version_2"), nullptr);
  EXPECT_EQ(LoadedFrom(L"null_context"), nullptr);
}

}  // namespace
