// Patched: loggers, their masks in the real registry, and a fake clock.
#include "log/logger.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <thread>

#include "log/log_storage.h"
#include "test/support/fake_tick_count.h"
#include "test/support/import_patch.h"
#include "test/support/log_capture.h"

namespace {

using kova::test::DeleteLogMask;
using kova::test::FakeTickCount;
using kova::test::GetLogMask;
using kova::test::ImportPatch;
using kova::test::LogCapture;
using kova::test::SetLogMask;
using testing::ElementsAre;
using testing::IsEmpty;
using tk::CreateLogger;
using tk::LogChannel;

// A logger name of its own for each test, and no trace of it afterwards.
class LoggerTest : public testing::Test {
 protected:
  LoggerTest() : m_name(L"test ") {
    const std::string test =
        testing::UnitTest::GetInstance()->current_test_info()->name();
    m_name.append(test.begin(), test.end());
    DeleteLogMask(m_name.c_str());
  }
  ~LoggerTest() override { DeleteLogMask(m_name.c_str()); }

  std::shared_ptr<tk::Logger> Create(uint32_t defaultMask) {
    return CreateLogger(m_name, defaultMask);
  }
  [[nodiscard]] uint32_t Registered() const {
    uint32_t mask = 0xDEADBEEF;
    EXPECT_TRUE(GetLogMask(mask, m_name.c_str()));
    return mask;
  }
  void Register(uint32_t mask) { SetLogMask(mask, m_name.c_str()); }

  FakeTickCount m_clock;
  LogCapture m_capture;
  std::wstring m_name;
};

TEST_F(LoggerTest, MaskKeyPathEndsInABackslash) {
  EXPECT_EQ(tk::MaskKeyPath,
            L"SOFTWARE\\Corvane Tessaly\\Drivers\\DebugLogMasks\\");
}

TEST_F(LoggerTest, WritesTheDefaultMaskWhereTheRegistryHasNone) {
  const auto logger = Create(0xE0000000);
  EXPECT_EQ(Registered(), 0xE0000000u);
  EXPECT_TRUE(logger->IsEnabled(LogChannel::Info));
  EXPECT_FALSE(logger->IsEnabled(LogChannel::DetailInfo));
  EXPECT_EQ(logger->EventLogKind(), 0u);
  EXPECT_EQ(logger->Name(), m_name);
}

TEST_F(LoggerTest, TakesTheRegisteredMaskInsteadOfTheDefault) {
  Register(0x80000000);
  const auto logger = Create(0xE0000000);
  EXPECT_FALSE(logger->IsEnabled(LogChannel::Info));
  EXPECT_TRUE(logger->IsEnabled(LogChannel::Error));
  EXPECT_EQ(Registered(), 0x80000000u);
}

TEST_F(LoggerTest, GivesOneLoggerPerNameAndThread) {
  const auto logger = Create(0);
  EXPECT_EQ(Create(0), logger);
  EXPECT_NE(CreateLogger(m_name + L" other", 0), logger);
  DeleteLogMask((m_name + L" other").c_str());
  std::shared_ptr<tk::Logger> elsewhere;
  std::thread([&] { elsewhere = Create(0); }).join();
  EXPECT_NE(elsewhere, nullptr);
  EXPECT_NE(elsewhere, logger);
}

TEST_F(LoggerTest, SecondCreationWidensTheMaskAndNeverNarrowsIt) {
  Register(0x00000001);
  const auto logger = Create(0x20000000);
  EXPECT_EQ(logger->RefreshMask(), 0x00000001u);
  (void)Create(0x10000000);
  EXPECT_EQ(logger->RefreshMask(), 0x10000001u);
  (void)Create(0);
  EXPECT_EQ(logger->RefreshMask(), 0x10000001u);
  EXPECT_EQ(Registered(), 0x00000001u);
}

TEST_F(LoggerTest, RereadsTheMaskOnlyAfterMoreThan5000Ms) {
  const auto logger = Create(0x20000000);
  Register(0x10000000);
  m_clock.Advance(5000);
  EXPECT_TRUE(logger->IsEnabled(LogChannel::Info));
  m_clock.Advance(1);
  EXPECT_FALSE(logger->IsEnabled(LogChannel::Info));
  EXPECT_TRUE(logger->IsEnabled(LogChannel::DetailInfo));
  Register(0x20000000);
  m_clock.Advance(5000);
  EXPECT_TRUE(logger->IsEnabled(LogChannel::DetailInfo));
  m_clock.Advance(1);
  EXPECT_FALSE(logger->IsEnabled(LogChannel::DetailInfo));
}

TEST_F(LoggerTest, RewritesADeletedMaskAtTheNextRefresh) {
  const auto logger = Create(0xA0000000);
  DeleteLogMask(m_name.c_str());
  m_clock.Advance(5001);
  EXPECT_TRUE(logger->IsEnabled(LogChannel::Info));
  EXPECT_EQ(Registered(), 0xA0000000u);
}

// What the registry holds under the logger's name.
struct StoredMask {
  DWORD type = REG_NONE;
  std::vector<BYTE> bytes;

  bool operator==(const StoredMask&) const = default;
};
void Store(const std::wstring& name, const StoredMask& mask) {
  EXPECT_EQ(::RegSetKeyValueW(HKEY_LOCAL_MACHINE, tk::MaskKeyPath.c_str(),
                              name.c_str(), mask.type, mask.bytes.data(),
                              static_cast<DWORD>(mask.bytes.size())),
            ERROR_SUCCESS);
}
StoredMask Stored(const std::wstring& name) {
  StoredMask mask;
  mask.bytes.resize(64);
  DWORD sizeBytes = static_cast<DWORD>(mask.bytes.size());
  if (::RegGetValueW(HKEY_LOCAL_MACHINE, tk::MaskKeyPath.c_str(), name.c_str(),
                     RRF_RT_ANY, &mask.type, mask.bytes.data(),
                     &sizeBytes) != ERROR_SUCCESS) {
    sizeBytes = 0;
  }
  mask.bytes.resize(sizeBytes);
  return mask;
}

TEST_F(LoggerTest, StoresAMaskAsFourBytesUnderItsName) {
  const auto logger = Create(0xE4000001);
  const StoredMask expected = {REG_DWORD, {0x01, 0x00, 0x00, 0xE4}};
  EXPECT_EQ(Stored(m_name), expected);
  DeleteLogMask(m_name.c_str());
  m_clock.Advance(5001);
  logger->Log(LogChannel::DetailInfoB, L"not shown");
  EXPECT_EQ(Stored(m_name), expected);
}

TEST_F(LoggerTest, TakesFourBytesOfAnyTypeForAMask) {
  for (const DWORD type : {REG_BINARY, REG_DWORD_BIG_ENDIAN, REG_NONE}) {
    const StoredMask stored = {type, {0x00, 0x01, 0x00, 0x20}};
    Store(m_name, stored);
    tk::Logger logger(m_name, 0x80000000, {}, {}, 0);
    EXPECT_EQ(logger.RefreshMask(), 0x20000100u);
    EXPECT_EQ(Stored(m_name).type, type);
  }
}

TEST_F(LoggerTest, ReplacesAMaskThatIsTooLong) {
  Store(m_name, {REG_QWORD, {1, 2, 3, 4, 5, 6, 7, 8}});
  const auto logger = Create(0xA0000000);
  EXPECT_EQ(logger->RefreshMask(), 0xA0000000u);
  EXPECT_EQ(Stored(m_name), (StoredMask{REG_DWORD, {0x00, 0x00, 0x00, 0xA0}}));
}

TEST_F(LoggerTest, AMaskThatIsTooShortIsTheLowBytes) {
  Store(m_name, {REG_BINARY, {0x01, 0x02}});
  const auto logger = Create(0xA0000000);
  EXPECT_EQ(logger->RefreshMask(), 0x00000201u);
}

int g_maskReads = 0;
decltype(RegQueryValueExW)* g_readMask = nullptr;
LSTATUS WINAPI CountMaskReads(HKEY key, LPCWSTR name, DWORD* reserved,
                              DWORD* type, BYTE* data, DWORD* sizeBytes) {
  EXPECT_EQ(*sizeBytes, 4u);
  ++g_maskReads;
  return g_readMask(key, name, reserved, type, data, sizeBytes);
}

TEST_F(LoggerTest, ReadsTheRegistryOnceInMoreThan5000Ms) {
  const auto logger = Create(0x20000000);
  const ImportPatch<decltype(RegQueryValueExW)> patch(
      nullptr, "RegQueryValueExW", &CountMaskReads);
  g_readMask = patch.Original();
  g_maskReads = 0;
  for (int i = 0; i <= 5000; ++i) {
    EXPECT_TRUE(logger->IsEnabled(LogChannel::Info));
    m_clock.Advance(1);
  }
  EXPECT_EQ(g_maskReads, 0);
  logger->Log(LogChannel::Info, L"all of this needs one refresh");
  (void)logger->IsEnabled(LogChannel::Info);
  EXPECT_EQ(g_maskReads, 1);
}

TEST_F(LoggerTest, AMaskOf0SilencesAllButErrorsAndWarnings) {
  Register(0);
  const auto logger = Create(0xE0000000);
  EXPECT_FALSE(logger->IsEnabled(LogChannel::Error));
  EXPECT_FALSE(logger->IsEnabled(LogChannel::Warning));
  logger->Log(LogChannel::Info, L"info");
  logger->Log(LogChannel::Error, L"one");
  logger->Error(L"two");
  logger->Warning(L"three");
  EXPECT_THAT(m_capture.Lines(),
              ElementsAre(L"Error one", L"Error two", L"Warning three"));
}

TEST_F(LoggerTest, LogItselfRefreshesTheMask) {
  Register(0);
  const auto logger = Create(0);
  Register(0x20000000 | tk::kDebuggerShowsAll);
  logger->Log(LogChannel::Info, L"too early");
  m_clock.Advance(5001);
  logger->Log(LogChannel::Info, L"seen");
  EXPECT_THAT(m_capture.Lines(), ElementsAre(L"Info seen"));
}

TEST_F(LoggerTest, ACombinedChannelHasNoNameAndIsFiltered) {
  const auto both = static_cast<LogChannel>(0x30000000);
  const auto withError = static_cast<LogChannel>(0xA0000000);
  const auto logger = Create(0x20000000 | tk::kDebuggerShowsAll);
  logger->Log(both, L"text");
  logger->Log(withError, L"x");
  EXPECT_THAT(m_capture.Take(), ElementsAre(L" text", L" x"));
  Register(0);
  m_clock.Advance(5001);
  logger->Log(withError, L"y");
  EXPECT_THAT(m_capture.Lines(), IsEmpty());
}

TEST_F(LoggerTest, KeepsEmbeddedZerosOutOfTheWayOfSinks) {
  std::vector<std::wstring> lines;
  const auto logger = std::make_shared<tk::Logger>(
      m_name, 0, std::vector<tk::LogFormatter>(),
      std::vector<tk::LogSink>{
          [&](tk::Logger*, LogChannel, const std::wstring& line) {
            lines.push_back(line);
          }},
      0);
  logger->Error(std::wstring(L"a\0b", 3));
  EXPECT_THAT(lines, ElementsAre(std::wstring(L"Error a\0b", 9)));
}

TEST_F(LoggerTest, ExtraFormattersAndSinksComeFirst) {
  std::vector<std::wstring> lines;
  const auto logger = std::make_shared<tk::Logger>(
      m_name, 0, std::vector<tk::LogFormatter>{[](LogChannel) {
        return std::wstring(L"<first>");
      }},
      std::vector<tk::LogSink>{[&](tk::Logger* sender, LogChannel channel,
                                   const std::wstring& line) {
        EXPECT_EQ(sender->Name(), m_name);
        EXPECT_EQ(channel, LogChannel::Warning);
        EXPECT_THAT(m_capture.Lines(), IsEmpty());
        lines.push_back(line);
      }},
      1);
  logger->Warning(L"text");
  EXPECT_THAT(lines, ElementsAre(L"<first> Warning text"));
  EXPECT_THAT(m_capture.Lines(), ElementsAre(L"<first> Warning text"));
  EXPECT_EQ(logger->EventLogKind(), 1u);
}

LSTATUS WINAPI FailToCreateKey(HKEY, LPCWSTR, DWORD, LPWSTR, DWORD, REGSAM,
                               SECURITY_ATTRIBUTES*, HKEY*, DWORD*) {
  return ERROR_ACCESS_DENIED;
}

TEST_F(LoggerTest, WritesNothingWhereTheMasksCannotBeOpened) {
  std::shared_ptr<tk::Logger> logger;
  {
    const ImportPatch<decltype(RegCreateKeyExW)> patch(
        nullptr, "RegCreateKeyExW", &FailToCreateKey);
    logger = Create(0x20000000);
  }
  m_clock.Advance(5001);
  EXPECT_TRUE(logger->IsEnabled(LogChannel::Info));
  (void)Create(0x10000000);
  m_clock.Advance(5001);
  EXPECT_EQ(logger->RefreshMask(), 0x30000000u);
  uint32_t mask = 0;
  EXPECT_FALSE(GetLogMask(mask, m_name.c_str()));
}

TEST_F(LoggerTest, KeepsTheDefaultForeverWhereTheMasksCannotBeOpened) {
  Register(0x10000000);
  std::shared_ptr<tk::Logger> logger;
  {
    const ImportPatch<decltype(RegCreateKeyExW)> patch(
        nullptr, "RegCreateKeyExW", &FailToCreateKey);
    logger = Create(0x20000000);
  }
  m_clock.Advance(5001);
  EXPECT_TRUE(logger->IsEnabled(LogChannel::Info));
  EXPECT_FALSE(logger->IsEnabled(LogChannel::DetailInfo));
  EXPECT_EQ(Registered(), 0x10000000u);
}

TEST_F(LoggerTest, LeavesTheLastErrorAsItFoundIt) {
  ::SetLastError(4660);
  const auto logger = Create(0xE0000000);
  EXPECT_EQ(::GetLastError(), 4660u);
  m_clock.Advance(5001);
  DeleteLogMask(m_name.c_str());
  ::SetLastError(4661);
  EXPECT_TRUE(logger->IsEnabled(LogChannel::Info));
  EXPECT_EQ(::GetLastError(), 4661u);
  m_clock.Advance(5001);
  ::SetLastError(4662);
  logger->Error(L"text");
  EXPECT_EQ(::GetLastError(), 4662u);
}

TEST_F(LoggerTest, ConcurrentRefreshesAndLinesStayWhole) {
  const auto logger = Create(0x20000000 | tk::kDebuggerShowsAll);
  constexpr int kThreads = 4;
  constexpr int kLines = 500;
  std::vector<std::thread> threads;
  for (int thread = 0; thread < kThreads; ++thread) {
    threads.emplace_back([&] {
      for (int i = 0; i < kLines; ++i) {
        m_clock.Advance(100);
        logger->Log(LogChannel::Info, L"a line of text");
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  const auto lines = m_capture.Lines();
  EXPECT_EQ(lines.size(), static_cast<size_t>(kThreads * kLines));
  EXPECT_THAT(lines, testing::Each(L"Info a line of text"));
}

// A copy of its own, in the order of declaration.
struct ChannelRow {
  LogChannel channel;
  uint32_t value;
  const wchar_t* name;
};
constexpr ChannelRow kChannels[] = {
    {LogChannel::Error, 0x80000000, L"Error"},
    {LogChannel::Warning, 0x40000000, L"Warning"},
    {LogChannel::Info, 0x20000000, L"Info"},
    {LogChannel::DetailInfo, 0x10000000, L"DetailInfo"},
    {LogChannel::DetailInfoA, 0x00000001, L"DetailInfoA"},
    {LogChannel::DetailInfoB, 0x00000002, L"DetailInfoB"},
    {LogChannel::DetailInfoC, 0x00000004, L"DetailInfoC"},
    {LogChannel::DetailInfoD, 0x00000008, L"DetailInfoD"},
    {LogChannel::DetailInfoE, 0x00000010, L"DetailInfoE"},
    {LogChannel::DetailInfoF, 0x00000020, L"DetailInfoF"},
    {LogChannel::DetailInfoG, 0x00000040, L"DetailInfoG"},
    {LogChannel::DetailInfoH, 0x00000080, L"DetailInfoH"},
    {LogChannel::DetailInfoI, 0x00000100, L"DetailInfoI"},
    {LogChannel::DetailInfoJ, 0x00000200, L"DetailInfoJ"},
    {LogChannel::DetailInfoK, 0x00000400, L"DetailInfoK"},
    {LogChannel::DetailInfoL, 0x00000800, L"DetailInfoL"},
    {LogChannel::DetailInfoM, 0x00001000, L"DetailInfoM"},
    {LogChannel::DetailInfoN, 0x00002000, L"DetailInfoN"},
    {LogChannel::DetailInfoO, 0x00004000, L"DetailInfoO"},
    {LogChannel::DetailInfoP, 0x00008000, L"DetailInfoP"},
};

TEST(LogChannelTest, EachChannelIsOneBitUnderItsOwnName) {
  for (const ChannelRow& row : kChannels) {
    EXPECT_EQ(static_cast<uint32_t>(row.channel), row.value);
    ASSERT_EQ(tk::ChannelNames.count(row.channel), 1u);
    EXPECT_EQ(tk::ChannelNames.at(row.channel), row.name);
  }
  EXPECT_EQ(tk::ChannelNames.size(), 20u);
}

TEST(LogStorageTest, EachThreadHasOneOfItsOwn) {
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

TEST(LogStorageTest, IsFreedByItsUsersWhereTheThreadCannotKeepIt) {
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

TEST_F(LoggerTest, TheThreadsStorageAloneKeepsALogger) {
  std::weak_ptr<tk::Logger> watch;
  std::thread([&] {
    watch = Create(0);
    EXPECT_FALSE(watch.expired());
    EXPECT_EQ(Create(0), watch.lock());
    EXPECT_EQ(watch.use_count(), 1);
  }).join();
  EXPECT_TRUE(watch.expired());
}

// What a logger is made of, in the order in which it goes.
std::vector<std::string> g_gone;
const void* g_name = nullptr;

// Tells when the last copy of what it hangs on is destroyed.
std::shared_ptr<void> TellWhenGone(const char* part) {
  return {nullptr, [part](void*) { g_gone.emplace_back(part); }};
}

decltype(std::free)* g_free = nullptr;
void NoteFree(void* block) {
  if (block != nullptr && block == g_name) {
    g_name = nullptr;
    g_gone.emplace_back("name");
  }
  g_free(block);
}

decltype(CloseHandle)* g_close = nullptr;
BOOL WINAPI NoteClose(HANDLE handle) {
  if (g_gone.empty() || g_gone.back() != "handle") {
    g_gone.emplace_back("handle");
  }
  return g_close(handle);
}

// The file sink has a lock of its own, which goes with the sinks.
TEST_F(LoggerTest, ItsPartsGoInTheirOrder) {
  auto logger = std::make_shared<tk::Logger>(
      m_name, 0,
      std::vector<tk::LogFormatter>{[told = TellWhenGone("formatter")](
                                        LogChannel) { return std::wstring(); }},
      std::vector<tk::LogSink>{
          [told = TellWhenGone("sink")](tk::Logger*, LogChannel,
                                        const std::wstring&) {}},
      0);
  g_name = logger->Name().data();
  g_gone.clear();
  g_gone.reserve(10);
  const ImportPatch<decltype(std::free)> free(nullptr, "free", &NoteFree);
  g_free = free.Original();
  const ImportPatch<decltype(CloseHandle)> close(nullptr, "CloseHandle",
                                                 &NoteClose);
  g_close = close.Original();
  logger.reset();
  EXPECT_THAT(g_gone,
              ElementsAre("sink", "handle", "formatter", "name", "handle"));
}

}  // namespace
