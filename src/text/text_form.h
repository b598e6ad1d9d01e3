// One zero-terminated buffer with its length: one of a string's two forms.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <memory>
#include <string_view>

namespace kova {

// Owns a buffer of Unit or borrows one. The text in it never holds a zero; a
// form without text is the same as an absent one. Not safe for use by two
// threads at once.
template <typename Unit>
class TextForm {
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

}  // namespace kova
