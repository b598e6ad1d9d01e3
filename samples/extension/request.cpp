#include "request.h"

#include <algorithm>
#include <charconv>

namespace sample {
namespace {

char Fold(char c) {
  return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

bool EqualNoCase(std::string_view a, std::string_view b) {
  return std::ranges::equal(a, b, {}, Fold, Fold);
}

std::string_view Trim(std::string_view text) {
  const size_t first = text.find_first_not_of(" \t\r\n");
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(" \t\r\n") - first + 1);
}

// Cuts `text` at the first `separator`; the second part is empty without one.
std::pair<std::string_view, std::string_view> Cut(std::string_view text,
                                                  char separator) {
  const size_t at = text.find(separator);
  if (at == std::string_view::npos) return {text, {}};
  return {text.substr(0, at), text.substr(at + 1)};
}

int HexDigit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  const char folded = Fold(c);
  return folded >= 'a' && folded <= 'f' ? folded - 'a' + 10 : -1;
}

void AddFields(Request& request, std::string_view fields) {
  while (!fields.empty()) {
    const auto [field, rest] = Cut(fields, '&');
    if (field.find('=') != std::string_view::npos) {
      const auto [name, value] = Cut(Trim(field), '=');
      request.form.emplace_back(UrlDecode(name), UrlDecode(value));
    }
    fields = rest;
  }
}

// The value of the first header line called `name` in `headers`.
std::string_view Header(std::string_view headers, std::string_view name) {
  while (!headers.empty()) {
    const auto [line, rest] = Cut(headers, '\n');
    const auto [lineName, value] = Cut(line, ':');
    if (EqualNoCase(lineName, name)) return Trim(value);
    headers = rest;
  }
  return {};
}

// Where the headers end and the body starts: at the first empty line, with
// either line ending.
std::pair<size_t, size_t> FindBody(std::string_view bytes) {
  constexpr std::string_view kEnds[] = {"\r\n\r\n", "\n\r\n", "\r\n\n", "\n\n"};
  for (size_t at = 0; at < bytes.size(); ++at) {
    for (const std::string_view end : kEnds) {
      if (bytes.substr(at).starts_with(end)) return {at, at + end.size()};
    }
  }
  return {bytes.size(), bytes.size()};
}

}  // namespace

std::string UrlDecode(std::string_view text) {
  std::string decoded;
  for (size_t i = 0; i < text.size(); ++i) {
    const int high = i + 2 < text.size() ? HexDigit(text[i + 1]) : -1;
    const int low = high >= 0 ? HexDigit(text[i + 2]) : -1;
    if (text[i] == '%' && low >= 0) {
      decoded += static_cast<char>(high * 16 + low);
      i += 2;
    } else {
      decoded += text[i] == '+' ? ' ' : text[i];
    }
  }
  return decoded;
}

Request ReadRequest(std::string_view bytes) {
  const auto [headersEnd, bodyStart] = FindBody(bytes);
  const auto [requestLine, headers] = Cut(bytes.substr(0, headersEnd), '\n');
  const auto [method, rest] = Cut(Trim(requestLine), ' ');
  Request request;
  request.method = method;
  request.target = Cut(Trim(rest), ' ').first;
  request.body = bytes.substr(bodyStart);
  request.raw = bytes;
  const std::string_view length = Header(headers, "Content-Length");
  std::from_chars(length.data(), length.data() + length.size(),
                  request.announcedBodyBytes);
  AddFields(request, Cut(request.target, '?').second);
  if (Header(headers, "Content-Type") == "application/x-www-form-urlencoded") {
    AddFields(request, request.body);
  }
  return request;
}

std::string FormValue(const Request& request, std::string_view name) {
  for (const auto& [fieldName, value] : request.form) {
    if (EqualNoCase(fieldName, name)) return std::string(Trim(value));
  }
  return {};
}

}  // namespace sample
