// The product's design with nothing else in it.
#pragma once

#include "base/handles.h"
#include "bench/servers/bare_connections.h"
#include "bench/servers/command_loop.h"
#include "net/winsock_session.h"

namespace kova::bench {

// An accept thread that waits for events, and a fresh thread for every
// connection: the calls that the product's design cannot do without, in the
// product's order. What it reaches is what the product can reach at best.
class BareServer : public Server {
 public:
  // `port` 0: any that is free.
  BareServer(uint16_t port, BarePlan plan);

  std::string Start() override;
  uint16_t Port() const override { return m_port; }
  std::optional<size_t> Connections() override { return m_connections.Count(); }
  size_t Stop() override;

 private:
  static unsigned __stdcall _AcceptThread(void* server);

  [[nodiscard]] bool Listen();
  void Accept();

  uint16_t m_port;
  const BarePlan m_plan;
  BareConnections m_connections;
  WinsockSession m_winsock;
  UniqueSocket m_listener;
  UniqueWsaEvent m_shutdownEvent;
  UniqueWsaEvent m_networkEvent;
  UniqueKernelHandle m_thread;
};

}  // namespace kova::bench
