#include "text/string_codec.h"

#include <algorithm>
#include <limits>

#include "base/windows_api.h"

namespace kova {

namespace {

// The Windows calls count in int; longer texts are beyond them.
int ToIntCount(size_t count) {
  constexpr size_t kMost = std::numeric_limits<int>::max();
  return static_cast<int>(std::min(count, kMost));
}

size_t NarrowByUnit(const wchar_t* text, size_t length, char* out,
                    size_t outUnits) {
  const size_t most = std::min(length, outUnits - 1);
  size_t written = 0;
  for (; written < most; ++written) {
    const char byte = static_cast<char>(text[written]);
    if (byte == 0) break;
    out[written] = byte;
  }
  out[written] = 0;
  return written;
}

size_t WideByUnit(const char* text, size_t length, wchar_t* out,
                  size_t outUnits) {
  const size_t count = std::min(length, outUnits - 1);
  for (size_t i = 0; i < count; ++i) {
    out[i] = static_cast<unsigned char>(text[i]);
  }
  out[count] = 0;
  return count;
}

// Whether one byte and one unit stand for each other. Zero ends a text.
bool IsPlain(unsigned unit) { return unit != 0 && unit < 0x80; }

// Writes one unit's bytes at `out`, which has room for three.
size_t EncodeUnit(uint16_t unit, char* out) {
  if (unit < 0x80) {
    out[0] = static_cast<char>(unit);
    return 1;
  }
  if (unit < 0x800) {
    out[0] = static_cast<char>(0xC0 | (unit >> 6));
    out[1] = static_cast<char>(0x80 | (unit & 0x3F));
    return 2;
  }
  out[0] = static_cast<char>(0xE0 | (unit >> 12));
  out[1] = static_cast<char>(0x80 | ((unit >> 6) & 0x3F));
  out[2] = static_cast<char>(0x80 | (unit & 0x3F));
  return 3;
}

// Deliberate: surrogate halves are encoded one by one, three bytes each; the
// decoder below and the programs that read this text pair them again.
size_t EncodeUtf8(const wchar_t* text, size_t length, char* out,
                  size_t outUnits) {
  const size_t room = outUnits - 1;
  size_t written = 0;
  for (size_t i = 0; i < length; ++i) {
    const uint16_t unit = static_cast<uint16_t>(text[i]);
    if (IsPlain(unit) && written < room) {
      out[written++] = static_cast<char>(unit);
      continue;
    }
    char bytes[3];
    const size_t count = EncodeUnit(unit, bytes);
    if (unit == 0 || count > room - written) break;
    std::copy_n(bytes, count, out + written);
    written += count;
  }
  out[written] = 0;
  return written;
}

size_t SequenceLength(unsigned char lead) {
  if (lead < 0x80) return 1;
  return (lead & 0xE0) == 0xC0 ? 2 : 3;
}

uint16_t DecodeSequence(const unsigned char* bytes, size_t count) {
  if (count == 1) return bytes[0];
  const unsigned tail = bytes[1] & 0x3Fu;
  if (count == 2) return static_cast<uint16_t>((bytes[0] & 0x1Fu) << 6 | tail);
  return static_cast<uint16_t>((bytes[0] & 0x0Fu) << 12 | tail << 6 |
                               (bytes[2] & 0x3Fu));
}

// Deliberate: nothing is validated, and there are no four-byte sequences. A
// lead byte that announces more bytes than the text has ends the result.
size_t DecodeUtf8(const char* text, size_t length, wchar_t* out,
                  size_t outUnits) {
  const auto* bytes = reinterpret_cast<const unsigned char*>(text);
  const size_t room = outUnits - 1;
  size_t written = 0;
  for (size_t at = 0; at < length && written < room;) {
    if (IsPlain(bytes[at])) {
      out[written++] = bytes[at++];
      continue;
    }
    const size_t count = SequenceLength(bytes[at]);
    if (count > length - at) break;
    const uint16_t unit = DecodeSequence(bytes + at, count);
    if (unit == 0) break;
    out[written++] = unit;
    at += count;
  }
  out[written] = 0;
  return written;
}

// What a Windows conversion of terminated text returned, as a text length.
template <typename Unit>
size_t FinishConversion(int converted, Unit* out) {
  const size_t length = converted > 0 ? static_cast<size_t>(converted) - 1 : 0;
  out[length] = 0;
  return length;
}

}  // namespace

bool IsMultiByteCodePage(uint32_t codePage) {
  switch (codePage == kCodePageAnsi ? ::GetACP() : codePage) {
    case kCodePageUtf8:
    case 932:    // Japanese
    case 936:    // Chinese, simplified
    case 949:    // Korean
    case 950:    // Chinese, traditional
    case 1361:   // Korean, Johab
    case 54936:  // Chinese, GB 18030
      return true;
    default:
      return false;
  }
}

size_t ConvertToNarrow(uint32_t codePage, const wchar_t* text, size_t length,
                       char* out, size_t outUnits) {
  switch (codePage) {
    case kCodePageBytes:
      return NarrowByUnit(text, length, out, outUnits);
    case kCodePageUtf8:
      return EncodeUtf8(text, length, out, outUnits);
    default:
      return FinishConversion(
          ::WideCharToMultiByte(codePage, 0, text, -1, out,
                                ToIntCount(outUnits), nullptr, nullptr),
          out);
  }
}

size_t ConvertToWide(uint32_t codePage, const char* text, size_t length,
                     wchar_t* out, size_t outUnits) {
  switch (codePage) {
    case kCodePageBytes:
      return WideByUnit(text, length, out, outUnits);
    case kCodePageUtf8:
      return DecodeUtf8(text, length, out, outUnits);
    default:
      return FinishConversion(::MultiByteToWideChar(codePage, 0, text, -1, out,
                                                    ToIntCount(outUnits)),
                              out);
  }
}

}  // namespace kova
