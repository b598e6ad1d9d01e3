// The page that a browser gets.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "printer_facts.h"

namespace sample {

// What the page shows.
struct PageFacts {
  PrinterFacts printer;
  std::string client;        // the client's address
  std::string_view request;  // its bytes
  uint64_t answered = 0;     // requests answered so far, this one included
  bool keptOpen = false;     // the connection stays open after this answer
};

// The whole page, UTF-8. Every text that came from outside is escaped.
std::string StatusPage(const PageFacts& facts);

// `text` made harmless inside HTML, in element text and in quoted attributes.
// Control characters other than tab and line end become U+FFFD; carriage
// returns go.
std::string EscapeHtml(std::string_view text);

}  // namespace sample
