// Patched: one event loop on a real connection whose client is slow to read.
// The patch only records the sizes that are sent.
#include <algorithm>
#include <atomic>
#include <optional>
#include <thread>

#include "test/net/connection_loop_fixture.h"
#include "test/support/import_patch.h"

namespace {

using kova::ByteBuffer;
using kova::ConnectionLoop;
using kova::UniqueSocket;
using kova::UniqueWsaEvent;
using kova::test::ImportPatch;
using kova::test::kInfoMask;
using kova::test::kSoonMs;
using kova::test::LoggingTest;
using kova::test::ScriptedHost;
using kova::test::TestClient;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Le;

// More than the buffers of both ends hold.
constexpr uint32_t kResponseBytes = 20000000;
constexpr DWORD kResponseMs = 60000;
constexpr wchar_t kArmed[] =
    L"DetailInfoE Network_ClientThread::Run: WSAEWOULDBLOCK returned, setting "
    L"resend flag";

char ByteAt(uint32_t position) {
  return static_cast<char>(position * 2654435761u >> 24);
}

uint32_t g_keepOpen;
std::vector<uint32_t> g_pieces;
decltype(::WSASend)* g_send;

int32_t Answer(const char* /*request*/, uint32_t /*lengthBytes*/,
               ByteBuffer& response, uint32_t* keepOpen,
               const OString& /*clientAddress*/) {
  response.ResizeDiscarding(kResponseBytes);
  for (uint32_t i = 0; i < kResponseBytes; ++i) response.Data()[i] = ByteAt(i);
  *keepOpen = g_keepOpen;
  return 1;
}

int WSAAPI RecordSend(SOCKET socket, LPWSABUF buffers, DWORD count,
                      LPDWORD sent, DWORD flags, LPWSAOVERLAPPED overlapped,
                      LPWSAOVERLAPPED_COMPLETION_ROUTINE routine) {
  g_pieces.push_back(buffers[0].len);
  return g_send(socket, buffers, count, sent, flags, overlapped, routine);
}

class BigResponse : public LoggingTest,
                    public testing::WithParamInterface<uint32_t> {
 protected:
  BigResponse() : LoggingTest(kInfoMask | 0x10) {
    g_keepOpen = GetParam();
    g_pieces.clear();
    g_send = m_sendPatch.Original();
  }
  void SetUp() override {
    ASSERT_TRUE(Connect());
    m_readEvent.Reset(::WSACreateEvent());
    m_stopEvent.Reset(::WSACreateEvent());
    ASSERT_EQ(::WSAEventSelect(m_served.Get(), m_readEvent.Get(),
                               FD_READ | FD_WRITE | FD_CLOSE),
              0);
    m_thread.emplace([this] {
      ConnectionLoop loop(m_host, m_served.Get(), m_readEvent.Get(),
                          m_stopEvent.Get(), m_stopping, m_address, &Answer);
      m_result = loop.Run();
    });
  }
  void TearDown() override {
    if (m_thread && m_thread->joinable()) Join();
  }

  bool Connect() {
    const UniqueSocket listener(::socket(AF_INET, SOCK_STREAM, 0));
    sockaddr_in address = kova::test::LoopbackAddress(0);
    int bytes = sizeof(address);
    auto* const name = reinterpret_cast<sockaddr*>(&address);
    if (::bind(listener.Get(), name, bytes) != 0) return false;
    if (::listen(listener.Get(), 1) != 0) return false;
    ::getsockname(listener.Get(), name, &bytes);
    m_client = std::make_unique<TestClient>(::ntohs(address.sin_port));
    m_served.Reset(::accept(listener.Get(), nullptr, nullptr));
    return m_served.IsValid();
  }
  unsigned Join() {
    ::WSASetEvent(m_stopEvent.Get());
    m_thread->join();
    return m_result;
  }
  // Reads one whole response; false if a byte is wrong or missing.
  [[nodiscard]] bool ReadResponse() {
    const std::string all = m_client->Receive(kResponseBytes, kResponseMs);
    for (uint32_t i = 0; i < all.size(); ++i) {
      if (all[i] != ByteAt(i)) return false;
    }
    return all.size() == kResponseBytes;
  }

  ScriptedHost m_host;  // the thread's until it has ended
  const OString m_address = "127.0.0.1:1";
  std::unique_ptr<TestClient> m_client;
  UniqueSocket m_served;
  UniqueWsaEvent m_readEvent;
  const std::atomic<bool> m_stopping{false};
  UniqueWsaEvent m_stopEvent;
  unsigned m_result = 99;
  std::optional<std::thread> m_thread;
  const ImportPatch<decltype(::WSASend)> m_sendPatch{nullptr, "WSASend",
                                                     &RecordSend};
};

TEST_P(BigResponse, IsSentOnAsTheClientReads) {
  ASSERT_TRUE(m_client->Send("x."));
  ASSERT_TRUE(m_log.WaitFor(kArmed, kSoonMs));
  EXPECT_TRUE(ReadResponse());
  EXPECT_EQ(Join(), 1u);
  EXPECT_THAT(m_host.m_sent, ElementsAre(kResponseBytes));
  EXPECT_THAT(g_pieces, Each(Le(200000u)));
  EXPECT_GT(std::count(g_pieces.begin(), g_pieces.end(), 200000u), 2);
}

TEST_P(BigResponse, EndsWithAnUnreadResponseWhenToldToStop) {
  ASSERT_TRUE(m_client->Send("x."));
  ASSERT_TRUE(m_log.WaitFor(kArmed, kSoonMs));
  EXPECT_EQ(Join(), 1u);
  EXPECT_THAT(m_host.m_sent, IsEmpty());
}

TEST_P(BigResponse, EndsWhenTheClientLeavesWithoutReading) {
  ASSERT_TRUE(m_client->Send("x."));
  ASSERT_TRUE(m_log.WaitFor(kArmed, kSoonMs));
  m_client->Close();
  m_thread->join();
  EXPECT_EQ(m_result, 1u);
  EXPECT_THAT(m_host.m_sent, IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(KeepOpen, BigResponse, testing::Values(0u, 1u));

class KeptConnection : public BigResponse {};

TEST_P(KeptConnection, GetsTheNextBigResponseToo) {
  for (int i = 0; i < 2; ++i) {
    m_log.Take();
    ASSERT_TRUE(m_client->Send("x."));
    ASSERT_TRUE(m_log.WaitFor(kArmed, kSoonMs));
    EXPECT_TRUE(ReadResponse());
  }
  EXPECT_EQ(Join(), 1u);
  EXPECT_THAT(m_host.m_sent, ElementsAre(kResponseBytes, kResponseBytes));
}

INSTANTIATE_TEST_SUITE_P(KeepOpen, KeptConnection, testing::Values(1u));

}  // namespace
