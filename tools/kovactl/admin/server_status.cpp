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

void AskPort(StatusFacts& facts) {
  if (facts.port == 0) return;
  const WaitNotice notice(L"waiting for port " + std::to_wstring(facts.port));
  // Without a printer or a share, the server answers by itself.
  facts.exchange = SendGet(facts.port, L"/", facts.timeoutMs);
  facts.reach = ReachOf(facts.exchange);
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

std::optional<Failure> ChoosePort(std::optional<uint32_t> wanted,
                                  uint16_t& port) {
  if (wanted) {
    port = static_cast<uint16_t>(*wanted);
    return std::nullopt;
  }
  const Setting& setting = SettingOf(SettingId::kPort);
  ValueState stored;
  if (auto failure = ReadSetting(setting, stored)) return failure;
  port = ListeningPort(EffectiveValue(setting, stored).value_or(0));
  return std::nullopt;
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
  if (auto failure = ChoosePort(wantedPort, facts.port)) return failure;
  if (auto failure = ReadSettings(facts.settings)) return failure;
  if (const LSTATUS status = ReadLoggerMasks(facts.loggers);
      status != ERROR_SUCCESS) {
    return RegistryFailure(L"cannot read the log masks", status);
  }
  if (auto failure = LookForDumps(facts)) return failure;
  facts.sources = LookAtSources(facts.loggers);
  AskPort(facts);
  return std::nullopt;
}

}  // namespace kova::ctl
