// What can be seen of the server on this machine from outside.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "admin/host_process.h"
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
  kUnknown,     // the setting leaves the port to Windows, and no host shows it
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

// For Reach::kUnknown.
inline constexpr wchar_t kPortUnknown[] =
    L"the port setting is 0, so Windows picks the server's port at every "
    L"start, and no host process shows it; name it with --port";

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

// Who was found on the port.
struct PortAnswer {
  uint16_t port = 0;  // 0: it is not known which to ask
  Reach reach = Reach::kUnknown;
  Exchange exchange;
  double totalMs = 0;  // of all that were asked
};

struct StatusFacts {
  uint32_t timeoutMs = 0;
  PortAnswer answer;
  HostSearch search;
  std::vector<ConnectionCount> connections;  // to that port
  std::vector<SettingState> settings;
  // Those of them that the host which has the port does not work with: they
  // were changed after it read them.
  std::vector<const Setting*> unread;
  std::vector<LoggerMask> loggers;
  std::vector<EventSource> sources;
  std::vector<DumpFile> dumps;  // the newest first, at most kMostDumps
  size_t dumpCount = 0;         // of all
};

inline constexpr size_t kMostDumps = 5;

// The ports to ask, the likeliest first: `wanted` alone, or what the hosts
// listen on, beginning with `set`, the setting's; without any, `set`, unless
// that is 0.
std::vector<uint16_t> PortsToAsk(std::optional<uint32_t> wanted, uint16_t set,
                                 const std::vector<HostProcess>& hosts);

// Finds the server's port and who has it: `wanted`, or else by the hosts and
// the settings. Takes no longer than about `timeoutMs` in all.
std::optional<Failure> FindServer(std::optional<uint32_t> wanted,
                                  const std::vector<HostProcess>& hosts,
                                  uint32_t timeoutMs, PortAnswer& answer);

// Which of the settings disagree with a socket that the server listens with.
std::vector<const Setting*> UnreadSettings(
    const std::vector<SettingState>& settings, const Listener& listener);

// The source called `name` in the "Application" event log.
EventSource LookAtSource(const std::wstring& name);

// Asks the port and reads registry and folders.
std::optional<Failure> LookAtServer(std::optional<uint32_t> wantedPort,
                                    uint32_t timeoutMs, StatusFacts& facts);

}  // namespace kova::ctl
