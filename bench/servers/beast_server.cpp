// Servers built on Boost.Beast in the two usual forms: blocking calls on a
// thread for each connection, and asynchronous calls on as many threads as
// there are processors.

// First: Winsock 2 has one order of headers that works.
#include "base/windows_api.h"
// clang-format off
#include <boost/asio.hpp>
#include <boost/beast/core.hpp>
#include <boost/beast/http.hpp>
// clang-format on

#include <CLI/CLI.hpp>
#include <algorithm>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "bench/servers/server_program.h"

namespace kova::bench {
namespace {

namespace asio = boost::asio;
namespace beast = boost::beast;
namespace http = boost::beast::http;
using asio::ip::tcp;

using Parser = http::request_parser<http::string_body>;
using Response = http::response<http::span_body<const char>>;

// The largest body that a request may have.
constexpr uint64_t kMostRequestBodyBytes = uint64_t{128} << 20;
constexpr int kMostLooks = 5000;

// The answers of one kind, one for each request. Read by any number of threads.
class Answers {
 public:
  explicit Answers(AnswerKind kind) : m_kind(kind), m_body(MakeBody(kind)) {}

  // The answer to `request`; its connection stays open if the request says so,
  // except after a refusal, whose end only the end of the connection tells.
  // Refers to the body, which lies in this object.
  [[nodiscard]] Response To(const Parser::value_type& request) const {
    Response response;
    response.version(request.version());
    if (m_kind == AnswerKind::kRefusal) {
      MakeRefusal(response);
      return response;
    }
    response.result(http::status::ok);
    response.set(http::field::content_type, "text/plain");
    response.body() = {m_body.data(), m_body.size()};
    response.keep_alive(request.keep_alive());
    response.prepare_payload();
    return response;
  }

 private:
  static void MakeRefusal(Response& response) {
    response.result(http::status::bad_request);
    response.set(http::field::content_type, "application/octet-stream");
    response.set(http::field::cache_control, "no-cache");
    response.set(http::field::date, "Sat, 21 Nov 2026 00:00:00 GMT");
    response.set(http::field::server, "VM");
    response.set(http::field::accept_ranges, "None");
    response.keep_alive(false);
  }

  const AnswerKind m_kind;
  const std::string m_body;
};

// What both forms have.
class BeastServer : public Server {
 public:
  explicit BeastServer(AnswerKind kind) : m_answers(kind) {
    const tcp::endpoint here(asio::ip::address_v4::loopback(), 0);
    m_acceptor.open(here.protocol());
    m_acceptor.bind(here);
    m_acceptor.listen();
    m_port = m_acceptor.local_endpoint().port();
  }

  uint16_t Port() const override { return m_port; }

 protected:
  const Answers m_answers;
  asio::io_context m_context;
  tcp::acceptor m_acceptor{m_context};

 private:
  uint16_t m_port = 0;
};

class ThreadServer : public BeastServer {
 public:
  explicit ThreadServer(AnswerKind kind) : BeastServer(kind) {
    m_thread = std::thread([this] { Accept(); });
  }

  size_t Stop() override {
    {
      const std::lock_guard<std::mutex> held(m_lock);
      m_acceptor.close();
      for (const SOCKET socket : m_sockets) {
        ::CancelIoEx(reinterpret_cast<HANDLE>(socket), nullptr);
      }
    }
    m_thread.join();
    for (int look = 0; look < kMostLooks && Connections() != 0; ++look) {
      ::Sleep(1);
    }
    return Connections();
  }

 private:
  void Accept() {
    for (;;) {
      beast::error_code error;
      tcp::socket socket = m_acceptor.accept(error);
      const std::lock_guard<std::mutex> held(m_lock);
      if (!m_acceptor.is_open()) return;
      if (!error) Add(std::move(socket));
    }
  }

  // Called under the lock.
  void Add(tcp::socket socket) {
    m_sockets.insert(socket.native_handle());
    std::thread([this, owned = std::move(socket)]() mutable {
      Serve(owned);
      const std::lock_guard<std::mutex> held(m_lock);
      m_sockets.erase(owned.native_handle());
    }).detach();
  }

  void Serve(tcp::socket& socket) {
    beast::error_code error;
    beast::flat_buffer buffer;
    for (bool keepOpen = true; keepOpen;) {
      Parser parser;
      parser.body_limit(kMostRequestBodyBytes);
      http::read(socket, buffer, parser, error);
      if (error) return;
      const Response response = m_answers.To(parser.get());
      http::write(socket, response, error);
      keepOpen = !error && response.keep_alive();
    }
    (void)socket.shutdown(tcp::socket::shutdown_send, error);
  }

  size_t Connections() {
    const std::lock_guard<std::mutex> held(m_lock);
    return m_sockets.size();
  }

  std::thread m_thread;
  std::mutex m_lock;
  std::set<SOCKET> m_sockets;  // weak: for a stop
};

// One asynchronous connection; lives for as long as an operation of it is under
// way.
class Session : public std::enable_shared_from_this<Session> {
 public:
  Session(const Answers& answers, tcp::socket socket)
      : m_answers(answers), m_socket(std::move(socket)) {}

  void Read() {
    m_parser.emplace();
    m_parser->body_limit(kMostRequestBodyBytes);
    http::async_read(
        m_socket, m_buffer, *m_parser,
        [self = shared_from_this()](beast::error_code error, size_t) {
          if (!error) self->Write();
        });
  }

 private:
  void Write() {
    m_response.emplace(m_answers.To(m_parser->get()));
    http::async_write(
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

  const Answers& m_answers;
  tcp::socket m_socket;
  beast::flat_buffer m_buffer;
  std::optional<Parser> m_parser;
  std::optional<Response> m_response;
};

class AsyncServer : public BeastServer {
 public:
  explicit AsyncServer(AnswerKind kind) : BeastServer(kind) {
    AcceptNext();
    const unsigned threads = std::max(1u, std::thread::hardware_concurrency());
    for (unsigned i = 0; i < threads; ++i) {
      m_threads.emplace_back([this] { m_context.run(); });
    }
  }

  size_t Stop() override {
    m_context.stop();
    for (std::thread& thread : m_threads) thread.join();
    m_threads.clear();
    beast::error_code ignored;
    (void)m_acceptor.close(ignored);
    return 0;
  }

 private:
  void AcceptNext() {
    m_acceptor.async_accept(
        [this](beast::error_code error, tcp::socket socket) {
          if (!m_acceptor.is_open()) return;
          if (!error) {
            std::make_shared<Session>(m_answers, std::move(socket))->Read();
          }
          AcceptNext();
        });
  }

  std::vector<std::thread> m_threads;
};

}  // namespace
}  // namespace kova::bench

int main(int count, char** arguments) {
  using namespace kova::bench;
  std::string mode = "thread";
  AnswerKind kind = AnswerKind::kRefusal;
  return RunServerProgram(
      count, arguments,
      [&](CLI::App& app) {
        app.name("bench_beast");
        app.description("An HTTP server built on Boost.Beast.");
        app.add_option("--mode", mode,
                       "thread: blocking, a thread per connection; async")
            ->check(CLI::IsMember({"thread", "async"}));
        AddAnswerOption(app, kind);
      },
      [&]() -> std::unique_ptr<Server> {
        if (mode == "async") return std::make_unique<AsyncServer>(kind);
        return std::make_unique<ThreadServer>(kind);
      });
}
