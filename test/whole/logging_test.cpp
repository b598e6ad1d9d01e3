// Whole: what the built library leaves in the registry, the event log and the
// log file. The reports are seen where the library calls the event log.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "test/support/import_patch.h"
#include "test/support/log_capture.h"
#include "test/support/server_fixture.h"
#include "test/support/test_client.h"
#include "text/date_text.h"

namespace kova::test {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::UnorderedElementsAreArray;

namespace fs = std::filesystem;

const std::wstring kApplication =
    L"SYSTEM\\CurrentControlSet\\Services\\Eventlog\\Application\\";
const std::wstring kSystem =
    L"SYSTEM\\CurrentControlSet\\Services\\Eventlog\\System\\";
constexpr wchar_t kServer[] = L"Corvane KOVA Server";
constexpr wchar_t kDispatcher[] = L"DispatcherUtil";
constexpr wchar_t kFormer[] = L"test logger of former days";
constexpr wchar_t kLogFile[] = L"C:\\Log Files\\Corvane KOVA Server.txt";

struct Report {
  WORD type;
  WORD category;
  DWORD id;
  std::wstring line;
  uint64_t data[7];
};

std::mutex g_mutex;
std::vector<std::wstring> g_sources;
std::vector<Report> g_reports;

HANDLE WINAPI RecordSource(LPCWSTR computer, LPCWSTR name) {
  EXPECT_EQ(computer, nullptr);
  g_sources.emplace_back(name);
  return reinterpret_cast<HANDLE>(uintptr_t{0x4660});
}
BOOL WINAPI RecordReport(HANDLE, WORD type, WORD category, DWORD id, PSID,
                         WORD count, DWORD sizeBytes, LPCWSTR* texts,
                         LPVOID data) {
  const std::lock_guard<std::mutex> lock(g_mutex);
  Report report = {type, category, id, texts[0], {}};
  EXPECT_EQ(count, 1);
  EXPECT_EQ(sizeBytes, sizeof(report.data));
  std::memcpy(report.data, data, sizeof(report.data));
  g_reports.push_back(report);
  return TRUE;
}

constexpr int64_t kNowSeconds = 1795218734;
void WINAPI StandStill(FILETIME* time) {
  const uint64_t units = (kNowSeconds + 11644473600) * 10000000;
  time->dwLowDateTime = static_cast<DWORD>(units);
  time->dwHighDateTime = static_cast<DWORD>(units >> 32);
}

int WINAPI FailToBind(SOCKET, const sockaddr*, int) {
  ::WSASetLastError(WSAEADDRINUSE);
  return SOCKET_ERROR;
}
int WINAPI FailToReceive(SOCKET, WSABUF*, DWORD, DWORD*, DWORD*, OVERLAPPED*,
                         LPWSAOVERLAPPED_COMPLETION_ROUTINE) {
  ::WSASetLastError(WSAECONNRESET);
  return SOCKET_ERROR;
}

bool KeyExists(const std::wstring& path) {
  UniqueRegistryKey key;
  return ::RegOpenKeyExW(HKEY_LOCAL_MACHINE, path.c_str(), 0, KEY_READ,
                         key.Receive()) == ERROR_SUCCESS;
}
void MakeKey(const std::wstring& path) {
  UniqueRegistryKey key;
  ::RegCreateKeyExW(HKEY_LOCAL_MACHINE, path.c_str(), 0, nullptr, 0, KEY_WRITE,
                    nullptr, key.Receive(), nullptr);
}
std::wstring TextOf(const std::wstring& key, const wchar_t* name) {
  wchar_t text[MAX_PATH] = {};
  DWORD sizeBytes = sizeof(text);
  ::RegGetValueW(HKEY_LOCAL_MACHINE, key.c_str(), name, RRF_RT_REG_SZ, nullptr,
                 text, &sizeBytes);
  return text;
}

class LogTracesTest : public testing::Test {
 protected:
  explicit LogTracesTest(uint32_t mask = 0xE0000000)
      : m_mask(mask),
        m_register(m_server.Module(), "RegisterEventSourceW", &RecordSource),
        m_report(m_server.Module(), "ReportEventW", &RecordReport),
        m_time(m_server.Module(), "GetSystemTimeAsFileTime", &StandStill),
        m_capture(m_server.Module()) {
    g_sources.clear();
    g_reports.clear();
    Clean();
  }
  ~LogTracesTest() override { Clean(); }

  static void Clean() {
    for (const wchar_t* name : {kServer, kDispatcher, kFormer}) {
      ::RegDeleteKeyW(HKEY_LOCAL_MACHINE, (kApplication + name).c_str());
      ::RegDeleteKeyW(HKEY_LOCAL_MACHINE, (kSystem + name).c_str());
    }
    DeleteLogMask(kFormer);
    ::DeleteFileW(kLogFile);
  }
  static std::vector<std::wstring> ReportedLines() {
    std::vector<std::wstring> lines;
    for (const Report& report : g_reports) lines.push_back(report.line);
    return lines;
  }

  const ScopedLogMask m_mask;
  ServerFixture m_server;
  const ImportPatch<decltype(RegisterEventSourceW)> m_register;
  const ImportPatch<decltype(ReportEventW)> m_report;
  const ImportPatch<decltype(GetSystemTimeAsFileTime)> m_time;
  LogCapture m_capture;
};

TEST_F(LogTracesTest, ANewMachineGetsAMaskAndItsEventSources) {
  DeleteLogMask(kServer);
  SetLogMask(0, kFormer);
  for (const wchar_t* name : {kServer, kDispatcher, kFormer}) {
    MakeKey(kSystem + name);
  }
  m_server.Start();
  uint32_t mask = 0;
  EXPECT_TRUE(GetLogMask(mask));
  EXPECT_EQ(mask, 0xE0000000u);
  EXPECT_THAT(g_sources, ElementsAre(kServer));
  for (const wchar_t* name : {kServer, kDispatcher, kFormer}) {
    EXPECT_EQ(TextOf(kApplication + name, L"EventMessageFile"),
              L"C:\\windows\\system32\\Corvane_EventMessages.dll");
  }
  // The server's own source was not new any more when the masks were listed.
  EXPECT_TRUE(KeyExists(kSystem + kServer));
  EXPECT_FALSE(KeyExists(kSystem + kDispatcher));
  EXPECT_FALSE(KeyExists(kSystem + kFormer));
}

TEST_F(LogTracesTest, ExistingEventSourcesAreLeftAlone) {
  for (const wchar_t* name : {kServer, kDispatcher}) {
    MakeKey(kApplication + name);
    MakeKey(kSystem + name);
  }
  m_server.Start();
  for (const wchar_t* name : {kServer, kDispatcher}) {
    EXPECT_EQ(TextOf(kApplication + name, L"EventMessageFile"), L"");
    EXPECT_TRUE(KeyExists(kSystem + name));
  }
}

class DetailedLoggingTest : public LogTracesTest {
 protected:
  DetailedLoggingTest() : LogTracesTest(0xF800FFFF) {}
};

constexpr wchar_t kFailedToReceive[] =
    L"Warning Network_ClientThread::Run: WSARecv(...) failure. "
    L"WSAGetLastError:10054";

// An error, a warning and whatever a run has to say besides.
void MakeErrorAndWarning(ServerFixture& server, const LogCapture& capture) {
  {
    const ImportPatch<decltype(::bind)> patch(server.Module(), "bind",
                                              &FailToBind);
    server.Start();
    server.Stop();
  }
  const ImportPatch<decltype(::WSARecv)> patch(server.Module(), "WSARecv",
                                               &FailToReceive);
  server.Start();
  TestClient client(server.Port());
  EXPECT_TRUE(client.Send("x"));
  EXPECT_TRUE(capture.WaitFor(kFailedToReceive, kClientPatienceMs));
  server.Stop();
}

TEST_F(DetailedLoggingTest, ReportsEveryLineThatTheDebuggerIsShown) {
  MakeErrorAndWarning(m_server, m_capture);
  const std::vector<std::wstring> lines = ReportedLines();
  EXPECT_GT(lines.size(), 10u);
  EXPECT_THAT(lines, UnorderedElementsAreArray(m_capture.Lines()));
  EXPECT_THAT(lines,
              Contains(L"Error WebServerBase::_AcceptThread: AcceptThread: "
                       L"bind(...) failure. GetLastError:10048"));
  EXPECT_THAT(lines, Contains(kFailedToReceive));
}

struct FilingRow {
  WORD type;
  DWORD id;
  uint64_t channel;
};
const std::map<std::wstring, FilingRow> kFiling = {
    {L"Error", {1, 0xCFFF0300, 0x80000000}},
    {L"Warning", {2, 0x8FFF0200, 0x40000000}},
    {L"Info", {4, 0x4FFF0100, 0x20000000}},
    {L"DetailInfo", {4, 0x4FFF0100, 0x10000000}},
    {L"DetailInfoB", {4, 0x4FFF0100, 0x00000002}},
    {L"DetailInfoE", {4, 0x4FFF0100, 0x00000010}},
    {L"DetailInfoH", {4, 0x4FFF0100, 0x00000080}},
};

TEST_F(DetailedLoggingTest, FilesEachReportByItsChannel) {
  MakeErrorAndWarning(m_server, m_capture);
  for (const Report& report : g_reports) {
    const auto row = kFiling.find(report.line.substr(0, report.line.find(' ')));
    ASSERT_NE(row, kFiling.end());
    EXPECT_EQ(report.type, row->second.type);
    EXPECT_EQ(report.id, row->second.id);
    EXPECT_EQ(report.category, 0);
    EXPECT_EQ(report.data[0], 4u);
    EXPECT_EQ(report.data[3], row->second.channel);
    EXPECT_EQ(report.data[5], ::GetCurrentProcessId());
    EXPECT_EQ(report.data[6], 0u);
  }
  // A start and its listener report on threads of their own.
  ASSERT_GT(g_reports.size(), 2u);
  EXPECT_EQ(g_reports[0].line, L"DetailInfoH _StartKOVAServer: Enter");
  EXPECT_EQ(g_reports[1].data[4], g_reports[0].data[4]);
  EXPECT_NE(g_reports[2].data[4], g_reports[0].data[4]);
}

class FileLoggingTest : public LogTracesTest {
 protected:
  FileLoggingTest() : LogTracesTest(0xF400FFFF) {}

  static std::string FileBytes() {
    std::ifstream file(fs::path(kLogFile), std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(file), {});
  }
  // The bytes that the file receives when all `lines` are there to be written.
  static std::string Expected(const std::vector<std::wstring>& lines) {
    std::wstring text;
    for (const std::wstring& line : lines) {
      text += LocalTimeText(kNowSeconds) + L" -- " + line;
    }
    return std::string(reinterpret_cast<const char*>(text.c_str()),
                       text.size() + 1);
  }
};

TEST_F(FileLoggingTest, TheFileHoldsTheFirstLineUntilItIsDeleted) {
  m_server.Start();
  m_server.Stop();
  EXPECT_GT(g_reports.size(), 2u);
  EXPECT_EQ(FileBytes(), Expected({L"DetailInfoH _StartKOVAServer: Enter"}));
  ASSERT_TRUE(::DeleteFileW(kLogFile));
  std::vector<std::wstring> lines = ReportedLines();
  m_server.Start();
  lines.emplace_back(L"DetailInfoH _StartKOVAServer: Enter");
  EXPECT_TRUE(FileBytes() == Expected(lines));
}

}  // namespace
}  // namespace kova::test
