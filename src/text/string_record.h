// What the handles of one string share: its two forms, its capacity, its tag.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "text/text_form.h"

namespace kova {

// The capacity, terminator included, of a string that had to hold `length`
// characters: steps of 32.
[[nodiscard]] constexpr uint64_t CapacityForLength(uint64_t length) {
  return (length + 32) & ~uint64_t{31};
}

// A string's record. Made with one reference; the handle that lets go of the
// last one frees it, and only OString holds handles. Apart from the count,
// nothing is safe for use by two threads at once.
//
// A form's buffer is freed when the form gets another one or is let go of. The
// one that Make() puts into the record's own block is then merely out of use:
// its memory returns with the record.
//
// Whatever throws, for want of memory, has changed no text.
class StringRecord {
 public:
  // An empty record: no buffers, capacity 0, the ANSI code page.
  StringRecord() = default;
  StringRecord(uint64_t capacity, uint32_t codePage)
      : m_capacity(capacity), m_codePage(codePage) {}

  // A record of one reference with 8-bit text, in one block with its buffer:
  // most texts are made this way, and none of them changes much.
  [[nodiscard]] static StringRecord* Make(std::string_view text,
                                          uint32_t codePage);

  StringRecord(const StringRecord&) = delete;
  StringRecord& operator=(const StringRecord&) = delete;

  void AddReference() { m_references.fetch_add(1, std::memory_order_relaxed); }
  void Release() {
    if (m_references.fetch_sub(1, std::memory_order_acq_rel) == 1) Destroy();
  }
  [[nodiscard]] bool IsShared() const {
    return m_references.load(std::memory_order_acquire) != 1;
  }

  // A record of one reference with the same texts, capacity and code page.
  [[nodiscard]] StringRecord* Clone() const;

  [[nodiscard]] uint64_t Capacity() const { return m_capacity; }
  [[nodiscard]] uint32_t CodePage() const { return m_codePage; }
  [[nodiscard]] const TextForm<char>& NarrowForm() const { return m_narrow; }
  [[nodiscard]] const TextForm<wchar_t>& WideForm() const { return m_wide; }
  [[nodiscard]] bool HasText() const {
    return m_narrow.IsPresent() || m_wide.IsPresent();
  }
  // Whether operations work on the 16-bit form (see OString). A 16-bit form
  // that was only derived from the 8-bit text does not count: what an
  // operation does never depends on which form was read before.
  [[nodiscard]] bool PrefersWide() const;
  // Whether it prefers it whatever the code page.
  [[nodiscard]] bool IsWideText() const { return m_isWideText; }

  // Makes a form present by converting the other one, which stays.
  const TextForm<char>& MakeNarrow();
  const TextForm<wchar_t>& MakeWide();

  // Replaces the whole text in one form and clears the other. `text` may lie
  // in this record.
  void Set(std::string_view text);
  void Set(std::wstring_view text);

  // Adds to a form that MakeNarrow() or MakeWide() made present, and clears
  // the other. `text` must not lie in this record.
  void Append(std::string_view text);
  void Append(std::wstring_view text);

  // Removes characters from every form that is present. The range counts in
  // the preferred form, which must be present, and must lie within its text.
  void Erase(size_t index, size_t count);

  // Writes over one form's text from `index` on, without reaching its end.
  // The other form is cleared.
  void Overwrite(size_t index, std::string_view text);
  void Overwrite(size_t index, std::wstring_view text);

  // Re-tags the text with a code page that it has not yet: what is there in
  // the 8-bit form alone is first read with the old code page, and the 8-bit
  // form is let go of.
  void SetCodePage(uint32_t codePage);

 private:
  ~StringRecord() = default;
  void Destroy();

  // The room that a form's buffer must have at `capacity`.
  [[nodiscard]] size_t RoomOf(const TextForm<char>& form,
                              uint64_t capacity) const;
  [[nodiscard]] size_t RoomOf(const TextForm<wchar_t>& form,
                              uint64_t capacity) const;
  template <typename Unit, typename Other>
  void SetForm(TextForm<Unit>& form, TextForm<Other>& other,
               std::basic_string_view<Unit> text);
  template <typename Unit, typename Other>
  static void EraseForms(TextForm<Unit>& form, TextForm<Other>& other,
                         size_t index, size_t count);
  template <typename Unit, typename Other>
  void AppendForm(TextForm<Unit>& form, TextForm<Other>& other,
                  std::basic_string_view<Unit> text);

  std::atomic<uint32_t> m_references{1};
  TextForm<char> m_narrow;
  TextForm<wchar_t> m_wide;
  uint64_t m_capacity = 0;
  uint32_t m_codePage = 0;
  // Whether the text was set in its 16-bit form, so that the 8-bit form, where
  // there is one, was derived and may have lost characters.
  bool m_isWideText = false;
};

}  // namespace kova
