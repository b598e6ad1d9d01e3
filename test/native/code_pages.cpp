// Code-page conversion of the stand-in, over the C library's tables.
#include <iconv.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <string>
#include <string_view>

#include "base/windows_api.h"

namespace {

class Converter {
 public:
  Converter(const std::string& to, const std::string& from)
      : m_converter(::iconv_open(to.c_str(), from.c_str())) {}
  ~Converter() {
    if (IsValid()) ::iconv_close(m_converter);
  }
  Converter(const Converter&) = delete;
  Converter& operator=(const Converter&) = delete;

  bool IsValid() const { return m_converter != reinterpret_cast<iconv_t>(-1); }

  // Converts one character at `text`, of `left` bytes at most, and returns how
  // many bytes it took; 0 when there is none to convert. Adds to `out`.
  size_t Step(const char* text, size_t left, std::string& out) {
    for (size_t take = 1; take <= left && take <= 8; ++take) {
      char* in = const_cast<char*>(text);
      size_t inLeft = take;
      char buffer[16];
      char* to = buffer;
      size_t toLeft = sizeof(buffer);
      ::iconv(m_converter, nullptr, nullptr, nullptr, nullptr);
      if (::iconv(m_converter, &in, &inLeft, &to, &toLeft) != size_t(-1)) {
        out.append(buffer, to);
        return take;
      }
      if (errno != EINVAL) break;
    }
    return 0;
  }

 private:
  const iconv_t m_converter;
};

std::string NameOf(UINT codePage) {
  const UINT number = codePage == CP_ACP ? GetACP() : codePage;
  if (number == 65001) return "UTF-8";
  if (number == 54936) return "GB18030";
  return "CP" + std::to_string(number);
}

bool Is1252(UINT codePage) { return NameOf(codePage) == "CP1252"; }

// The text that a call names: `length` units, or up to and with its zero.
template <typename Unit>
std::basic_string_view<Unit> TextOf(const Unit* text, int length) {
  const std::basic_string_view<Unit> all =
      length < 0
          ? std::basic_string_view<Unit>(text)
          : std::basic_string_view<Unit>(text, static_cast<size_t>(length));
  return length < 0 ? std::basic_string_view<Unit>(text, all.size() + 1) : all;
}

// Copies `result`, or reports why not; without room, says how much it takes.
template <typename Unit>
int Deliver(const std::basic_string<Unit>& result, Unit* out, int room) {
  const int units = static_cast<int>(result.size());
  if (room == 0) return units;
  if (units > room) {
    SetLastError(ERROR_INSUFFICIENT_BUFFER);
    return 0;
  }
  // Terminated where the caller asked for the terminator, too.
  std::copy(result.begin(), result.end(), out);
  return units;
}

}  // namespace

int RealMultiByteToWideChar(UINT codePage, DWORD, const char* text, int length,
                            wchar_t* out, int outUnits) {
  Converter converter("WCHAR_T", NameOf(codePage));
  if (!converter.IsValid()) {
    SetLastError(ERROR_INVALID_PARAMETER);
    return 0;
  }
  std::wstring result;
  for (auto left = TextOf(text, length); !left.empty();) {
    std::string bytes;
    const size_t taken = converter.Step(left.data(), left.size(), bytes);
    if (taken == 0) {
      const auto byte = static_cast<unsigned char>(left.front());
      result += Is1252(codePage) ? static_cast<wchar_t>(byte) : L'?';
      left.remove_prefix(1);
      continue;
    }
    wchar_t units[4];
    // NOLINTNEXTLINE(bugprone-not-null-terminated-result): a counted text.
    std::memcpy(units, bytes.data(), bytes.size());
    result.append(units, bytes.size() / sizeof(wchar_t));
    left.remove_prefix(taken);
  }
  return Deliver(result, out, outUnits);
}

int RealWideCharToMultiByte(UINT codePage, DWORD, const wchar_t* text,
                            int length, char* out, int outBytes, const char*,
                            BOOL*) {
  Converter converter(NameOf(codePage), "WCHAR_T");
  if (!converter.IsValid()) {
    SetLastError(ERROR_INVALID_PARAMETER);
    return 0;
  }
  std::string result;
  for (const wchar_t& unit : TextOf(text, length)) {
    const size_t taken = converter.Step(reinterpret_cast<const char*>(&unit),
                                        sizeof(unit), result);
    const bool keeps = Is1252(codePage) && unit < 0x100;
    if (taken == 0) result += keeps ? static_cast<char>(unit) : '?';
  }
  return Deliver(result, out, outBytes);
}
