// What can be seen of the server on this machine from outside.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "admin/http_exchange.h"
#include "admin/setting.h"
#include "common/exit_code.h"
#include "common/json.h"
#include "logs/crash_dump.h"
#include "logs/log_mask.h"

namespace kova::ctl {

enum class Reach {
  kThisServer,  // answered as only this server does
  kOther,       // something else answered
  kSilent,      // something accepts connections, but does not answer in time
  kNothing,     // nothing listens
  kUnknown,     // the setting leaves the port to Windows
};

// The words for programs.
NLOHMANN_JSON_SERIALIZE_ENUM(Reach, {{Reach::kThisServer, "this-server"},
                                     {Reach::kOther, "other"},
                                     {Reach::kSilent, "silent"},
                                     {Reach::kNothing, "nothing"},
                                     {Reach::kUnknown, "unknown"}})

// Behind "port N", for one that something else has.
inline constexpr wchar_t kNotThisServer[] =
    L" does not answer as this server does; see which program has it";

// What an exchange with the server's port says about who is there.
Reach ReachOf(const Exchange& exchange);

enum class SourceForm {
  kRegistered,
  kNoMessageFile,  // registered, but the file of its texts is missing
  kAbsent,
};

// The words for programs.
NLOHMANN_JSON_SERIALIZE_ENUM(SourceForm,
                             {{SourceForm::kRegistered, "registered"},
                              {SourceForm::kNoMessageFile, "no-message-file"},
                              {SourceForm::kAbsent, "absent"}})

struct EventSource {
  std::wstring name;
  SourceForm form = SourceForm::kAbsent;
  std::wstring messageFile;  // empty if none is registered
};

struct StatusFacts {
  uint16_t port = 0;
  uint32_t timeoutMs = 0;
  Reach reach = Reach::kUnknown;
  Exchange exchange;
  std::vector<SettingState> settings;
  std::vector<LoggerMask> loggers;
  std::vector<EventSource> sources;
  std::vector<DumpFile> dumps;  // the newest first, at most kMostDumps
  size_t dumpCount = 0;         // of all
};

inline constexpr size_t kMostDumps = 5;

// The port to ask: `wanted`, or else what the settings say. 0: unknown.
std::optional<Failure> ChoosePort(std::optional<uint32_t> wanted,
                                  uint16_t& port);

// The source called `name` in the "Application" event log.
EventSource LookAtSource(const std::wstring& name);

// Asks the port and reads registry and folders.
std::optional<Failure> LookAtServer(std::optional<uint32_t> wantedPort,
                                    uint32_t timeoutMs, StatusFacts& facts);

}  // namespace kova::ctl
