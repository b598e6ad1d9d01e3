#include "test/support/bad_request.h"

#include <string_view>

#include "base/windows_api.h"

namespace kova::test {
namespace {

constexpr std::string_view kDateName = "\r\nDate: ";
// A stands for a capital, a for a small letter, 0 for a digit.
constexpr std::string_view kDateShape = "Aaa, 00 Aaa 0000 00:00:00 GMT";

bool FitsShape(char c, char shape) {
  switch (shape) {
    case 'A':
      return c >= 'A' && c <= 'Z';
    case 'a':
      return c >= 'a' && c <= 'z';
    case '0':
      return c >= '0' && c <= '9';
    default:
      return c == shape;
  }
}

bool IsDate(std::string_view text) {
  if (text.size() != kDateShape.size()) return false;
  for (size_t i = 0; i < text.size(); ++i) {
    if (!FitsShape(text[i], kDateShape[i])) return false;
  }
  return true;
}

// ASCII, as computer names are where tests run.
std::string ComputerName() {
  wchar_t name[260] = {};
  DWORD units = 260;
  ::GetComputerNameW(name, &units);
  return std::string(name, name + units);
}

}  // namespace

std::string BadRequest(const std::string& connection) {
  return "HTTP/1.1 400 Bad Request\r\n"
         "Content-Type: application/octet-stream\r\n"
         "Cache-Control: no-cache\r\n"
         "Connection: " +
         connection +
         "\r\n"
         "Date: <date>\r\n"
         "Server: " +
         ComputerName() +
         "\r\n"
         "Accept-Ranges: None\r\n"
         "\r\n";
}

std::string MaskDate(std::string answer) {
  const size_t name = answer.find(kDateName);
  if (name == std::string::npos) return answer;
  const size_t from = name + kDateName.size();
  const size_t to = answer.find("\r\n", from);
  if (to == std::string::npos ||
      !IsDate(std::string_view(answer).substr(from, to - from))) {
    return answer;
  }
  return answer.replace(from, to - from, "<date>");
}

}  // namespace kova::test
