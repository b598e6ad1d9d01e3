// Patched: one connection's event loop: sends and resends.
#include "test/net/connection_loop_fixture.h"

namespace {

using kova::test::ConnectionLoopTest;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;

std::string Pattern(size_t bytes) {
  std::string text(bytes, '\0');
  for (size_t i = 0; i < bytes; ++i) text[i] = static_cast<char>(i * 7 >> 2);
  return text;
}

class ConnectionLoopSendTest : public ConnectionLoopTest {
 protected:
  void RequestArrives(long otherEvents = 0) {
    m_socket.Wake(FD_READ | otherEvents);
    m_socket.Arrive("x.");
  }
  // The lines of one failed send and what follows from it.
  static std::wstring Blocked(const wchar_t* phase) {
    return E(std::wstring(phase) +
             L"SOCKET_ERROR returned by WSASend. WSAGetLastError: 0x2733");
  }

  const std::wstring m_armed =
      E(L"WSAEWOULDBLOCK returned, setting resend flag");
  const std::wstring m_armedAgain =
      E(L"WSAEWOULDBLOCK returned during resend, setting resend flag");
  const std::wstring m_primaryBlocked = Blocked(L"ParseRequest response: ");
  const std::wstring m_resendBlocked = Blocked(L"Resend Write: ");
};

struct Sizes {
  size_t length;
  std::vector<uint32_t> pieces;
};

class ConnectionLoopPieces : public ConnectionLoopSendTest,
                             public testing::WithParamInterface<Sizes> {};

TEST_P(ConnectionLoopPieces, HoldAtMostTwoHundredThousandBytes) {
  m_response = Pattern(GetParam().length);
  RequestArrives();
  EXPECT_EQ(Run(), 1u);
  EXPECT_THAT(m_socket.Pieces(), ElementsAreArray(GetParam().pieces));
  EXPECT_TRUE(m_socket.Sent() == m_response);
  EXPECT_THAT(m_host.m_sent,
              ElementsAre(static_cast<uint32_t>(m_response.size())));
  EXPECT_THAT(m_lines, ElementsAre(Woken(L"1"), Received(L"2")));
}

INSTANTIATE_TEST_SUITE_P(Boundaries, ConnectionLoopPieces,
                         testing::Values(Sizes{0, {}}, Sizes{1, {1}},
                                         Sizes{199999, {199999}},
                                         Sizes{200000, {200000}},
                                         Sizes{200001, {200000, 1}},
                                         Sizes{400000, {200000, 200000}},
                                         Sizes{400001, {200000, 200000, 1}}));

TEST_F(ConnectionLoopSendTest, APartialSendIsLoggedAndGoesOn) {
  m_response = Pattern(200020);
  m_socket.Take(0xAB);
  RequestArrives();
  EXPECT_EQ(Run(), 1u);
  EXPECT_THAT(m_lines,
              ElementsAre(Woken(L"1"), Received(L"2"),
                          E(L"ParseRequest response: Successfully sent "
                            L"partial buffer. Sent: 0xab bytes out of "
                            L"0x30d40")));
  EXPECT_THAT(m_socket.Pieces(), ElementsAre(200000u, 200020u - 0xAB));
  EXPECT_TRUE(m_socket.Sent() == m_response);
}

TEST_F(ConnectionLoopSendTest, AFailedSendEndsTheConnectionWithOne) {
  m_socket.SendFails(WSAECONNRESET);
  RequestArrives(FD_CLOSE);
  EXPECT_EQ(Run(), 1u);
  EXPECT_THAT(
      m_lines,
      ElementsAre(
          Woken(L"21"), Received(L"2"),
          E(L"ParseRequest response: SOCKET_ERROR returned by WSASend. "
            L"WSAGetLastError: 0x2746"),
          W(L"WSASend(...) failure. Primary Send. WSAGetLastError:10054")));
  EXPECT_THAT(m_host.m_sent, IsEmpty());
}

TEST_F(ConnectionLoopSendTest, AFailureAfterAPartialSendStopsThere) {
  m_response = Pattern(400000);
  m_socket.Take(200000);
  m_socket.SendFails(WSAECONNABORTED);
  RequestArrives();
  EXPECT_EQ(Run(), 1u);
  EXPECT_THAT(m_socket.Pieces(), ElementsAre(200000u, 200000u));
  EXPECT_EQ(m_lines.back(),
            W(L"WSASend(...) failure. Primary Send. WSAGetLastError:10053"));
}

TEST_F(ConnectionLoopSendTest, AFullSocketSkipsFdCloseAndResendsWhenWritable) {
  m_response = Pattern(450000);
  m_socket.Take(200000);
  m_socket.SendFails(WSAEWOULDBLOCK);
  RequestArrives(FD_WRITE | FD_CLOSE);
  m_socket.Wake(FD_WRITE);
  EXPECT_EQ(Run(), 1u);
  EXPECT_THAT(m_lines, ElementsAre(Woken(L"23"), Received(L"2"),
                                   m_primaryBlocked, m_armed, Woken(L"2")));
  EXPECT_THAT(m_socket.Pieces(),
              ElementsAre(200000u, 200000u, 200000u, 50000u));
  EXPECT_TRUE(m_socket.Sent() == m_response);
  EXPECT_THAT(m_host.m_sent, ElementsAre(450000u));
}

TEST_F(ConnectionLoopSendTest, AResendThatBlocksSkipsFdCloseAndWaitsAgain) {
  m_socket.SendFails(WSAEWOULDBLOCK);
  m_socket.Take(2);
  m_socket.SendFails(WSAEWOULDBLOCK);
  RequestArrives();
  m_socket.Wake(FD_WRITE | FD_CLOSE);
  m_socket.Wake(FD_WRITE);
  EXPECT_EQ(Run(), 1u);
  EXPECT_THAT(m_lines,
              ElementsAre(Woken(L"1"), Received(L"2"), m_primaryBlocked,
                          m_armed, Woken(L"22"),
                          E(L"Resend Write: Successfully sent partial buffer. "
                            L"Sent: 0x2 bytes out of 0x6"),
                          m_resendBlocked, m_armedAgain, Woken(L"2")));
  EXPECT_THAT(m_socket.Pieces(), ElementsAre(6u, 6u, 4u, 4u));
  EXPECT_EQ(m_socket.Sent(), "answer");
}

TEST_F(ConnectionLoopSendTest, AResendThatFailsEndsTheConnectionWithOne) {
  m_socket.SendFails(WSAEWOULDBLOCK);
  m_socket.SendFails(WSAECONNRESET);
  RequestArrives();
  m_socket.Wake(FD_WRITE | FD_CLOSE);
  EXPECT_EQ(Run(), 1u);
  EXPECT_THAT(m_lines,
              ElementsAre(Woken(L"1"), Received(L"2"), m_primaryBlocked,
                          m_armed, Woken(L"22"),
                          E(L"Resend Write: SOCKET_ERROR returned by WSASend. "
                            L"WSAGetLastError: 0x2746"),
                          W(L"SendFailure. Resend. WSAGetLastError:10054")));
  EXPECT_THAT(m_host.m_sent, IsEmpty());
}

TEST_F(ConnectionLoopSendTest, AResendOnAKeptConnectionEmptiesTheRequest) {
  m_keepOpen = 1;
  m_socket.SendFails(WSAEWOULDBLOCK);
  RequestArrives();
  m_socket.Wake(FD_WRITE);
  m_socket.Wake(FD_WRITE);
  m_socket.Wake(FD_READ);
  m_socket.Arrive("second.");
  EXPECT_EQ(Run(), 1u);
  EXPECT_THAT(m_requests, ElementsAre("x.", "second."));
  EXPECT_THAT(m_socket.Pieces(), ElementsAre(6u, 6u, 6u));
  EXPECT_THAT(m_host.m_sent, ElementsAre(6u, 6u));
}

TEST_F(ConnectionLoopSendTest, AResendOnAKeptConnectionGoesOnWithFdClose) {
  m_keepOpen = 1;
  m_socket.SendFails(WSAEWOULDBLOCK);
  RequestArrives();
  m_socket.Wake(FD_WRITE | FD_CLOSE);
  EXPECT_EQ(Run(), 1u);
  EXPECT_EQ(m_lines.back(), E(L"FD_CLOSE recieved exiting"));
  EXPECT_THAT(m_host.m_sent, ElementsAre(6u));
}

TEST_F(ConnectionLoopSendTest, AResendOnAClosingConnectionEndsBeforeFdClose) {
  m_socket.SendFails(WSAEWOULDBLOCK);
  RequestArrives();
  m_socket.Wake(FD_WRITE | FD_CLOSE);
  EXPECT_EQ(Run(), 1u);
  EXPECT_EQ(m_lines.back(), Woken(L"22"));
  EXPECT_THAT(m_host.m_sent, ElementsAre(6u));
}

TEST_F(ConnectionLoopSendTest, AnArmedResendWaitsOverWakeUpsWithoutFdWrite) {
  m_socket.SendFails(WSAEWOULDBLOCK);
  RequestArrives();
  m_socket.Wake(FD_CLOSE);
  EXPECT_EQ(Run(), 1u);
  EXPECT_THAT(m_socket.Pieces(), ElementsAre(6u));
  EXPECT_THAT(m_host.m_sent, IsEmpty());
}

TEST_F(ConnectionLoopSendTest, AStaleWouldBlockArmsAResendThatCompletesAtOnce) {
  m_leftError = WSAEWOULDBLOCK;
  RequestArrives(FD_WRITE | FD_CLOSE);
  m_socket.Wake(FD_WRITE);
  EXPECT_EQ(Run(), 1u);
  EXPECT_THAT(m_lines, ElementsAre(Woken(L"23"), Received(L"2"), m_armed));
  EXPECT_THAT(m_socket.Pieces(), ElementsAre(6u));
  EXPECT_THAT(m_host.m_sent, ElementsAre(6u));
  EXPECT_EQ(m_socket.WakeUpsLeft(), 1u);
}

TEST_F(ConnectionLoopSendTest, AResendThatCompletesAtOnceSkipsFdCloseToo) {
  m_keepOpen = 1;
  m_leftError = WSAEWOULDBLOCK;
  RequestArrives(FD_WRITE | FD_CLOSE);
  m_socket.Wake(FD_READ);
  m_socket.Arrive("second.");
  m_socket.Wake(FD_CLOSE);
  EXPECT_EQ(Run(), 1u);
  EXPECT_THAT(m_requests, ElementsAre("x.", "second."));
  EXPECT_THAT(m_host.m_sent, ElementsAre(6u, 6u));
  EXPECT_EQ(m_lines.back(), E(L"FD_CLOSE recieved exiting"));
}

// The rest of the first answer is lost, and the flag stays: what is received
// meanwhile is one request with the first, and its answer takes over.
TEST_F(ConnectionLoopSendTest,
       ARequestThatArrivesBeforeTheResendTakesItsPlace) {
  m_socket.Take(2);
  m_socket.SendFails(WSAEWOULDBLOCK);
  RequestArrives();
  m_socket.Wake(FD_READ | FD_WRITE);
  m_socket.Arrive("second.");
  EXPECT_EQ(Run(), 1u);
  EXPECT_THAT(m_requests, ElementsAre("x.", "x.second."));
  EXPECT_EQ(m_socket.Sent(), "ananswer");
  EXPECT_THAT(m_host.m_sent, ElementsAre(6u));
}

TEST_F(ConnectionLoopSendTest, AStaleErrorOfAnotherKindChangesNothing) {
  m_leftError = WSAECONNRESET;
  RequestArrives();
  EXPECT_EQ(Run(), 1u);
  EXPECT_THAT(m_lines, ElementsAre(Woken(L"1"), Received(L"2")));
  EXPECT_THAT(m_host.m_sent, ElementsAre(6u));
}

TEST_F(ConnectionLoopSendTest, AnEmptyResponseCountsAsSent) {
  m_response = "";
  RequestArrives();
  EXPECT_EQ(Run(), 1u);
  EXPECT_THAT(m_socket.Pieces(), IsEmpty());
  EXPECT_THAT(m_host.m_sent, ElementsAre(0u));
}

// Composing a line must not change the error that the next step reads.
TEST_F(ConnectionLoopSendTest, DecidesTheSameWithAndWithoutLogging) {
  const kova::test::ScopedLogMask silent(0);
  kova::test::FakeTickCount later(s_nowMs += 100000);
  m_socket.SendFails(WSAEWOULDBLOCK);
  m_socket.Wake(FD_READ);
  m_socket.Arrive("x.");
  m_socket.Wake(FD_WRITE);
  EXPECT_EQ(RunUnseen(), 1u);
  EXPECT_EQ(m_socket.Sent(), "answer");
  EXPECT_THAT(m_log.Lines(), IsEmpty());
}

}  // namespace
