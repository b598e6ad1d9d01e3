#include "admin/server_status.h"

#include <algorithm>
#include <functional>
#include <utility>

#include "admin/setting.h"
#include "base/ascii.h"
#include "base/handles.h"
#include "common/file_path.h"
#include "common/wait_notice.h"
#include "log/event_source.h"
#include "log/server_logger.h"

namespace kova::ctl {
namespace {

Failure RegistryFailure(const wchar_t* what, LSTATUS status) {
  return SystemFailure(ExitCode::kInternalError, what,
                       static_cast<unsigned long>(status));
}

std::optional<Failure> ReadSettings(std::vector<SettingState>& states) {
  for (const Setting& setting : AllSettings()) {
    SettingState& state = states.emplace_back(SettingState{&setting, {}});
    if (auto failure = ReadSetting(setting, state.stored)) return failure;
  }
  return std::nullopt;
}

// The message file of an event source as it is registered, its variables such
// as %SystemRoot% filled in; empty if there is none.
std::wstring MessageFile(HKEY key) {
  wchar_t path[MAX_PATH * 4] = {};
  DWORD size = sizeof(path) - sizeof(wchar_t);
  if (::RegGetValueW(key, nullptr, kMessageFileValue, RRF_RT_REG_SZ, nullptr,
                     path, &size) != ERROR_SUCCESS) {
    return {};
  }
  return path;
}

std::vector<EventSource> LookAtSources(const std::vector<LoggerMask>& loggers) {
  std::vector<EventSource> sources = {LookAtSource(kServerLoggerName),
                                      LookAtSource(kDispatcherSource)};
  for (const LoggerMask& logger : loggers) {
    const auto isThere = [&logger](const EventSource& source) {
      return EqualsNoCase(source.name, logger.name);
    };
    if (logger.name.empty() || std::ranges::any_of(sources, isThere)) continue;
    sources.push_back(LookAtSource(logger.name));
  }
  return sources;
}

std::optional<Failure> LookForDumps(StatusFacts& facts) {
  for (const std::wstring& folder : DumpFolders()) {
    std::vector<DumpFile> dumps;
    if (const DWORD error = ListDumps(folder, dumps); error != ERROR_SUCCESS) {
      return SystemFailure(ExitCode::kInternalError,
                           L"cannot read the dump folder " + folder, error);
    }
    std::ranges::move(dumps, std::back_inserter(facts.dumps));
  }
  facts.dumpCount = facts.dumps.size();
  std::ranges::sort(facts.dumps, std::greater(), [](const DumpFile& dump) {
    return std::make_pair(dump.writtenFileTime, dump.path);
  });
  facts.dumps.resize(std::min(facts.dumps.size(), kMostDumps));
  return std::nullopt;
}

// Asks each port until one answers as this server; else the first counts.
PortAnswer AskPorts(const std::vector<uint16_t>& ports, uint32_t timeoutMs) {
  PortAnswer found;
  double spentMs = 0;
  for (size_t i = 0; i < ports.size(); ++i) {
    const WaitNotice notice(L"waiting for port " + std::to_wstring(ports[i]));
    const double share = std::max(
        (timeoutMs - spentMs) / static_cast<double>(ports.size() - i), 1.0);
    // Without a printer or a share, the server answers by itself.
    PortAnswer answer{ports[i], Reach::kUnknown, {}, 0};
    answer.exchange = SendGet(ports[i], L"/", static_cast<uint32_t>(share));
    answer.reach = ReachOf(answer.exchange);
    spentMs += answer.exchange.totalMs;
    const bool isServer = answer.reach == Reach::kThisServer;
    if (i == 0 || isServer) found = std::move(answer);
    if (isServer) break;
  }
  found.totalMs = spentMs;
  return found;
}

void LookAtListener(StatusFacts& facts) {
  facts.connections = CountConnections(facts.answer.port);
  if (facts.answer.reach != Reach::kThisServer) return;
  for (const HostProcess& host : facts.search.hosts) {
    for (const Listener& listener : host.listeners) {
      if (listener.port != facts.answer.port) continue;
      facts.unread = UnreadSettings(facts.settings, listener);
      return;
    }
  }
}

}  // namespace

Reach ReachOf(const Exchange& exchange) {
  switch (exchange.end) {
    case ExchangeEnd::kAnswered:
      return IsServersOwnAnswer(exchange) ? Reach::kThisServer : Reach::kOther;
    case ExchangeEnd::kRefused:
      return Reach::kNothing;
    case ExchangeEnd::kTimedOut:
      return exchange.firstByteMs ? Reach::kOther : Reach::kSilent;
    case ExchangeEnd::kNoHttp:
    case ExchangeEnd::kBroken:
      return Reach::kOther;
  }
  return Reach::kUnknown;
}

std::vector<uint16_t> PortsToAsk(std::optional<uint32_t> wanted, uint16_t set,
                                 const std::vector<HostProcess>& hosts) {
  constexpr size_t kMost = 8;
  if (wanted) return {static_cast<uint16_t>(*wanted)};
  std::vector<uint16_t> ports;
  for (const HostProcess& host : hosts) {
    for (const Listener& listener : host.listeners) {
      if (std::ranges::find(ports, listener.port) != ports.end()) continue;
      ports.insert(listener.port == set ? ports.begin() : ports.end(),
                   listener.port);
    }
  }
  if (ports.empty() && set != 0) ports.push_back(set);
  ports.resize(std::min(ports.size(), kMost));
  return ports;
}

std::optional<Failure> FindServer(std::optional<uint32_t> wanted,
                                  const std::vector<HostProcess>& hosts,
                                  uint32_t timeoutMs, PortAnswer& answer) {
  const Setting& setting = SettingOf(SettingId::kPort);
  ValueState stored;
  if (auto failure = ReadSetting(setting, stored)) return failure;
  const uint16_t set =
      ListeningPort(EffectiveValue(setting, stored).value_or(0));
  answer = AskPorts(PortsToAsk(wanted, set, hosts), timeoutMs);
  return std::nullopt;
}

std::vector<const Setting*> UnreadSettings(
    const std::vector<SettingState>& settings, const Listener& listener) {
  std::vector<const Setting*> unread;
  for (const auto& [setting, stored] : settings) {
    const uint32_t value = EffectiveValue(*setting, stored).value_or(0);
    const uint16_t port = ListeningPort(value);
    if ((setting->id == SettingId::kPort && port != 0 &&
         port != listener.port) ||
        (setting->id == SettingId::kTcpEnabled && value == 0) ||
        (setting->id == SettingId::kNetworkCommunication &&
         (value == 0) != listener.isLocalOnly)) {
      unread.push_back(setting);
    }
  }
  return unread;
}

EventSource LookAtSource(const std::wstring& name) {
  EventSource source{name, SourceForm::kAbsent, {}};
  UniqueRegistryKey key;
  if (::RegOpenKeyExW(HKEY_LOCAL_MACHINE,
                      EventSourceKeyPath(kApplicationLog, name).c_str(), 0,
                      KEY_READ, key.Receive()) != ERROR_SUCCESS) {
    return source;
  }
  source.messageFile = MessageFile(key.Get());
  source.form = FileExists(source.messageFile) ? SourceForm::kRegistered
                                               : SourceForm::kNoMessageFile;
  return source;
}

std::optional<Failure> LookAtServer(std::optional<uint32_t> wantedPort,
                                    uint32_t timeoutMs, StatusFacts& facts) {
  facts.timeoutMs = timeoutMs;
  if (auto failure = ReadSettings(facts.settings)) return failure;
  if (const LSTATUS status = ReadLoggerMasks(facts.loggers);
      status != ERROR_SUCCESS) {
    return RegistryFailure(L"cannot read the log masks", status);
  }
  if (auto failure = LookForDumps(facts)) return failure;
  facts.sources = LookAtSources(facts.loggers);
  facts.search = FindHosts();
  if (auto failure =
          FindServer(wantedPort, facts.search.hosts, timeoutMs, facts.answer)) {
    return failure;
  }
  LookAtListener(facts);
  return std::nullopt;
}

}  // namespace kova::ctl
