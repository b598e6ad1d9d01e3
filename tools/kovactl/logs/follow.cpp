#include "logs/follow.h"

#include <vector>

#include "common/json.h"
#include "common/plain_text.h"
#include "common/server_settings.h"
#include "common/stop_signal.h"
#include "common/time_text.h"
#include "common/utf8.h"
#include "log/server_logger.h"
#include "logs/log_mask.h"
#include "logs/mask_report.h"
#include "run/line_pump.h"
#include "run/line_style.h"

namespace kova::ctl {
namespace {

constexpr std::wstring_view kDebuggerOnly[] = {
    L"WinEventLogSink(...) - ",
    L"Logger::PopulateEventSourceRegKeys  ",
};

// The channel that `text` begins with; empty if with none.
std::wstring_view ChannelOf(std::wstring_view text) {
  const std::wstring_view word = text.substr(0, text.find(L' '));
  for (const MaskBit& row : MaskBits()) {
    if (!row.isSwitch && row.name == word) return word;
  }
  return {};
}

std::wstring TimeText(const SYSTEMTIME& now) {
  return ClockText(now) + L"." + MillisecondsText(now);
}

// Every line but the last line end's moved right by `columns`.
std::wstring Indented(const std::wstring& text, size_t columns) {
  std::wstring indented;
  for (size_t i = 0; i < text.size(); ++i) {
    indented += text[i];
    if (text[i] == L'\n' && i + 1 < text.size()) {
      indented.append(columns, L' ');
    }
  }
  return indented;
}

// The services' session, in which the spooler runs.
constexpr DWORD kServicesSession = 0;

void Notice(const std::wstring& text) {
  Output(STD_ERROR_HANDLE).Write(Wrapped(text, 0));
}

DWORD OwnSession() {
  DWORD session = kServicesSession;
  ::ProcessIdToSessionId(::GetCurrentProcessId(), &session);
  return session;
}

std::wstring ScopeText(DebugScope scope) {
  return scope == DebugScope::kSession ? L"this session" : L"services";
}

Failure OpenFailure(DWORD error) {
  if (error == ERROR_ALREADY_EXISTS) {
    return {ExitCode::kInternalError,
            L"another program reads the debugger output already; end it (a "
            L"debug viewer or another kovactl log follow)"};
  }
  return SystemFailure(ExitCode::kInternalError,
                       L"cannot open the buffer for debugger output", error);
}

// What the buffers bring, and what became of it.
class Follower {
 public:
  explicit Follower(const FollowOptions& options)
      : m_options(options),
        m_output(STD_OUTPUT_HANDLE),
        m_color(m_output.TakesColor(options.color)),
        m_pump(m_output, m_color) {}

  std::optional<Failure> Open();
  void Run(const StopSignal& stop);
  [[nodiscard]] std::wstring Summary() const;

 private:
  void Show(const DebugLine& line);
  [[nodiscard]] std::vector<HANDLE> Handles(const StopSignal& stop) const;

  const FollowOptions& m_options;
  const Output m_output;
  const bool m_color;
  // A console that stands still must not hold up whoever writes lines.
  LinePump m_pump;
  DebugBuffer m_buffers[2];
  size_t m_shown = 0;
  size_t m_leftOut = 0;
  size_t m_cut = 0;
};

std::optional<Failure> Follower::Open() {
  const DWORD own = m_buffers[0].Open(DebugScope::kSession);
  if (OwnSession() == kServicesSession) {
    return own == ERROR_SUCCESS ? std::nullopt
                                : std::optional(OpenFailure(own));
  }
  const DWORD services = m_buffers[1].Open(DebugScope::kServices);
  if (own != ERROR_SUCCESS && services != ERROR_SUCCESS) {
    return OpenFailure(own);
  }
  if (own != ERROR_SUCCESS || services != ERROR_SUCCESS) {
    const bool ownFailed = own != ERROR_SUCCESS;
    Notice(L"Note: lines of " +
           ScopeText(ownFailed ? DebugScope::kSession : DebugScope::kServices) +
           L" cannot be seen: " + OpenFailure(ownFailed ? own : services).text +
           L".");
  }
  return std::nullopt;
}

std::vector<HANDLE> Follower::Handles(const StopSignal& stop) const {
  std::vector<HANDLE> handles = {stop.Event()};
  for (const DebugBuffer& buffer : m_buffers) {
    if (buffer.IsOpen()) handles.push_back(buffer.LineReady());
  }
  return handles;
}

void Follower::Show(const DebugLine& line) {
  if (!m_options.filter.Takes(line)) {
    ++m_leftOut;
    return;
  }
  ++m_shown;
  m_cut += line.isCut ? 1 : 0;
  SYSTEMTIME now{};
  if (m_options.json) {
    ::GetSystemTime(&now);
    m_pump.PushText(FollowJson(line, now));
  } else {
    ::GetLocalTime(&now);
    m_pump.PushText(FollowText(line, now, m_color));
  }
}

void Follower::Run(const StopSignal& stop) {
  const std::vector<HANDLE> handles = Handles(stop);
  const ULONGLONG start = ::GetTickCount64();
  while (true) {
    DWORD waitMs = INFINITE;
    if (m_options.seconds) {
      const ULONGLONG limit = ULONGLONG{*m_options.seconds} * 1000;
      const ULONGLONG passed = ::GetTickCount64() - start;
      if (passed >= limit) return;
      waitMs = static_cast<DWORD>(limit - passed);
    }
    const DWORD count = static_cast<DWORD>(handles.size());
    const DWORD result =
        ::WaitForMultipleObjects(count, handles.data(), FALSE, waitMs);
    if (result <= WAIT_OBJECT_0 || result >= WAIT_OBJECT_0 + count) return;
    for (DebugBuffer& buffer : m_buffers) {
      if (buffer.LineReady() == handles[result]) Show(buffer.Take());
    }
  }
}

std::wstring Follower::Summary() const {
  std::wstring text = std::to_wstring(m_shown) +
                      (m_shown == 1 ? L" line shown" : L" lines shown");
  if (m_leftOut > 0) {
    text += L", " + std::to_wstring(m_leftOut) +
            L" of others left out (--all shows them)";
  }
  if (m_cut > 0) text += L", " + std::to_wstring(m_cut) + L" of them cut";
  return text + L".";
}

void TellWhatIsSwitchedOff() {
  const uint32_t mask = ReadLogMask();
  if (ReachingDebugger(mask) == ReachingEventLog(mask)) return;
  Output(STD_ERROR_HANDLE)
      .Write(Wrapped(L"Only errors and warnings come: DebuggerOutput is off "
                     L"in the server's mask. To see the rest as well:",
                     0) +
             L"  " + LogCommand(L"add", kDebuggerSwitch, kServerLoggerName) +
             L"\n");
}

// When it returns, all lines are on the screen.
std::optional<Failure> Follow(const FollowOptions& options,
                              const StopSignal& stop, std::wstring& summary) {
  Follower follower(options);
  if (auto failure = follower.Open()) return failure;
  TellWhatIsSwitchedOff();
  Notice(options.seconds
             ? L"Following for " + std::to_wstring(*options.seconds) +
                   L" s; Ctrl-C ends it."
             : L"Following; Ctrl-C ends it.");
  follower.Run(stop);
  summary = follower.Summary();
  return std::nullopt;
}

}  // namespace

bool IsServerLine(std::wstring_view text) {
  for (const std::wstring_view begin : kDebuggerOnly) {
    if (text.starts_with(begin)) return true;
  }
  const std::wstring_view channel = ChannelOf(text);
  if (channel.empty() || channel.size() == text.size()) return false;
  const std::wstring_view rest = text.substr(channel.size() + 1);
  const std::wstring_view method = rest.substr(0, rest.find(L' '));
  return method.size() > 1 && method.back() == L':';
}

bool LineFilter::Takes(const DebugLine& line) const {
  if (processId && line.processId != *processId) return false;
  return all || IsServerLine(line.text);
}

std::wstring FollowText(const DebugLine& line, const SYSTEMTIME& now,
                        bool color) {
  const std::wstring begin =
      TimeText(now) + L" " + Right(std::to_wstring(line.processId), 5) + L" ";
  const std::wstring text = line.text + (line.isCut ? L" [cut here]" : L"");
  return begin + Indented(StyleLine(text, color), begin.size());
}

std::wstring FollowJson(const DebugLine& line, const SYSTEMTIME& now) {
  const std::wstring_view channel = ChannelOf(line.text);
  Json json;
  json["time"] = ToUtf8(DateText(now) + L"T" + TimeText(now) + L"Z");
  json["processId"] = line.processId;
  json["channel"] = channel.empty() ? Json(nullptr) : Json(ToUtf8(channel));
  json["text"] = ToUtf8(line.text);
  json["cut"] = line.isCut;
  return JsonText(json, -1);
}

std::optional<Failure> FollowLog(const FollowOptions& options) {
  const StopSignal stop;
  std::wstring summary;
  if (auto failure = Follow(options, stop, summary)) return failure;
  Notice(summary);
  return std::nullopt;
}

}  // namespace kova::ctl
