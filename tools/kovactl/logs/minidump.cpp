#include "logs/minidump.h"

#include <algorithm>
#include <cstring>
#include <set>
#include <span>

namespace kova::ctl {
namespace {

constexpr uint32_t kSignature = 0x504D444D;  // "MDMP"
constexpr uint32_t kFormatVersion = 0xA793;  // in the low half
constexpr uint16_t kAmd64 = 9;

constexpr uint32_t kThreadList = 3;
constexpr uint32_t kModuleList = 4;
constexpr uint32_t kException = 6;
constexpr uint32_t kSystemInfo = 7;
constexpr uint32_t kMiscInfo = 15;

// No real dump has more. They bound the work that a hostile file can ask for.
constexpr uint32_t kMostStreams = 4096;
constexpr uint32_t kMostRows = 16384;
constexpr uint32_t kMostNameBytes = 65536;
constexpr uint32_t kMostNameBytesInAll = 16 * 1024 * 1024;

// Sizes of the format's structures.
constexpr size_t kHeaderBytes = 32;
constexpr size_t kDirectoryRowBytes = 12;
constexpr size_t kThreadBytes = 48;
constexpr size_t kModuleBytes = 108;
constexpr size_t kExceptionBytes = 168;
constexpr size_t kSystemBytes = 56;
constexpr size_t kMiscBytes = 12;
constexpr size_t kContextBytes = 0x100;  // up to and with the last register
constexpr uint32_t kMostParameters = 15;

// Where the registers lie in a 64-bit Intel CONTEXT.
struct RegisterPlace {
  const wchar_t* name;
  size_t offset;
};
constexpr RegisterPlace kRegisters[] = {
    {L"rax", 0x78}, {L"rbx", 0x90}, {L"rcx", 0x80}, {L"rdx", 0x88},
    {L"rsi", 0xA8}, {L"rdi", 0xB0}, {L"rbp", 0xA0}, {L"rsp", 0x98},
    {L"r8", 0xB8},  {L"r9", 0xC0},  {L"r10", 0xC8}, {L"r11", 0xD0},
    {L"r12", 0xD8}, {L"r13", 0xE0}, {L"r14", 0xE8}, {L"r15", 0xF0},
};
constexpr size_t kInstructionPlace = 0xF8;
constexpr size_t kFlagsPlace = 0x44;

// `offset` and sizeof(T) must lie within `bytes`. The format is little-endian,
// as are all machines that this runs on.
template <typename T>
T At(std::span<const uint8_t> bytes, size_t offset) {
  T value{};
  std::memcpy(&value, bytes.data() + offset, sizeof(value));
  return value;
}

struct Place {
  uint32_t sizeBytes = 0;
  uint32_t offset = 0;
};

struct Stream {
  uint32_t type = 0;
  Place place;
};

class Reader {
 public:
  explicit Reader(const ByteSource& source) : m_source(source) {}

  MinidumpResult Read();

 private:
  using Bytes = std::vector<uint8_t>;

  // Empty if the file does not hold all of them.
  Bytes BytesAt(uint64_t offset, size_t sizeBytes) const;
  std::wstring StringAt(uint32_t offset);
  std::vector<Stream> ReadDirectory(std::span<const uint8_t> header);
  // The rows of a list: a count, then that many rows of `rowBytes`. Rows that
  // the file no longer holds are left out and noted as damage.
  std::vector<Bytes> Rows(const Place& place, size_t rowBytes,
                          const wchar_t* what);
  void ReadStream(const Stream& stream);
  void ReadException(const Place& place);
  void ReadSystem(const Place& place);
  void ReadThreads(const Place& place);
  void ReadModules(const Place& place);
  void ReadMisc(const Place& place);
  // Of a thread whose context is at that place; needs the system first.
  Bytes ContextAt(const Place& place) const;
  void ReadRegisters();
  void Damage(const std::wstring& what) {
    m_dump.damage.push_back(what + L" lies beyond the end of the file");
  }

  const ByteSource& m_source;
  Minidump m_dump;
  uint32_t m_nameBytesLeft = kMostNameBytesInAll;
  std::set<uint32_t> m_seenTypes;
  Place m_faultContext;
  std::vector<Place> m_threadContexts;
};

Reader::Bytes Reader::BytesAt(uint64_t offset, size_t sizeBytes) const {
  Bytes bytes(sizeBytes);
  if (!m_source.Read(offset, bytes)) return {};
  return bytes;
}

std::wstring Reader::StringAt(uint32_t offset) {
  const Bytes length = BytesAt(offset, sizeof(uint32_t));
  if (offset == 0 || length.empty()) return {};
  const uint32_t sizeBytes = At<uint32_t>(length, 0);
  if (sizeBytes > std::min(kMostNameBytes, m_nameBytesLeft)) return {};
  m_nameBytesLeft -= sizeBytes;
  const Bytes bytes =
      BytesAt(uint64_t{offset} + sizeof(uint32_t), sizeBytes & ~1u);
  std::wstring text;
  for (size_t at = 0; at < bytes.size(); at += 2) {
    text += static_cast<wchar_t>(At<uint16_t>(bytes, at));
  }
  return text;
}

std::vector<Stream> Reader::ReadDirectory(std::span<const uint8_t> header) {
  const uint32_t count = At<uint32_t>(header, 8);
  const uint32_t offset = At<uint32_t>(header, 12);
  std::vector<Stream> streams;
  for (uint32_t i = 0; i < std::min(count, kMostStreams); ++i) {
    const Bytes row =
        BytesAt(uint64_t{offset} + i * kDirectoryRowBytes, kDirectoryRowBytes);
    if (row.empty()) {
      Damage(L"part of the list of contents");
      break;
    }
    streams.push_back(
        {At<uint32_t>(row, 0), {At<uint32_t>(row, 4), At<uint32_t>(row, 8)}});
  }
  return streams;
}

std::vector<Reader::Bytes> Reader::Rows(const Place& place, size_t rowBytes,
                                        const wchar_t* what) {
  std::vector<Bytes> rows;
  const Bytes count = BytesAt(place.offset, sizeof(uint32_t));
  const uint32_t wanted = count.empty() || place.sizeBytes < sizeof(uint32_t)
                              ? 0
                              : At<uint32_t>(count, 0);
  // Some writers align the rows to eight bytes.
  const bool isPadded =
      place.sizeBytes == 2 * sizeof(uint32_t) + uint64_t{wanted} * rowBytes;
  const uint64_t first =
      uint64_t{place.offset} + (isPadded ? 2 : 1) * sizeof(uint32_t);
  while (rows.size() < std::min(wanted, kMostRows)) {
    Bytes row = BytesAt(first + rows.size() * rowBytes, rowBytes);
    if (row.empty()) break;
    rows.push_back(std::move(row));
  }
  if (count.empty() || rows.size() < wanted) {
    Damage(std::wstring(L"part of the list of ") + what);
  }
  return rows;
}

void Reader::ReadException(const Place& place) {
  const Bytes bytes = BytesAt(place.offset, kExceptionBytes);
  if (bytes.empty() || place.sizeBytes < kExceptionBytes) {
    Damage(L"the exception");
    return;
  }
  DumpException exception;
  exception.threadId = At<uint32_t>(bytes, 0);
  exception.code = At<uint32_t>(bytes, 8);
  exception.flags = At<uint32_t>(bytes, 12);
  exception.address = At<uint64_t>(bytes, 24);
  const uint32_t count = std::min(At<uint32_t>(bytes, 32), kMostParameters);
  for (uint32_t i = 0; i < count; ++i) {
    exception.parameters.push_back(
        At<uint64_t>(bytes, 40 + i * sizeof(uint64_t)));
  }
  m_faultContext = {At<uint32_t>(bytes, 160), At<uint32_t>(bytes, 164)};
  m_dump.exception = std::move(exception);
}

void Reader::ReadSystem(const Place& place) {
  const Bytes bytes = BytesAt(place.offset, kSystemBytes);
  if (bytes.empty() || place.sizeBytes < kSystemBytes) {
    Damage(L"the description of the machine");
    return;
  }
  DumpSystem system;
  system.architecture = At<uint16_t>(bytes, 0);
  system.processors = bytes[6];
  system.productType = bytes[7];
  system.major = At<uint32_t>(bytes, 8);
  system.minor = At<uint32_t>(bytes, 12);
  system.build = At<uint32_t>(bytes, 16);
  system.servicePack = StringAt(At<uint32_t>(bytes, 24));
  m_dump.system = std::move(system);
}

void Reader::ReadThreads(const Place& place) {
  for (const Bytes& row : Rows(place, kThreadBytes, L"threads")) {
    m_dump.threads.push_back(
        {At<uint32_t>(row, 0), At<uint32_t>(row, 32), std::nullopt});
    m_threadContexts.push_back({At<uint32_t>(row, 40), At<uint32_t>(row, 44)});
  }
}

// "" for a module without VS_FIXEDFILEINFO.
std::wstring VersionText(std::span<const uint8_t> module) {
  constexpr size_t kVersionInfo = 24;
  constexpr uint32_t kVersionSignature = 0xFEEF04BD;
  if (At<uint32_t>(module, kVersionInfo) != kVersionSignature) return {};
  const uint32_t high = At<uint32_t>(module, kVersionInfo + 8);
  const uint32_t low = At<uint32_t>(module, kVersionInfo + 12);
  return std::to_wstring(high >> 16) + L"." + std::to_wstring(high & 0xFFFF) +
         L"." + std::to_wstring(low >> 16) + L"." +
         std::to_wstring(low & 0xFFFF);
}

void Reader::ReadModules(const Place& place) {
  for (const Bytes& row : Rows(place, kModuleBytes, L"modules")) {
    m_dump.modules.push_back({At<uint64_t>(row, 0), At<uint32_t>(row, 8),
                              StringAt(At<uint32_t>(row, 20)),
                              VersionText(row)});
  }
}

void Reader::ReadMisc(const Place& place) {
  constexpr uint32_t kHasProcessId = 1;
  const Bytes bytes = BytesAt(place.offset, kMiscBytes);
  if (bytes.empty() || place.sizeBytes < kMiscBytes) return;
  if ((At<uint32_t>(bytes, 4) & kHasProcessId) == 0) return;
  m_dump.processId = At<uint32_t>(bytes, 8);
}

void Reader::ReadStream(const Stream& stream) {
  struct Row {
    uint32_t type;
    void (Reader::*read)(const Place& place);
  };
  constexpr Row kRows[] = {
      {kThreadList, &Reader::ReadThreads},  {kModuleList, &Reader::ReadModules},
      {kException, &Reader::ReadException}, {kSystemInfo, &Reader::ReadSystem},
      {kMiscInfo, &Reader::ReadMisc},
  };
  // Of several streams of one type the first counts.
  if (!m_seenTypes.insert(stream.type).second) return;
  for (const Row& row : kRows) {
    if (row.type == stream.type) (this->*row.read)(stream.place);
  }
}

Reader::Bytes Reader::ContextAt(const Place& place) const {
  const bool isKnown = m_dump.system && m_dump.system->architecture == kAmd64;
  if (!isKnown || place.sizeBytes < kContextBytes) return {};
  return BytesAt(place.offset, kContextBytes);
}

void Reader::ReadRegisters() {
  for (size_t i = 0; i < m_threadContexts.size(); ++i) {
    const Bytes context = ContextAt(m_threadContexts[i]);
    if (context.empty()) continue;
    m_dump.threads[i].instruction = At<uint64_t>(context, kInstructionPlace);
  }
  const Bytes context = ContextAt(m_faultContext);
  if (context.empty()) return;
  for (const RegisterPlace& row : kRegisters) {
    m_dump.registers.emplace_back(row.name, At<uint64_t>(context, row.offset));
  }
  m_dump.registers.emplace_back(L"rip",
                                At<uint64_t>(context, kInstructionPlace));
  m_dump.registers.emplace_back(L"flags", At<uint32_t>(context, kFlagsPlace));
}

MinidumpResult Reader::Read() {
  if (m_source.SizeBytes() == 0) {
    return {std::nullopt, L"is empty: writing it was cut short"};
  }
  const Bytes header = BytesAt(0, kHeaderBytes);
  const Bytes begin = BytesAt(0, sizeof(uint32_t));
  if (begin.empty() || At<uint32_t>(begin, 0) != kSignature) {
    return {std::nullopt, L"is not a minidump: it does not begin with MDMP"};
  }
  if (header.empty()) {
    return {std::nullopt, L"ends within its header: writing it was cut short"};
  }
  if ((At<uint32_t>(header, 4) & 0xFFFF) != kFormatVersion) {
    return {std::nullopt, L"is a minidump of an unknown version"};
  }
  m_dump.timeSeconds = At<uint32_t>(header, 20);
  for (const Stream& stream : ReadDirectory(header)) ReadStream(stream);
  ReadRegisters();
  return {std::move(m_dump), {}};
}

}  // namespace

std::wstring DumpModule::FileName() const {
  return path.substr(path.find_last_of(L"\\/") + 1);
}

const DumpModule* Minidump::ModuleAt(uint64_t address) const {
  for (const DumpModule& module : modules) {
    if (address >= module.base && address - module.base < module.sizeBytes) {
      return &module;
    }
  }
  return nullptr;
}

MinidumpResult ReadMinidump(const ByteSource& source) {
  return Reader(source).Read();
}

}  // namespace kova::ctl
