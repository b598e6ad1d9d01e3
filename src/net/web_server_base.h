// The server: its listener, its connections, and what both ask of it.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "base/handles.h"
#include "base/o_array.h"
#include "net/client_list.h"
#include "net/connection_loop.h"
#include "net/listener.h"

namespace kova {

// Peer address texts in the order of their first arrival, each stored once.
// Two texts are the same when their bytes are. An index beside the vector
// keeps a look-up at constant cost however many addresses a long-running
// process has seen; it is one block, because a small block for each address
// would lie between those that connections come and go with, and keep the heap
// from using these again. Not safe for use by two threads at once.
class AddressList {
 public:
  AddressList() = default;

  AddressList(const AddressList&) = delete;
  AddressList& operator=(const AddressList&) = delete;

  // Appends `text` unless it is there. Returns whether it was appended. Where
  // memory runs out std::bad_alloc passes through and nothing is appended.
  bool Add(std::string_view text);

 private:
  // Of the place that refers to `text`, or of the free one it would take.
  [[nodiscard]] size_t FindPlace(std::string_view text) const;
  void DoublePlaces();

  std::vector<std::string> m_texts;
  // A hash table with linear probing, a power of two in size and at most half
  // full: a position in m_texts plus one, or 0 where a place is free.
  std::vector<uint32_t> m_places;
};

}  // namespace kova

// Listens on one IPv4 TCP port and serves every connection on a thread of its
// own. May be run and stopped any number of times. Run() and Stop() may be
// called from any thread and exclude each other. All failures are logged and
// otherwise ignored.
class WebServerBase {
 public:
  WebServerBase();
  // Does not stop a running server: call Stop() and JoinAcceptThread() first.
  virtual ~WebServerBase();

  WebServerBase(const WebServerBase&) = delete;
  WebServerBase& operator=(const WebServerBase&) = delete;

  // A client at `address` ("1.2.3.4:5678", in bytes) has connected from `port`.
  // Runs on the accept thread; the result is ignored.
  virtual int OnClientConnected(const std::string& address, uint32_t port) = 0;
  // A response of `byteCount` bytes was sent whole. Runs on the connection's
  // thread; the result is ignored.
  virtual int OnResponseSent(uint32_t byteCount) = 0;
  // Whether the bytes received so far hold a whole request. `progress` is the
  // connection's, reset whenever `received` begins anew. Runs on the
  // connection's thread after every receive.
  virtual bool IsRequestComplete(const OTypedArray<char>& received,
                                 kova::RequestProgress& progress) = 0;

  // See kova::Listener; `zero` is not read. Each Run() lets a connection be
  // silent for kClientTimeoutMs (see the source).
  int Run(uint32_t port, int zero, uint32_t bindAddress);
  int Stop() { return m_listener.Stop(); }
  void JoinAcceptThread() { m_listener.JoinAcceptThread(); }
  [[nodiscard]] bool IsRunning() const { return m_listener.IsRunning(); }

  // Traffic since the server object was made, in units of 1024 bytes. Counted
  // without a lock by all connections.
  [[nodiscard]] double KilobytesReceived() const { return m_kilobytesReceived; }
  [[nodiscard]] double KilobytesSent() const { return m_kilobytesSent; }

 private:
  // What the listener and the connections call. A member, not a base, whose
  // virtual functions would come before the server's own.
  class Callbacks final : public kova::ConnectionTaker,
                          public kova::ConnectionHost {
   public:
    explicit Callbacks(WebServerBase& server) : m_server(server) {}

    int AddClient(kova::UniqueSocket& socket, const std::string& address,
                  uint32_t port) override;
    [[nodiscard]] uint32_t ClientTimeoutMs() const override;
    void OnReceived(uint32_t byteCount) override;
    bool IsRequestComplete(const OTypedArray<char>& received,
                           kova::RequestProgress& progress) override;
    void OnResponseSent(uint32_t byteCount) override;

   private:
    WebServerBase& m_server;
  };

  // Serves one accepted connection, on the accept thread. Always returns 1.
  // `socket` belongs to the connection afterwards, or is closed.
  int AddClient(kova::UniqueSocket& socket, const std::string& address,
                uint32_t port);

  // How long a connection may be silent.
  std::atomic<uint32_t> m_clientTimeoutMs{0};
  std::atomic<double> m_kilobytesReceived{0};
  std::atomic<double> m_kilobytesSent{0};
  kova::AddressList m_addresses;  // touched by the accept thread alone
  const std::shared_ptr<kova::ClientList> m_clients;
  Callbacks m_callbacks{*this};
  kova::Listener m_listener{m_callbacks, *m_clients};
};
