#include "run/listen_check.h"

#include <string_view>

#include "base/handles.h"
#include "net/winsock_session.h"

namespace kova::ctl {
namespace {

// The server's own words when it cannot have its port; the error follows.
constexpr std::wstring_view kBindFailure =
    L"AcceptThread: bind(...) failure. GetLastError:";

// The error code of a failed bind; 0 if no line tells of one.
unsigned long BindError(const std::vector<std::wstring>& errorLines) {
  for (const std::wstring& line : errorLines) {
    const size_t at = line.find(kBindFailure);
    if (at != std::wstring::npos) {
      return std::wcstoul(line.c_str() + at + kBindFailure.size(), nullptr, 10);
    }
  }
  return 0;
}

// Windows refuses a port that another program holds for itself alone with
// WSAEACCES.
bool MeansInUse(unsigned long error) {
  return error == WSAEADDRINUSE || error == WSAEACCES;
}

Failure PortInUse(uint32_t port) {
  return {ExitCode::kPortInUse,
          L"port " + std::to_wstring(port) +
              L" is in use by another program; stop that, or choose another "
              L"port with --port"};
}

}  // namespace

bool AcceptsConnections(uint32_t port) {
  WinsockSession session;
  WORD granted = 0;
  if (session.Open(&granted) != 0) return false;
  const UniqueSocket socket(::socket(AF_INET, SOCK_STREAM, IPPROTO_TCP));
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = ::htons(static_cast<u_short>(port));
  address.sin_addr.s_addr = ::htonl(INADDR_LOOPBACK);
  return socket.IsValid() &&
         ::connect(socket.Get(), reinterpret_cast<sockaddr*>(&address),
                   sizeof(address)) == 0;
}

std::optional<Failure> JudgeStart(const ServerSettings& settings,
                                  const std::vector<std::wstring>& errorLines,
                                  bool accepts) {
  if (!settings.tcpEnabled) {
    return Failure{ExitCode::kNotListening,
                   L"the setting \"TCP Enabled\" is 0, so the server does not "
                   L"listen; set it to 1 (REG_BINARY, 1 byte) under "
                   L"HKEY_LOCAL_MACHINE\\" +
                       SettingsKeyPath()};
  }
  if (MeansInUse(BindError(errorLines))) return PortInUse(settings.port);
  if (!errorLines.empty()) {
    return Failure{ExitCode::kNotListening,
                   L"the server does not listen; its first error above says "
                   L"why: " +
                       errorLines.front()};
  }
  if (accepts) return std::nullopt;
  return Failure{ExitCode::kNotListening,
                 L"the server reported no error, but nothing listens on port " +
                     std::to_wstring(settings.port) +
                     L"; run again with --verbose"};
}

}  // namespace kova::ctl
