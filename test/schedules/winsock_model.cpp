#include "test/schedules/winsock_model.h"

#include <algorithm>
#include <cwchar>
#include <utility>

#include "test/schedules/machine.h"

namespace kova::test {
namespace {

// Among the numbers that are no handles of the system or of the kernel's model.
constexpr SOCKET kFirstSocket = 0x7FF0000000;
constexpr uint64_t kClientPatienceMs = 400000;
constexpr uint16_t kPeerPort = 40000;
constexpr ULONG kPeerAddress = 0x0100007F;  // in network byte order
constexpr wchar_t kPeerText[] = L"127.0.0.1:40000";

template <typename Value>
Value FailWith(int error, Value value) {
  ::SetLastError(static_cast<DWORD>(error));
  return value;
}

void Record(ModelSocket& socket, long bit) {
  if ((socket.mask & bit) == 0 || (socket.recorded & bit) != 0) return;
  socket.recorded |= bit;
  socket.pending |= bit;
  socket.event->signalled = true;
}

void RecordWhatIs(ModelSocket& socket) {
  if (!socket.backlog.empty()) Record(socket, FD_ACCEPT);
  if (socket.connection == nullptr) return;
  const Connection& connection = *socket.connection;
  if (!connection.toServer.empty()) Record(socket, FD_READ);
  if (connection.toClient.size() < connection.windowBytes) {
    Record(socket, FD_WRITE);
  }
  if (connection.clientClosed && connection.toServer.empty()) {
    Record(socket, FD_CLOSE);
  }
}

void RecordAtServer(const Connection& connection) {
  const ModelSocketPtr socket = connection.serverEnd.lock();
  if (socket != nullptr) RecordWhatIs(*socket);
}

// What is true now is recorded at once.
void Reenable(ModelSocket& socket, long bit) {
  socket.recorded &= ~bit;
  RecordWhatIs(socket);
}

void EndOf(ModelSocket& socket) {
  for (const ConnectionPtr& waiting : socket.backlog) {
    waiting->serverClosed = true;
  }
  if (socket.connection != nullptr) socket.connection->serverClosed = true;
  socket.listening = false;
}

}  // namespace

void WinsockModel::Reset() {
  m_sockets.clear();
  m_sessions = 0;
  m_next = kFirstSocket;
}

ModelSocketPtr WinsockModel::Find(SOCKET socket) {
  const auto found = m_sockets.find(socket);
  if (found == m_sockets.end()) {
    TheMachine().Complain("a closed socket is used");
    return FailWith(WSAENOTSOCK, ModelSocketPtr());
  }
  if (m_sessions == 0 || found->second->dead) {
    TheMachine().Complain("a socket is used after the last session");
    return FailWith(WSANOTINITIALISED, ModelSocketPtr());
  }
  return found->second;
}

void WinsockModel::ComplainIfQuiet(const char* what) const {
  if (m_isQuiet) {
    TheMachine().Complain(std::string("it ") + what + " after a stop");
  }
}

int WinsockModel::Startup(WORD version, LPWSADATA data) {
  ++m_sessions;
  data->wVersion = version;
  data->wHighVersion = version;
  return 0;
}

int WinsockModel::Cleanup() {
  if (m_sessions == 0) {
    TheMachine().Complain("WSACleanup without a session");
    return FailWith(WSANOTINITIALISED, SOCKET_ERROR);
  }
  if (--m_sessions > 0) return 0;
  for (const auto& [number, socket] : m_sockets) {
    EndOf(*socket);
    socket->dead = true;
  }
  return 0;
}

SOCKET WinsockModel::Add(const ModelSocket& socket) {
  m_next += 4;
  m_sockets[m_next] = std::make_shared<ModelSocket>(socket);
  return m_next;
}

SOCKET WinsockModel::MakeSocket(int, int, int, LPWSAPROTOCOL_INFOW, GROUP,
                                DWORD) {
  return m_sessions == 0 ? FailWith(WSANOTINITIALISED, INVALID_SOCKET)
                         : Add({});
}

int WinsockModel::Bind(SOCKET number, const sockaddr* name, int) {
  const ModelSocketPtr socket = Find(number);
  if (socket == nullptr) return SOCKET_ERROR;
  const uint16_t port =
      ::ntohs(reinterpret_cast<const sockaddr_in*>(name)->sin_port);
  const bool taken = std::ranges::any_of(m_sockets, [port](const auto& other) {
    return other.second->connection == nullptr && other.second->port == port &&
           !other.second->dead;
  });
  if (taken) return FailWith(WSAEADDRINUSE, SOCKET_ERROR);
  socket->port = port;
  return 0;
}

int WinsockModel::Listen(SOCKET number, int) {
  const ModelSocketPtr socket = Find(number);
  if (socket == nullptr) return SOCKET_ERROR;
  ComplainIfQuiet("listens");
  socket->listening = true;
  return 0;
}

int WinsockModel::Select(SOCKET number, WSAEVENT event, long mask) {
  const ModelSocketPtr socket = Find(number);
  if (socket == nullptr) return SOCKET_ERROR;
  socket->pending = 0;
  socket->recorded = 0;
  socket->event = mask == 0 ? nullptr : TheMachine().kernel.Find(event);
  socket->mask = socket->event == nullptr ? 0 : mask;
  RecordWhatIs(*socket);
  return 0;
}

int WinsockModel::Enumerate(SOCKET number, WSAEVENT event,
                            LPWSANETWORKEVENTS found) {
  const ModelSocketPtr socket = Find(number);
  if (socket == nullptr) return SOCKET_ERROR;
  *found = {};
  found->lNetworkEvents = std::exchange(socket->pending, 0);
  if (event != nullptr) (void)TheMachine().kernel.Unsignal(event);
  return 0;
}

SOCKET WinsockModel::Accept(SOCKET number, sockaddr* peer, LPINT,
                            LPCONDITIONPROC, DWORD_PTR) {
  const ModelSocketPtr listener = Find(number);
  if (listener == nullptr) return INVALID_SOCKET;
  if (listener->backlog.empty()) {
    return FailWith(WSAEWOULDBLOCK, INVALID_SOCKET);
  }
  ComplainIfQuiet("accepts");
  const SOCKET accepted = Add({});
  const ModelSocketPtr socket = m_sockets[accepted];
  socket->port = listener->port;
  socket->connection = listener->backlog.front();
  socket->connection->serverEnd = socket;
  listener->backlog.pop_front();
  Reenable(*listener, FD_ACCEPT);
  if (peer != nullptr) (void)NameOf(accepted, peer, nullptr);
  return accepted;
}

int WinsockModel::Receive(SOCKET number, LPWSABUF buffers, DWORD,
                          LPDWORD received, LPDWORD, LPWSAOVERLAPPED,
                          LPWSAOVERLAPPED_COMPLETION_ROUTINE) {
  const ModelSocketPtr socket = Find(number);
  if (socket == nullptr) return SOCKET_ERROR;
  Connection& connection = *socket->connection;
  const size_t count =
      std::min<size_t>(buffers[0].len, connection.toServer.size());
  connection.toServer.copy(buffers[0].buf, count);
  connection.toServer.erase(0, count);
  Reenable(*socket, FD_READ);
  if (count == 0 && !connection.clientClosed) {
    return FailWith(WSAEWOULDBLOCK, SOCKET_ERROR);
  }
  *received = static_cast<DWORD>(count);
  return 0;
}

int WinsockModel::Send(SOCKET number, LPWSABUF buffers, DWORD, LPDWORD sent,
                       DWORD, LPWSAOVERLAPPED,
                       LPWSAOVERLAPPED_COMPLETION_ROUTINE) {
  const ModelSocketPtr socket = Find(number);
  if (socket == nullptr) return SOCKET_ERROR;
  Connection& connection = *socket->connection;
  ComplainIfQuiet("sends");
  if (connection.clientClosed) return FailWith(WSAECONNRESET, SOCKET_ERROR);
  const size_t room = connection.windowBytes - connection.toClient.size();
  if (room == 0) {
    Reenable(*socket, FD_WRITE);
    return FailWith(WSAEWOULDBLOCK, SOCKET_ERROR);
  }
  const size_t taken = std::min<size_t>(room, buffers[0].len);
  connection.toClient.append(buffers[0].buf, taken);
  *sent = static_cast<DWORD>(taken);
  return 0;
}

int WinsockModel::Close(SOCKET number) {
  const auto found = m_sockets.find(number);
  if (found == m_sockets.end()) {
    TheMachine().Complain("a closed socket is closed");
    return FailWith(WSAENOTSOCK, SOCKET_ERROR);
  }
  EndOf(*found->second);
  m_sockets.erase(found);
  return 0;
}

int WinsockModel::NameOf(SOCKET, sockaddr* address, int*) {
  auto* const peer = reinterpret_cast<sockaddr_in*>(address);
  *peer = {};
  peer->sin_family = AF_INET;
  peer->sin_port = ::htons(kPeerPort);
  peer->sin_addr.S_un.S_addr = kPeerAddress;
  return 0;
}

int WinsockModel::AddressText(LPSOCKADDR, DWORD, LPWSAPROTOCOL_INFOW,
                              LPWSTR text, LPDWORD length) {
  std::wcscpy(text, kPeerText);
  *length = static_cast<DWORD>(std::size(kPeerText));
  return 0;
}

ModelSocketPtr WinsockModel::Listener() const {
  const auto found = std::ranges::find_if(
      m_sockets, [](const auto& socket) { return socket.second->listening; });
  return found == m_sockets.end() ? nullptr : found->second;
}

bool WinsockModel::IsOurs(SOCKET socket) {
  return socket >= kFirstSocket && socket < 2 * kFirstSocket;
}

ConnectionPtr WinsockModel::Connect(size_t windowBytes) {
  TheMachine().scheduler.Point("connecting");
  const ModelSocketPtr listener = Listener();
  if (listener == nullptr) return nullptr;
  auto connection = std::make_shared<Connection>();
  connection->windowBytes = windowBytes;
  listener->backlog.push_back(connection);
  RecordWhatIs(*listener);
  return connection;
}

void WinsockModel::ClientSends(Connection& connection,
                               const std::string& bytes) {
  TheMachine().scheduler.Point("sending");
  connection.toServer += bytes;
  RecordAtServer(connection);
}

void WinsockModel::ClientCloses(Connection& connection) {
  TheMachine().scheduler.Point("closing");
  connection.clientClosed = true;
  RecordAtServer(connection);
}

std::string WinsockModel::ClientReceives(Connection& connection) {
  TheMachine().scheduler.Await(
      "receiving",
      [&connection] {
        return !connection.toClient.empty() || connection.serverClosed;
      },
      kClientPatienceMs);
  std::string got = std::exchange(connection.toClient, {});
  RecordAtServer(connection);
  return got;
}

std::span<const Thunk> WinsockThunks() {
  using Model = WinsockModel;
  static const Thunk thunks[] = {
      At<"WSAStartup", &Model::Startup>(),
      At<"WSACleanup", &Model::Cleanup, Notice::kClosing>(),
      At<"WSASocketW", &Model::MakeSocket>(),
      At<"bind", &Model::Bind>(),
      At<"listen", &Model::Listen>(),
      At<"WSAAccept", &Model::Accept>(),
      At<"getsockname", &Model::NameOf, Notice::kName>(),
      At<"getpeername", &Model::NameOf, Notice::kName>(),
      At<"WSAAddressToStringW", &Model::AddressText>(),
      At<"closesocket", &Model::Close, Notice::kClosing>(),
      At<"WSAEventSelect", &Model::Select>(),
      At<"WSAEnumNetworkEvents", &Model::Enumerate>(),
      At<"WSARecv", &Model::Receive>(),
      At<"WSASend", &Model::Send>(),
  };
  return thunks;
}

}  // namespace kova::test
