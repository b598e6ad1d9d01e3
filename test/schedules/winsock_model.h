// Windows Sockets and the network behind them, as a model.
#pragma once

#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <span>
#include <string>

#include "test/schedules/kernel_model.h"
#include "test/schedules/thunk.h"

namespace kova::test {

// What two ends of a connection share.
struct Connection {
  std::string toServer;
  std::string toClient;
  size_t windowBytes = 65536;  // how much the client's side takes unread
  bool clientClosed = false;
  bool serverClosed = false;
  std::weak_ptr<struct ModelSocket> serverEnd;
};
using ConnectionPtr = std::shared_ptr<Connection>;

struct ModelSocket {
  uint16_t port = 0;
  bool listening = false;
  bool dead = false;                  // the last session has ended
  std::deque<ConnectionPtr> backlog;  // of a listening socket
  ConnectionPtr connection;           // of an accepted one
  // As WSAEventSelect left it.
  KernelObjectPtr event;
  long mask = 0;
  long pending = 0;   // not yet enumerated
  long recorded = 0;  // not recorded again until a call re-enables it
};
using ModelSocketPtr = std::shared_ptr<ModelSocket>;

// Network events as Windows documents them: each is recorded once, sets the
// event, and is recorded again only after the call that re-enables it.
class WinsockModel {
 public:
  WinsockModel() { Reset(); }

  // The library's calls, see WinsockThunks().
  int Startup(WORD version, LPWSADATA data);
  int Cleanup();
  SOCKET MakeSocket(int family, int type, int protocol,
                    LPWSAPROTOCOL_INFOW info, GROUP group, DWORD flags);
  int Bind(SOCKET socket, const sockaddr* name, int nameBytes);
  int Listen(SOCKET socket, int backlog);
  int Select(SOCKET socket, WSAEVENT event, long mask);
  int Enumerate(SOCKET socket, WSAEVENT event, LPWSANETWORKEVENTS found);
  SOCKET Accept(SOCKET socket, sockaddr* peer, LPINT peerBytes,
                LPCONDITIONPROC condition, DWORD_PTR data);
  int Receive(SOCKET socket, LPWSABUF buffers, DWORD count, LPDWORD received,
              LPDWORD flags, LPWSAOVERLAPPED overlapped,
              LPWSAOVERLAPPED_COMPLETION_ROUTINE routine);
  int Send(SOCKET socket, LPWSABUF buffers, DWORD count, LPDWORD sent,
           DWORD flags, LPWSAOVERLAPPED overlapped,
           LPWSAOVERLAPPED_COMPLETION_ROUTINE routine);
  int Close(SOCKET socket);
  int NameOf(SOCKET socket, sockaddr* address, int* addressBytes);
  int AddressText(LPSOCKADDR address, DWORD addressBytes,
                  LPWSAPROTOCOL_INFOW info, LPWSTR text, LPDWORD length);

  // From now on nothing may listen, be accepted or be sent; or it may again.
  void SetQuiet(bool quiet) { m_isQuiet = quiet; }

  // The clients' side; called on threads of their own.

  // Null if nothing listens.
  ConnectionPtr Connect(size_t windowBytes = 65536);
  void ClientSends(Connection& connection, const std::string& bytes);
  void ClientCloses(Connection& connection);
  // Takes what there is; waits for something or for the end.
  std::string ClientReceives(Connection& connection);

  [[nodiscard]] bool IsListening() const { return Listener() != nullptr; }
  [[nodiscard]] static bool IsOurs(SOCKET socket);
  [[nodiscard]] size_t OpenSockets() const { return m_sockets.size(); }
  [[nodiscard]] size_t OpenSessions() const { return m_sessions; }
  void Reset();

 private:
  // Null, with the error of Winsock set and a complaint, if there is none.
  ModelSocketPtr Find(SOCKET socket);
  [[nodiscard]] ModelSocketPtr Listener() const;
  SOCKET Add(const ModelSocket& socket);
  void ComplainIfQuiet(const char* what) const;

  std::map<SOCKET, ModelSocketPtr> m_sockets;
  size_t m_sessions = 0;
  bool m_isQuiet = false;
  SOCKET m_next = 0;
};

[[nodiscard]] std::span<const Thunk> WinsockThunks();

}  // namespace kova::test
