// Patched: one connection's event loop: waits, receives, ends.
#include "test/net/connection_loop_fixture.h"

namespace {

using kova::test::ConnectionLoopTest;
using testing::ElementsAre;
using testing::IsEmpty;

using Malloc = void*(size_t);

Malloc* g_malloc = nullptr;
int g_receiveBuffers = 0;

void* CountReceiveBuffers(size_t bytes) {
  if (bytes == 0x4000) ++g_receiveBuffers;
  return g_malloc(bytes);
}

// Counts the receive buffers that a run takes.
class ReceiveBufferTest : public ConnectionLoopTest {
 protected:
  ReceiveBufferTest() : m_patch(nullptr, "malloc", &CountReceiveBuffers) {
    g_malloc = m_patch.Original();
    g_receiveBuffers = 0;
  }

 private:
  const kova::test::ImportPatch<Malloc> m_patch;
};

TEST_F(ReceiveBufferTest, ASilentConnectionHasNone) {
  m_socket.Wake(FD_WRITE);
  EXPECT_EQ(Run(), 1u);
  EXPECT_EQ(g_receiveBuffers, 0);
}

TEST_F(ReceiveBufferTest, EverythingIsReceivedIntoOne) {
  m_socket.Wake(FD_READ);
  m_socket.Arrive("x");
  m_socket.Wake(FD_READ);
  m_socket.Arrive("y.");
  EXPECT_EQ(Run(), 1u);
  EXPECT_EQ(g_receiveBuffers, 1);
  EXPECT_THAT(m_requests, ElementsAre("xy."));
}

TEST_F(ConnectionLoopTest, EndsWithZeroWhenTheWaitFails) {
  m_socket.WaitGives(WSA_WAIT_FAILED);
  EXPECT_EQ(Run(), 0u);
  EXPECT_THAT(m_lines, IsEmpty());
}

// A peer that never stops sending has its read event set at every wait.
TEST_F(ConnectionLoopTest, EndsWithOneWhenToldToThoughThereIsSomethingToRead) {
  m_stopping = true;
  m_socket.Wake(FD_READ);
  m_socket.Arrive("x.");
  m_socket.Wake(FD_READ);
  EXPECT_EQ(Run(), 1u);
  EXPECT_THAT(m_lines, IsEmpty());
  EXPECT_THAT(m_requests, IsEmpty());
}

TEST_F(ConnectionLoopTest, EndsWithZeroWhenTheWaitFailsWhileItIsToldToEnd) {
  m_stopping = true;
  m_socket.WaitGives(WSA_WAIT_FAILED);
  EXPECT_EQ(Run(), 0u);
}

TEST_F(ConnectionLoopTest, EndsWithOneAfterSilence) {
  m_socket.WaitGives(WSA_WAIT_TIMEOUT);
  EXPECT_EQ(Run(), 1u);
  EXPECT_THAT(m_lines, IsEmpty());
}

TEST_F(ConnectionLoopTest, EndsWithOneWhenToldToStop) {
  m_socket.WaitGives(WSA_WAIT_EVENT_0 + 1);
  EXPECT_EQ(Run(), 1u);
  EXPECT_THAT(m_lines, IsEmpty());
}

TEST_F(ConnectionLoopTest, WaitsWithoutLimitForATimeoutOfZero) {
  m_host.m_timeoutMs = 0;
  EXPECT_EQ(Run(), 1u);
  EXPECT_THAT(m_socket.Timeouts(), ElementsAre(WSA_INFINITE));
}

TEST_F(ConnectionLoopTest, WaitsAsLongAsTheServerSays) {
  m_host.m_timeoutMs = 1;
  m_socket.Wake(FD_WRITE);
  EXPECT_EQ(Run(), 1u);
  EXPECT_THAT(m_socket.Timeouts(), ElementsAre(1u, 1u));
}

TEST_F(ConnectionLoopTest, ReadsTheTimeoutBeforeEachWait) {
  m_host.m_timeoutMs = 300000;
  m_response = "";
  m_keepOpen = 1;
  m_socket.Wake(FD_READ);
  m_socket.Arrive("x.");
  EXPECT_EQ(Run(), 1u);
  m_host.m_timeoutMs = 0;
  EXPECT_EQ(Run(), 1u);
  EXPECT_THAT(m_socket.Timeouts(), ElementsAre(300000u, 300000u, WSA_INFINITE));
}

TEST_F(ConnectionLoopTest, WaitsAgainWhenEventsCannotBeEnumerated) {
  m_socket.WakeAndFail(WSAENETDOWN);
  EXPECT_EQ(Run(), 1u);
  EXPECT_THAT(m_lines,
              ElementsAre(E(L"WSAEnumNetworkEvents returned: 0xffffffff "
                            L"Network Events: 0x20")));
  EXPECT_EQ(m_socket.Timeouts().size(), 2u);
}

TEST_F(ConnectionLoopTest, WaitsAgainWhenNothingHappened) {
  m_socket.Wake(0);
  EXPECT_EQ(Run(), 1u);
  EXPECT_THAT(m_lines, ElementsAre(Woken(L"0")));
  EXPECT_EQ(m_socket.Timeouts().size(), 2u);
}

TEST_F(ConnectionLoopTest, ASocketThatIsWritableWithNothingToSendIsLeftAlone) {
  m_socket.Wake(FD_WRITE);
  EXPECT_EQ(Run(), 1u);
  EXPECT_THAT(m_lines, ElementsAre(Woken(L"2")));
  EXPECT_THAT(m_socket.Pieces(), IsEmpty());
}

TEST_F(ConnectionLoopTest, EndsWithOneWhenThePeerHasClosed) {
  m_socket.Wake(FD_CLOSE);
  m_socket.Wake(FD_READ);
  EXPECT_EQ(Run(), 1u);
  EXPECT_THAT(m_lines,
              ElementsAre(Woken(L"20"), E(L"FD_CLOSE recieved exiting")));
  EXPECT_EQ(m_socket.WakeUpsLeft(), 1u);
}

TEST_F(ConnectionLoopTest, AnswersAWholeRequestAndEndsWithOne) {
  m_socket.Wake(FD_READ);
  m_socket.Arrive("hello.");
  EXPECT_EQ(Run(), 1u);
  EXPECT_THAT(m_lines, ElementsAre(Woken(L"1"), Received(L"6")));
  EXPECT_THAT(m_requests, ElementsAre("hello."));
  EXPECT_THAT(m_addresses, ElementsAre("1.2.3.4:5678"));
  EXPECT_EQ(m_socket.Sent(), "answer");
  EXPECT_THAT(m_host.m_sent, ElementsAre(6u));
}

TEST_F(ConnectionLoopTest, EndsBeforeFdCloseOnceTheResponseIsSent) {
  m_socket.Wake(FD_READ | FD_WRITE | FD_CLOSE);
  m_socket.Arrive("x.");
  EXPECT_EQ(Run(), 1u);
  EXPECT_THAT(m_lines, ElementsAre(Woken(L"23"), Received(L"2")));
}

TEST_F(ConnectionLoopTest, AnswersASplitRequestAfterItsLastSegment) {
  for (const char* segment : {"a", "bc", "d."}) {
    m_socket.Wake(FD_READ);
    m_socket.Arrive(segment);
  }
  EXPECT_EQ(Run(), 1u);
  const std::wstring looping =
      E(L"HTTPRequest::IsComplete returned false, looping");
  EXPECT_THAT(m_lines, ElementsAre(Woken(L"1"), Received(L"1"), looping,
                                   Woken(L"1"), Received(L"2"), looping,
                                   Woken(L"1"), Received(L"2")));
  EXPECT_THAT(m_requests, ElementsAre("abcd."));
}

TEST_F(ConnectionLoopTest, AnIncompleteRequestSkipsFdCloseOfItsWakeUp) {
  m_socket.Wake(FD_READ | FD_CLOSE);
  m_socket.Arrive("half");
  EXPECT_EQ(Run(), 1u);
  EXPECT_THAT(
      m_lines,
      ElementsAre(Woken(L"21"), Received(L"4"),
                  E(L"HTTPRequest::IsComplete returned false, looping")));
  EXPECT_EQ(m_socket.Timeouts().size(), 2u);
}

TEST_F(ConnectionLoopTest, ReceivesAtMostSixteenKilobytesAtOnce) {
  const std::string big(0x4001, 'x');
  m_socket.Wake(FD_READ);
  m_socket.Wake(FD_READ);
  m_socket.Arrive(big);
  m_socket.Arrive(".");
  EXPECT_EQ(Run(), 1u);
  EXPECT_EQ(m_lines.at(1), Received(L"4000"));
  ASSERT_EQ(m_requests.size(), 1u);
  EXPECT_TRUE(m_requests[0] == std::string(0x4000, 'x') + ".");
}

TEST_F(ConnectionLoopTest, KeepsEmbeddedZerosOfARequest) {
  m_socket.Wake(FD_READ);
  m_socket.Arrive(std::string("a\0b\0.", 5));
  EXPECT_EQ(Run(), 1u);
  EXPECT_THAT(m_requests, ElementsAre(std::string("a\0b\0.", 5)));
}

TEST_F(ConnectionLoopTest, PipelinedRequestsGoToTheHandlerAsOne) {
  m_keepOpen = 1;
  m_socket.Wake(FD_READ);
  m_socket.Arrive("one.two.");
  m_socket.Wake(FD_READ);
  m_socket.Arrive("three.");
  EXPECT_EQ(Run(), 1u);
  EXPECT_THAT(m_requests, ElementsAre("one.two.", "three."));
}

TEST_F(ConnectionLoopTest, LooksForTheEndOfEachRequestOfAConnectionAnew) {
  m_keepOpen = 1;
  const std::string longer = "POST / HTTP/1.1\nContent-Length: 1\n\nx";
  const std::string shorter = "GET /\n\n";
  for (const std::string& request : {longer, shorter}) {
    m_socket.Wake(FD_READ);
    m_socket.Arrive(request.substr(0, 6));
    m_socket.Wake(FD_READ);
    m_socket.Arrive(request.substr(6));
  }
  m_host.m_isHttp = true;
  EXPECT_EQ(Run(), 1u);
  EXPECT_THAT(m_requests, ElementsAre(longer, shorter));
}

TEST_F(ConnectionLoopTest, AFailedReceiveIsLoggedAndTheClosePasses) {
  m_socket.Wake(FD_READ | FD_CLOSE);
  m_socket.ReceiveFails(WSAECONNRESET);
  EXPECT_EQ(Run(), 1u);
  EXPECT_THAT(m_lines,
              ElementsAre(Woken(L"21"),
                          E(L"WSARecv returned 0xffffffff bytesReceived: 0x0"),
                          W(L"WSARecv(...) failure. WSAGetLastError:10054"),
                          E(L"FD_CLOSE recieved exiting")));
}

TEST_F(ConnectionLoopTest, AnEmptyReceiveIsLoggedAndDoesNotEndTheConnection) {
  m_socket.Wake(FD_READ);
  m_socket.Arrive("");
  m_socket.Wake(FD_READ);
  m_socket.Arrive("x.");
  EXPECT_EQ(Run(), 1u);
  EXPECT_THAT(m_lines,
              ElementsAre(Woken(L"1"), Received(L"0"),
                          W(L"WSARecv(...) failure. WSAGetLastError:0"),
                          Woken(L"1"), Received(L"2")));
  EXPECT_THAT(m_requests, ElementsAre("x."));
}

TEST_F(ConnectionLoopTest, ARequestWithoutAnAnswerEndsItWithZero) {
  m_answers = false;
  m_socket.Wake(FD_READ | FD_CLOSE);
  m_socket.Arrive("x.");
  EXPECT_EQ(Run(), 0u);
  EXPECT_THAT(m_lines, ElementsAre(Woken(L"21"), Received(L"2"),
                                   W(L"ParseRequest failed")));
  EXPECT_THAT(m_socket.Pieces(), IsEmpty());
  EXPECT_THAT(m_host.m_sent, IsEmpty());
}

TEST_F(ConnectionLoopTest, AKeptConnectionStartsTheNextRequestAfresh) {
  m_keepOpen = 1;
  m_socket.Wake(FD_READ);
  m_socket.Wake(FD_READ);
  m_socket.Arrive("first.");
  m_socket.Arrive("second.");
  EXPECT_EQ(Run(), 1u);
  EXPECT_THAT(m_requests, ElementsAre("first.", "second."));
  EXPECT_EQ(m_socket.Sent(), "answeranswer");
  EXPECT_THAT(m_host.m_sent, ElementsAre(6u, 6u));
}

TEST_F(ConnectionLoopTest, AKeptConnectionGoesOnWithFdCloseOfItsWakeUp) {
  m_keepOpen = 7;
  m_socket.Wake(FD_READ | FD_CLOSE);
  m_socket.Arrive("x.");
  EXPECT_EQ(Run(), 1u);
  EXPECT_THAT(m_lines, ElementsAre(Woken(L"21"), Received(L"2"),
                                   E(L"FD_CLOSE recieved exiting")));
}

TEST_F(ConnectionLoopTest, TheKeepOpenFlagStartsAtZeroAndStaysAsItWasSet) {
  m_keepOpen = 7;
  m_socket.Wake(FD_READ);
  m_socket.Arrive("a.");
  m_socket.Wake(FD_READ);
  m_socket.Arrive("b.");
  m_socket.Wake(FD_READ);
  m_socket.Arrive("c.");
  EXPECT_EQ(Run(), 1u);
  EXPECT_THAT(m_flags, ElementsAre(0u, 7u, 7u));
}

TEST_F(ConnectionLoopTest, TellsOfTrafficInBytes) {
  m_response.assign(1536, 'r');
  m_socket.Wake(FD_READ);
  m_socket.Arrive("x");
  m_socket.Wake(FD_READ);
  m_socket.Arrive(std::string(511, 'x') + ".");
  EXPECT_EQ(Run(), 1u);
  EXPECT_THAT(m_host.m_received, ElementsAre(1u, 512u));
  EXPECT_THAT(m_host.m_sent, ElementsAre(1536u));
}

}  // namespace
