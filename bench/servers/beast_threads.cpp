#include "bench/servers/beast_threads.h"

namespace kova::bench {
namespace {

namespace asio = boost::asio;
namespace beast = boost::beast;
using asio::ip::tcp;

constexpr int kMostLooks = 5000;

}  // namespace

std::string BeastThreadServer::Start() {
  const tcp::endpoint here(asio::ip::address_v4::loopback(), m_port);
  m_acceptor.open(here.protocol());
  m_acceptor.bind(here);
  m_acceptor.listen();
  m_port = m_acceptor.local_endpoint().port();
  m_thread = std::thread([this] { Accept(); });
  return "";
}

void BeastThreadServer::Accept() {
  for (;;) {
    beast::error_code error;
    tcp::socket socket = m_acceptor.accept(error);
    const std::lock_guard<std::mutex> held(m_lock);
    if (!m_acceptor.is_open()) return;
    if (!error) Add(std::move(socket));
  }
}

// Called under the lock.
void BeastThreadServer::Add(tcp::socket socket) {
  m_sockets.insert(socket.native_handle());
  std::thread([this, owned = std::move(socket)]() mutable {
    Serve(owned);
    Remove(owned);
  }).detach();
}

void BeastThreadServer::Remove(const tcp::socket& socket) {
  const std::lock_guard<std::mutex> held(m_lock);
  m_sockets.erase(const_cast<tcp::socket&>(socket).native_handle());
}

void BeastThreadServer::Serve(tcp::socket& socket) {
  beast::error_code error;
  beast::flat_buffer buffer;
  for (bool keepOpen = true; keepOpen;) {
    BeastParser parser;
    parser.body_limit(kMostRequestBodyBytes);
    beast::http::read(socket, buffer, parser, error);
    if (error) return;
    const BeastResponse response = m_answers.To(parser.get());
    beast::http::write(socket, response, error);
    keepOpen = !error && response.keep_alive();
  }
  (void)socket.shutdown(tcp::socket::shutdown_send, error);
}

std::optional<size_t> BeastThreadServer::Connections() {
  const std::lock_guard<std::mutex> held(m_lock);
  return m_sockets.size();
}

size_t BeastThreadServer::Stop() {
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
  return *Connections();
}

}  // namespace kova::bench
