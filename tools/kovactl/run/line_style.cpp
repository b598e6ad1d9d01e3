#include "run/line_style.h"

#include "common/plain_text.h"
#include "log/log_channel.h"

namespace kova::ctl {
namespace {

constexpr size_t kColumnWidth = 12;
constexpr std::wstring_view kReset = L"\x1b[0m";
constexpr std::wstring_view kNotice = L"\x1b[1m";

// The colour of the channel called `word`; empty if there is no such channel.
std::wstring_view ColorOf(std::wstring_view word) {
  for (const auto& [channel, name] : tk::ChannelNames) {
    if (name != word) continue;
    switch (channel) {
      case tk::LogChannel::Error:
        return L"\x1b[1;31m";
      case tk::LogChannel::Warning:
        return L"\x1b[33m";
      case tk::LogChannel::Info:
        return L"\x1b[32m";
      case tk::LogChannel::DetailInfo:
        return L"\x1b[36m";
      default:
        return L"\x1b[90m";
    }
  }
  return {};
}

}  // namespace

std::wstring StyleLine(std::wstring_view line, bool color) {
  const std::wstring_view word = line.substr(0, line.find(L' '));
  const std::wstring_view sequence = ColorOf(word);
  if (sequence.empty()) return Harmless(line, 0) + L"\n";
  std::wstring styled;
  if (color) styled += sequence;
  styled += word;
  if (color) styled += kReset;
  styled.append(kColumnWidth - word.size(), L' ');
  const size_t textStart =
      word.size() == line.size() ? line.size() : word.size() + 1;
  return styled + Harmless(line.substr(textStart), kColumnWidth) + L"\n";
}

std::wstring StyleNotice(std::wstring_view notice, bool color) {
  std::wstring styled;
  if (color) styled += kNotice;
  styled += notice;
  if (color) styled += kReset;
  return styled + L"\n";
}

}  // namespace kova::ctl
