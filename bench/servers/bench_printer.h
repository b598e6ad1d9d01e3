// Printers for the bench, in the real spooler.
#pragma once

#include <string>

#include "test/support/demo_printer.h"
#include "test/support/server_fixture.h"

namespace kova::bench {

// The folder of the N-th copy of the bench extension, N from 1: seen from this
// program, extensions\N.
[[nodiscard]] inline std::wstring ExtensionFolder(size_t number) {
  return test::TestProgramFolder() + L"\\extensions\\" +
         std::to_wstring(number);
}

// A printer that exists for its scope; one of that name that exists already is
// replaced. Programs that run side by side may each make it: its package is
// the same, and it is there until the first of them ends.
class BenchPrinter {
 public:
  // `number` says which extension is its package.
  explicit BenchPrinter(const std::wstring& name, size_t number = 1)
      : m_printer(name),
        m_isReady(m_printer.IsInstalled() &&
                  m_printer.SetDriverPackage(ExtensionFolder(number))) {
    m_printer.LetGo();
  }

  [[nodiscard]] bool IsReady() const { return m_isReady; }

 private:
  test::DemoPrinter m_printer;
  const bool m_isReady;
};

}  // namespace kova::bench
