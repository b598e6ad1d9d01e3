// What this extension needs to know about the request it was handed.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace sample {

// One request, taken apart. Texts are the bytes received; form fields are
// decoded, query first, then a body of type application/x-www-form-urlencoded.
struct Request {
  std::string method;
  std::string target;  // as sent, with the query
  std::vector<std::pair<std::string, std::string>> form;
  std::string body;                 // what came after the headers
  uint64_t announcedBodyBytes = 0;  // Content-Length; 0 without one
  std::string raw;
};

// Takes `bytes` apart. The server hands over only requests that it has parsed
// itself, so odd input gives empty fields, not an error.
Request ReadRequest(std::string_view bytes);

// The value of the first form field `name` (ASCII letter case ignored), without
// blanks around it; empty if there is none. Of a request as clients should send
// it, that is what the server routes by. Careless ones are read otherwise here:
// the server takes any two characters behind a '%' for digits, ends a text at a
// zero byte and at a '%' with less than two characters behind it, takes a tab
// for a blank in the request line, and passes over blanks before a header.
std::string FormValue(const Request& request, std::string_view name);

// Decodes '+' and %XX; a '%' without two hexadecimal digits stays as it is.
std::string UrlDecode(std::string_view text);

}  // namespace sample
