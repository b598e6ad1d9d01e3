#include "bench/servers/bench_printer.h"

#include "spooler/driver_location.h"
#include "test/support/server_fixture.h"

namespace kova::bench {

std::wstring ExtensionFolder(size_t number) {
  return test::TestProgramFolder() + L"\\extensions\\" +
         std::to_wstring(number);
}

std::wstring PrinterName(size_t number) {
  return L"Bench" + std::to_wstring(number);
}

bool HasPackage(const std::wstring& printerName) {
  return !GetDriverPackagePath(printerName.c_str()).empty();
}

}  // namespace kova::bench
