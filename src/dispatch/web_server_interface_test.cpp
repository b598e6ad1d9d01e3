// Patched: loading, checking and initialising one extension library.
#include "dispatch/web_server_interface.h"

#include <gmock/gmock.h>

#include "test/support/dispatch_fixture.h"
#include "test/support/import_patch.h"

namespace {

using kova::test::DispatchFixture;
using kova::test::ExtensionRecord;
using kova::test::ImportPatch;
using kova::test::RestartForTests;
using kova::test::TestExtension;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr wchar_t kIncompatible[] =
    L"Error WebServerInterface::WebServerInterface: Driver doesn't have a "
    L"compatible Interface";

std::vector<std::string> g_names;
std::vector<HMODULE> g_freed;
std::vector<std::wstring> g_loaded;
decltype(::GetProcAddress)* g_getProcAddress = nullptr;
decltype(::FreeLibrary)* g_freeLibrary = nullptr;

FARPROC WINAPI NoteName(HMODULE module, LPCSTR name) {
  g_names.emplace_back(name);
  return g_getProcAddress(module, name);
}

BOOL WINAPI NoteFree(HMODULE module) {
  g_freed.push_back(module);
  return module == nullptr ? FALSE : g_freeLibrary(module);
}

HMODULE WINAPI RefuseLoad(LPCWSTR path) {
  g_loaded.emplace_back(path);
  ::SetLastError(0xDEADBEEF);
  return nullptr;
}

// Records what the code under test looks up and frees.
class LibraryCalls {
 public:
  LibraryCalls() {
    g_getProcAddress = m_names.Original();
    g_freeLibrary = m_frees.Original();
    g_names.clear();
    g_freed.clear();
  }

 private:
  const ImportPatch<decltype(::GetProcAddress)> m_names{
      nullptr, "GetProcAddress", &NoteName};
  const ImportPatch<decltype(::FreeLibrary)> m_frees{nullptr, "FreeLibrary",
                                                     &NoteFree};
};

class WebServerInterfaceTest : public DispatchFixture {
 protected:
  void SetUp() override { ASSERT_TRUE(m_extension.IsLoaded()); }

  void Offer(std::vector<uint32_t> versions) {
    ExtensionRecord& record = m_extension.Record();
    record.versionsWritten = static_cast<uint32_t>(versions.size());
    std::copy(versions.begin(), versions.end(), record.versions);
  }
  uint32_t Negotiate(std::vector<uint32_t> versions) {
    Offer(std::move(versions));
    return WebServerInterface(m_extension.LibraryPath(), &RestartForTests)
        .Version();
  }
  static void ExpectEmpty(const WebServerInterface& tested) {
    EXPECT_EQ(tested.Version(), 0u);
    EXPECT_EQ(tested.Context(), nullptr);
    EXPECT_EQ(tested.HandleServerRequest(), nullptr);
    EXPECT_EQ(tested.GetResponseLength(), nullptr);
    EXPECT_EQ(tested.GetResponse(), nullptr);
    EXPECT_EQ(tested.ReleaseResponse(), nullptr);
  }

  TestExtension m_extension{L"scripted"};
};

TEST_F(WebServerInterfaceTest, BecomesReadyInThreeCalls) {
  const WebServerInterface tested(m_extension.LibraryPath(), &RestartForTests);
  EXPECT_EQ(m_extension.Trace(), "VSI");
  EXPECT_EQ(tested.Version(), 1u);
  EXPECT_EQ(tested.Context(), &m_extension.Record());
  EXPECT_NE(tested.HandleServerRequest(), nullptr);
  EXPECT_NE(tested.ReleaseResponse(), nullptr);
  EXPECT_EQ(m_extension.Record().restart, &RestartForTests);
  EXPECT_THAT(m_capture.Lines(), IsEmpty());
}

TEST_F(WebServerInterfaceTest, ResolvesItsEntriesInOrder) {
  {
    const LibraryCalls calls;
    const WebServerInterface tested(m_extension.LibraryPath(),
                                    &RestartForTests);
    EXPECT_THAT(g_freed, IsEmpty());
  }
  EXPECT_THAT(g_names,
              ElementsAre("WSIE_GetInterfaceVersionsSupported",
                          "WSIE_WebServerInitialize",
                          "WSIE_GetInterfaceVersionsSupported",
                          "WSIE_HandleServerRequest", "WSIE_GetResponseLength",
                          "WSIE_GetResponse", "WSIE_ReleaseResponse",
                          "WSIE_SetKOVAServerRestartRoutine"));
}

TEST_F(WebServerInterfaceTest, OffersTenZeroedVersions) {
  EXPECT_EQ(Negotiate({1}), 1u);
  EXPECT_EQ(m_extension.Record().capacity, 10u);
  EXPECT_EQ(m_extension.Record().nonZeroVersionsOnEntry, 0u);
}

TEST_F(WebServerInterfaceTest, TakesVersion1InAnyPosition) {
  for (size_t one = 0; one < 10; ++one) {
    std::vector<uint32_t> versions(10, 2);
    versions[(one + 1) % 10] = 3;
    versions[one] = 1;
    EXPECT_EQ(Negotiate(versions), 1u) << one;
  }
  EXPECT_EQ(Negotiate({2, 3, 1}), 1u);
  EXPECT_EQ(Negotiate({0, 0, 1, 1}), 1u);
  EXPECT_EQ(m_extension.Trace().find_first_not_of("VSI"), std::string::npos);
  EXPECT_THAT(m_capture.Lines(), IsEmpty());
}

TEST_F(WebServerInterfaceTest, RefusesEveryOtherOffer) {
  const std::vector<uint32_t> kOffers[] = {
      {},
      {2},
      {0},
      {0x01000000, 0x00010000, 0x0101, 0xFFFFFFFF},
      std::vector<uint32_t>(10, 2),
  };
  for (const auto& offer : kOffers) {
    EXPECT_EQ(Negotiate(offer), 0u);
    EXPECT_THAT(m_capture.Take(), ElementsAre(kIncompatible));
  }
  EXPECT_EQ(m_extension.Trace(), "VVVVV");
}

TEST_F(WebServerInterfaceTest, AnIncompatibleLibraryIsUnloaded) {
  const std::wstring path = kova::test::ExtensionFolder(L"version_2") + L"\\" +
                            KOVA_EXTENSION_FILE_NAME;
  const LibraryCalls calls;
  const WebServerInterface tested(path, &RestartForTests);
  ExpectEmpty(tested);
  EXPECT_THAT(g_freed, ElementsAre(testing::NotNull()));
  EXPECT_THAT(g_names, ElementsAre("WSIE_GetInterfaceVersionsSupported"));
  EXPECT_EQ(::GetModuleHandleW(path.c_str()), nullptr);
  EXPECT_THAT(m_capture.Lines(), ElementsAre(kIncompatible));
}

TEST_F(WebServerInterfaceTest, ALibraryWithoutVersionsIsIncompatible) {
  const std::wstring path = kova::test::ExtensionFolder(L"no_versions") +
                            L"\\" + KOVA_EXTENSION_FILE_NAME;
  const WebServerInterface tested(path, &RestartForTests);
  ExpectEmpty(tested);
  EXPECT_EQ(::GetModuleHandleW(path.c_str()), nullptr);
  EXPECT_THAT(m_capture.Lines(),
              ElementsAre(Missing(L"WSIE_GetInterfaceVersionsSupported"),
                          kIncompatible));
}

TEST_F(WebServerInterfaceTest, AFailedInitialisationUnloads) {
  TestExtension extension(L"null_context");
  ASSERT_TRUE(extension.IsLoaded());
  const LibraryCalls calls;
  const WebServerInterface tested(extension.LibraryPath(), &RestartForTests);
  ExpectEmpty(tested);
  EXPECT_EQ(extension.Trace(), "VSI");
  EXPECT_THAT(g_freed,
              ElementsAre(::GetModuleHandleW(extension.LibraryPath().c_str())));
  EXPECT_THAT(m_capture.Lines(),
              ElementsAre(L"Error WebServerInterface::WebServerInterface: "
                          L"WSIWebServerInitialize Failed"));
}

TEST_F(WebServerInterfaceTest, WithoutAnInitialiserItStaysLoaded) {
  TestExtension extension(L"no_initialize");
  ASSERT_TRUE(extension.IsLoaded());
  const LibraryCalls calls;
  const WebServerInterface tested(extension.LibraryPath(), &RestartForTests);
  EXPECT_EQ(tested.Context(), nullptr);
  EXPECT_EQ(tested.Version(), 1u);
  EXPECT_NE(tested.HandleServerRequest(), nullptr);
  EXPECT_THAT(g_freed, IsEmpty());
  EXPECT_EQ(extension.Trace(), "VS");
}

TEST_F(WebServerInterfaceTest, AFailedLoadNamesPathAndError) {
  const std::wstring path = L"C:\\a b\\\\Corvane_V3_NetMon.dll";
  g_loaded.clear();
  const ImportPatch<decltype(::LoadLibraryW)> refused(nullptr, "LoadLibraryW",
                                                      &RefuseLoad);
  const LibraryCalls calls;
  const WebServerInterface tested(path, &RestartForTests);
  ExpectEmpty(tested);
  EXPECT_THAT(g_loaded, ElementsAre(path));
  EXPECT_THAT(g_names, IsEmpty());
  EXPECT_THAT(g_freed, IsEmpty());
  EXPECT_THAT(m_capture.Lines(),
              ElementsAre(L"Error WebServerInterface::WebServerInterface: "
                          L"LoadLibrary failed on \"" +
                          path + L" GetLastError: 0xDEADBEEF"));
}

TEST_F(WebServerInterfaceTest, AFileThatIsNoLibraryFailsToLoad) {
  const std::wstring path = L"C:\\windows\\win.ini";
  const WebServerInterface tested(path, &RestartForTests);
  ExpectEmpty(tested);
  ASSERT_EQ(m_capture.Lines().size(), 1u);
  EXPECT_TRUE(m_capture.Lines()[0].starts_with(
      L"Error WebServerInterface::WebServerInterface: LoadLibrary failed on "
      L"\"C:\\windows\\win.ini GetLastError: 0x"));
}

TEST_F(WebServerInterfaceTest, ItsEndFreesOnlyWhatIsNotLoaded) {
  const LibraryCalls calls;
  {
    const WebServerInterface ready(m_extension.LibraryPath(), nullptr);
  }
  EXPECT_THAT(g_freed, IsEmpty());
  {
    const WebServerInterface missing(L"C:\\KOVA nothing.dll", nullptr);
  }
  EXPECT_THAT(g_freed, ElementsAre(nullptr));
}

}  // namespace
