// Patched: what a thread's loggers are made from, and how long they are kept.
#include "log/log_storage.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "base/windows_api.h"
#include "test/support/import_patch.h"
#include "test/support/log_capture.h"

namespace {

using kova::test::DeleteLogMask;
using kova::test::ImportPatch;
using testing::ElementsAre;
using tk::CreateLogger;
using tk::LogChannel;

constexpr wchar_t kName[] = L"test log storage";
constexpr wchar_t kOther[] = L"test log storage, other";

class LogStorageTest : public testing::Test {
 protected:
  ~LogStorageTest() override {
    DeleteLogMask(kName);
    DeleteLogMask(kOther);
  }
};

TEST_F(LogStorageTest, EachThreadHasOneOfItsOwn) {
  const auto storage = tk::LogStorage::OfThisThread();
  EXPECT_EQ(tk::LogStorage::OfThisThread(), storage);
  EXPECT_EQ(storage->SinkFactories().size(), 3u);
  EXPECT_EQ(storage->FormatterFactories().size(), 1u);
  std::weak_ptr<tk::LogStorage> elsewhere;
  std::thread([&] {
    elsewhere = tk::LogStorage::OfThisThread();
    EXPECT_NE(elsewhere.lock(), storage);
  }).join();
  EXPECT_TRUE(elsewhere.expired());
}

BOOL WINAPI FailToKeep(DWORD, void*) { return FALSE; }

TEST_F(LogStorageTest, IsFreedByItsUsersWhereTheThreadCannotKeepIt) {
  std::thread([] {
    const ImportPatch<decltype(FlsSetValue)> patch(nullptr, "FlsSetValue",
                                                   &FailToKeep);
    std::shared_ptr<tk::LogStorage> storage = tk::LogStorage::OfThisThread();
    ASSERT_NE(storage, nullptr);
    EXPECT_EQ(storage.use_count(), 1);
    EXPECT_NE(tk::LogStorage::OfThisThread(), storage);
    const std::weak_ptr<tk::LogStorage> watch = storage;
    storage.reset();
    EXPECT_TRUE(watch.expired());
  }).join();
}

TEST_F(LogStorageTest, AloneKeepsALogger) {
  std::weak_ptr<tk::Logger> watch;
  std::thread([&] {
    watch = CreateLogger(kName, 0);
    EXPECT_FALSE(watch.expired());
    EXPECT_EQ(CreateLogger(kName, 0), watch.lock());
    EXPECT_EQ(watch.use_count(), 1);
  }).join();
  EXPECT_TRUE(watch.expired());
}

TEST_F(LogStorageTest, GivesOneLoggerPerNameAndThread) {
  const auto logger = CreateLogger(kName, 0);
  EXPECT_EQ(CreateLogger(kName, 0), logger);
  EXPECT_NE(CreateLogger(kOther, 0), logger);
  std::shared_ptr<tk::Logger> elsewhere;
  std::thread([&] { elsewhere = CreateLogger(kName, 0); }).join();
  EXPECT_NE(elsewhere, nullptr);
  EXPECT_NE(elsewhere, logger);
}

// The calls of all sinks, in order.
std::vector<std::string> g_calls;

HANDLE WINAPI GiveSource(LPCWSTR, LPCWSTR) {
  return reinterpret_cast<HANDLE>(uintptr_t{0x4660});
}
BOOL WINAPI NoteReport(HANDLE, WORD, WORD, DWORD, PSID, WORD, DWORD, LPCWSTR*,
                       LPVOID) {
  g_calls.emplace_back("event log");
  return TRUE;
}
HANDLE WINAPI RefuseFile(LPCWSTR, DWORD, DWORD, SECURITY_ATTRIBUTES*, DWORD,
                         DWORD, HANDLE) {
  g_calls.emplace_back("file");
  return INVALID_HANDLE_VALUE;
}
void WINAPI NoteShown(LPCWSTR) { g_calls.emplace_back("debugger"); }

class DefaultSinksTest : public testing::Test {
 protected:
  DefaultSinksTest() {
    g_calls.clear();
    Clean();
  }
  ~DefaultSinksTest() override { Clean(); }

  static void Clean() { DeleteLogMask(kName); }
  static std::shared_ptr<tk::Logger> Make(uint32_t mask) {
    return std::make_shared<tk::Logger>(kName, mask,
                                        std::vector<tk::LogFormatter>(),
                                        std::vector<tk::LogSink>(), 0);
  }

 private:
  const ImportPatch<decltype(OutputDebugStringW)> m_show{
      nullptr, "OutputDebugStringW", &NoteShown};
  const ImportPatch<decltype(RegisterEventSourceW)> m_register{
      nullptr, "RegisterEventSourceW", &GiveSource};
  const ImportPatch<decltype(ReportEventW)> m_report{nullptr, "ReportEventW",
                                                     &NoteReport};
  const ImportPatch<decltype(CreateFileW)> m_file{nullptr, "CreateFileW",
                                                  &RefuseFile};
};

TEST_F(DefaultSinksTest, TheEventLogComesFirstAndTheDebuggerLast) {
  const auto logger =
      Make(0x20000000 | tk::kFileSinkOn | tk::kDebuggerShowsAll);
  logger->Log(LogChannel::Info, L"text");
  EXPECT_THAT(g_calls, ElementsAre("event log", "file", "debugger"));
}

TEST_F(DefaultSinksTest, EachSwitchConcernsItsSinkAlone) {
  struct Row {
    uint32_t switches;
    std::vector<std::string> calls;
  };
  const Row rows[] = {
      {0, {"event log"}},
      {tk::kFileSinkOn, {"event log", "file"}},
      {tk::kDebuggerShowsAll, {"event log", "debugger"}},
  };
  for (const Row& row : rows) {
    Clean();
    const auto logger = Make(0x20000000 | row.switches);
    g_calls.clear();
    logger->Log(LogChannel::Info, L"text");
    EXPECT_EQ(g_calls, row.calls) << std::hex << row.switches;
  }
}

}  // namespace
