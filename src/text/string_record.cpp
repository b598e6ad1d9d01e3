#include "text/string_record.h"

#include <algorithm>
#include <memory>
#include <new>
#include <type_traits>

#include "text/string_codec.h"

namespace kova {

namespace {

constexpr uint64_t NarrowRoom(uint64_t capacity, uint32_t codePage) {
  return capacity * (codePage == kCodePageUtf8 ? 4 : 2);
}

template <typename Unit>
void OverwriteForm(StringForm<Unit>& form, size_t index,
                   std::basic_string_view<Unit> text) {
  std::copy_n(text.data(), text.size(), form.MutableText() + index);
}

// Only forms of equal length agree on where a character is; a form of another
// length is made again from this one when next asked for.
template <typename Unit, typename Other>
void EraseForms(StringForm<Unit>& form, StringForm<Other>& other, size_t index,
                size_t count) {
  if (other.Length() == form.Length()) {
    other.Erase(index, count);
  } else {
    other.Clear();
  }
  form.Erase(index, count);
}

}  // namespace

StringRecord* StringRecord::Make(std::string_view text, uint32_t codePage) {
  const uint64_t capacity = CapacityForLength(text.size());
  const size_t room = NarrowRoom(capacity, codePage);
  void* const block = ::operator new(sizeof(StringRecord) + room);
  auto* const record = new (block) StringRecord(capacity, codePage);
  record->m_narrow.Borrow(reinterpret_cast<char*>(record + 1), room);
  record->m_narrow.Assign(text, room);
  return record;
}

// Make() puts records into blocks that are larger than they are.
void StringRecord::Destroy() {
  this->~StringRecord();
  ::operator delete(static_cast<void*>(this));
}

StringRecord* StringRecord::Clone() const {
  const auto release = [](StringRecord* record) { record->Release(); };
  std::unique_ptr<StringRecord, decltype(release)> clone(
      new StringRecord(m_capacity, m_codePage));
  clone->m_isWideText = m_isWideText;
  if (m_narrow.IsPresent()) {
    clone->m_narrow.Assign(m_narrow.View(), RoomOf(m_narrow, m_capacity));
  }
  if (m_wide.IsPresent()) {
    clone->m_wide.Assign(m_wide.View(), RoomOf(m_wide, m_capacity));
  }
  return clone.release();
}

bool StringRecord::PrefersWide() const {
  return m_isWideText || IsMultiByteCodePage(m_codePage);
}

// A form that was converted may be longer than the capacity; it still has to
// fit when it is cloned.
size_t StringRecord::RoomOf(const StringForm<char>& form,
                            uint64_t capacity) const {
  return std::max<size_t>(NarrowRoom(capacity, m_codePage), form.Length() + 1);
}

size_t StringRecord::RoomOf(const StringForm<wchar_t>& form,
                            uint64_t capacity) const {
  return std::max<size_t>(capacity, form.Length() + 1);
}

const StringForm<char>& StringRecord::MakeNarrow() {
  if (!m_narrow.IsPresent() && m_wide.IsPresent()) {
    const size_t room = RoomOf(m_narrow, m_capacity);
    char* const out = m_narrow.Overwrite(room);
    m_narrow.SetLength(
        ConvertToNarrow(m_codePage, m_wide.Text(), m_wide.Length(), out, room));
  }
  return m_narrow;
}

const StringForm<wchar_t>& StringRecord::MakeWide() {
  if (!m_wide.IsPresent() && m_narrow.IsPresent()) {
    const size_t room = RoomOf(m_wide, m_capacity);
    wchar_t* const out = m_wide.Overwrite(room);
    m_wide.SetLength(ConvertToWide(m_codePage, m_narrow.Text(),
                                   m_narrow.Length(), out, room));
  }
  return m_wide;
}

template <typename Unit, typename Other>
void StringRecord::SetForm(StringForm<Unit>& form, StringForm<Other>& other,
                           std::basic_string_view<Unit> text) {
  const bool isTooSmall = text.size() + 1 > m_capacity;
  const bool grows = text.empty() ? m_capacity == 0 : isTooSmall;
  const uint64_t capacity = grows ? CapacityForLength(text.size()) : m_capacity;
  if (text.empty()) {
    form.Clear();
  } else {
    form.Assign(text, RoomOf(form, capacity));
  }
  if (grows) other.Free();
  other.Clear();
  m_capacity = capacity;
  m_isWideText = !text.empty() && std::is_same_v<Unit, wchar_t>;
}

void StringRecord::Set(std::string_view text) {
  SetForm(m_narrow, m_wide, text);
}

void StringRecord::Set(std::wstring_view text) {
  SetForm(m_wide, m_narrow, text);
}

template <typename Unit, typename Other>
void StringRecord::AppendForm(StringForm<Unit>& form, StringForm<Other>& other,
                              std::basic_string_view<Unit> text) {
  const size_t length = form.Length() + text.size();
  const uint64_t capacity =
      length + 1 > m_capacity ? CapacityForLength(length) : m_capacity;
  form.Append(text, RoomOf(form, capacity));
  other.Clear();
  m_capacity = capacity;
  m_isWideText = std::is_same_v<Unit, wchar_t>;
}

void StringRecord::Append(std::string_view text) {
  AppendForm(m_narrow, m_wide, text);
}

void StringRecord::Append(std::wstring_view text) {
  AppendForm(m_wide, m_narrow, text);
}

void StringRecord::Erase(size_t index, size_t count) {
  if (PrefersWide()) {
    EraseForms(m_wide, m_narrow, index, count);
  } else {
    EraseForms(m_narrow, m_wide, index, count);
  }
  m_isWideText = m_wide.IsPresent() && (m_isWideText || !m_narrow.IsPresent());
}

void StringRecord::Overwrite(size_t index, std::string_view text) {
  m_wide.Clear();
  OverwriteForm(m_narrow, index, text);
}

void StringRecord::Overwrite(size_t index, std::wstring_view text) {
  m_narrow.Clear();
  m_isWideText = true;
  OverwriteForm(m_wide, index, text);
}

void StringRecord::SetCodePage(uint32_t codePage) {
  m_isWideText = MakeWide().IsPresent();
  m_narrow.Free();
  m_codePage = codePage;
}

}  // namespace kova
