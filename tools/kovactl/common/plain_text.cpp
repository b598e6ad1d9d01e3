#include "common/plain_text.h"

namespace kova::ctl {
namespace {

constexpr size_t kColumns = 80;
constexpr wchar_t kReplacement = L'\xFFFD';

bool IsControl(wchar_t c) { return c < 0x20 || (c >= 0x7F && c < 0xA0); }

wchar_t Shown(wchar_t c) {
  if (c == L'\t') return L' ';
  return IsControl(c) ? kReplacement : c;
}

}  // namespace

std::wstring Harmless(std::wstring_view text, size_t indent) {
  const size_t last = text.find_last_not_of(L"\r\n");
  text = last == std::wstring_view::npos ? L"" : text.substr(0, last + 1);
  std::wstring shown;
  for (const wchar_t c : text) {
    if (c == L'\n') {
      shown.append(1, L'\n').append(indent, L' ');
    } else if (c != L'\r') {
      shown += Shown(c);
    }
  }
  return shown;
}

std::wstring HarmlessLine(std::wstring_view text) {
  std::wstring shown;
  for (const wchar_t c : text) shown += Shown(c);
  return shown;
}

std::wstring Wrapped(std::wstring_view text, size_t indent) {
  std::wstring lines;
  size_t column = 0;
  while (!text.empty()) {
    const std::wstring_view word = text.substr(0, text.find(L' '));
    text.remove_prefix(word.size());
    text.remove_prefix(text.empty() ? 0 : 1);
    if (word.empty()) continue;
    if (column > indent && column + 1 + word.size() <= kColumns) {
      lines += L' ';
      ++column;
    } else {
      if (column > 0) lines += L'\n';
      lines.append(indent, L' ');
      column = indent;
    }
    lines += word;
    column += word.size();
  }
  if (column > 0) lines += L'\n';
  return lines;
}

}  // namespace kova::ctl
