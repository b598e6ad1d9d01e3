#include "net/web_server_base.h"

#include "net/network_client_thread.h"

namespace {

constexpr uint32_t kClientTimeoutMs = 300000;

}  // namespace

WebServerBase::WebServerBase()
    : m_clients(std::make_shared<kova::ClientList>()) {}

WebServerBase::~WebServerBase() = default;

int WebServerBase::Run(uint32_t port, int /*zero*/, uint32_t bindAddress) {
  m_clientTimeoutMs = kClientTimeoutMs;
  return m_listener.Run(port, bindAddress);
}

int WebServerBase::AddClient(kova::UniqueSocket& socket,
                             const std::string& address, uint32_t port) {
  OnClientConnected(address, port);
  m_addresses.Add(address);
  Network_ClientThread::Start(m_callbacks, m_clients, socket, address);
  return 1;
}

int WebServerBase::Callbacks::AddClient(kova::UniqueSocket& socket,
                                        const std::string& address,
                                        uint32_t port) {
  return m_server.AddClient(socket, address, port);
}

uint32_t WebServerBase::Callbacks::ClientTimeoutMs() const {
  return m_server.m_clientTimeoutMs;
}

void WebServerBase::Callbacks::OnReceived(uint32_t byteCount) {
  m_server.m_kilobytesReceived += byteCount / 1024.0;
}

bool WebServerBase::Callbacks::IsRequestComplete(
    const OTypedArray<char>& received, kova::RequestProgress& progress) {
  return m_server.IsRequestComplete(received, progress);
}

void WebServerBase::Callbacks::OnResponseSent(uint32_t byteCount) {
  m_server.m_kilobytesSent += byteCount / 1024.0;
  m_server.OnResponseSent(byteCount);
}
