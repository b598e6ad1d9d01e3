// Boost.Beast with asynchronous calls on as many threads as there are
// processors.
#pragma once

#include <atomic>
#include <thread>
#include <vector>

#include "bench/servers/beast.h"
#include "bench/servers/command_loop.h"

namespace kova::bench {

class BeastAsyncServer : public Server {
 public:
  BeastAsyncServer(uint16_t port, AnswerKind kind)
      : m_port(port), m_answers(kind) {}

  std::string Start() override;
  uint16_t Port() const override { return m_port; }
  std::optional<size_t> Connections() override { return m_alive.load(); }
  size_t Stop() override;

 private:
  class Session;

  void AcceptNext();

  uint16_t m_port;
  const BeastAnswers m_answers;
  // Before the context: its sessions count themselves out as they go.
  std::atomic<size_t> m_alive{0};
  boost::asio::io_context m_context;
  boost::asio::ip::tcp::acceptor m_acceptor{m_context};
  std::vector<std::thread> m_threads;
};

}  // namespace kova::bench
