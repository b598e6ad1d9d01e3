// Boost.Beast with blocking calls on a thread per connection.
#pragma once

#include <mutex>
#include <set>
#include <thread>

#include "bench/servers/beast.h"
#include "bench/servers/command_loop.h"

namespace kova::bench {

class BeastThreadServer : public Server {
 public:
  BeastThreadServer(uint16_t port, AnswerKind kind)
      : m_port(port), m_answers(kind) {}

  std::string Start() override;
  uint16_t Port() const override { return m_port; }
  std::optional<size_t> Connections() override;
  size_t Stop() override;

 private:
  using Socket = boost::asio::ip::tcp::socket;

  void Accept();
  void Serve(Socket& socket);
  void Add(Socket socket);
  void Remove(const Socket& socket);

  uint16_t m_port;
  const BeastAnswers m_answers;
  boost::asio::io_context m_context;
  boost::asio::ip::tcp::acceptor m_acceptor{m_context};
  std::thread m_thread;
  std::mutex m_lock;
  std::set<SOCKET> m_sockets;  // weak: for a stop
};

}  // namespace kova::bench
