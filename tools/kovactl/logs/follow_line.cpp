#include "logs/follow_line.h"

#include "common/utf8.h"
#include "logs/log_mask.h"
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

std::wstring Digits(unsigned number, size_t width, wchar_t fill) {
  std::wstring text = std::to_wstring(number);
  if (text.size() < width) text.insert(0, width - text.size(), fill);
  return text;
}

std::wstring ClockText(const SYSTEMTIME& now) {
  return Digits(now.wHour, 2, L'0') + L":" + Digits(now.wMinute, 2, L'0') +
         L":" + Digits(now.wSecond, 2, L'0') + L"." +
         Digits(now.wMilliseconds, 3, L'0');
}

std::wstring DateText(const SYSTEMTIME& now) {
  return Digits(now.wYear, 4, L'0') + L"-" + Digits(now.wMonth, 2, L'0') +
         L"-" + Digits(now.wDay, 2, L'0');
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
      ClockText(now) + L" " + Digits(line.processId, 5, L' ') + L" ";
  const std::wstring text = line.text + (line.isCut ? L" [cut here]" : L"");
  return begin + Indented(StyleLine(text, color), begin.size());
}

std::wstring FollowJson(const DebugLine& line, const SYSTEMTIME& now) {
  using Json = nlohmann::ordered_json;
  const std::wstring_view channel = ChannelOf(line.text);
  Json json;
  json["time"] = ToUtf8(DateText(now) + L"T" + ClockText(now));
  json["processId"] = line.processId;
  json["channel"] = channel.empty() ? Json(nullptr) : Json(ToUtf8(channel));
  json["text"] = ToUtf8(line.text);
  json["cut"] = line.isCut;
  return ToWide(json.dump(-1, ' ', false, Json::error_handler_t::replace)) +
         L"\n";
}

}  // namespace kova::ctl
