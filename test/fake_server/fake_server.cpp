// A server library for tests of the tools: it listens or not, as the
// environment variable KOVA_FAKE_SERVER says, and answers nothing.
//   listen (default)  listens on the port of the settings, logs as a server
//   silent            does nothing and says nothing
//   error             logs an error and does not listen
//   mask              logs the log mask, in decimal, and does not listen
//   die               ends the process at once, as a crash does
//   clear             sends the terminal a command inside a log line
#include "kova/server.h"

#include <string>

#include "base/handles.h"
#include "tools/kovactl/common/server_settings.h"

namespace {

SOCKET g_listener = INVALID_SOCKET;

std::wstring Mode() {
  wchar_t mode[32] = {};
  ::GetEnvironmentVariableW(L"KOVA_FAKE_SERVER", mode, 32);
  return mode[0] == L'\0' ? L"listen" : mode;
}

void Listen() {
  const uint32_t port = kova::ctl::ReadServerSettings().port;
  const std::wstring start =
      L"Info WebServerBase::Run: Starting server on port " +
      std::to_wstring(port);
  ::OutputDebugStringW(start.c_str());
  WSADATA data{};
  ::WSAStartup(MAKEWORD(2, 2), &data);
  g_listener = ::socket(AF_INET, SOCK_STREAM, IPPROTO_TCP);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = ::htons(static_cast<u_short>(port));
  if (::bind(g_listener, reinterpret_cast<sockaddr*>(&address),
             sizeof(address)) != 0) {
    const std::wstring error =
        L"Error WebServerBase::_AcceptThread: AcceptThread: bind(...) failure."
        L" GetLastError:" +
        std::to_wstring(::WSAGetLastError());
    ::OutputDebugStringW(error.c_str());
    return;
  }
  ::listen(g_listener, SOMAXCONN);
}

}  // namespace

void StartKOVAServer(void) {
  const std::wstring mode = Mode();
  if (mode == L"listen" || mode == L"clear") Listen();
  if (mode == L"error") {
    ::OutputDebugStringW(
        L"Error WebServerBase::_AcceptThread: WSAStartup(...) failure. "
        L"result:10091");
  }
  if (mode == L"mask") {
    const std::wstring mask =
        L"Info mask " + std::to_wstring(kova::ctl::ReadLogMask());
    ::OutputDebugStringW(mask.c_str());
  }
  if (mode == L"die") ::TerminateProcess(::GetCurrentProcess(), 3);
  if (mode == L"clear") ::OutputDebugStringW(L"Warning A::B: x\x1b[2Jy");
}

void StopKOVAServer(void) {
  ::OutputDebugStringW(L"DetailInfoH _StopKOVAServer: Enter");
  if (g_listener != INVALID_SOCKET) ::closesocket(g_listener);
  g_listener = INVALID_SOCKET;
}
