// A listening server whose requests end with a full stop, for tests.
#pragma once

#include <condition_variable>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "net/web_server_base.h"

namespace kova::test {

// Records what the server tells its derived class. Stops when it is destroyed.
class TestServer : public WebServerBase {
 public:
  using Client = std::pair<std::string, uint32_t>;

  ~TestServer() override {
    Stop();
    JoinAcceptThread();
  }

  int OnClientConnected(const std::string& address, uint32_t port) override {
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_clients.emplace_back(address, port);
    m_changed.notify_all();
    return 0;
  }
  int OnResponseSent(uint32_t byteCount) override {
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_sent.push_back(byteCount);
    m_changed.notify_all();
    return 0;
  }
  bool IsRequestComplete(const OTypedArray<char>& received,
                         RequestProgress& /*progress*/) override {
    const int32_t count = received.Count();
    return count > 0 && received[count - 1] == '.';
  }

  [[nodiscard]] std::vector<Client> Clients() const {
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_clients;
  }
  // The byte count of each response that was sent whole.
  [[nodiscard]] std::vector<uint32_t> Sent() const {
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_sent;
  }
  // Waits until so many clients have connected; false after 10 s.
  [[nodiscard]] bool WaitForClients(size_t count) {
    std::unique_lock<std::mutex> lock(m_mutex);
    return m_changed.wait_for(lock, std::chrono::seconds(10),
                              [&] { return m_clients.size() >= count; });
  }
  // The same for responses.
  [[nodiscard]] bool WaitForResponses(size_t count) {
    std::unique_lock<std::mutex> lock(m_mutex);
    return m_changed.wait_for(lock, std::chrono::seconds(10),
                              [&] { return m_sent.size() >= count; });
  }

 private:
  mutable std::mutex m_mutex;
  std::condition_variable m_changed;
  std::vector<Client> m_clients;
  std::vector<uint32_t> m_sent;
};

}  // namespace kova::test
