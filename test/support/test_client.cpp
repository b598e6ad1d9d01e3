#include "test/support/test_client.h"

#include <limits>
#include <vector>

#include "net/winsock_session.h"

namespace kova::test {
namespace {

constexpr size_t kPieceBytes = size_t{64} * 1024;

// Whether something can be read, or the peer has closed, within the time.
bool WaitReadable(SOCKET socket, DWORD timeoutMs) {
  fd_set readable;
  FD_ZERO(&readable);
  FD_SET(socket, &readable);
  timeval wait = {};
  wait.tv_sec = static_cast<long>(timeoutMs / 1000);
  wait.tv_usec = static_cast<long>(timeoutMs % 1000) * 1000;
  return ::select(0, &readable, nullptr, nullptr, &wait) == 1;
}

// One session for all clients, from before main() until the program ends: tests
// count those that the server opens, and Wine loses count of sessions that
// several threads open and close at once.
struct OpenSession : WinsockSession {
  OpenSession() {
    WORD granted = 0;
    (void)Open(&granted);
  }
};
const OpenSession g_session;

}  // namespace

sockaddr_in LoopbackAddress(uint16_t port) {
  sockaddr_in address = {};
  address.sin_family = AF_INET;
  address.sin_port = ::htons(port);
  address.sin_addr.s_addr = ::htonl(INADDR_LOOPBACK);
  return address;
}

TestClient::TestClient(uint16_t port, int receiveBufferBytes) {
  m_socket.Reset(::socket(AF_INET, SOCK_STREAM, IPPROTO_TCP));
  if (receiveBufferBytes != 0) {
    ::setsockopt(m_socket.Get(), SOL_SOCKET, SO_RCVBUF,
                 reinterpret_cast<const char*>(&receiveBufferBytes),
                 sizeof(receiveBufferBytes));
  }
  const BOOL yes = TRUE;
  ::setsockopt(m_socket.Get(), IPPROTO_TCP, TCP_NODELAY,
               reinterpret_cast<const char*>(&yes), sizeof(yes));
  const DWORD patienceMs = kClientPatienceMs;
  ::setsockopt(m_socket.Get(), SOL_SOCKET, SO_SNDTIMEO,
               reinterpret_cast<const char*>(&patienceMs), sizeof(patienceMs));
  const sockaddr_in address = LoopbackAddress(port);
  if (::connect(m_socket.Get(), reinterpret_cast<const sockaddr*>(&address),
                sizeof(address)) != 0) {
    m_socket.Reset();
  }
}

std::string TestClient::Address() const {
  return "127.0.0.1:" + std::to_string(LocalPort());
}

uint16_t TestClient::LocalPort() const {
  sockaddr_in own = {};
  int sizeBytes = sizeof(own);
  ::getsockname(m_socket.Get(), reinterpret_cast<sockaddr*>(&own), &sizeBytes);
  return ::ntohs(own.sin_port);
}

bool TestClient::Send(std::string_view bytes) {
  while (!bytes.empty()) {
    const size_t piece =
        bytes.size() < kPieceBytes ? bytes.size() : kPieceBytes;
    const int sent =
        ::send(m_socket.Get(), bytes.data(), static_cast<int>(piece), 0);
    if (sent <= 0) return false;
    bytes.remove_prefix(static_cast<size_t>(sent));
  }
  return true;
}

bool TestClient::SendByteByByte(std::string_view bytes) {
  for (size_t i = 0; i < bytes.size(); ++i) {
    if (!Send(bytes.substr(i, 1))) return false;
  }
  return true;
}

std::string TestClient::Receive(size_t count, DWORD patienceMs) {
  std::string received;
  std::vector<char> piece(kPieceBytes);
  const uint64_t deadlineMs = ::GetTickCount64() + patienceMs;
  m_closedByPeer = m_resetByPeer = false;
  while (received.size() < count) {
    const uint64_t nowMs = ::GetTickCount64();
    const DWORD leftMs =
        nowMs < deadlineMs ? static_cast<DWORD>(deadlineMs - nowMs) : 0;
    if (!WaitReadable(m_socket.Get(), leftMs)) break;
    const size_t left = count - received.size();
    const int got =
        ::recv(m_socket.Get(), piece.data(),
               static_cast<int>(left < kPieceBytes ? left : kPieceBytes), 0);
    if (got <= 0) {
      m_closedByPeer = true;
      m_resetByPeer = got < 0;
      break;
    }
    received.append(piece.data(), static_cast<size_t>(got));
  }
  return received;
}

std::string TestClient::ReceiveAll(DWORD patienceMs) {
  return Receive(std::numeric_limits<size_t>::max(), patienceMs);
}

bool TestClient::StaysQuiet(DWORD quietMs) {
  return !WaitReadable(m_socket.Get(), quietMs);
}

void TestClient::FinishSending() { ::shutdown(m_socket.Get(), SD_SEND); }

void TestClient::Reset() {
  const linger abortive = {1, 0};
  ::setsockopt(m_socket.Get(), SOL_SOCKET, SO_LINGER,
               reinterpret_cast<const char*>(&abortive), sizeof(abortive));
  m_socket.Reset();
}

void TestClient::Close() { m_socket.Reset(); }

std::string Ask(uint16_t port, std::string_view request) {
  TestClient client(port);
  if (!client.IsConnected() || !client.Send(request)) return {};
  std::string answer = client.ReceiveAll();
  return client.ClosedByPeer() ? answer : std::string();
}

}  // namespace kova::test
