// A growable array of strings.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

#include "text/o_string.h"

// Owns one reference per element that is not null. Grows by the same rule as
// the other arrays. Not safe for use by two threads at once. Where memory
// runs out std::bad_alloc passes through.
class OStringArray {
 public:
  OStringArray() = default;

  OStringArray(const OStringArray&) = delete;
  OStringArray& operator=(const OStringArray&) = delete;

  // Sets the number of elements. New ones are empty; shrinking releases those
  // that leave and keeps the capacity, 0 frees the storage. A negative size
  // changes nothing.
  void SetSize(int32_t newSize);

  // The step in elements by which the capacity grows; 0 (the start) computes
  // it from the count.
  void SetGrowBy(int32_t growBy) { m_growBy = growBy; }

  // Replaces the element at `index` (not negative) and first grows the array
  // to `index` + 1 elements when it is shorter.
  void SetAt(int32_t index, OString value);

  // Adds one element at the end.
  void Append(OString value);

  // Replaces the contents by the pieces of `source` between occurrences of
  // `separator`, empty pieces included. An empty source gives no element; a
  // null or empty separator gives `source` itself.
  void Split(const OString& source, const char* separator);

  [[nodiscard]] int32_t Count() const { return m_count; }
  [[nodiscard]] int32_t Capacity() const { return m_capacity; }
  // Null when the array is empty and holds no storage.
  [[nodiscard]] const OString* Data() const { return m_data.get(); }
  // Indexes are not checked.
  [[nodiscard]] OString& operator[](int32_t index) { return m_data[index]; }
  [[nodiscard]] const OString& operator[](int32_t index) const {
    return m_data[index];
  }

 private:
  void Reserve(int32_t newSize);

  std::unique_ptr<OString[]> m_data;
  int32_t m_count = 0;
  int32_t m_capacity = 0;
  int32_t m_growBy = 0;
  // Elements the block has room for; those past the count are null.
  int32_t m_room = 0;
};
