// A printer to try the server with.
#pragma once

#include <optional>
#include <string>

#include "common/exit_code.h"

namespace kova::ctl {

inline constexpr wchar_t kDemoPrinterName[] = L"Demo Printer";
inline constexpr wchar_t kDemoShareName[] = L"demo";
// The printer's comment: whose it is, and how it goes.
inline constexpr wchar_t kDemoComment[] =
    L"Made by kovactl run --demo; kovactl run --remove-demo removes it";

// Makes sure that the print spooler has the demonstration printer, shared, and
// that its driver package is `packageFolder`, where the extension library must
// lie. The printer stays in the spooler; one that is there already is used as
// it is. Needs administrator rights when there is something to make.
std::optional<Failure> EnsureDemoPrinter(const std::wstring& packageFolder);

enum class DemoRemoval {
  kRemoved,
  kNotThere,
  kNotOurs,  // a printer of that name which EnsureDemoPrinter did not make
};

// Removes the demonstration printer, and the driver that was added for it if
// nothing else uses that. Needs administrator rights when there is one.
std::optional<Failure> RemoveDemoPrinter(DemoRemoval& outcome);

}  // namespace kova::ctl
