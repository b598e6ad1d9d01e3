#include "log/sinks.h"

#include <cwchar>
#include <string_view>

#include "base/handles.h"
#include "log/event_source.h"
#include "text/text_append.h"

namespace kova {
namespace {

struct EventRow {
  uint32_t channelBit;
  WORD type;
  DWORD ids[2];
};

// The first row whose bit is set decides.
constexpr EventRow kEventRows[] = {
    {0x80000000, EVENTLOG_ERROR_TYPE, {0xCFFF0300, 0xC0FF0600}},
    {0x40000000, EVENTLOG_WARNING_TYPE, {0x8FFF0200, 0x80FF0500}},
};
constexpr EventRow kOtherEvents = {
    0, EVENTLOG_INFORMATION_TYPE, {0x4FFF0100, 0x40FF0400}};
constexpr DWORD kIdOfUnknownKind = 0x4FFF0100;

// The binary data of each report.
struct EventData {
  uint64_t version;
  uint64_t tickCount;
  uint64_t performanceCounter;
  uint64_t channel;
  uint64_t threadId;
  uint64_t processId;
  uint64_t reserved;
};
static_assert(sizeof(EventData) == 56);

constexpr uint64_t kEventDataVersion = 4;

EventData DescribeCall(tk::LogChannel channel) {
  LARGE_INTEGER counter = {};
  ::QueryPerformanceCounter(&counter);
  EventData data = {};
  data.version = kEventDataVersion;
  data.tickCount = ::GetTickCount();
  data.performanceCounter = static_cast<uint64_t>(counter.QuadPart);
  data.channel = tk::Bits(channel);
  data.threadId = ::GetCurrentThreadId();
  data.processId = ::GetCurrentProcessId();
  return data;
}

// Deliberate: Windows refuses an event with a longer string, and parts of lines
// come from clients.
constexpr size_t kMostCharacters = 31839;
constexpr std::wstring_view kCutMark = L"... [cut]";

std::wstring CutToFit(const wchar_t* text) {
  size_t kept = kMostCharacters - kCutMark.size();
  const bool endsInHalfAPair = (text[kept - 1] & 0xFC00) == 0xD800;
  if (endsInHalfAPair) --kept;
  return std::wstring(text, kept).append(kCutMark);
}

void ReportToEventLog(HANDLE source, tk::Logger* logger, tk::LogChannel channel,
                      const std::wstring& line) {
  if (source == nullptr) return;
  if (!tk::IsAlwaysLogged(channel) && !logger->IsEnabled(channel)) return;
  const EventClass filed = ClassifyEvent(logger->EventLogKind(), channel);
  const wchar_t* text = line.c_str();
  std::wstring cut;
  if (std::wcslen(text) > kMostCharacters) {
    cut = CutToFit(text);
    text = cut.c_str();
  }
  logger->EventLogLock().Hold([&] {
    EventData data = DescribeCall(channel);
    ::ReportEventW(source, filed.type, 0, filed.id, nullptr, 1, sizeof(data),
                   &text, &data);
  });
}

void TellDebugger(DWORD error) {
  std::wstring text =
      L"WinEventLogSink(...) - RegCreateKeyEx(...) failed with error ";
  AppendHex(text, error);
  text += L'\n';
  ::OutputDebugStringW(text.c_str());
}

void PrepareSourceOf(const tk::Logger& logger) {
  const std::wstring path =
      EventSourceKeyPath(logger.EventLogKind(), logger.Name());
  UniqueRegistryKey key;
  DWORD disposition = 0;
  if (::RegCreateKeyExW(HKEY_LOCAL_MACHINE, path.c_str(), 0, nullptr,
                        REG_OPTION_NON_VOLATILE, KEY_ALL_ACCESS, nullptr,
                        key.Receive(), &disposition) != ERROR_SUCCESS) {
    // Deliberate: the thread's last error, which registry calls do not set.
    const DWORD error = ::GetLastError();
    TellDebugger(error);
    return;
  }
  if (disposition == REG_CREATED_NEW_KEY) WriteEventSourceValues(key.Get());
}

}  // namespace

EventClass ClassifyEvent(uint32_t eventLogKind, tk::LogChannel channel) {
  const EventRow* found = &kOtherEvents;
  for (const EventRow& row : kEventRows) {
    if ((tk::Bits(channel) & row.channelBit) != 0) {
      found = &row;
      break;
    }
  }
  const DWORD id =
      eventLogKind < 2 ? found->ids[eventLogKind] : kIdOfUnknownKind;
  return {found->type, id};
}

tk::LogSink MakeEventLogSink(tk::Logger* logger) {
  PrepareSourceOf(*logger);
  // Deliberate: never deregistered; lines may come until the process ends.
  const HANDLE source = ::RegisterEventSourceW(nullptr, logger->Name().c_str());
  return [source](tk::Logger* sender, tk::LogChannel channel,
                  const std::wstring& line) {
    ReportToEventLog(source, sender, channel, line);
  };
}

}  // namespace kova
