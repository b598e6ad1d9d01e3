#include "bench/servers/beast_async.h"

#include <algorithm>
#include <memory>
#include <optional>

namespace kova::bench {
namespace {

namespace asio = boost::asio;
namespace beast = boost::beast;
using asio::ip::tcp;

}  // namespace

// One connection; lives for as long as an operation of it is under way.
class BeastAsyncServer::Session
    : public std::enable_shared_from_this<BeastAsyncServer::Session> {
 public:
  Session(BeastAsyncServer& server, tcp::socket socket)
      : m_server(server), m_socket(std::move(socket)) {
    ++m_server.m_alive;
  }
  ~Session() { --m_server.m_alive; }
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;

  void Read() {
    m_parser.emplace();
    m_parser->body_limit(kMostRequestBodyBytes);
    beast::http::async_read(
        m_socket, m_buffer, *m_parser,
        [self = shared_from_this()](beast::error_code error, size_t) {
          if (!error) self->Write();
        });
  }

 private:
  void Write() {
    m_response.emplace(m_server.m_answers.To(m_parser->get()));
    beast::http::async_write(
        m_socket, *m_response,
        [self = shared_from_this()](beast::error_code error, size_t) {
          if (!error) self->OnSent();
        });
  }

  void OnSent() {
    if (m_response->keep_alive()) {
      Read();
      return;
    }
    beast::error_code ignored;
    (void)m_socket.shutdown(tcp::socket::shutdown_send, ignored);
  }

  BeastAsyncServer& m_server;
  tcp::socket m_socket;
  beast::flat_buffer m_buffer;
  std::optional<BeastParser> m_parser;
  std::optional<BeastResponse> m_response;
};

std::string BeastAsyncServer::Start() {
  const tcp::endpoint here(asio::ip::address_v4::loopback(), m_port);
  m_acceptor.open(here.protocol());
  m_acceptor.bind(here);
  m_acceptor.listen();
  m_port = m_acceptor.local_endpoint().port();
  AcceptNext();
  const unsigned threads = std::max(1u, std::thread::hardware_concurrency());
  for (unsigned i = 0; i < threads; ++i) {
    m_threads.emplace_back([this] { m_context.run(); });
  }
  return "";
}

void BeastAsyncServer::AcceptNext() {
  m_acceptor.async_accept([this](beast::error_code error, tcp::socket socket) {
    if (!m_acceptor.is_open()) return;
    if (!error) std::make_shared<Session>(*this, std::move(socket))->Read();
    AcceptNext();
  });
}

size_t BeastAsyncServer::Stop() {
  m_context.stop();
  for (std::thread& thread : m_threads) thread.join();
  m_threads.clear();
  beast::error_code ignored;
  (void)m_acceptor.close(ignored);
  return 0;
}

}  // namespace kova::bench
