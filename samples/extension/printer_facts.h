// What the print spooler knows about the printer a request is for.
#pragma once

#include <string>

namespace sample {

// UTF-8 throughout; a fact that is not known is empty.
struct PrinterFacts {
  std::string name;
  std::string share;
  std::string driver;
  std::string port;
  std::string package;  // the driver package's folder
  unsigned long jobs = 0;
};

// Looks the printer up by `name` or, if that is empty, by its share name,
// ASCII letter case ignored. An unknown printer gives its name alone. Any
// thread; holds no printer open after returning.
PrinterFacts FindPrinter(const std::string& name, const std::string& share);

}  // namespace sample
