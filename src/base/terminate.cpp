// What the C++ library does where an exception can go nowhere: it says the
// exception's type, and aborts. This one says it as the compiler spells it, for
// the library's own names it in C++, by code that is a fifth of an image's.
#include <cxxabi.h>

#include <cstdio>
#include <cstdlib>
#include <exception>
#include <typeinfo>

void __gnu_cxx::__verbose_terminate_handler() {
  const std::type_info* const type = abi::__cxa_current_exception_type();
  std::fputs("terminate called ", stderr);
  if (type == nullptr) {
    std::fputs("without an active exception\n", stderr);
  } else {
    std::fputs("after throwing an instance of '", stderr);
    std::fputs(type->name(), stderr);
    std::fputs("'\n", stderr);
  }
  std::abort();
}
