// A printer to try the server with.
#pragma once

#include <optional>
#include <string>

#include "common/exit_code.h"

namespace kova::ctl {

inline constexpr wchar_t kDemoPrinterName[] = L"Demo Printer";
inline constexpr wchar_t kDemoShareName[] = L"demo";

// Makes sure that the print spooler has the demonstration printer, shared, and
// that its driver package is `packageFolder`, where the extension library must
// lie. The printer stays in the spooler; one that is there already is used as
// it is. Needs administrator rights when there is something to make.
std::optional<Failure> EnsureDemoPrinter(const std::wstring& packageFolder);

}  // namespace kova::ctl
