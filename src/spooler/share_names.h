// From a printer's share name to its name.
#pragma once

#include <string>

// The name of the first local or shared printer, in the spooler's order, whose
// share name equals `shareName` (ASCII letters compare without case); empty if
// there is none or the spooler does not answer. Asks the spooler anew at every
// call. May be called from any thread.
[[nodiscard]] std::wstring ShareNameToPrinterName(
    const std::wstring& shareName);
