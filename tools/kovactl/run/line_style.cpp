#include "run/line_style.h"

#include "common/plain_text.h"

namespace kova::ctl {
namespace {

constexpr size_t kColumnWidth = 12;
constexpr std::wstring_view kReset = L"\x1b[0m";
constexpr std::wstring_view kNotice = L"\x1b[1m";

struct Color {
  std::wstring_view channel;
  std::wstring_view sequence;
};

constexpr Color kColors[] = {
    {L"Error", L"\x1b[1;31m"},
    {L"Warning", L"\x1b[33m"},
    {L"Info", L"\x1b[32m"},
    {L"DetailInfo", L"\x1b[36m"},
};
constexpr std::wstring_view kLetteredColor = L"\x1b[90m";

// DetailInfoA to DetailInfoP.
bool IsLetteredChannel(std::wstring_view word) {
  return word.size() == 11 && word.starts_with(L"DetailInfo") &&
         word.back() >= L'A' && word.back() <= L'P';
}

// The colour of the channel called `word`; empty if there is no such channel.
std::wstring_view ColorOf(std::wstring_view word) {
  for (const Color& row : kColors) {
    if (row.channel == word) return row.sequence;
  }
  return IsLetteredChannel(word) ? kLetteredColor : std::wstring_view();
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
