// Why a request for a printer would be answered 400.
#pragma once

#include <string>
#include <vector>

#include "admin/printer_facts.h"

namespace kova::ctl {

struct Diagnosis {
  // The first thing that makes the server answer 400: a word for programs,
  // which stays the same, and a sentence. "none" and empty if nothing is seen.
  std::wstring word;
  std::wstring fault;
  // What is odd but does not lead to a 400, or not surely; sentences.
  std::vector<std::wstring> remarks;

  [[nodiscard]] bool HasFault() const { return !fault.empty(); }
};

// In the order in which the server would meet the faults.
Diagnosis Diagnose(const PrinterFacts& facts);

// What a look from outside cannot tell, for the end of every report.
inline constexpr wchar_t kNotSeen[] =
    L"Not to be seen from here: whether an extension offers interface version "
    L"1, initialises and answers (kovactl probe tries that), what the host's "
    L"account may read, and whether the host failed to load the library "
    L"before: "
    L"such a failure lasts until the host process restarts, even if the "
    L"library "
    L"has been repaired since.";

}  // namespace kova::ctl
