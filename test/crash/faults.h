// Ways for a program to crash. Each is a function with a name of its own that
// a debugger finds on the stack.
#pragma once

#include <string_view>

namespace kova::test {

// None of them returns. Each may be called on any thread.
using Fault = void();

void WriteToNull();
void ThrowANumber();
void DivideByZero();
// Uses up the calling thread's stack.
void OverflowTheStack();

// The fault called `name`: "null", "throw", "divide" or "overflow". Null for
// any other name.
[[nodiscard]] Fault* FindFault(std::string_view name);

}  // namespace kova::test
