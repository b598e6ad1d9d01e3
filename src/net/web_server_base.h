// The listening server: its socket, its accept thread, its connections.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>

#include "base/handles.h"
#include "base/o_array.h"
#include "base/o_critical_section.h"
#include "base/thread_annotations.h"
#include "net/address_list.h"
#include "net/client_list.h"
#include "net/connection_loop.h"
#include "net/winsock_session.h"

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

  // Starts the accept thread, listening on `port` (its low 16 bits) of
  // `bindAddress` (IPv4 in host byte order; 0: all interfaces), and waits up
  // to 30000 ms for it to answer. Returns 1 when it answered, also when it
  // could not listen (see IsRunning()); 0 when it did not answer, could not be
  // started, or the server is running. `zero` is not read.
  int Run(uint32_t port, int zero, uint32_t bindAddress);

  // Ends the accept thread (1000 ms of grace), then every connection (5000 ms
  // of grace). Returns 1 when the accept thread ended by itself, 0 when it had
  // to be terminated or the server was not running.
  int Stop();

  // Waits for an accept thread that missed its time to answer Run(), so that
  // none is left when the server is destroyed. Not to be called while
  // IsRunning().
  void JoinAcceptThread();

  // Serves one accepted connection. Called on the accept thread; always
  // returns 1. `socket` belongs to the connection afterwards, or is closed.
  int AddClient(kova::UniqueSocket& socket, const std::string& address,
                uint32_t port);

  // See kova::ClientList.
  [[nodiscard]] bool RegisterClient(kova::ClientWorker* worker) {
    return m_clients->Register(worker);
  }
  void UnregisterClient(kova::ClientWorker* worker) {
    m_clients->Unregister(worker);
  }
  void ReleaseClients() { m_clients->Release(); }

  // True from the moment the accept thread listens until Stop().
  [[nodiscard]] bool IsRunning() const { return m_running.load() != 0; }
  // How long a connection may be silent; 0: without limit.
  [[nodiscard]] uint32_t ClientTimeoutMs() const { return m_clientTimeoutMs; }
  void SetClientTimeoutMs(uint32_t timeoutMs) { m_clientTimeoutMs = timeoutMs; }
  // Traffic since the server object was made, in units of 1024 bytes. Counted
  // without a lock by all connections.
  [[nodiscard]] double KilobytesReceived() const { return m_kilobytesReceived; }
  [[nodiscard]] double KilobytesSent() const { return m_kilobytesSent; }

  // This server as its connections see it; lives as long as this object.
  [[nodiscard]] kova::ConnectionHost& Host() { return m_host; }

  // Every address that has connected, in order of first arrival. Belongs to
  // the accept thread while the server runs.
  [[nodiscard]] const kova::AddressList& Addresses() const {
    return m_addresses;
  }
  [[nodiscard]] int32_t ClientCount() { return m_clients->Count(); }

 private:
  // A member, not a base, whose virtual functions would come before the
  // server's own.
  class ServerHost final : public kova::ConnectionHost {
   public:
    explicit ServerHost(WebServerBase& server) : m_server(server) {}

    [[nodiscard]] uint32_t ClientTimeoutMs() const override;
    void OnReceived(uint32_t byteCount) override;
    bool IsRequestComplete(const OTypedArray<char>& received,
                           kova::RequestProgress& progress) override;
    void OnResponseSent(uint32_t byteCount) override;

   private:
    WebServerBase& m_server;
  };

  static unsigned __stdcall _AcceptThread(void* server);
  static unsigned GuardedAcceptThread(void* server);

  bool StartAcceptThread() KOVA_REQUIRES(m_lifecycle);
  int AwaitAcceptThread() KOVA_REQUIRES(m_lifecycle);
  void GiveUpStartedEvent() KOVA_REQUIRES(m_lifecycle);
  bool HasStrayAcceptThread() KOVA_REQUIRES(m_lifecycle);
  int StopRunning() KOVA_REQUIRES(m_lifecycle);
  void KillAcceptThread() KOVA_REQUIRES(m_lifecycle);

  // The accept thread's own steps.
  unsigned AcceptConnections();
  bool Listen();
  bool OpenWinsock();
  bool OpenListeningSocket();
  bool CreateEvents();
  bool ServeEvents();
  bool OnNetworkEvent();
  void AcceptOne();
  void CloseListener();
  void AnswerRun();

  // Serialises Run() and Stop(); held over their waits, never by a thread that
  // they wait for.
  OCriticalSection m_lifecycle;

  kova::UniqueKernelHandle m_acceptThread KOVA_GUARDED_BY(m_lifecycle);
  unsigned m_acceptThreadId KOVA_GUARDED_BY(m_lifecycle) = 0;
  // Whoever takes the started event out of the field first decides: the accept
  // thread signals it, Run() has given up on it.
  kova::UniqueKernelHandle m_startedEvent KOVA_GUARDED_BY(m_lifecycle);
  std::atomic<HANDLE> m_startedSignal{nullptr};

  // Made, used and closed by the accept thread; by Stop() when it had to kill
  // that thread. Whoever takes the shutdown event out of m_shutdownSignal
  // closes it, so that Stop() never signals a handle that is closed.
  kova::WinsockSession m_winsock;
  kova::UniqueSocket m_listeningSocket;
  kova::UniqueSocket m_accepted;  // until it belongs to a connection
  kova::UniqueWsaEvent m_networkEvent;
  WSAEVENT m_shutdownEvent = WSA_INVALID_EVENT;
  std::atomic<WSAEVENT> m_shutdownSignal{WSA_INVALID_EVENT};

  uint32_t m_bindAddress = 0;
  uint32_t m_port = 0;
  std::atomic<uint32_t> m_clientTimeoutMs{0};
  std::atomic<uint32_t> m_running{0};
  std::atomic<double> m_kilobytesReceived{0};
  std::atomic<double> m_kilobytesSent{0};

  kova::AddressList m_addresses;  // touched by the accept thread alone
  const std::shared_ptr<kova::ClientList> m_clients;
  ServerHost m_host{*this};
};
