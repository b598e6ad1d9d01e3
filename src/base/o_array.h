// Growable arrays of plain elements (bytes, pointers), and how arrays grow.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <type_traits>

namespace kova {

inline constexpr int32_t kLeastGrowthStep = 4;
inline constexpr int32_t kMostGrowthStep = 1024;

// The capacity that an array of `count` elements in use and `capacity`
// reserved reports after growing to `newSize` (more than `capacity`). The step
// is `growBy`; 0 means an eighth of `count`, within the limits above.
[[nodiscard]] constexpr int32_t NextCapacity(int32_t count, int32_t capacity,
                                             int32_t growBy, int32_t newSize) {
  const int32_t step =
      growBy != 0 ? growBy
                  : std::clamp(count / 8, kLeastGrowthStep, kMostGrowthStep);
  const int64_t next = std::max<int64_t>(newSize, int64_t{capacity} + step);
  return static_cast<int32_t>(
      std::min<int64_t>(next, std::numeric_limits<int32_t>::max()));
}

// How many elements the block beneath gets when `needed` no longer fit into
// its `room`: at least half as much again, so that n elements added in small
// steps are moved O(n) times in all, and what lies idle is less than half of
// what is used.
[[nodiscard]] constexpr size_t NextRoom(size_t room, size_t needed) {
  return std::max(needed, room + room / 2);
}

}  // namespace kova

// A growable array of elements of N bytes that may be copied byte by byte.
// Not safe for use by two threads at once: its owner guards it.
template <size_t N>
class OBaseArray {
 public:
  OBaseArray() = default;
  // Frees the storage and does nothing per element.
  virtual ~OBaseArray() { std::free(m_data); }

  OBaseArray(const OBaseArray&) = delete;
  OBaseArray& operator=(const OBaseArray&) = delete;

  // Sets the number of elements in use. New ones are zero; shrinking keeps
  // the capacity, 0 frees the storage. When memory runs out, or `newSize` is
  // negative, nothing changes: Count() tells.
  void SetSize(int32_t newSize);

  // The step in elements by which the capacity grows; 0 (the start) computes
  // it from the count.
  void SetGrowBy(int32_t growBy) { m_growBy = growBy; }

  [[nodiscard]] int32_t Count() const { return m_count; }
  // Elements reserved by the growth rule. The block beneath may be larger: it
  // grows geometrically.
  [[nodiscard]] int32_t Capacity() const { return m_capacity; }

 protected:
  void* m_data = nullptr;
  int32_t m_count = 0;
  int32_t m_capacity = 0;
  int32_t m_growBy = 0;

 private:
  void Free();
  [[nodiscard]] bool AllocateFirst(int32_t newSize);
  [[nodiscard]] bool Reserve(int32_t capacity);
  [[nodiscard]] bool Resize(size_t room);

  // Elements the block has room for.
  size_t m_room = 0;
};

// An array of T with typed access by index. Indexes are not checked.
template <typename T>
class OTypedArray : public OBaseArray<sizeof(T)> {
  static_assert(std::is_trivially_copyable_v<T>);

 public:
  // Null when the array is empty and holds no storage. Valid until SetSize().
  [[nodiscard]] T* Data() { return static_cast<T*>(this->m_data); }
  [[nodiscard]] const T* Data() const {
    return static_cast<const T*>(this->m_data);
  }
  [[nodiscard]] T& operator[](int32_t index) { return Data()[index]; }
  [[nodiscard]] const T& operator[](int32_t index) const {
    return Data()[index];
  }
};

template <typename Pointer>
class OPointerArray;

// An array of pointers that does not own what they point to. Its storage is
// read and written through this type only.
template <typename T>
class OPointerArray<T*> : public OTypedArray<void*> {
 public:
  [[nodiscard]] T** Data() { return static_cast<T**>(m_data); }
  [[nodiscard]] T* const* Data() const {
    return static_cast<T* const*>(m_data);
  }
  [[nodiscard]] T*& operator[](int32_t index) { return Data()[index]; }
  [[nodiscard]] T* operator[](int32_t index) const { return Data()[index]; }
};

template <size_t N>
void OBaseArray<N>::SetSize(int32_t newSize) {
  if (newSize < 0) return;
  if (newSize == 0) {
    Free();
    return;
  }
  if (m_data == nullptr) {
    if (AllocateFirst(newSize)) m_count = newSize;
    return;
  }
  if (newSize > m_capacity &&
      !Reserve(kova::NextCapacity(m_count, m_capacity, m_growBy, newSize))) {
    return;
  }
  if (newSize > m_count) {
    std::memset(static_cast<char*>(m_data) + N * static_cast<size_t>(m_count),
                0, N * static_cast<size_t>(newSize - m_count));
  }
  m_count = newSize;
}

template <size_t N>
void OBaseArray<N>::Free() {
  std::free(m_data);
  m_data = nullptr;
  m_count = m_capacity = 0;
  m_room = 0;
}

template <size_t N>
bool OBaseArray<N>::AllocateFirst(int32_t newSize) {
  m_data = std::calloc(static_cast<size_t>(newSize), N);
  if (m_data == nullptr) return false;
  m_capacity = newSize;
  m_room = static_cast<size_t>(newSize);
  return true;
}

template <size_t N>
bool OBaseArray<N>::Reserve(int32_t capacity) {
  const auto needed = static_cast<size_t>(capacity);
  if (needed > m_room && !Resize(kova::NextRoom(m_room, needed)) &&
      !Resize(needed)) {
    return false;
  }
  m_capacity = capacity;
  return true;
}

template <size_t N>
bool OBaseArray<N>::Resize(size_t room) {
  void* const data = std::realloc(m_data, room * N);
  if (data == nullptr) return false;
  m_data = data;
  m_room = room;
  return true;
}
