#include "common/server_settings.h"

#include "base/this_computer.h"
#include "base/windows_api.h"
#include "log/log_channel.h"
#include "log/logger.h"
#include "log/server_logger.h"
#include "registry/key_path.h"
#include "server/server_settings.h"

namespace kova::ctl {
namespace {

constexpr uint32_t kChannelsForPeople =
    tk::Bits(tk::LogChannel::Error) | tk::Bits(tk::LogChannel::Warning) |
    tk::Bits(tk::LogChannel::Info) | tk::Bits(tk::LogChannel::DetailInfo);

}  // namespace

std::wstring SettingsKeyPath() {
  std::wstring path = kova::ServerSettings::KeyPath(ComputerName());
  std::wstring noValue;
  RootedKey key;
  if (CombinePath(path, noValue)) {
    ExpandKeyAliases(path);
    static_cast<void>(SplitRootedKey(path, key));
  }
  return key.subkey;
}

ServerSettings ReadServerSettings() {
  kova::ServerSettings settings(ComputerName());
  return {settings.IsTcpEnabled(), settings.Port()};
}

uint32_t ReadLogMask() {
  uint32_t mask = 0;
  DWORD size = sizeof(mask);
  return ::RegGetValueW(HKEY_LOCAL_MACHINE, kMaskKey, kServerLoggerName,
                        RRF_RT_ANY, nullptr, &mask, &size) == ERROR_SUCCESS
             ? mask
             : kServerLoggerDefaultMask;
}

uint32_t AllChannels() {
  uint32_t all = 0;
  for (const auto& [channel, name] : tk::ChannelNames) all |= tk::Bits(channel);
  return all;
}

uint32_t LogMaskForRun(uint32_t current, bool verbose) {
  return current | tk::kDebuggerShowsAll |
         (verbose ? AllChannels() : kChannelsForPeople);
}

}  // namespace kova::ctl
