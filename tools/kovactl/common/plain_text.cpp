#include "common/plain_text.h"

#include "base/ascii.h"
#include "base/windows_api.h"
#include "text/text_append.h"

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

std::wstring LabelledRow(const std::wstring& label, std::wstring_view text,
                         size_t indent) {
  std::wstring lines = Wrapped(text, indent);
  if (lines.empty()) lines = std::wstring(indent, L' ') + L"-\n";
  return lines.replace(2, label.size(), label);
}

std::wstring Right(const std::wstring& text, size_t width) {
  if (text.size() >= width) return text;
  return std::wstring(width - text.size(), L' ') + text;
}

std::wstring Left(const std::wstring& text, size_t width) {
  if (text.size() >= width) return text;
  return text + std::wstring(width - text.size(), L' ');
}

std::wstring Tail(const std::wstring& text, size_t width) {
  constexpr size_t kDots = 3;
  if (text.size() <= width) return text;
  return L"..." + text.substr(text.size() - (width - kDots));
}

std::wstring HexText(uint64_t number, size_t digits) {
  std::wstring text = L"0x";
  AppendHex(text, number, static_cast<int>(digits));
  return text;
}

std::optional<uint32_t> ParseNumber(std::wstring_view text, uint32_t base,
                                    size_t mostDigits) {
  if (text.empty() || text.size() > mostDigits) return std::nullopt;
  uint64_t number = 0;
  for (const wchar_t c : text) {
    const size_t digit =
        std::wstring_view(L"0123456789ABCDEF", base).find(FoldAscii(c));
    if (digit == std::wstring_view::npos) return std::nullopt;
    number = number * base + digit;
    if (number > UINT32_MAX) return std::nullopt;
  }
  return static_cast<uint32_t>(number);
}

bool SameName(std::wstring_view left, std::wstring_view right) {
  return ::CompareStringOrdinal(left.data(), static_cast<int>(left.size()),
                                right.data(), static_cast<int>(right.size()),
                                TRUE) == CSTR_EQUAL;
}

}  // namespace kova::ctl
