// What the tests of the connection loop stand on.
#pragma once

#include <atomic>
#include <functional>
#include <string>
#include <vector>

#include "net/connection_loop.h"
#include "test/net/listener_fixture.h"
#include "test/net/scripted_socket.h"

namespace kova::test {

// A server whose requests end with a full stop, and how it is told of traffic.
class ScriptedHost final : public ConnectionHost {
 public:
  [[nodiscard]] uint32_t ClientTimeoutMs() const override {
    return m_timeoutMs;
  }
  void OnReceived(uint32_t byteCount) override {
    m_received.push_back(byteCount);
  }
  bool IsRequestComplete(const OTypedArray<char>& received,
                         RequestProgress& progress) override {
    const std::string_view bytes(received.Data(),
                                 static_cast<size_t>(received.Count()));
    return m_isHttp ? progress.IsComplete(bytes) : bytes.ends_with('.');
  }
  void OnResponseSent(uint32_t byteCount) override {
    m_sent.push_back(byteCount);
  }

  uint32_t m_timeoutMs = 300000;
  bool m_isHttp = false;  // requests end as those of the real server
  std::vector<uint32_t> m_received;
  std::vector<uint32_t> m_sent;
};

// One connection's loop on a scripted socket. Its handler records each request
// and answers with m_response.
class ConnectionLoopTest : public LoggingTest {
 protected:
  static constexpr uint32_t kAllChannels = 0xF800FFFF;
  static constexpr SOCKET kSocket = 0xABC;

  ConnectionLoopTest() : LoggingTest(kAllChannels) { s_current = this; }
  ~ConnectionLoopTest() override { s_current = nullptr; }

  // Runs the loop to its end.
  unsigned RunUnseen() {
    ::WSASetLastError(0);
    ConnectionLoop loop(m_host, kSocket, nullptr, nullptr, m_stopping,
                        m_address, &Handle);
    return loop.Run();
  }
  // The same, and drops the log line it begins with, which must be there.
  unsigned Run() {
    const unsigned result = RunUnseen();
    m_lines = m_log.Take();
    if (m_lines.empty() ||
        m_lines[0] !=
            L"DetailInfoB Network_ClientThread::Run: Client Thread "
            L"started. For socket: 0xabc") {
      ADD_FAILURE() << "the connection's first line is missing";
      return result;
    }
    m_lines.erase(m_lines.begin());
    return result;
  }

  // Lines as the loop logs them.
  static std::wstring E(const std::wstring& text) {
    return L"DetailInfoE Network_ClientThread::Run: " + text;
  }
  static std::wstring W(const std::wstring& text) {
    return L"Warning Network_ClientThread::Run: " + text;
  }
  static std::wstring Woken(const wchar_t* bits) {
    return E(std::wstring(L"WSAEnumNetworkEvents returned: 0x0 Network "
                          L"Events: 0x") +
             bits);
  }
  static std::wstring Received(const wchar_t* bytes) {
    return E(std::wstring(L"WSARecv returned 0x0 bytesReceived: 0x") + bytes);
  }

  ScriptedHost m_host;
  const OString m_address = "1.2.3.4:5678";
  std::atomic<bool> m_stopping{false};
  ScriptedSocket m_socket;
  std::vector<std::wstring> m_lines;

  std::vector<std::string> m_requests;
  std::string m_response = "answer";
  uint32_t m_keepOpen = 0;        // what the handler sets, unless 0
  int m_leftError = 0;            // last error that the handler leaves behind
  bool m_answers = true;          // whether it gives an answer
  std::vector<uint32_t> m_flags;  // the keep-open flag as handed in
  std::vector<std::string> m_addresses;

 private:
  static int32_t Handle(const char* request, uint32_t lengthBytes,
                        ByteBuffer& response, uint32_t* keepOpen,
                        const OString& clientAddress) {
    ConnectionLoopTest& test = *s_current;
    test.m_requests.emplace_back(request, lengthBytes);
    test.m_addresses.emplace_back(clientAddress.Narrow());
    test.m_flags.push_back(*keepOpen);
    if (test.m_keepOpen != 0) *keepOpen = test.m_keepOpen;
    response.ResizeDiscarding(test.m_response.size());
    test.m_response.copy(response.Data(), test.m_response.size());
    ::WSASetLastError(test.m_leftError);
    return test.m_answers ? 1 : 0;
  }

  static inline ConnectionLoopTest* s_current = nullptr;
};

}  // namespace kova::test
