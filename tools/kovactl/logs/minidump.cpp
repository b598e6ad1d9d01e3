#include "logs/minidump.h"

#include <algorithm>
#include <cstddef>
#include <set>

#include "base/windows_api.h"
#include "common/file_path.h"
#include "common/plain_text.h"
// After the rest of Windows.
#include <dbghelp.h>

namespace kova::ctl {
namespace {

using Location = MINIDUMP_LOCATION_DESCRIPTOR;

constexpr uint32_t kFormatVersion = 0xA793;  // in the low half

// No real dump has more. They bound the work that a hostile file can ask for.
constexpr uint32_t kMostStreams = 4096;
constexpr uint32_t kMostRows = 16384;
constexpr uint32_t kMostNameBytes = 65536;
constexpr uint32_t kMostNameBytesInAll = 16 * 1024 * 1024;

// The beginning of a 64-bit Intel CONTEXT, up to and with the last register.
constexpr size_t kRegistersBytes = offsetof(CONTEXT, Rip) + sizeof(DWORD64);

struct RegisterName {
  const wchar_t* name;
  DWORD64 CONTEXT::* value;
};
constexpr RegisterName kRegisters[] = {
    {L"rax", &CONTEXT::Rax}, {L"rbx", &CONTEXT::Rbx}, {L"rcx", &CONTEXT::Rcx},
    {L"rdx", &CONTEXT::Rdx}, {L"rsi", &CONTEXT::Rsi}, {L"rdi", &CONTEXT::Rdi},
    {L"rbp", &CONTEXT::Rbp}, {L"rsp", &CONTEXT::Rsp}, {L"r8", &CONTEXT::R8},
    {L"r9", &CONTEXT::R9},   {L"r10", &CONTEXT::R10}, {L"r11", &CONTEXT::R11},
    {L"r12", &CONTEXT::R12}, {L"r13", &CONTEXT::R13}, {L"r14", &CONTEXT::R14},
    {L"r15", &CONTEXT::R15}, {L"rip", &CONTEXT::Rip},
};

// How MINIDUMP_MISC_INFO begins in every version of it.
struct MiscInfo {
  uint32_t sizeBytes;
  uint32_t flags;
  uint32_t processId;
};

// "" for a module without a version.
std::wstring VersionText(const VS_FIXEDFILEINFO& version) {
  if (version.dwSignature != VS_FFI_SIGNATURE) return {};
  const uint32_t high = version.dwFileVersionMS;
  const uint32_t low = version.dwFileVersionLS;
  return std::to_wstring(high >> 16) + L"." + std::to_wstring(high & 0xFFFF) +
         L"." + std::to_wstring(low >> 16) + L"." +
         std::to_wstring(low & 0xFFFF);
}

class Reader {
 public:
  explicit Reader(const RandomAccessFile& file) : m_file(file) {}

  MinidumpResult Read();

 private:
  [[nodiscard]] std::wstring StringAt(uint32_t offset);
  // Empty if the stream is too short for it or the file does not hold it.
  template <typename T>
  [[nodiscard]] std::optional<T> StreamAt(const Location& place) const {
    if (place.DataSize < sizeof(T)) return std::nullopt;
    return m_file.At<T>(place.Rva);
  }
  // The rows of a list: a count, then that many rows. Rows that the file no
  // longer holds are left out and noted as damage.
  template <typename Row>
  std::vector<Row> Rows(const Location& place, const wchar_t* what);
  void ReadStreams(const MINIDUMP_HEADER& header);
  void ReadStream(const MINIDUMP_DIRECTORY& stream);
  void ReadException(const Location& place);
  void ReadSystem(const Location& place);
  void ReadThreads(const Location& place);
  void ReadModules(const Location& place);
  void ReadMisc(const Location& place);
  // Of a thread whose context is at that place; needs the system first.
  [[nodiscard]] std::optional<CONTEXT> ContextAt(const Location& place) const;
  void ReadRegisters();
  void Damage(const std::wstring& what) {
    m_dump.damage.push_back(what + L" lies beyond the end of the file");
  }

  const RandomAccessFile& m_file;
  Minidump m_dump;
  uint32_t m_nameBytesLeft = kMostNameBytesInAll;
  std::set<uint32_t> m_seenTypes;
  Location m_faultContext{};
  std::vector<Location> m_threadContexts;
};

std::wstring Reader::StringAt(uint32_t offset) {
  const auto sizeBytes = m_file.At<uint32_t>(offset);
  if (offset == 0 || !sizeBytes ||
      *sizeBytes > std::min(kMostNameBytes, m_nameBytesLeft)) {
    return {};
  }
  m_nameBytesLeft -= *sizeBytes;
  std::wstring text(*sizeBytes / sizeof(wchar_t), L'\0');
  auto* const bytes = reinterpret_cast<uint8_t*>(text.data());
  return m_file.Read(uint64_t{offset} + sizeof(uint32_t),
                     {bytes, text.size() * sizeof(wchar_t)})
             ? text
             : std::wstring();
}

template <typename Row>
std::vector<Row> Reader::Rows(const Location& place, const wchar_t* what) {
  constexpr uint64_t kCountBytes = sizeof(uint32_t);
  std::vector<Row> rows;
  const auto count = m_file.At<uint32_t>(place.Rva);
  const uint32_t wanted = place.DataSize < kCountBytes ? 0 : count.value_or(0);
  // Some writers align the rows to eight bytes.
  const bool isPadded =
      place.DataSize == 2 * kCountBytes + uint64_t{wanted} * sizeof(Row);
  const uint64_t first = place.Rva + (isPadded ? 2 : 1) * kCountBytes;
  while (rows.size() < std::min(wanted, kMostRows)) {
    const auto row = m_file.At<Row>(first + rows.size() * sizeof(Row));
    if (!row) break;
    rows.push_back(*row);
  }
  if (!count || rows.size() < wanted) {
    Damage(std::wstring(L"part of the list of ") + what);
  }
  return rows;
}

void Reader::ReadException(const Location& place) {
  const auto stream = StreamAt<MINIDUMP_EXCEPTION_STREAM>(place);
  if (!stream) return Damage(L"the exception");
  const MINIDUMP_EXCEPTION& record = stream->ExceptionRecord;
  DumpException exception;
  exception.threadId = stream->ThreadId;
  exception.code = record.ExceptionCode;
  exception.flags = record.ExceptionFlags;
  exception.address = record.ExceptionAddress;
  const size_t count =
      std::min<size_t>(record.NumberParameters, EXCEPTION_MAXIMUM_PARAMETERS);
  exception.parameters.assign(record.ExceptionInformation,
                              record.ExceptionInformation + count);
  m_faultContext = stream->ThreadContext;
  m_dump.exception = std::move(exception);
}

void Reader::ReadSystem(const Location& place) {
  const auto info = StreamAt<MINIDUMP_SYSTEM_INFO>(place);
  if (!info) return Damage(L"the description of the machine");
  m_dump.system = {
      info->ProcessorArchitecture,  info->NumberOfProcessors, info->ProductType,
      info->MajorVersion,           info->MinorVersion,       info->BuildNumber,
      StringAt(info->CSDVersionRva)};
}

void Reader::ReadThreads(const Location& place) {
  for (const auto& row : Rows<MINIDUMP_THREAD>(place, L"threads")) {
    m_dump.threads.push_back(
        {row.ThreadId, row.Stack.Memory.DataSize, std::nullopt});
    m_threadContexts.push_back(row.ThreadContext);
  }
}

void Reader::ReadModules(const Location& place) {
  for (const auto& row : Rows<MINIDUMP_MODULE>(place, L"modules")) {
    m_dump.modules.push_back({row.BaseOfImage, row.SizeOfImage,
                              StringAt(row.ModuleNameRva),
                              VersionText(row.VersionInfo)});
  }
}

void Reader::ReadMisc(const Location& place) {
  const auto misc = StreamAt<MiscInfo>(place);
  if (!misc || (misc->flags & MINIDUMP_MISC1_PROCESS_ID) == 0) return;
  m_dump.processId = misc->processId;
}

void Reader::ReadStreams(const MINIDUMP_HEADER& header) {
  const uint32_t count =
      std::min<uint32_t>(header.NumberOfStreams, kMostStreams);
  std::vector<MINIDUMP_DIRECTORY> streams;
  while (streams.size() < count) {
    const auto row = m_file.At<MINIDUMP_DIRECTORY>(
        uint64_t{header.StreamDirectoryRva} +
        streams.size() * sizeof(MINIDUMP_DIRECTORY));
    if (!row) break;
    streams.push_back(*row);
  }
  if (streams.size() < count) Damage(L"part of the list of contents");
  for (const MINIDUMP_DIRECTORY& stream : streams) ReadStream(stream);
}

void Reader::ReadStream(const MINIDUMP_DIRECTORY& stream) {
  struct Row {
    uint32_t type;
    void (Reader::*read)(const Location& place);
  };
  static constexpr Row kRows[] = {
      {ThreadListStream, &Reader::ReadThreads},
      {ModuleListStream, &Reader::ReadModules},
      {ExceptionStream, &Reader::ReadException},
      {SystemInfoStream, &Reader::ReadSystem},
      {MiscInfoStream, &Reader::ReadMisc},
  };
  // Of several streams of one type the first counts.
  if (!m_seenTypes.insert(stream.StreamType).second) return;
  for (const Row& row : kRows) {
    if (row.type == stream.StreamType) (this->*row.read)(stream.Location);
  }
}

std::optional<CONTEXT> Reader::ContextAt(const Location& place) const {
  const bool isKnown = m_dump.system && m_dump.system->architecture ==
                                            PROCESSOR_ARCHITECTURE_AMD64;
  CONTEXT context{};
  if (!isKnown || place.DataSize < kRegistersBytes ||
      !m_file.Read(place.Rva,
                   {reinterpret_cast<uint8_t*>(&context), kRegistersBytes})) {
    return std::nullopt;
  }
  return context;
}

void Reader::ReadRegisters() {
  for (size_t i = 0; i < m_threadContexts.size(); ++i) {
    const auto context = ContextAt(m_threadContexts[i]);
    if (context) m_dump.threads[i].instruction = context->Rip;
  }
  const auto context = ContextAt(m_faultContext);
  if (!context) return;
  for (const RegisterName& row : kRegisters) {
    m_dump.registers.emplace_back(row.name, (*context).*row.value);
  }
  m_dump.registers.emplace_back(L"flags", context->EFlags);
}

MinidumpResult Reader::Read() {
  if (m_file.SizeBytes() == 0) {
    return {std::nullopt, L"is empty: writing it was cut short"};
  }
  if (m_file.At<uint32_t>(0) != uint32_t{MINIDUMP_SIGNATURE}) {
    return {std::nullopt, L"is not a minidump: it does not begin with MDMP"};
  }
  const auto header = m_file.At<MINIDUMP_HEADER>(0);
  if (!header) {
    return {std::nullopt, L"ends within its header: writing it was cut short"};
  }
  if ((header->Version & 0xFFFF) != kFormatVersion) {
    return {std::nullopt, L"is a minidump of an unknown version"};
  }
  m_dump.timeSeconds = header->TimeDateStamp;
  ReadStreams(*header);
  ReadRegisters();
  return {std::move(m_dump), {}};
}

struct ExceptionRow {
  uint32_t code;
  const wchar_t* name;
};

constexpr uint32_t kAccessViolation = 0xC0000005;
constexpr uint32_t kInPageError = 0xC0000006;

constexpr ExceptionRow kNames[] = {
    {0x20474343, L"C++ exception"},
    {0x40010005, L"Ctrl-C"},
    {0x80000001, L"guard page touched"},
    {0x80000002, L"misaligned data"},
    {0x80000003, L"breakpoint"},
    {0x80000004, L"single step"},
    {kAccessViolation, L"access violation"},
    {kInPageError, L"page could not be read"},
    {0xC0000008, L"invalid handle"},
    {0xC0000017, L"out of memory"},
    {0xC000001D, L"illegal instruction"},
    {0xC0000025, L"went on after a fatal exception"},
    {0xC0000026, L"invalid exception disposition"},
    {0xC000008C, L"array bounds exceeded"},
    {0xC000008D, L"floating point: denormal operand"},
    {0xC000008E, L"floating point: division by zero"},
    {0xC000008F, L"floating point: inexact result"},
    {0xC0000090, L"floating point: invalid operation"},
    {0xC0000091, L"floating point: overflow"},
    {0xC0000092, L"floating point: stack check"},
    {0xC0000093, L"floating point: underflow"},
    {0xC0000094, L"integer division by zero"},
    {0xC0000095, L"integer overflow"},
    {0xC0000096, L"privileged instruction"},
    {0xC00000FD, L"stack overflow"},
    {0xC0000135, L"library not found"},
    {0xC0000138, L"function not found in a library"},
    {0xC0000139, L"function not found in a library"},
    {0xC0000142, L"library failed to start"},
    {0xC0000194, L"possible deadlock"},
    {0xC0000374, L"heap corruption"},
    {0xC0000409, L"fail-fast or stack buffer overrun"},
    {0xC0000420, L"assertion failed"},
    {0xC06D007E, L"delay-loaded library not found"},
    {0xC06D007F, L"delay-loaded function not found"},
    {0xE0434352, L".NET exception"},
    {0xE06D7363, L"C++ exception"},
};

std::wstring AccessText(uint64_t kind) {
  if (kind == 0) return L"reading";
  if (kind == 1) return L"writing";
  return kind == 8 ? L"executing" : L"using";
}

}  // namespace

std::wstring DumpModule::FileName() const { return ctl::FileName(path); }

const DumpModule* Minidump::ModuleAt(uint64_t address) const {
  for (const DumpModule& module : modules) {
    if (address >= module.base && address - module.base < module.sizeBytes) {
      return &module;
    }
  }
  return nullptr;
}

MinidumpResult ReadMinidump(const RandomAccessFile& file) {
  return Reader(file).Read();
}

std::wstring ExceptionName(uint32_t code) {
  for (const ExceptionRow& row : kNames) {
    if (row.code == code) return row.name;
  }
  constexpr uint32_t kCustomer = 0x20000000;
  return (code & kCustomer) != 0 ? L"an exception of the program's own"
                                 : L"unknown exception";
}

std::wstring ExceptionText(const DumpException& exception) {
  std::wstring text = ExceptionName(exception.code);
  const bool hasAddress =
      exception.code == kAccessViolation || exception.code == kInPageError;
  if (hasAddress && exception.parameters.size() >= 2) {
    text += L", " + AccessText(exception.parameters[0]) + L" address " +
            HexText(exception.parameters[1], 1);
  }
  return text;
}

}  // namespace kova::ctl
