// What the handles of one string share: its two forms, its capacity, its tag.
#pragma once

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string_view>

namespace kova {

// One of a text's two forms: a zero-terminated buffer, owned or borrowed, with
// its length. The text in it holds no zero; a form without text is the same as
// an absent one. Not safe for use by two threads at once.
template <typename Unit>
class StringForm {
 public:
  [[nodiscard]] bool IsPresent() const { return m_length != 0; }
  [[nodiscard]] size_t Length() const { return m_length; }

  // Terminated; valid until the next change. Never null.
  [[nodiscard]] const Unit* Text() const {
    return m_units ? m_units.get() : &kNone;
  }
  [[nodiscard]] std::basic_string_view<Unit> View() const {
    return {Text(), m_length};
  }

  // Gives an absent form a buffer of `roomUnits` that somebody else owns and
  // that outlives this form. One that grows leaves it for one of its own.
  void Borrow(Unit* units, size_t roomUnits) {
    m_units = Buffer(units, Deleter{true});
    m_room = roomUnits;
    Clear();
  }

  // Makes the form absent and keeps the buffer.
  void Clear() { SetLength(0); }

  // Makes the form absent and lets go of the buffer.
  void Free() {
    m_units.reset();
    m_room = m_length = 0;
  }

  // Replaces the text. `text` may lie in this very buffer. `roomUnits` (more
  // than text.size()) is how large the buffer must be at least.
  void Assign(std::basic_string_view<Unit> text, size_t roomUnits) {
    if (roomUnits > m_room) {
      Buffer fresh = Make(roomUnits);
      std::copy_n(text.data(), text.size(), fresh.get());
      Adopt(std::move(fresh), roomUnits);
    } else {
      std::copy_n(text.data(), text.size(), m_units.get());
    }
    SetLength(text.size());
  }

  // Adds to the text. `text` must not lie in this buffer. A buffer that is
  // too small for `roomUnits` grows at least by half, so that adding n units
  // piece by piece costs O(n).
  void Append(std::basic_string_view<Unit> text, size_t roomUnits) {
    if (roomUnits > m_room) {
      const size_t room = std::max(roomUnits, m_room + m_room / 2);
      Buffer fresh = Make(room);
      std::copy_n(Text(), m_length, fresh.get());
      Adopt(std::move(fresh), room);
    }
    std::copy_n(text.data(), text.size(), m_units.get() + m_length);
    SetLength(m_length + text.size());
  }

  // Removes `count` units at `index`; both must lie within the text.
  void Erase(size_t index, size_t count) {
    Unit* const at = m_units.get() + index;
    const size_t rest = m_length - index - count;
    std::memmove(at, at + count, rest * sizeof(Unit));
    SetLength(m_length - count);
  }

  // A buffer of at least `roomUnits` whose contents are lost, to be filled
  // from outside and then closed with SetLength().
  [[nodiscard]] Unit* Overwrite(size_t roomUnits) {
    m_length = 0;
    if (roomUnits > m_room) {
      Adopt(Make(roomUnits), roomUnits);
    }
    return m_units.get();
  }

  // The text, for changes that keep its length and write no zero.
  [[nodiscard]] Unit* MutableText() { return m_units.get(); }

  // Ends the text after `length` units, which must fit with a terminator.
  void SetLength(size_t length) {
    m_length = length;
    if (m_units) m_units[length] = 0;
  }

 private:
  struct Deleter {
    bool isBorrowed = false;
    void operator()(Unit* units) const {
      if (!isBorrowed) delete[] units;
    }
  };
  using Buffer = std::unique_ptr<Unit[], Deleter>;

  // Not zeroed: every user writes what it reads.
  static Buffer Make(size_t units) { return Buffer(new Unit[units]); }

  void Adopt(Buffer units, size_t room) {
    m_units = std::move(units);
    m_room = room;
  }

  static constexpr Unit kNone = 0;

  Buffer m_units;
  size_t m_length = 0;
  size_t m_room = 0;
};

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
  [[nodiscard]] const StringForm<char>& NarrowForm() const { return m_narrow; }
  [[nodiscard]] const StringForm<wchar_t>& WideForm() const { return m_wide; }
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
  const StringForm<char>& MakeNarrow();
  const StringForm<wchar_t>& MakeWide();

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
  [[nodiscard]] size_t RoomOf(const StringForm<char>& form,
                              uint64_t capacity) const;
  [[nodiscard]] size_t RoomOf(const StringForm<wchar_t>& form,
                              uint64_t capacity) const;
  template <typename Unit, typename Other>
  void SetForm(StringForm<Unit>& form, StringForm<Other>& other,
               std::basic_string_view<Unit> text);
  template <typename Unit, typename Other>
  void AppendForm(StringForm<Unit>& form, StringForm<Other>& other,
                  std::basic_string_view<Unit> text);

  std::atomic<uint32_t> m_references{1};
  StringForm<char> m_narrow;
  StringForm<wchar_t> m_wide;
  uint64_t m_capacity = 0;
  uint32_t m_codePage = 0;
  // Whether the text was set in its 16-bit form, so that the 8-bit form, where
  // there is one, was derived and may have lost characters.
  bool m_isWideText = false;
};

}  // namespace kova
