// For tests: a minidump in memory that can be bent out of shape.
#pragma once

#include <cstdint>
#include <cstring>
#include <string_view>
#include <vector>

namespace kova::ctl::test {

// Numbers are appended, or replaced at an offset, least significant byte first.
class DumpBytes {
 public:
  template <typename T>
  size_t Add(T number) {
    const size_t offset = bytes.size();
    bytes.resize(offset + sizeof(number));
    Put(offset, number);
    return offset;
  }
  template <typename T>
  void Put(size_t offset, T number) {
    std::memcpy(bytes.data() + offset, &number, sizeof(number));
  }
  size_t AddZeros(size_t count) {
    const size_t offset = bytes.size();
    bytes.resize(offset + count);
    return offset;
  }
  // As MINIDUMP_STRING.
  size_t AddString(std::u16string_view text) {
    const size_t offset = Add(static_cast<uint32_t>(2 * text.size()));
    for (const char16_t c : text) Add(static_cast<uint16_t>(c));
    Add(uint16_t{0});
    return offset;
  }

  std::vector<uint8_t> bytes;
};

// Where the parts of SmallDump lie.
struct DumpParts {
  size_t directory = 32;
  size_t exception = 0;
  size_t threads = 0;
  size_t modules = 0;
  size_t system = 0;
  size_t misc = 0;
  size_t context = 0;
  size_t names = 0;
};

// A sound dump: an access violation, writing address 0x10, of thread 340 at
// 0x180001234, in C:\x\KOVAServer.dll 1.2.3.4; process 324; Windows 10.0.19045.
DumpBytes SmallDump(DumpParts& parts);

}  // namespace kova::ctl::test
