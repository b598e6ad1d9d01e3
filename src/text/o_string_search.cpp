// The queries of OString: comparing, searching, taking pieces.
#include <algorithm>
#include <cstdint>

#include "base/ascii.h"
#include "text/o_string.h"
#include "text/string_record.h"

namespace {

// Deliberate: bytes order as signed numbers, so that 0x80 and above come
// before all of ASCII, the terminator included, as callers that sort expect.
int32_t OrderOf(char unit) { return static_cast<signed char>(unit); }

int32_t OrderOf(wchar_t unit) { return static_cast<uint16_t>(unit); }

template <typename Unit, typename Fold>
int32_t CompareViews(std::basic_string_view<Unit> left,
                     std::basic_string_view<Unit> right, Fold fold) {
  const size_t common = std::min(left.size(), right.size());
  for (size_t i = 0; i < common; ++i) {
    const int32_t a = OrderOf(fold(left[i]));
    const int32_t b = OrderOf(fold(right[i]));
    if (a != b) return a < b ? -1 : 1;
  }
  // The shorter text's terminator meets a unit of the longer one.
  if (left.size() > common) return OrderOf(fold(left[common])) < 0 ? -1 : 1;
  if (right.size() > common) return OrderOf(fold(right[common])) < 0 ? 1 : -1;
  return 0;
}

template <typename Unit>
int32_t FindView(std::basic_string_view<Unit> text,
                 std::basic_string_view<Unit> sought, int32_t start) {
  const size_t from = static_cast<size_t>(std::max(start, 0));
  if (from >= text.size()) return -1;
  const size_t at = text.find(sought, from);
  return at == text.npos ? -1 : static_cast<int32_t>(at);
}

int32_t IndexOf(size_t at) {
  return at == std::string_view::npos ? -1 : static_cast<int32_t>(at);
}

}  // namespace

int32_t OString::Compare(const OString& other) const {
  if (SharesRecordWith(other)) return 0;
  const auto keep = [](auto unit) { return unit; };
  return IsPairWide(other)
             ? CompareViews(WideView(), other.WideView(), keep)
             : CompareViews(NarrowView(), other.NarrowView(), keep);
}

int32_t OString::CompareNoCase(const OString& other) const {
  if (SharesRecordWith(other)) return 0;
  const auto fold = [](auto unit) { return kova::FoldAscii(unit); };
  return IsPairWide(other)
             ? CompareViews(WideView(), other.WideView(), fold)
             : CompareViews(NarrowView(), other.NarrowView(), fold);
}

int32_t OString::Find(const char* text, int32_t start) const {
  if (PrefersWide() || text == nullptr) return Find(OString(text), start);
  return FindView(NarrowView(), std::string_view(text), start);
}

int32_t OString::Find(const wchar_t* text, int32_t start) const {
  if (!PrefersWide() || text == nullptr) return Find(OString(text), start);
  return FindView(WideView(), std::wstring_view(text), start);
}

int32_t OString::Find(const OString& text, int32_t start) const {
  return PrefersWide() ? FindView(WideView(), text.WideView(), start)
                       : FindView(NarrowView(), text.NarrowView(), start);
}

int32_t OString::FindFirstBlank() const {
  return IndexOf(NarrowView().find_first_of(kova::kBlanks));
}

int32_t OString::ReverseFindOneOf(const OString& set) const {
  return IsPairWide(set) ? IndexOf(WideView().find_last_of(set.WideView()))
                         : IndexOf(NarrowView().find_last_of(set.NarrowView()));
}

OString OString::Mid(int32_t start, int32_t count) const {
  const int32_t length = Length();
  start = std::clamp(start, 0, length);
  count = std::clamp(count, 0, length - start);
  // Text that does not convert has no characters, and so no piece either.
  if (count == length && (count > 0 || IsEmpty())) return *this;
  const auto from = static_cast<size_t>(start);
  const auto units = static_cast<size_t>(count);
  if (!PrefersWide()) {
    return OString(
        kova::StringRecord::Make(NarrowView().substr(from, units), CodePage()));
  }
  OString piece(new kova::StringRecord(0, CodePage()));
  piece.m_record->Set(WideView().substr(from, units));
  return piece;
}

OString OString::Left(int32_t count) const {
  return Mid(0, std::min(count, Length()));
}

OString OString::Right(int32_t count) const {
  const int64_t start = int64_t{Length()} - count;
  return Mid(static_cast<int32_t>(std::clamp<int64_t>(start, 0, INT32_MAX)),
             count);
}
