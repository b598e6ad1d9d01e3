#include "check/response_check.h"

#include <algorithm>
#include <charconv>
#include <optional>

#include "base/ascii.h"

namespace kova::ctl::check {
namespace {

bool IsDigit(char c) { return c >= '0' && c <= '9'; }

// The characters of a header's name, RFC 9110 section 5.6.2.
bool IsTokenCharacter(char c) {
  return IsDigit(c) || (FoldAscii(c) >= 'A' && FoldAscii(c) <= 'Z') ||
         (c != '\0' && std::string_view("!#$%&'*+-.^_`|~").find(c) !=
                           std::string_view::npos);
}

bool IsControl(char c) {
  return (static_cast<unsigned char>(c) < 0x20 && c != '\t') || c == 0x7F;
}

template <typename Number>
std::optional<Number> ReadNumber(std::string_view text, int base) {
  Number number = 0;
  const char* const end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, number, base);
  if (error != std::errc() || stop != end) return std::nullopt;
  return number;
}

// Reads one response and collects what is wrong with it.
class ResponseReader {
 public:
  ResponseReader(std::string_view bytes, const ResponseSetting& setting)
      : m_setting(setting), m_rest(bytes), m_bytes(bytes) {}

  ResponseVerdict Read() {
    if (ReadStatusLine() && ReadHeaders()) {
      CheckConnection();
      CheckBody();
    }
    return std::move(m_verdict);
  }

 private:
  void Add(Flaw flaw, std::string detail) {
    m_verdict.findings.push_back({flaw, Callee::kCopy, std::move(detail)});
  }

  // The next line without its end; nothing if no line end follows.
  std::optional<std::string_view> TakeLine() {
    const size_t end = m_rest.find('\n');
    if (end == std::string_view::npos) return std::nullopt;
    std::string_view line = m_rest.substr(0, end);
    m_rest.remove_prefix(end + 1);
    if (line.ends_with('\r')) {
      line.remove_suffix(1);
    } else if (!m_saidLineEnd) {
      m_saidLineEnd = true;
      Add(Flaw::kLineEnd, "the line " + Quoted(line) + " ends with LF alone");
    }
    return line;
  }

  bool ReadStatusLine() {
    const std::string_view start = m_bytes.substr(0, 13);
    const bool good =
        start.size() == 13 &&
        (start.starts_with("HTTP/1.1 ") || start.starts_with("HTTP/1.0 ")) &&
        std::ranges::all_of(start.substr(9, 3), IsDigit) && start[9] != '0' &&
        (start[12] == ' ' || start[12] == '\r' || start[12] == '\n');
    const std::optional<std::string_view> line =
        good ? TakeLine() : std::nullopt;
    if (!line || std::ranges::any_of(*line, IsControl)) {
      Add(Flaw::kStatusLine, "it begins with " + Quoted(m_bytes));
      return false;
    }
    m_isHttp10 = start.starts_with("HTTP/1.0");
    m_verdict.status = ReadNumber<int>(start.substr(9, 3), 10).value_or(0);
    constexpr int kLast = 599;
    if (m_verdict.status > kLast) {
      Add(Flaw::kStatusRange,
          "the status is " + std::to_string(m_verdict.status));
    }
    return true;
  }

  bool ReadHeaders() {
    while (const std::optional<std::string_view> line = TakeLine()) {
      if (line->empty()) return true;
      ReadHeader(*line);
    }
    Add(Flaw::kNoEmptyLine, "the headers reach to the end of the answer");
    return false;
  }

  void ReadHeader(std::string_view line) {
    const size_t colon = line.find(':');
    const std::string_view name = line.substr(0, colon);
    if (colon == std::string_view::npos || name.empty() ||
        !std::ranges::all_of(name, IsTokenCharacter) ||
        std::ranges::any_of(line, IsControl)) {
      Add(Flaw::kHeaderLine, "the line is " + Quoted(line));
      return;
    }
    const std::string_view value = Trim(line.substr(colon + 1), kBlanks);
    if (EqualsNoCase(name, "Content-Length")) ReadContentLength(value);
    if (EqualsNoCase(name, "Transfer-Encoding")) {
      m_chunked = EqualsNoCase(value, "chunked");
    }
    if (EqualsNoCase(name, "Connection")) m_connection = value;
    if (EqualsNoCase(name, "Content-Encoding")) m_encoding = value;
    if (EqualsNoCase(name, "Content-Type")) m_type = value;
    if (EqualsNoCase(name, kSplitHeader)) {
      Add(Flaw::kHeaderInjection, "the line is " + Quoted(line));
    }
  }

  void ReadContentLength(std::string_view value) {
    const auto number = ReadNumber<uint64_t>(value, 10);
    if (!number || !std::ranges::all_of(value, IsDigit)) {
      Add(Flaw::kContentLengthText, "its value is " + Quoted(value));
      m_lengthIsBad = true;
    } else if (m_length && *m_length != *number) {
      Add(Flaw::kContentLengthText, "it is given twice, with two values");
      m_lengthIsBad = true;
    }
    m_length = number;
  }

  // Whether one of the words of the Connection header is `word`.
  [[nodiscard]] bool ConnectionSays(std::string_view word) const {
    std::string_view rest = m_connection;
    while (!rest.empty()) {
      const size_t comma = std::min(rest.find(','), rest.size());
      if (EqualsNoCase(Trim(rest.substr(0, comma), kBlanks), word)) return true;
      rest.remove_prefix(std::min(comma + 1, rest.size()));
    }
    return false;
  }

  void CheckConnection() {
    const bool keeps = ConnectionSays("keep-alive");
    if (m_setting.keepOpen && ConnectionSays("close")) {
      Add(Flaw::kConnectionDisagrees,
          "the answer says \"close\", the flag keeps the connection open");
    } else if (m_setting.keepOpen && m_isHttp10 && !keeps) {
      Add(Flaw::kConnectionDisagrees,
          "the answer is HTTP/1.0 without \"keep-alive\", the flag keeps the "
          "connection open");
    } else if (!m_setting.keepOpen && keeps) {
      Add(Flaw::kConnectionDisagrees,
          "the answer says \"keep-alive\", the flag is 0");
    }
  }

  void CheckBody() {
    const int status = m_verdict.status;
    const bool bodiless = status < 200 || status == 204 || status == 304;
    if (bodiless || m_setting.toHead) {
      CheckNoBody(bodiless);
      return;
    }
    if (m_chunked && (m_length || m_setting.toHttp10)) {
      Add(Flaw::kChunks, m_length ? "Content-Length is sent with chunks"
                                  : "the request is HTTP/1.0, which has none");
    }
    if (!m_chunked) CheckEncoding();
    if (m_chunked) {
      CheckChunks();
    } else if (m_length) {
      CheckLength();
    } else if (!m_lengthIsBad) {
      CheckNoLength();
    }
  }

  void CheckNoBody(bool bodiless) {
    if (bodiless && (m_verdict.status < 200 || !m_rest.empty())) {
      Add(Flaw::kForbiddenBody, "status " + std::to_string(m_verdict.status) +
                                    ", then " + Bytes(m_rest.size()));
    } else if (!m_rest.empty() && m_setting.keepOpen) {
      Add(Flaw::kForbiddenBody,
          "HEAD on a connection that is kept open, then " +
              Bytes(m_rest.size()));
    } else if (!m_rest.empty()) {
      Add(Flaw::kHeadBody, Bytes(m_rest.size()) + " follow the headers");
    }
  }

  // By how such bodies begin, which the codings' definitions fix; Brotli's does
  // not.
  void CheckEncoding() {
    const bool isGzip = m_rest.starts_with("\x1F\x8B");
    if (m_encoding.empty()) {
      if (isGzip && m_type.starts_with("text/")) {
        Add(Flaw::kContentEncoding,
            "the body is gzip, no Content-Encoding says so");
      }
      return;
    }
    const auto byte = [this](size_t i) {
      return i < m_rest.size() ? static_cast<unsigned char>(m_rest[i]) : 0U;
    };
    const bool isZlib =
        (byte(0) & 0xFU) == 8 && (byte(0) * 256 + byte(1)) % 31 == 0;
    const struct {
      const char* name;
      bool fits;
    } kCodings[] = {
        {"gzip", isGzip},    {"x-gzip", isGzip},
        {"deflate", isZlib}, {"zstd", m_rest.starts_with("\x28\xB5\x2F\xFD")},
        {"br", true},        {"identity", true}};
    for (const auto& coding : kCodings) {
      if (EqualsNoCase(m_encoding, coding.name) &&
          (coding.fits || m_rest.empty())) {
        return;
      }
    }
    Add(Flaw::kContentEncoding, "Content-Encoding is " + Quoted(m_encoding) +
                                    ", the body begins with " +
                                    Quoted(m_rest.substr(0, 8)));
  }

  void CheckLength() {
    if (m_lengthIsBad || *m_length == m_rest.size()) return;
    Add(Flaw::kContentLengthWrong,
        "Content-Length says " + std::to_string(*m_length) + ", the body has " +
            Bytes(m_rest.size()));
  }

  void CheckNoLength() {
    if (m_setting.keepOpen) {
      Add(Flaw::kKeepOpenWithoutLength, "there is no Content-Length");
    } else if (!m_rest.empty()) {
      Add(Flaw::kNoContentLength, "the body has " + Bytes(m_rest.size()));
    }
  }

  // RFC 9112 section 7.1, without trailers.
  void CheckChunks() {
    while (true) {
      const size_t end = m_rest.find("\r\n");
      const std::string_view line = m_rest.substr(0, end);
      const auto size =
          ReadNumber<uint64_t>(line.substr(0, line.find(';')), 16);
      if (end == std::string_view::npos || !size ||
          *size > m_rest.size() - end - 2 ||
          m_rest.size() - end - 2 - *size < 2) {
        return Add(Flaw::kChunks, "a chunk begins with " + Quoted(m_rest));
      }
      m_rest.remove_prefix(end + 2 + *size);
      if (!m_rest.starts_with("\r\n")) {
        return Add(Flaw::kChunks, "a chunk ends with " + Quoted(m_rest));
      }
      m_rest.remove_prefix(2);
      if (*size == 0) break;
    }
    if (!m_rest.empty()) {
      Add(Flaw::kChunks, Bytes(m_rest.size()) + " follow the last chunk");
    }
  }

  static std::string Bytes(size_t count) {
    return std::to_string(count) + (count == 1 ? " byte" : " bytes");
  }

  const ResponseSetting m_setting;
  std::string_view m_rest;
  const std::string_view m_bytes;
  ResponseVerdict m_verdict;
  std::string_view m_connection;
  std::string_view m_encoding;
  std::string_view m_type;
  bool m_isHttp10 = false;
  std::optional<uint64_t> m_length;
  bool m_lengthIsBad = false;
  bool m_chunked = false;
  bool m_saidLineEnd = false;
};

}  // namespace

ResponseVerdict CheckResponse(std::string_view bytes,
                              const ResponseSetting& setting) {
  return ResponseReader(bytes, setting).Read();
}

std::string Quoted(std::string_view bytes) {
  constexpr size_t kMost = 40;
  constexpr char kDigits[] = "0123456789ABCDEF";
  std::string text = "\"";
  for (const char c : bytes.substr(0, kMost)) {
    const auto value = static_cast<unsigned char>(c);
    if (c == '\r' || c == '\n') {
      text += c == '\r' ? "\\r" : "\\n";
    } else if (value < 0x20 || value > 0x7E) {
      text += {'\\', 'x', kDigits[value / 16], kDigits[value % 16]};
    } else {
      text += c;
    }
  }
  return text + (bytes.size() > kMost ? "\"..." : "\"");
}

}  // namespace kova::ctl::check
