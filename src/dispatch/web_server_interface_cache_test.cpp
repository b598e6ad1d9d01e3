// Patched: one interface per library path, however many requests there are.
#include <gmock/gmock.h>

#include <atomic>
#include <mutex>
#include <thread>

#include "test/support/dispatch_fixture.h"
#include "test/support/import_patch.h"

namespace {

using kova::CreateExtensionCache;
using kova::DestroyExtensionCache;
using kova::UniqueKernelHandle;
using kova::test::BadRequest;
using kova::test::DemoPrinter;
using kova::test::DispatchFixture;
using kova::test::ExtensionFolder;
using kova::test::ExtensionPrinter;
using kova::test::ImportPatch;
using kova::test::TestExtension;
using testing::ElementsAre;

std::mutex g_mutex;
std::vector<std::wstring> g_loads;
std::vector<HMODULE> g_freed;
decltype(::LoadLibraryW)* g_loadLibrary = nullptr;

HMODULE WINAPI NoteLoad(LPCWSTR path) {
  const std::lock_guard<std::mutex> lock(g_mutex);
  g_loads.emplace_back(path);
  return g_loadLibrary(path);
}

BOOL WINAPI NoteFree(HMODULE module) {
  g_freed.push_back(module);
  return TRUE;
}

class ExtensionCacheTest : public DispatchFixture {
 protected:
  ExtensionCacheTest() {
    g_loadLibrary = m_loads.Original();
    g_loads.clear();
    g_freed.clear();
  }
  static WebServerInterface* Interface(const wchar_t* printer) {
    return WebServerInterface::GetV3WebServerInterface(printer);
  }
  static std::wstring PathOf(const wchar_t* extension) {
    return ExtensionFolder(extension) + L"\\" + KOVA_EXTENSION_FILE_NAME;
  }

  const ImportPatch<decltype(::LoadLibraryW)> m_loads{nullptr, "LoadLibraryW",
                                                      &NoteLoad};
};

TEST_F(ExtensionCacheTest, TwoPrintersOfAPackageShareOneInterface) {
  ExtensionPrinter first(L"scripted", L"KOVA A");
  const ExtensionPrinter second(L"scripted", L"KOVA B");
  first.Extension().Forget();
  g_loads.clear();
  Dispatch(Get("/?printer=KOVA+A"));
  Dispatch(Get("/?printer=KOVA+B"));
  Dispatch(Get("/?printer=KOVA+A"));
  EXPECT_EQ(first.Extension().Trace(), "VSIHLCRHLCRHLCR");
  EXPECT_THAT(g_loads, ElementsAre(PathOf(L"scripted")));
}

TEST_F(ExtensionCacheTest, TwoSpellingsOfAPathAreTwoEntries) {
  TestExtension extension(L"scripted");
  DemoPrinter first(L"KOVA A");
  DemoPrinter second(L"KOVA B");
  std::wstring other = ExtensionFolder(L"scripted");
  other.replace(other.rfind(L"scripted"), 8, L"SCRIPTED");
  ASSERT_TRUE(first.SetDriverPackage(ExtensionFolder(L"scripted")));
  ASSERT_TRUE(second.SetDriverPackage(other));
  g_loads.clear();
  const std::string request = Get("/?printer=KOVA+B");
  Dispatch(Get("/?printer=KOVA+A"));
  EXPECT_EQ(Dispatch(request), Echo(request));
  Dispatch(Get("/?printer=KOVA+A"));
  EXPECT_THAT(g_loads, ElementsAre(PathOf(L"scripted"),
                                   other + L"\\" + KOVA_EXTENSION_FILE_NAME));
  EXPECT_EQ(extension.Trace(), "VSIHLCRVSIHLCRHLCR");
}

TEST_F(ExtensionCacheTest, KeepsWhatFailedAndNeverTriesAgain) {
  const wchar_t* const kFailing[] = {L"version_2", L"null_context",
                                     L"no_versions", L"nothing there"};
  for (const wchar_t* const name : kFailing) {
    DemoPrinter printer(L"KOVA A");
    ASSERT_TRUE(printer.SetDriverPackage(ExtensionFolder(name)));
    g_loads.clear();
    EXPECT_EQ(Dispatch(Get("/?printer=KOVA+A")), BadRequest());
    m_capture.Take();
    EXPECT_EQ(Dispatch(Get("/?printer=KOVA+A")), BadRequest());
    EXPECT_THAT(m_capture.Take(),
                ElementsAre(Found(L"KOVA A", PathOf(name)),
                            Failed(L"WSIHandleServerRequest", L"KOVA A"),
                            Responding()));
    EXPECT_THAT(g_loads, ElementsAre(PathOf(name)));
  }
}

TEST_F(ExtensionCacheTest, APrinterMayMoveToAnotherPackage) {
  ExtensionPrinter kept(L"no_restart", L"KOVA A");
  DemoPrinter moved(L"KOVA B");
  ASSERT_TRUE(moved.SetDriverPackage(ExtensionFolder(L"version_2")));
  EXPECT_EQ(Dispatch(Get("/?printer=KOVA+B")), BadRequest());
  ASSERT_TRUE(moved.SetDriverPackage(ExtensionFolder(L"no_restart")));
  const std::string request = Get("/?printer=KOVA+B");
  EXPECT_EQ(Dispatch(request), Echo(request));
  EXPECT_EQ(kept.Extension().Trace(), "VIHLCR");
}

TEST_F(ExtensionCacheTest, FirstRequestsAtOnceInitialiseOnce) {
  ExtensionPrinter printer(L"scripted", L"KOVA A");
  g_loads.clear();
  constexpr int kThreads = 12;
  const std::string request = Get("/?printer=KOVA+A");
  const std::string expected = Echo(request);
  const UniqueKernelHandle go(::CreateEventW(nullptr, TRUE, FALSE, nullptr));
  std::atomic<int> good{0};
  std::vector<std::thread> threads;
  for (int i = 0; i < kThreads; ++i) {
    threads.emplace_back([&] {
      ::WaitForSingleObject(go.Get(), INFINITE);
      kova::ByteBuffer answer;
      uint32_t keepOpen = 0;
      kova::DispatchRequest(
          request.data(), static_cast<uint32_t>(request.size()), answer,
          &keepOpen, OString(kova::test::kNarrowClientAddress));
      if (std::string(answer.Data(), answer.Size()) == expected) ++good;
    });
  }
  ::SetEvent(go.Get());
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(good, kThreads);
  EXPECT_THAT(g_loads, ElementsAre(PathOf(L"scripted")));
  EXPECT_EQ(printer.Extension().Trace().substr(0, 3), "VSI");
  EXPECT_EQ(printer.Extension().Count('I'), 1);
  EXPECT_EQ(printer.Extension().Count('R'), kThreads);
  EXPECT_EQ(printer.Extension().Record().live, 0);
}

TEST_F(ExtensionCacheTest, LookUpsWaitWhileALibraryInitialises) {
  ExtensionPrinter slow(L"scripted", L"KOVA A");
  ExtensionPrinter fresh(L"no_restart", L"KOVA B");
  ExtensionPrinter loaded(L"no_copy", L"KOVA C");
  ASSERT_NE(Interface(L"KOVA C"), nullptr);
  const UniqueKernelHandle entered(
      ::CreateEventW(nullptr, FALSE, FALSE, nullptr));
  const UniqueKernelHandle gate(::CreateEventW(nullptr, TRUE, FALSE, nullptr));
  const UniqueKernelHandle found(::CreateSemaphoreW(nullptr, 0, 2, nullptr));
  slow.Extension().Record().entered = entered.Get();
  slow.Extension().Record().initializeGate = gate.Get();
  std::thread first([&] { (void)Interface(L"KOVA A"); });
  ASSERT_EQ(::WaitForSingleObject(entered.Get(), 10000), WAIT_OBJECT_0);
  std::vector<std::thread> others;
  for (const wchar_t* printer : {L"KOVA B", L"KOVA C"}) {
    others.emplace_back([&found, printer] {
      (void)Interface(printer);
      ::ReleaseSemaphore(found.Get(), 1, nullptr);
    });
  }
  EXPECT_EQ(::WaitForSingleObject(found.Get(), 100), WAIT_TIMEOUT);
  EXPECT_EQ(fresh.Extension().Trace(), "");
  ::SetEvent(gate.Get());
  first.join();
  for (std::thread& other : others) other.join();
  EXPECT_EQ(fresh.Extension().Count('I'), 1);
  slow.Extension().Forget();
}

HANDLE g_cacheMutex = nullptr;
decltype(::CreateMutexW)* const g_createMutex = &::CreateMutexW;
HANDLE WINAPI NoteMutex(LPSECURITY_ATTRIBUTES security, BOOL owned,
                        LPCWSTR name) {
  return g_cacheMutex = g_createMutex(security, owned, name);
}

int g_waits = 0;
decltype(::WaitForSingleObjectEx)* const g_wait = &::WaitForSingleObjectEx;
DWORD WINAPI CountWait(HANDLE handle, DWORD timeoutMs, BOOL alertable) {
  if (handle == g_cacheMutex) ++g_waits;
  return g_wait(handle, timeoutMs, alertable);
}

TEST_F(ExtensionCacheTest, OnlyTheFirstLookUpOfALibraryTakesTheLock) {
  ExtensionPrinter printer(L"scripted", L"KOVA A");
  DestroyExtensionCache();
  {
    const ImportPatch<decltype(::CreateMutexW)> patch(nullptr, "CreateMutexW",
                                                      &NoteMutex);
    CreateExtensionCache(nullptr);
  }
  const ImportPatch<decltype(::WaitForSingleObjectEx)> patch(
      nullptr, "WaitForSingleObjectEx", &CountWait);
  g_waits = 0;
  WebServerInterface* const made = Interface(L"KOVA A");
  EXPECT_EQ(g_waits, 1);
  EXPECT_EQ(Interface(L"KOVA A"), made);
  EXPECT_EQ(g_waits, 1);
}

TEST_F(ExtensionCacheTest, RequestsInsideAnExtensionHoldNobodyUp) {
  ExtensionPrinter printer(L"scripted", L"KOVA A");
  kova::test::ExtensionGate gate(printer.Extension());
  kova::ByteBuffer answer;
  std::thread waiting([&] {
    const std::string request = Get("/?printer=KOVA+A&act=wait");
    uint32_t keepOpen = 0;
    kova::DispatchRequest(request.data(), static_cast<uint32_t>(request.size()),
                          answer, &keepOpen,
                          OString(kova::test::kNarrowClientAddress));
  });
  EXPECT_TRUE(gate.WaitForArrival());
  const std::string request = Get("/?printer=KOVA+A");
  EXPECT_EQ(Dispatch(request), Echo(request));
  EXPECT_EQ(answer.Size(), 0u);
  gate.Open();
  waiting.join();
  EXPECT_NE(answer.Size(), 0u);
}

TEST_F(ExtensionCacheTest, ItsEndKeepsLibrariesLoaded) {
  const ExtensionPrinter ready(L"scripted", L"KOVA A");
  const ExtensionPrinter incompatible(L"version_2", L"KOVA B");
  DemoPrinter missing(L"KOVA C");
  ASSERT_TRUE(missing.SetDriverPackage(ExtensionFolder(L"nothing there")));
  for (const wchar_t* const printer : {L"KOVA A", L"KOVA B", L"KOVA C"}) {
    EXPECT_NE(Interface(printer), nullptr);
  }
  const ImportPatch<decltype(::FreeLibrary)> frees(nullptr, "FreeLibrary",
                                                   &NoteFree);
  DestroyExtensionCache();
  EXPECT_THAT(g_freed, ElementsAre(nullptr, nullptr));
  EXPECT_EQ(Interface(L"KOVA A"), nullptr);
  DestroyExtensionCache();
  EXPECT_EQ(g_freed.size(), 2u);
}

TEST_F(ExtensionCacheTest, WithoutACacheThereIsNoInterface) {
  const ExtensionPrinter printer(L"scripted", L"KOVA A");
  DestroyExtensionCache();
  EXPECT_EQ(Dispatch(Get("/?printer=KOVA+A")), BadRequest());
  EXPECT_THAT(m_capture.Lines(),
              testing::Contains(Failed(L"GetV3WebServerInterface", L"KOVA A")));
}

TEST_F(ExtensionCacheTest, ANewCacheLoadsAndInitialisesAnew) {
  ExtensionPrinter printer(L"scripted", L"KOVA A");
  Dispatch(Get("/?printer=KOVA+A"));
  DestroyExtensionCache();
  CreateExtensionCache(&kova::test::RestartForTests);
  const std::string request = Get("/?printer=KOVA+A");
  EXPECT_EQ(Dispatch(request), Echo(request));
  EXPECT_EQ(printer.Extension().Trace(), "VSIHLCRVSIHLCR");
}

}  // namespace
