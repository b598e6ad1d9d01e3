// The system's own text: 8-bit, 16-bit or both, shared by reference count.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <utility>

namespace kova {
class StringRecord;
}

// A handle to a shared text record, or null: the empty text of code page 0.
// Copying a handle shares the record; every change first makes the record the
// handle's own (copy on write).
//
// A text has an 8-bit (narrow) form, a 16-bit (wide) form, or both. The form
// that is missing is converted on demand and kept. Changing one form clears
// the other. The code-page tag says how the forms convert: 0 is the process's
// ANSI code page, 1208 UTF-8, 64999 byte for unit, anything else a code page
// of Windows. A new text has code page 0.
//
// A text "prefers wide" when it was set in its wide form or when its code page
// is a multi-byte one (1208, 932, 936, 949, 950, 1361, 54936, or 0 where the
// ANSI code page is one of these); having been asked for Wide() is not enough.
// Length(), indexes and changes then count 16-bit units, otherwise bytes. Two
// texts are handled wide together when either prefers wide or their code pages
// differ. A text ends where its first zero is.
//
// Threads: only the reference count is atomic. Narrow() and Wide() may fill
// the shared record, so a text must not be read on one thread while another
// thread reads or changes a text that shares its record. Handles that share a
// record may be copied and released on different threads at once.
//
// Where memory runs out std::bad_alloc passes through, and the text is what it
// was before.
class OString {
 public:
  OString() = default;
  // From zero-terminated text; null gives empty text.
  OString(const char* text);
  OString(const wchar_t* text);
  // From at most `most` units; an earlier zero ends the text.
  OString(const char* text, size_t most);
  OString(const wchar_t* text, size_t most);
  explicit OString(char character);

  // `number` without leading zeros; "0" for 0.
  [[nodiscard]] static OString Decimal(uint32_t number);
  // 8 or 16 upper-case digits, with leading zeros.
  [[nodiscard]] static OString Hex(uint32_t number);
  [[nodiscard]] static OString Hex(uint64_t number);
  // Text of code page 1208 from its bytes, which are not validated.
  [[nodiscard]] static OString FromUtf8(std::string_view bytes);

  OString(const OString& other);
  OString(OString&& other) noexcept
      : m_record(std::exchange(other.m_record, nullptr)) {}
  OString& operator=(const OString& other);
  OString& operator=(OString&& other) noexcept;
  ~OString() {
    if (m_record != nullptr) Release();
  }

  // Replaces the text and keeps the code page. `text` may lie in this string.
  OString& operator=(const char* text);
  OString& operator=(const wchar_t* text);
  void Assign(const char* text, size_t most);
  void Assign(const wchar_t* text, size_t most);

  // The text in one form, zero-terminated, never null. Valid until this
  // handle is changed or destroyed. A text that does not convert is empty.
  [[nodiscard]] const char* Narrow() const { return NarrowView().data(); }
  [[nodiscard]] const wchar_t* Wide() const { return WideView().data(); }
  // The same with the length known; the views are terminated as well.
  [[nodiscard]] std::string_view NarrowView() const;
  [[nodiscard]] std::wstring_view WideView() const;

  // In 16-bit units when the text prefers wide, otherwise in bytes.
  [[nodiscard]] int32_t Length() const;
  // Whether neither form has text.
  [[nodiscard]] bool IsEmpty() const;

  // Characters that fit without growing, terminator included; 0 for a text
  // that was never set, otherwise a multiple of 32.
  [[nodiscard]] uint64_t Capacity() const;
  // Which forms have text at present, and whether operations work on the wide
  // one.
  [[nodiscard]] bool HasNarrow() const;
  [[nodiscard]] bool HasWide() const;
  [[nodiscard]] bool PrefersWide() const;
  // Whether both handles have the same record, so that no text was copied.
  [[nodiscard]] bool SharesRecordWith(const OString& other) const {
    return m_record != nullptr && m_record == other.m_record;
  }

  // Gives this handle a record that no other handle shares.
  void MakeUnique();

  [[nodiscard]] uint32_t CodePage() const;
  // Re-tags the text. What is there in the narrow form alone is read with the
  // old code page first; the narrow form is then derived anew on demand.
  void SetCodePage(uint32_t codePage);

  // Adds `other` at the end, wide or narrow as the pair is handled. A string
  // without text shares the other's record afterwards, its code page
  // included; adding a string without text changes nothing.
  void Append(const OString& other);

  // Removes `count` characters at `index`, at most to the end. Positions
  // outside the text remove nothing.
  void Delete(int32_t index, int32_t count);

  // Replaces every occurrence of `find`, from the start on and without
  // overlap, and returns how many there were. Empty `find`, or one equal to
  // `replacement`, changes nothing and gives 0. Works on the wide form when
  // this string is handled wide together with either argument.
  int32_t Replace(const OString& find, const OString& replacement);

  // -1, 0 or 1 as this text is smaller, equal or greater. Units of the wide
  // form compare as unsigned numbers, bytes of the narrow form as signed ones.
  [[nodiscard]] int32_t Compare(const OString& other) const;
  // The same with the letters a to z, and only these, folded to A to Z.
  [[nodiscard]] int32_t CompareNoCase(const OString& other) const;

  // The index of the first `text` at or after `start` (negative: 0), or -1
  // when there is none or `start` is not within this text. Searches the form
  // this text prefers; plain text is taken as text of code page 0.
  [[nodiscard]] int32_t Find(const char* text, int32_t start = 0) const;
  [[nodiscard]] int32_t Find(const wchar_t* text, int32_t start = 0) const;
  [[nodiscard]] int32_t Find(const OString& text, int32_t start = 0) const;

  // The byte index of the first blank or tab of Narrow(), or -1.
  [[nodiscard]] int32_t FindFirstBlank() const;

  // The index of the last character that occurs in `set`, or -1. Wide or
  // narrow as the pair is handled.
  [[nodiscard]] int32_t ReverseFindOneOf(const OString& set) const;

  // The piece of `count` characters at `start`, cut to what is there, with
  // this text's code page. Negative numbers count as 0. A piece that is the
  // whole text shares the record.
  [[nodiscard]] OString Mid(int32_t start, int32_t count) const;
  [[nodiscard]] OString Left(int32_t count) const;
  [[nodiscard]] OString Right(int32_t count) const;

 private:
  explicit OString(kova::StringRecord* record) : m_record(record) {}

  void Release();
  template <typename Unit>
  void AssignView(std::basic_string_view<Unit> text);
  template <typename Unit>
  void AppendView(std::basic_string_view<Unit> text);
  template <typename Unit>
  int32_t ReplaceForm(std::basic_string_view<Unit> find,
                      std::basic_string_view<Unit> replacement);
  template <typename Unit>
  [[nodiscard]] std::basic_string_view<Unit> View() const;

  [[nodiscard]] bool IsPairWide(const OString& other) const;

  kova::StringRecord* m_record = nullptr;
};

template <>
std::string_view OString::View<char>() const;
template <>
std::wstring_view OString::View<wchar_t>() const;

// A new string: `left` with `right` appended.
[[nodiscard]] OString operator+(OString left, const OString& right);
