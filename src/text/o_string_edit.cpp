// The changes of OString that keep part of its text.
#include <algorithm>
#include <limits>

#include "text/o_string.h"
#include "text/string_record.h"

using kova::StringRecord;

template <>
std::string_view OString::View<char>() const {
  return NarrowView();
}

template <>
std::wstring_view OString::View<wchar_t>() const {
  return WideView();
}

void OString::Append(const OString& other) {
  if (other.IsEmpty()) return;
  if (IsEmpty()) {
    *this = other;
    return;
  }
  // Appended to itself, a text must not be read from the record that changes.
  const OString held = &other == this ? other : OString();
  if (IsPairWide(other)) {
    AppendView(other.WideView());
  } else {
    AppendView(other.NarrowView());
  }
}

// A shared record is not cloned first: the kept form goes straight into a new
// record that has the room, so that the text is copied once.
template <typename Unit>
void OString::AppendView(std::basic_string_view<Unit> text) {
  const std::basic_string_view<Unit> kept = View<Unit>();
  if (!m_record->IsShared()) {
    m_record->Append(text);
    return;
  }
  const uint64_t length = kept.size() + text.size();
  const uint64_t capacity = length + 1 > m_record->Capacity()
                                ? kova::CapacityForLength(length)
                                : m_record->Capacity();
  OString fresh(new StringRecord(capacity, CodePage()));
  fresh.m_record->Set(kept);
  fresh.m_record->Append(text);
  *this = std::move(fresh);
}

void OString::Delete(int32_t index, int32_t count) {
  const int32_t length = Length();
  if (index < 0 || index >= length || count <= 0) return;
  MakeUnique();
  if (m_record->PrefersWide()) m_record->MakeWide();
  m_record->Erase(static_cast<size_t>(index),
                  static_cast<size_t>(std::min(count, length - index)));
}

int32_t OString::Replace(const OString& find, const OString& replacement) {
  if (find.IsEmpty() || find.Compare(replacement) == 0) return 0;
  // Arguments may be this very string, or share its record.
  const OString sought(find);
  const OString fresh(replacement);
  if (IsPairWide(sought) || IsPairWide(fresh)) {
    return ReplaceForm(sought.WideView(), fresh.WideView());
  }
  return ReplaceForm(sought.NarrowView(), fresh.NarrowView());
}

template <typename Unit>
int32_t OString::ReplaceForm(std::basic_string_view<Unit> find,
                             std::basic_string_view<Unit> replacement) {
  std::basic_string_view<Unit> text = View<Unit>();
  size_t at = find.empty() ? text.npos : text.find(find);
  if (at == text.npos) return 0;
  int32_t replaced = 0;
  if (find.size() == replacement.size()) {
    MakeUnique();
    for (; at != text.npos; at = text.find(find, at + find.size())) {
      m_record->Overwrite(at, replacement);
      text = View<Unit>();
      ++replaced;
    }
    return replaced;
  }
  std::basic_string<Unit> result;
  size_t kept = 0;
  for (; at != text.npos; at = text.find(find, kept)) {
    result.append(text, kept, at - kept).append(replacement);
    kept = at + find.size();
    ++replaced;
  }
  AssignView(std::basic_string_view<Unit>(result.append(text, kept)));
  return replaced;
}

OString operator+(OString left, const OString& right) {
  left.Append(right);
  return left;
}
