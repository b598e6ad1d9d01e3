// Where a virtual function stands in its class's table.
#pragma once

#include <cstddef>
#include <cstring>
#include <stdexcept>

namespace kova::test {

// How many slots a virtual destructor takes.
inline constexpr size_t kDestructorSlots = 2;

// The slot of a virtual member function, from 0 on: a pointer to one says it.
// So it is in the C++ ABI that all compilers but Microsoft's share; there the
// order of the slots is the same, but a destructor takes one.
template <typename Method>
[[nodiscard]] size_t SlotOf(Method method) {
  size_t words[2];
  static_assert(sizeof(method) == sizeof(words));
  std::memcpy(words, &method, sizeof(words));
  if (words[0] % 2 == 0) throw std::invalid_argument("not a virtual function");
  return words[0] / sizeof(void*);
}

}  // namespace kova::test
