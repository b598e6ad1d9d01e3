// One accepted connection: its record and its thread.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>

#include "base/byte_buffer.h"
#include "base/handles.h"
#include "net/client_list.h"
#include "text/o_string.h"

namespace kova {
class ConnectionHost;
}

// Serves one connection on a thread of its own. The record frees itself in
// three places only: at the end of its own thread, in FreeKilled() where that
// had to be killed, and where a thread never came to be.
class Network_ClientThread final : private kova::ClientWorker {
 public:
  Network_ClientThread(const Network_ClientThread&) = delete;
  Network_ClientThread& operator=(const Network_ClientThread&) = delete;

  // Starts the thread that serves `socket`, which the new record takes over.
  // `address` is the peer's address as text. A thread that cannot be started
  // costs only this connection: its socket is closed, nothing is reported.
  // `host` must stay alive until `clients` has been released.
  static void Start(kova::ConnectionHost& host,
                    std::shared_ptr<kova::ClientList> clients,
                    kova::UniqueSocket& socket, const std::string& address);

  // Where the accept thread was killed in Start(): lets the new thread run, and
  // end like any other, or frees a record that has none. That one's module
  // reference stays, because the killed thread may have held the loader's lock.
  static void FinishStart(kova::ClientList& clients);

  // Answers one complete request of `lengthBytes` bytes into `response`.
  // `keepOpen` goes to the driver extension, which may set it non-zero.
  // Always returns 1: send the response.
  static int32_t ParseRequest(const char* request, uint32_t lengthBytes,
                              kova::ByteBuffer& response, uint32_t* keepOpen,
                              const OString& clientAddress);

 private:
  Network_ClientThread(kova::ConnectionHost& host,
                       std::shared_ptr<kova::ClientList> clients,
                       const std::string& address);
  ~Network_ClientThread() = default;

  void AcceptStopSignals() override { m_acceptsStopSignals = true; }
  void SignalStop() override;
  void Kill() override;
  bool FreeKilled(DWORD timeoutMs) override;

  static unsigned __stdcall _ClientThread(void* record);
  static unsigned ServeRecord(void* record);

  bool StartThread();
  unsigned Serve();
  bool Prepare();
  unsigned Run();
  void FreeAfterStart();

  const kova::ClientList::Alive m_alive;
  HMODULE m_moduleReference = nullptr;  // given back by the thread's last call
  bool m_acceptsStopSignals = false;
  std::atomic<bool> m_stopping{false};

  kova::UniqueKernelHandle m_thread;
  kova::ConnectionHost& m_host;
  kova::UniqueSocket m_socket;
  const OString m_clientAddress;
  kova::UniqueWsaEvent m_readEvent;
  kova::UniqueWsaEvent m_stopEvent;
};
