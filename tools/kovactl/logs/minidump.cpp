#include "logs/minidump.h"

#include <algorithm>
#include <cstddef>
#include <set>

#include "base/windows_api.h"
#include "common/file_path.h"
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

}  // namespace kova::ctl
