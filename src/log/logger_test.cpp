// Patched: loggers, their masks in the real registry, and a fake clock.
#include "log/logger.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>

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

int g_closedKeys = 0;
LSTATUS WINAPI CountClosedKeys(HKEY) {
  ++g_closedKeys;
  return ERROR_SUCCESS;
}

TEST_F(LoggerTest, TheKeyOfItsMaskStaysOpenWhenItGoes) {
  auto logger =
      std::make_shared<tk::Logger>(m_name, 0, std::vector<tk::LogFormatter>(),
                                   std::vector<tk::LogSink>(), 0);
  const ImportPatch<decltype(RegCloseKey)> close(nullptr, "RegCloseKey",
                                                 &CountClosedKeys);
  g_closedKeys = 0;
  logger.reset();
  EXPECT_EQ(g_closedKeys, 0);
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
