// What stands in for an imported function.
#pragma once

namespace kova::test {

struct Thunk {
  const char* name;
  void* function;
};

// Answered by a function, or a lambda that captures nothing.
template <typename Function>
Thunk By(const char* name, Function function) {
  return {name, reinterpret_cast<void*>(+function)};
}

}  // namespace kova::test
