#include "test/schedules/winsock_model.h"

#include <algorithm>
#include <utility>

namespace kova::test {
namespace {

// Among the numbers that are no handles of the system or of the kernel's model.
constexpr SOCKET kFirstSocket = 0x7FF0000000;
constexpr uint64_t kClientPatienceMs = 400000;

template <typename Value>
Value FailWith(int error, Value value) {
  ::SetLastError(static_cast<DWORD>(error));
  return value;
}

}  // namespace

WinsockModel::WinsockModel(Scheduler& scheduler, KernelModel& kernel,
                           Complain complain)
    : m_scheduler(scheduler),
      m_kernel(kernel),
      m_complain(std::move(complain)) {
  Reset();
}

void WinsockModel::Reset() {
  m_sockets.clear();
  m_sessions = 0;
  m_next = kFirstSocket;
}

ModelSocketPtr WinsockModel::Find(SOCKET socket, const char* call) {
  const auto found = m_sockets.find(socket);
  if (found == m_sockets.end()) {
    m_complain(std::string(call) + " got a socket that is closed");
    return FailWith(WSAENOTSOCK, ModelSocketPtr());
  }
  if (m_sessions == 0 || found->second->dead) {
    m_complain(std::string(call) + " after the last session");
    return FailWith(WSANOTINITIALISED, ModelSocketPtr());
  }
  return found->second;
}

void WinsockModel::Record(ModelSocket& socket, long bit) {
  if ((socket.mask & bit) == 0 || (socket.recorded & bit) != 0) return;
  socket.recorded |= bit;
  socket.pending |= bit;
  socket.event->signalled = true;
}

// What is true now is recorded at once.
void WinsockModel::Reenable(ModelSocket& socket, long bit) {
  socket.recorded &= ~bit;
  RecordWhatIs(socket);
}

void WinsockModel::RecordWhatIs(ModelSocket& socket) {
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

void WinsockModel::EndOf(ModelSocket& socket) {
  for (const ConnectionPtr& waiting : socket.backlog) {
    waiting->serverClosed = true;
  }
  if (socket.connection != nullptr) socket.connection->serverClosed = true;
  socket.listening = false;
}

void WinsockModel::ComplainIfQuiet(const char* what) {
  if (m_isQuiet) m_complain(std::string("it ") + what + " after a stop");
}

int WinsockModel::Startup(WORD version, LPWSADATA data) {
  ++m_sessions;
  data->wVersion = version;
  data->wHighVersion = version;
  return 0;
}

int WinsockModel::Cleanup() {
  if (m_sessions == 0) {
    m_complain("WSACleanup without a session");
    return FailWith(WSANOTINITIALISED, SOCKET_ERROR);
  }
  if (--m_sessions > 0) return 0;
  for (const auto& [number, socket] : m_sockets) {
    EndOf(*socket);
    socket->dead = true;
  }
  return 0;
}

SOCKET WinsockModel::MakeSocket() {
  if (m_sessions == 0) return FailWith(WSANOTINITIALISED, INVALID_SOCKET);
  m_next += 4;
  m_sockets[m_next] = std::make_shared<ModelSocket>();
  return m_next;
}

int WinsockModel::Bind(SOCKET number, uint16_t port) {
  const ModelSocketPtr socket = Find(number, "bind");
  if (socket == nullptr) return SOCKET_ERROR;
  const bool taken = std::ranges::any_of(m_sockets, [port](const auto& other) {
    return other.second->connection == nullptr && other.second->port == port &&
           !other.second->dead;
  });
  if (taken) return FailWith(WSAEADDRINUSE, SOCKET_ERROR);
  socket->port = port;
  return 0;
}

int WinsockModel::Listen(SOCKET number) {
  const ModelSocketPtr socket = Find(number, "listen");
  if (socket == nullptr) return SOCKET_ERROR;
  ComplainIfQuiet("listens");
  socket->listening = true;
  return 0;
}

int WinsockModel::Select(SOCKET number, WSAEVENT event, long mask) {
  const ModelSocketPtr socket = Find(number, "WSAEventSelect");
  if (socket == nullptr) return SOCKET_ERROR;
  socket->mask = mask;
  socket->pending = 0;
  socket->recorded = 0;
  socket->event = mask == 0 ? nullptr : m_kernel.Find(event, "WSAEventSelect");
  if (socket->event == nullptr) socket->mask = 0;
  RecordWhatIs(*socket);
  return 0;
}

int WinsockModel::Enumerate(SOCKET number, WSAEVENT event,
                            LPWSANETWORKEVENTS found) {
  const ModelSocketPtr socket = Find(number, "WSAEnumNetworkEvents");
  if (socket == nullptr) return SOCKET_ERROR;
  *found = {};
  found->lNetworkEvents = std::exchange(socket->pending, 0);
  if (event != nullptr) {
    const KernelObjectPtr reset = m_kernel.Find(event, "WSAEnumNetworkEvents");
    if (reset != nullptr) reset->signalled = false;
  }
  return 0;
}

SOCKET WinsockModel::Accept(SOCKET number) {
  const ModelSocketPtr listener = Find(number, "WSAAccept");
  if (listener == nullptr) return INVALID_SOCKET;
  if (listener->backlog.empty()) {
    return FailWith(WSAEWOULDBLOCK, INVALID_SOCKET);
  }
  ComplainIfQuiet("accepts");
  const SOCKET accepted = MakeSocket();
  const ModelSocketPtr socket = m_sockets[accepted];
  socket->port = listener->port;
  socket->connection = listener->backlog.front();
  socket->connection->serverEnd = socket;
  listener->backlog.pop_front();
  Reenable(*listener, FD_ACCEPT);
  return accepted;
}

int WinsockModel::Receive(SOCKET number, char* bytes, DWORD most,
                          DWORD* received) {
  const ModelSocketPtr socket = Find(number, "WSARecv");
  if (socket == nullptr) return SOCKET_ERROR;
  Connection& connection = *socket->connection;
  const size_t count = std::min<size_t>(most, connection.toServer.size());
  if (count == 0 && !connection.clientClosed) {
    Reenable(*socket, FD_READ);
    return FailWith(WSAEWOULDBLOCK, SOCKET_ERROR);
  }
  connection.toServer.copy(bytes, count);
  connection.toServer.erase(0, count);
  *received = static_cast<DWORD>(count);
  Reenable(*socket, FD_READ);
  return 0;
}

int WinsockModel::Send(SOCKET number, const char* bytes, DWORD count,
                       DWORD* sent) {
  const ModelSocketPtr socket = Find(number, "WSASend");
  if (socket == nullptr) return SOCKET_ERROR;
  Connection& connection = *socket->connection;
  ComplainIfQuiet("sends");
  if (connection.clientClosed) return FailWith(WSAECONNRESET, SOCKET_ERROR);
  const size_t room = connection.windowBytes - connection.toClient.size();
  if (room == 0) {
    Reenable(*socket, FD_WRITE);
    return FailWith(WSAEWOULDBLOCK, SOCKET_ERROR);
  }
  const size_t taken = std::min<size_t>(room, count);
  connection.toClient.append(bytes, taken);
  *sent = static_cast<DWORD>(taken);
  return 0;
}

int WinsockModel::Close(SOCKET number) {
  const auto found = m_sockets.find(number);
  if (found == m_sockets.end()) {
    m_complain("closesocket got a socket that is closed");
    return FailWith(WSAENOTSOCK, SOCKET_ERROR);
  }
  EndOf(*found->second);
  m_sockets.erase(found);
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

bool WinsockModel::IsListening() const { return Listener() != nullptr; }

ConnectionPtr WinsockModel::Connect(size_t windowBytes) {
  m_scheduler.Point("connecting");
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
  m_scheduler.Point("sending");
  connection.toServer += bytes;
  const ModelSocketPtr socket = connection.serverEnd.lock();
  if (socket != nullptr) RecordWhatIs(*socket);
}

void WinsockModel::ClientCloses(Connection& connection) {
  m_scheduler.Point("closing");
  connection.clientClosed = true;
  const ModelSocketPtr socket = connection.serverEnd.lock();
  if (socket != nullptr) RecordWhatIs(*socket);
}

std::string WinsockModel::ClientReceives(Connection& connection) {
  m_scheduler.Await(
      "receiving",
      [&connection] {
        return !connection.toClient.empty() || connection.serverClosed;
      },
      kClientPatienceMs);
  std::string got = std::exchange(connection.toClient, {});
  const ModelSocketPtr socket = connection.serverEnd.lock();
  if (socket != nullptr) RecordWhatIs(*socket);
  return got;
}

}  // namespace kova::test
