#include "text/o_string.h"

#include <algorithm>
#include <charconv>
#include <cstring>
#include <cwchar>
#include <limits>

#include "text/string_codec.h"
#include "text/string_record.h"

using kova::StringRecord;

namespace {

std::string_view Bounded(const char* text, size_t most) {
  if (text == nullptr) return {};
  // `most` may reach past the memory behind an earlier zero, which memchr()
  // never looks at.
  const void* const zero = std::memchr(text, 0, most);
  if (zero == nullptr) return {text, most};
  return {text, static_cast<size_t>(static_cast<const char*>(zero) - text)};
}

std::wstring_view Bounded(const wchar_t* text, size_t most) {
  if (text == nullptr) return {};
  const wchar_t* const zero = std::wmemchr(text, 0, most);
  return {text, zero == nullptr ? most : static_cast<size_t>(zero - text)};
}

template <typename Unit>
std::basic_string_view<Unit> Terminated(const Unit* text) {
  return text == nullptr ? std::basic_string_view<Unit>()
                         : std::basic_string_view<Unit>(text);
}

OString HexText(uint64_t number, size_t digits) {
  char text[16];
  for (size_t i = digits; i-- > 0; number >>= 4) {
    text[i] = "0123456789ABCDEF"[number & 0xF];
  }
  return OString(text, digits);
}

}  // namespace

OString::OString(const char* text)
    : m_record(StringRecord::Make(Terminated(text), kova::kCodePageAnsi)) {}

OString::OString(const wchar_t* text) { AssignView(Terminated(text)); }

OString::OString(const char* text, size_t most)
    : m_record(StringRecord::Make(Bounded(text, most), kova::kCodePageAnsi)) {}

OString::OString(const wchar_t* text, size_t most) {
  AssignView(Bounded(text, most));
}

OString::OString(char character) : OString(&character, 1) {}

OString OString::Decimal(uint32_t number) {
  char text[std::numeric_limits<uint32_t>::digits10 + 1];
  const auto end = std::to_chars(text, text + sizeof(text), number).ptr;
  return OString(text, static_cast<size_t>(end - text));
}

OString OString::Hex(uint32_t number) { return HexText(number, 8); }

OString OString::Hex(uint64_t number) { return HexText(number, 16); }

OString OString::FromUtf8(std::string_view bytes) {
  return OString(StringRecord::Make(Bounded(bytes.data(), bytes.size()),
                                    kova::kCodePageUtf8));
}

OString::OString(const OString& other) : m_record(other.m_record) {
  if (m_record != nullptr) m_record->AddReference();
}

OString& OString::operator=(const OString& other) {
  return *this = OString(other);
}

OString& OString::operator=(OString&& other) noexcept {
  OString taken(std::move(other));
  std::swap(m_record, taken.m_record);
  return *this;
}

OString& OString::operator=(const char* text) {
  AssignView(Terminated(text));
  return *this;
}

OString& OString::operator=(const wchar_t* text) {
  AssignView(Terminated(text));
  return *this;
}

void OString::Assign(const char* text, size_t most) {
  AssignView(Bounded(text, most));
}

void OString::Assign(const wchar_t* text, size_t most) {
  AssignView(Bounded(text, most));
}

// A record that others share keeps its texts; this handle needs none of them.
// It gets a new record when that has its text, so that whatever throws leaves
// no half-made one, in a constructor either.
template <typename Unit>
void OString::AssignView(std::basic_string_view<Unit> text) {
  if (m_record != nullptr && !m_record->IsShared()) {
    m_record->Set(text);
    return;
  }
  OString fresh(new StringRecord(Capacity(), CodePage()));
  fresh.m_record->Set(text);
  *this = std::move(fresh);
}

template void OString::AssignView(std::string_view text);
template void OString::AssignView(std::wstring_view text);

void OString::Release() { m_record->Release(); }

std::string_view OString::NarrowView() const {
  return m_record == nullptr ? std::string_view("")
                             : m_record->MakeNarrow().View();
}

std::wstring_view OString::WideView() const {
  return m_record == nullptr ? std::wstring_view(L"")
                             : m_record->MakeWide().View();
}

int32_t OString::Length() const {
  constexpr size_t kMost = std::numeric_limits<int32_t>::max();
  const size_t length = PrefersWide() ? WideView().size() : NarrowView().size();
  return static_cast<int32_t>(std::min(length, kMost));
}

bool OString::IsEmpty() const {
  return m_record == nullptr || !m_record->HasText();
}

uint64_t OString::Capacity() const {
  return m_record == nullptr ? 0 : m_record->Capacity();
}

bool OString::HasNarrow() const {
  return m_record != nullptr && m_record->NarrowForm().IsPresent();
}

bool OString::HasWide() const {
  return m_record != nullptr && m_record->WideForm().IsPresent();
}

void OString::MakeUnique() {
  if (m_record == nullptr) {
    m_record = new StringRecord;
  } else if (m_record->IsShared()) {
    *this = OString(m_record->Clone());
  }
}

uint32_t OString::CodePage() const {
  return m_record == nullptr ? kova::kCodePageAnsi : m_record->CodePage();
}

void OString::SetCodePage(uint32_t codePage) {
  if (codePage == CodePage()) return;
  MakeUnique();
  m_record->SetCodePage(codePage);
}

bool OString::PrefersWide() const {
  return m_record == nullptr ? kova::IsMultiByteCodePage(kova::kCodePageAnsi)
                             : m_record->PrefersWide();
}

// Texts of one code page need ask about it but once.
bool OString::IsPairWide(const OString& other) const {
  if (CodePage() != other.CodePage() || PrefersWide()) return true;
  return other.m_record != nullptr && other.m_record->IsWideText();
}
