#include "net/web_server_base.h"

#include <functional>

#include "net/network_client_thread.h"

namespace {

constexpr uint32_t kClientTimeoutMs = 300000;
constexpr size_t kFirstPlaces = 64;

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

bool kova::AddressList::Add(std::string_view text) {
  if (m_places.size() < 2 * (m_texts.size() + 1)) DoublePlaces();
  uint32_t& place = m_places[FindPlace(text)];
  if (place != 0) return false;
  m_texts.emplace_back(text);
  place = static_cast<uint32_t>(m_texts.size());
  return true;
}

size_t kova::AddressList::FindPlace(std::string_view text) const {
  const size_t last = m_places.size() - 1;
  size_t found = std::hash<std::string_view>()(text) & last;
  while (m_places[found] != 0 && m_texts[m_places[found] - 1] != text) {
    found = (found + 1) & last;
  }
  return found;
}

void kova::AddressList::DoublePlaces() {
  std::vector<uint32_t> places(m_places.empty() ? kFirstPlaces
                                                : 2 * m_places.size());
  m_places.swap(places);
  for (uint32_t position = 1; position <= m_texts.size(); ++position) {
    m_places[FindPlace(m_texts[position - 1])] = position;
  }
}
