// Parses requests and every beginning of them, with and without form data, and
// compares the verdict with one worked out in the plainest way, and with that
// of a look that goes on where the one before ended.
#include <optional>

#include "http/http_request.h"
#include "http/request_progress.h"
#include "test/fuzz/fuzz_input.h"

namespace {

constexpr size_t kMostBytes = 400;
constexpr std::string_view kBlanks = " \t";
constexpr std::string_view kTrimmed = " \t\r\n";

template <typename Text>
Text Trim(Text text, Text characters) {
  const size_t first = text.find_first_not_of(characters);
  if (first == text.npos) return {};
  return text.substr(first, text.find_last_not_of(characters) - first + 1);
}

std::string_view TrimFront(std::string_view text) {
  return text.substr(std::min(text.find_first_not_of(kBlanks), text.size()));
}

// Whether a decoded path has any text: its first byte decides.
bool HasText(std::string_view path) {
  if (path.empty()) return false;
  if (path[0] != '%') return path[0] != 0;
  return path.size() >= 3 && kova::fuzz::Escaped(path[1], path[2]) != 0;
}

bool IsGoodRequestLine(std::string_view line) {
  line = TrimFront(line);
  const size_t blank = line.find_first_of(kBlanks);
  if (blank == line.npos || blank == 0) return false;
  const std::string_view rest = TrimFront(line.substr(blank));
  const size_t end = rest.find_first_of(kBlanks);
  std::string_view path = rest.substr(0, end);
  if (end == rest.npos) {
    path = path.substr(0, path.find_last_not_of(kTrimmed) + 1);
  }
  return HasText(path.substr(0, path.find('?')));
}

size_t TerminatorAt(std::string_view bytes, size_t at) {
  for (const std::string_view form : {"\r\n\r\n", "\n\r\n", "\r\n\n", "\n\n"}) {
    if (bytes.substr(at, form.size()) == form) return form.size();
  }
  return 0;
}

// Letters beyond ASCII equal only themselves.
template <typename Text>
bool EqualsNoCase(Text a, Text b) {
  return std::equal(a.begin(), a.end(), b.begin(), b.end(), [](auto x, auto y) {
    const auto lower = [](auto c) {
      return c >= 'A' && c <= 'Z' ? c - 'A' + 'a' : static_cast<int>(c);
    };
    return lower(x) == lower(y);
  });
}

std::string Header(std::string_view block, std::string_view name) {
  while (!block.empty()) {
    const size_t end = std::min(block.find('\n'), block.size());
    const std::string_view line = Trim(block.substr(0, end), kTrimmed);
    const size_t colon = line.find(':');
    if (colon != line.npos && EqualsNoCase(line.substr(0, colon), name)) {
      return std::string(Trim(line.substr(colon + 1), kTrimmed));
    }
    block.remove_prefix(std::min(end + 1, block.size()));
  }
  return {};
}

// True, false, or nothing where the length is one that no number holds.
std::optional<bool> IsComplete(std::string_view bytes) {
  const size_t lineFeed = bytes.find('\n');
  if (lineFeed == bytes.npos || bytes.find('\0') < lineFeed) return false;
  const bool hasReturn = lineFeed > 0 && bytes[lineFeed - 1] == '\r';
  const size_t lineLength = hasReturn ? lineFeed - 1 : lineFeed;
  if (!IsGoodRequestLine(bytes.substr(0, lineLength))) return false;
  for (size_t at = lineLength; at + 2 <= bytes.size(); ++at) {
    if (bytes[at] == 0) return false;
    const size_t terminator = TerminatorAt(bytes, at);
    if (terminator == 0) continue;
    const size_t body = bytes.size() - at - terminator;
    if (body == 0) return true;
    const size_t from = std::min(lineFeed + 1, at);
    const std::string length =
        Header(bytes.substr(from, at - from), "Content-Length");
    if (length.size() > 9) return std::nullopt;
    return length.empty() ||
           static_cast<long long>(body) >= std::atoll(length.c_str());
  }
  return false;
}

// The value as it is found among all fields.
std::wstring FormValue(const HTTPRequest& request, std::wstring_view name) {
  for (int32_t i = 0; i < request.FormNames().Count(); ++i) {
    if (!EqualsNoCase(request.FormNames()[i].WideView(), name)) continue;
    return std::wstring(Trim<std::wstring_view>(
        request.FormValues()[i].WideView(), L" \t\r\n"));
  }
  return {};
}

bool Parse(std::string_view bytes, bool parseForm) {
  HTTPRequest request;
  const bool verdict = request.Parse(
      bytes.data(), static_cast<int32_t>(bytes.size()), parseForm);
  KOVA_FUZZ_EXPECT(HTTPRequest::IsComplete(
                       bytes.data(), static_cast<int32_t>(bytes.size())) ==
                   verdict);
  KOVA_FUZZ_EXPECT(request.FormNames().Count() == request.FormValues().Count());
  KOVA_FUZZ_EXPECT(request.BodyLength() <= bytes.size());
  KOVA_FUZZ_EXPECT(!verdict || !request.Method().IsEmpty());
  KOVA_FUZZ_EXPECT(!verdict || !request.Path().IsEmpty());
  for (const wchar_t* const name : {L"printer", L"a", L""}) {
    KOVA_FUZZ_EXPECT(request.GetFormValue(name) == FormValue(request, name));
  }
  (void)request.GetHeader("Connection");
  (void)request.HeaderLines();
  return verdict;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string whole(reinterpret_cast<const char*>(data),
                          std::min(size, kMostBytes));
  kova::RequestProgress each;
  kova::RequestProgress some;
  for (size_t length = 0; length <= whole.size(); ++length) {
    // A buffer of its own, so that reading past its end is seen.
    const std::string bytes = whole.substr(0, length);
    const bool verdict = Parse(bytes, false);
    KOVA_FUZZ_EXPECT(Parse(bytes, true) == verdict);
    KOVA_FUZZ_EXPECT(each.IsComplete(bytes) == verdict);
    // Cut where the input says.
    KOVA_FUZZ_EXPECT(length == 0 || bytes.back() % 4 != 0 ||
                     some.IsComplete(bytes) == verdict);
    const std::optional<bool> expected = IsComplete(bytes);
    KOVA_FUZZ_EXPECT(!expected || *expected == verdict);
  }
  return 0;
}
