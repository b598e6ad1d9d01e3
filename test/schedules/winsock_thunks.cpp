// Winsock's calls as the library makes them.
#include <cwchar>

#include "test/schedules/machine.h"

namespace kova::test {
namespace {

constexpr uint16_t kPeerPort = 40000;
constexpr ULONG kPeerAddress = 0x0100007F;  // in network byte order

WinsockModel& Winsock() { return TheMachine().winsock; }
void Point(const char* call) { TheMachine().scheduler.Point(call); }

int WSAAPI Startup(WORD version, LPWSADATA data) {
  Point("WSAStartup");
  return Winsock().Startup(version, data);
}

int WSAAPI Cleanup() {
  int result = 0;
  TheMachine().scheduler.PointOfClosing("WSACleanup",
                                        [&] { result = Winsock().Cleanup(); });
  return result;
}

SOCKET WSAAPI MakeSocket(int, int, int, LPWSAPROTOCOL_INFOW, GROUP, DWORD) {
  Point("WSASocketW");
  return Winsock().MakeSocket();
}

int WSAAPI Bind(SOCKET socket, const sockaddr* name, int) {
  Point("bind");
  return Winsock().Bind(
      socket, ::ntohs(reinterpret_cast<const sockaddr_in*>(name)->sin_port));
}

int WSAAPI Listen(SOCKET socket, int) {
  Point("listen");
  return Winsock().Listen(socket);
}

int WSAAPI SetOption(SOCKET, int, int, const char*, int) { return 0; }

void FillPeer(sockaddr* address) {
  auto* const peer = reinterpret_cast<sockaddr_in*>(address);
  *peer = {};
  peer->sin_family = AF_INET;
  peer->sin_port = ::htons(kPeerPort);
  peer->sin_addr.S_un.S_addr = kPeerAddress;
}

SOCKET WSAAPI Accept(SOCKET socket, sockaddr* peer, LPINT, LPCONDITIONPROC,
                     DWORD_PTR) {
  Point("WSAAccept");
  const SOCKET accepted = Winsock().Accept(socket);
  if (accepted != INVALID_SOCKET && peer != nullptr) FillPeer(peer);
  return accepted;
}

int WSAAPI NameOf(SOCKET, sockaddr* address, int*) {
  FillPeer(address);
  return 0;
}

INT WSAAPI AddressText(LPSOCKADDR, DWORD, LPWSAPROTOCOL_INFOW, LPWSTR text,
                       LPDWORD length) {
  Point("WSAAddressToStringW");
  std::wcscpy(text, L"127.0.0.1:40000");
  *length = static_cast<DWORD>(std::wcslen(text)) + 1;
  return 0;
}

int WSAAPI CloseSocket(SOCKET socket) {
  int result = 0;
  TheMachine().scheduler.PointOfClosing(
      "closesocket", [&] { result = Winsock().Close(socket); });
  return result;
}

WSAEVENT WSAAPI MakeEvent() {
  auto event = std::make_shared<KernelObject>();
  event->manual = true;
  return TheMachine().kernel.Add(event);
}

BOOL WSAAPI CloseEvent(WSAEVENT event) {
  TheMachine().scheduler.PointOfClosing("WSACloseEvent", [event] {
    (void)TheMachine().kernel.Close(event, "WSACloseEvent");
  });
  return TRUE;
}

BOOL WSAAPI SetWsaEvent(WSAEVENT event) {
  Point("WSASetEvent");
  const KernelObjectPtr found = TheMachine().kernel.Find(event, "WSASetEvent");
  if (found == nullptr) return FALSE;
  found->signalled = true;
  return TRUE;
}

int WSAAPI Select(SOCKET socket, WSAEVENT event, long mask) {
  Point("WSAEventSelect");
  return Winsock().Select(socket, event, mask);
}

int WSAAPI Enumerate(SOCKET socket, WSAEVENT event, LPWSANETWORKEVENTS found) {
  Point("WSAEnumNetworkEvents");
  return Winsock().Enumerate(socket, event, found);
}

DWORD WSAAPI Wait(DWORD count, const WSAEVENT* events, BOOL all,
                  DWORD timeoutMs, BOOL) {
  if (all && count > 1) TheMachine().Complain("a wait for all of several");
  return TheMachine().kernel.Wait(
      "WSAWaitForMultipleEvents", {events, count},
      timeoutMs == WSA_INFINITE ? kNever : timeoutMs);
}

int WSAAPI Receive(SOCKET socket, LPWSABUF buffers, DWORD, LPDWORD received,
                   LPDWORD, LPWSAOVERLAPPED,
                   LPWSAOVERLAPPED_COMPLETION_ROUTINE) {
  Point("WSARecv");
  return Winsock().Receive(socket, buffers[0].buf, buffers[0].len, received);
}

int WSAAPI Send(SOCKET socket, LPWSABUF buffers, DWORD, LPDWORD sent, DWORD,
                LPWSAOVERLAPPED, LPWSAOVERLAPPED_COMPLETION_ROUTINE) {
  Point("WSASend");
  return Winsock().Send(socket, buffers[0].buf, buffers[0].len, sent);
}

}  // namespace

std::span<const Thunk> WinsockThunks() {
  static const Thunk thunks[] = {
      MakeThunk("WSAStartup", &Startup),
      MakeThunk("WSACleanup", &Cleanup),
      MakeThunk("WSASocketW", &MakeSocket),
      MakeThunk("bind", &Bind),
      MakeThunk("listen", &Listen),
      MakeThunk("setsockopt", &SetOption),
      MakeThunk("WSAAccept", &Accept),
      MakeThunk("getsockname", &NameOf),
      MakeThunk("getpeername", &NameOf),
      MakeThunk("WSAAddressToStringW", &AddressText),
      MakeThunk("closesocket", &CloseSocket),
      MakeThunk("WSACreateEvent", &MakeEvent),
      MakeThunk("WSACloseEvent", &CloseEvent),
      MakeThunk("WSASetEvent", &SetWsaEvent),
      MakeThunk("WSAEventSelect", &Select),
      MakeThunk("WSAEnumNetworkEvents", &Enumerate),
      MakeThunk("WSAWaitForMultipleEvents", &Wait),
      MakeThunk("WSARecv", &Receive),
      MakeThunk("WSASend", &Send),
  };
  return thunks;
}

}  // namespace kova::test
