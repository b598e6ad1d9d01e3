// For tests: a running server, and a printer whose extension does as the
// request says.
#pragma once

#include <gtest/gtest.h>

#include <string>

#include "log/log_channel.h"
#include "test/extensions/extension_answers.h"
#include "test/support/bad_request.h"
#include "test/support/demo_printer.h"
#include "test/support/log_capture.h"
#include "test/support/server_fixture.h"
#include "test/support/test_client.h"
#include "test/support/test_extension.h"

namespace kova::test {

inline constexpr wchar_t kLooping[] =
    L"DetailInfoE Network_ClientThread::Run: HTTPRequest::IsComplete returned "
    L"false, looping";

inline constexpr size_t kEightMiB = size_t{8} * 1024 * 1024;

// Has the printer "KOVA whole", shared as "kovaWhole", and shows the channels
// on which requests log.
class RoutingFixture : public testing::Test {
 protected:
  RoutingFixture() { EXPECT_TRUE(m_printer.SetDriverPackage(Folder())); }

  void SetUp() override {
    ASSERT_TRUE(m_server.IsLoaded());
    ASSERT_TRUE(m_extension.IsLoaded());
    m_server.Start();
    m_capture.Take();
  }

  [[nodiscard]] uint16_t Port() const { return m_server.Port(); }
  [[nodiscard]] const std::wstring& Folder() const {
    return m_extension.Folder();
  }

  // A GET request that the printer gets, with the extension's actions.
  static std::string Get(const std::string& actions = "") {
    return "GET /?printer=KOVA+whole&act=" + actions + " HTTP/1.1\r\n\r\n";
  }
  // What the extension answers `client` when it echoes.
  static std::string Echo(const TestClient& client, const std::string& request,
                          uint32_t keepOpen = 0) {
    return test::Echo(client.Address(), keepOpen, request);
  }
  // One connection whose request is echoed before the server closes it.
  void ExpectEcho(const std::string& request) {
    TestClient client(Port());
    ASSERT_TRUE(client.Send(request));
    EXPECT_EQ(client.ReceiveAll(), Echo(client, request));
    EXPECT_TRUE(client.ClosedByPeer());
    EXPECT_FALSE(client.ResetByPeer());
  }
  void ExpectBadRequest(const std::string& request,
                        const std::string& connection = "") {
    EXPECT_EQ(MaskDate(Ask(Port(), request)), BadRequest(connection))
        << request;
  }
  // Sends `bytes` and waits until the server has found them incomplete.
  void SendIncomplete(TestClient& client, const std::string& bytes) {
    m_capture.Take();
    ASSERT_TRUE(client.Send(bytes));
    ASSERT_TRUE(m_capture.WaitFor(kLooping, kClientPatienceMs)) << bytes;
  }

  // Asks for more than the client reads, and waits until the server has begun
  // to wait for that.
  void AskForMuch(TestClient& client) {
    m_capture.Take();
    ASSERT_TRUE(client.Send(Get("bytes-" + std::to_string(kEightMiB))));
    ASSERT_TRUE(m_capture.WaitFor(
        L"DetailInfoE Network_ClientThread::Run: WSAEWOULDBLOCK returned, "
        L"setting resend flag",
        kClientPatienceMs));
  }

  const ScopedLogMask m_mask{0xF0000000 | tk::kDebuggerShowsAll |
                             tk::Bits(tk::LogChannel::DetailInfoE) |
                             tk::Bits(tk::LogChannel::DetailInfoI)};
  TestExtension m_extension{L"scripted"};
  DemoPrinter m_printer{L"KOVA whole", L"kovaWhole"};
  ServerFixture m_server;
  LogCapture m_capture{m_server.Module()};
};

}  // namespace kova::test
