#include "test/crash/crash_run.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <fstream>
#include <iterator>
#include <vector>

#include "base/handles.h"
#include "crash/dump.h"
#include "test/support/server_fixture.h"

namespace kova::test {
namespace {

namespace fs = std::filesystem;

constexpr DWORD kPatienceMs = 180000;

std::set<fs::path> Dumps() {
  std::set<fs::path> dumps;
  std::error_code none;
  for (const auto& entry : fs::directory_iterator(DumpFolder(), none)) {
    dumps.insert(entry.path());
  }
  return dumps;
}

// A record of a dump: what writes dumps aligns nothing.
template <typename Record>
Record ReadRecord(const char* from) {
  Record record;
  std::memcpy(&record, from, sizeof(record));
  return record;
}

const char* FindStream(std::string& dump, ULONG type) {
  MINIDUMP_DIRECTORY* directory = nullptr;
  void* stream = nullptr;
  ULONG sizeBytes = 0;
  if (dump.substr(0, 4) != "MDMP" ||
      !::MiniDumpReadDumpStream(dump.data(), type, &directory, &stream,
                                &sizeBytes)) {
    return nullptr;
  }
  return static_cast<const char*>(stream);
}

// The records of a stream that begins with their number.
template <typename Record>
std::vector<Record> ReadList(std::string& dump, ULONG type) {
  std::vector<Record> records;
  const char* from = FindStream(dump, type);
  if (from == nullptr) return records;
  const auto count = ReadRecord<ULONG32>(from);
  from += sizeof(count);
  for (ULONG32 i = 0; i < count; ++i, from += sizeof(Record)) {
    records.push_back(ReadRecord<Record>(from));
  }
  return records;
}

// A length in bytes, then UTF-16.
std::wstring ReadText(const char* from) {
  const auto sizeBytes = ReadRecord<ULONG32>(from);
  std::wstring text(sizeBytes / sizeof(wchar_t), L'\0');
  std::memcpy(text.data(), from + sizeof(sizeBytes), sizeBytes);
  return text;
}

std::wstring ModuleAt(std::string& dump, uint64_t address) {
  for (const auto& module : ReadList<MINIDUMP_MODULE>(dump, ModuleListStream)) {
    if (address - module.BaseOfImage >= module.SizeOfImage) continue;
    return fs::path(ReadText(dump.data() + module.ModuleNameRva))
        .filename()
        .native();
  }
  return {};
}

bool HasThread(std::string& dump, uint32_t threadId) {
  return std::ranges::any_of(ReadList<MINIDUMP_THREAD>(dump, ThreadListStream),
                             [&](const MINIDUMP_THREAD& thread) {
                               return thread.ThreadId == threadId;
                             });
}

}  // namespace

DWORD RunToEnd(const std::wstring& fileName, const std::wstring& arguments) {
  std::wstring line =
      L"\"" + TestProgramFolder() + L"\\" + fileName + L"\" " + arguments;
  STARTUPINFOW startup = {};
  startup.cb = sizeof(startup);
  PROCESS_INFORMATION process = {};
  if (!::CreateProcessW(nullptr, line.data(), nullptr, nullptr, FALSE, 0,
                        nullptr, nullptr, &startup, &process)) {
    ADD_FAILURE() << "cannot start the program";
    return 0;
  }
  const UniqueKernelHandle thread(process.hThread);
  const UniqueKernelHandle handle(process.hProcess);
  if (::WaitForSingleObject(handle.Get(), kPatienceMs) != WAIT_OBJECT_0) {
    ADD_FAILURE() << "the program does not end";
    ::TerminateProcess(handle.Get(), 1);
  }
  DWORD code = 0;
  ::GetExitCodeProcess(handle.Get(), &code);
  return code;
}

fs::path DumpFolder() {
  return fs::path(GetCommonAppDataFolder()) / L"Corvane/Drivers/Dump";
}

DumpWatch::DumpWatch() : m_former(Dumps()) {}

DumpWatch::~DumpWatch() {
  std::error_code none;
  for (const fs::path& path : NewDumps()) fs::remove(path, none);
}

std::vector<fs::path> DumpWatch::NewDumps() const {
  std::vector<fs::path> added;
  const std::set<fs::path> now = Dumps();
  std::set_difference(now.begin(), now.end(), m_former.begin(), m_former.end(),
                      std::back_inserter(added));
  return added;
}

fs::path DumpWatch::NextDump() const {
  int number = 0;
  while (fs::exists(DumpFolder() / DumpFileName(number))) ++number;
  return DumpFolder() / DumpFileName(number);
}

DumpFacts ReadDump(const fs::path& path) {
  std::ifstream file(path, std::ios::binary);
  std::string dump{std::istreambuf_iterator<char>(file), {}};
  const char* const stream = FindStream(dump, ExceptionStream);
  if (stream == nullptr) return {};
  const auto crash = ReadRecord<MINIDUMP_EXCEPTION_STREAM>(stream);
  DumpFacts facts;
  facts.exceptionCode = crash.ExceptionRecord.ExceptionCode;
  facts.exceptionAddress = crash.ExceptionRecord.ExceptionAddress;
  facts.module = ModuleAt(dump, facts.exceptionAddress);
  facts.hasFaultingThread = HasThread(dump, crash.ThreadId);
  return facts;
}

}  // namespace kova::test
