// Reads minidumps, the files that describe a crashed process, by the system's
// own structures, and puts their exceptions into words. Believes nothing that a
// file says of itself.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "common/random_access_file.h"

namespace kova::ctl {

// Why the process stopped, and where.
struct DumpException {
  uint32_t threadId = 0;
  uint32_t code = 0;
  uint32_t flags = 0;
  uint64_t address = 0;
  // What the exception brought along, at most 15 numbers.
  std::vector<uint64_t> parameters;
};

struct DumpModule {
  uint64_t base = 0;
  uint32_t sizeBytes = 0;
  // The full path as the crashed process saw it; may be empty.
  std::wstring path;
  // "1.2.3.4"; empty if the module carries no version.
  std::wstring version;

  // What follows the last separator of the path.
  [[nodiscard]] std::wstring FileName() const;
};

struct DumpThread {
  uint32_t id = 0;
  // The bytes of its stack that the dump holds.
  uint32_t stackBytes = 0;
  // Where it was; only of 64-bit Intel processes.
  std::optional<uint64_t> instruction;
};

struct DumpSystem {
  // PROCESSOR_ARCHITECTURE_..., 9 for 64-bit Intel and AMD.
  uint16_t architecture = 0;
  uint8_t processors = 0;
  // VER_NT_..., 1 for a workstation.
  uint8_t productType = 0;
  uint32_t major = 0;
  uint32_t minor = 0;
  uint32_t build = 0;
  std::wstring servicePack;
};

using DumpRegister = std::pair<const wchar_t*, uint64_t>;

// What a dump says. What it does not say, or what its file no longer holds, is
// left empty.
struct Minidump {
  // Seconds since 1970, UTC; 0 if unknown.
  uint32_t timeSeconds = 0;
  std::optional<uint32_t> processId;
  std::optional<DumpException> exception;
  std::optional<DumpSystem> system;
  std::vector<DumpThread> threads;
  std::vector<DumpModule> modules;
  // Of the faulting thread at the moment of the exception.
  std::vector<DumpRegister> registers;
  // What could not be read, one sentence each; empty for a sound file.
  std::vector<std::wstring> damage;

  // The module that `address` lies in; null if in none. The pointer holds as
  // long as the modules stay as they are.
  [[nodiscard]] const DumpModule* ModuleAt(uint64_t address) const;
};

// Nothing but `notADump` is filled if the file is no dump: then it says why, as
// in "is empty", "is not a minidump".
struct MinidumpResult {
  std::optional<Minidump> dump;
  std::wstring notADump;
};
MinidumpResult ReadMinidump(const RandomAccessFile& file);

// What a well-known exception code means, in a few words that can be looked up;
// "an exception of the program's own" for others with the customer bit, else
// "unknown exception".
std::wstring ExceptionName(uint32_t code);

// The name, and what an access violation or a page error did to which address.
std::wstring ExceptionText(const DumpException& exception);

}  // namespace kova::ctl
