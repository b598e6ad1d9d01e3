// What stands in for an imported function.
#pragma once

namespace kova::test {

struct Thunk {
  const char* name;
  void* function;
};

template <typename Function>
Thunk MakeThunk(const char* name, Function* function) {
  return {name, reinterpret_cast<void*>(function)};
}

}  // namespace kova::test
