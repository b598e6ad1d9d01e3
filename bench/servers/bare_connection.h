// One connection of the bare server.
#pragma once

#include <memory>

#include "base/handles.h"
#include "base/windows_api.h"
#include "bench/servers/bare_connections.h"
#include "bench/servers/receive_block.h"

namespace kova::bench {

// The same thread, events, event masks and pieces as a connection of the
// product, and nothing beside them: no parsing, no log, no guard. Frees itself
// at the end of its thread.
class BareConnection {
 public:
  // Starts the thread that serves `socket`, which is taken over; where that
  // fails, the connection is closed.
  static void Start(BareConnections& all, SOCKET socket);

  // Makes the thread end soon. Called under the lock of the connections.
  void SignalExit() { ::WSASetEvent(m_exitEvent.Get()); }

 private:
  BareConnection(BareConnections& all, SOCKET socket);
  ~BareConnection() = default;

  static unsigned __stdcall _ConnectionThread(void* connection);

  void Serve();
  [[nodiscard]] bool Prepare();
  void Run();
  // Each returns whether the connection goes on.
  [[nodiscard]] bool OnEvents(long events);
  [[nodiscard]] bool Receive();
  [[nodiscard]] bool Answer();
  [[nodiscard]] bool SendRest();
  void CopyAnswer();
  [[nodiscard]] bool LookUpPrinter() const;

  BareConnections& m_all;
  const BarePlan& m_plan;
  UniqueSocket m_socket;
  UniqueKernelHandle m_thread;
  UniqueWsaEvent m_socketEvent;
  UniqueWsaEvent m_exitEvent;
  std::unique_ptr<char[]> m_buffer;
  ReceiveBlock m_request;
  std::unique_ptr<char[]> m_copy;
  const char* m_answer = nullptr;  // weak: the plan's, or the copy
  size_t m_sent = 0;
  bool m_sending = false;  // part of the answer waits for FD_WRITE
};

}  // namespace kova::bench
