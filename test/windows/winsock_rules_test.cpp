// Whole: the system's Windows Sockets keep the rules that the server relies on.
// No code of the server runs here: what fails is the system. What the
// documentation leaves open is shown as "fact:", and nothing relies on it.
#include <array>
#include <iostream>
#include <string>

#include <gtest/gtest.h>

#include "base/handles.h"
#include "base/windows_api.h"
#include "net/winsock_session.h"

namespace {

using kova::UniqueSocket;
using kova::UniqueWsaEvent;
using kova::WinsockSession;

// For what must come, never waited out in a test that passes.
constexpr DWORD kSoonMs = 10000;
// For what must not come; a busy machine makes no test fail here.
constexpr DWORD kQuietMs = 50;
constexpr long kAll = FD_READ | FD_WRITE | FD_CLOSE;

void Tell(const char* fact, const std::string& what) {
  std::cout << "fact: " << fact << ": " << what << std::endl;
}

sockaddr_in Loopback(uint16_t port) {
  sockaddr_in address = {};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = ::htonl(INADDR_LOOPBACK);
  address.sin_port = port;
  return address;
}

// A connection, and the socket that it was accepted on.
class WinsockRules : public testing::Test {
 protected:
  WinsockRules() {
    WORD granted = 0;
    EXPECT_EQ(m_session.Open(&granted), 0);
    m_acceptEvent.Reset(::WSACreateEvent());
    m_event.Reset(::WSACreateEvent());
    m_listening.Reset(NewSocket());
    sockaddr_in address = Loopback(0);
    int bytes = sizeof(address);
    auto* const generic = reinterpret_cast<sockaddr*>(&address);
    EXPECT_EQ(::bind(m_listening.Get(), generic, bytes), 0);
    EXPECT_EQ(::listen(m_listening.Get(), SOMAXCONN), 0);
    EXPECT_EQ(::getsockname(m_listening.Get(), generic, &bytes), 0);
    EXPECT_EQ(
        ::WSAEventSelect(m_listening.Get(), m_acceptEvent.Get(), FD_ACCEPT), 0);
    m_port = address.sin_port;
  }

  static SOCKET NewSocket() {
    return ::WSASocketW(AF_INET, SOCK_STREAM, 0, nullptr, 0,
                        WSA_FLAG_OVERLAPPED);
  }

  void Connect() {
    const sockaddr_in address = Loopback(m_port);
    m_client.Reset(NewSocket());
    ASSERT_EQ(
        ::connect(m_client.Get(), reinterpret_cast<const sockaddr*>(&address),
                  sizeof(address)),
        0);
    ASSERT_EQ(
        ::WSAWaitForMultipleEvents(1, Event(m_acceptEvent), FALSE, kSoonMs, 0),
        WSA_WAIT_EVENT_0);
    ASSERT_EQ(Enumerate(m_listening, m_acceptEvent), FD_ACCEPT);
    m_accepted.Reset(
        ::WSAAccept(m_listening.Get(), nullptr, nullptr, nullptr, 0));
    ASSERT_TRUE(m_accepted.IsValid());
  }
  // A connection whose accepted end is watched; its first room is taken note
  // of.
  void ConnectAndSelect() {
    ASSERT_NO_FATAL_FAILURE(Connect());
    Select();
    EXPECT_EQ(Await(FD_WRITE) & FD_WRITE, FD_WRITE);
  }
  void Select() {
    ASSERT_EQ(::WSAEventSelect(m_accepted.Get(), m_event.Get(), kAll), 0);
  }

  static const WSAEVENT* Event(UniqueWsaEvent& event) {
    static WSAEVENT one;
    one = event.Get();
    return &one;
  }
  static long Enumerate(UniqueSocket& socket, UniqueWsaEvent& event) {
    WSANETWORKEVENTS found = {};
    EXPECT_EQ(::WSAEnumNetworkEvents(socket.Get(), event.Get(), &found), 0);
    return found.lNetworkEvents;
  }
  // What the accepted end is told of, until all of `wanted` has come.
  long Await(long wanted) {
    long events = 0;
    while ((events & wanted) != wanted &&
           ::WSAWaitForMultipleEvents(1, Event(m_event), FALSE, kSoonMs, 0) ==
               WSA_WAIT_EVENT_0) {
      events |= Enumerate(m_accepted, m_event);
    }
    return events;
  }
  // What it is told of meanwhile, where nothing is expected.
  long Meanwhile() {
    return ::WSAWaitForMultipleEvents(1, Event(m_event), FALSE, kQuietMs, 0) ==
                   WSA_WAIT_EVENT_0
               ? Enumerate(m_accepted, m_event)
               : 0;
  }

  void ClientSends(const std::string& text) {
    ASSERT_EQ(
        ::send(m_client.Get(), text.data(), static_cast<int>(text.size()), 0),
        static_cast<int>(text.size()));
  }
  // What was received, or minus the error.
  int Receive(uint32_t most) {
    std::array<char, 4096> bytes = {};
    WSABUF buffer = {most, bytes.data()};
    DWORD received = 0;
    DWORD flags = 0;
    return ::WSARecv(m_accepted.Get(), &buffer, 1, &received, &flags, nullptr,
                     nullptr) == 0
               ? static_cast<int>(received)
               : -::WSAGetLastError();
  }
  int Send(uint32_t bytes) {
    std::string text(bytes, 'x');
    WSABUF buffer = {bytes, text.data()};
    DWORD sent = 0;
    return ::WSASend(m_accepted.Get(), &buffer, 1, &sent, 0, nullptr,
                     nullptr) == 0
               ? static_cast<int>(sent)
               : -::WSAGetLastError();
  }
  void ResetByClient() {
    const linger now = {1, 0};
    ::setsockopt(m_client.Get(), SOL_SOCKET, SO_LINGER,
                 reinterpret_cast<const char*>(&now), sizeof(now));
    m_client.Reset();
  }

  WinsockSession m_session;
  UniqueWsaEvent m_acceptEvent;
  UniqueWsaEvent m_event;
  UniqueSocket m_listening;
  UniqueSocket m_client;
  UniqueSocket m_accepted;
  uint16_t m_port = 0;
};

TEST_F(WinsockRules, AReceiveThatLeavesSomethingIsFollowedByAnotherEvent) {
  ConnectAndSelect();
  ClientSends("ab");
  EXPECT_EQ(Await(FD_READ), FD_READ);
  EXPECT_EQ(Receive(1), 1);
  EXPECT_EQ(Await(FD_READ), FD_READ);
  EXPECT_EQ(Receive(1), 1);
  EXPECT_EQ(Meanwhile(), 0);
}

TEST_F(WinsockRules, AReceiveThatFindsNothingKeepsTheNextEventFromNobody) {
  ConnectAndSelect();
  EXPECT_EQ(Receive(1), -WSAEWOULDBLOCK);
  ClientSends("a");
  EXPECT_EQ(Await(FD_READ), FD_READ);
}

TEST_F(WinsockRules, SelectingTellsWhatHasHappenedBefore) {
  Connect();
  ClientSends("a");
  ASSERT_EQ(::shutdown(m_client.Get(), SD_SEND), 0);
  Select();
  EXPECT_EQ(Await(FD_READ | FD_WRITE) & (FD_READ | FD_WRITE),
            FD_READ | FD_WRITE);
}

TEST_F(WinsockRules, SelectingAgainLosesNothing) {
  ConnectAndSelect();
  ClientSends("a");
  Select();
  const long events = Await(FD_READ) | Meanwhile();
  EXPECT_EQ(events & ~FD_WRITE, FD_READ);
  Tell("room to write, selected again",
       (events & FD_WRITE) != 0 ? "is told again" : "is not told again");
}

TEST_F(WinsockRules, EnumeratingTakesTheEventBackTogetherWithItsRecord) {
  ConnectAndSelect();
  ClientSends("a");
  EXPECT_EQ(Await(FD_READ), FD_READ);
  EXPECT_EQ(Meanwhile(), 0);
  EXPECT_EQ(Enumerate(m_accepted, m_event), 0);
}

TEST_F(WinsockRules, RoomIsToldOfAfterASendThatFoundNoneAndOnlyThen) {
  ConnectAndSelect();
  EXPECT_EQ(Send(1), 1);
  EXPECT_EQ(Meanwhile(), 0);
  int sent = 0;
  while (sent >= 0) sent = Send(200000);
  EXPECT_EQ(sent, -WSAEWOULDBLOCK);
  std::string sink(1 << 20, 0);
  u_long readable = 1;
  ASSERT_EQ(::ioctlsocket(m_client.Get(), FIONBIO, &readable), 0);
  long events = 0;
  for (const ULONGLONG end = ::GetTickCount64() + kSoonMs;
       events == 0 && ::GetTickCount64() < end;) {
    while (::recv(m_client.Get(), sink.data(), static_cast<int>(sink.size()),
                  0) > 0) {
    }
    events = Meanwhile();
  }
  EXPECT_EQ(events, FD_WRITE);
}

TEST_F(WinsockRules, WhatIsAcceptedHasTheSelectionOfTheListener) {
  m_listening.Reset(NewSocket());
  sockaddr_in address = Loopback(0);
  int bytes = sizeof(address);
  auto* const generic = reinterpret_cast<sockaddr*>(&address);
  ASSERT_EQ(::bind(m_listening.Get(), generic, bytes), 0);
  ASSERT_EQ(::listen(m_listening.Get(), SOMAXCONN), 0);
  ASSERT_EQ(::getsockname(m_listening.Get(), generic, &bytes), 0);
  m_port = address.sin_port;
  ASSERT_EQ(::WSAEventSelect(m_listening.Get(), m_acceptEvent.Get(),
                             FD_ACCEPT | FD_READ),
            0);
  Connect();
  ClientSends("a");
  ASSERT_EQ(
      ::WSAWaitForMultipleEvents(1, Event(m_acceptEvent), FALSE, kSoonMs, 0),
      WSA_WAIT_EVENT_0);
  EXPECT_EQ(Enumerate(m_accepted, m_acceptEvent), FD_READ);
}

TEST_F(WinsockRules, AnAcceptedSocketNeverBlocksOnceItsEventsAreSelected) {
  ConnectAndSelect();
  EXPECT_EQ(Receive(1), -WSAEWOULDBLOCK);
}

TEST_F(WinsockRules, ACloseIsToldOnce) {
  ConnectAndSelect();
  ASSERT_EQ(::shutdown(m_client.Get(), SD_SEND), 0);
  EXPECT_EQ(Await(FD_CLOSE), FD_CLOSE);
  EXPECT_EQ(Receive(1), 0);
  EXPECT_EQ(Meanwhile(), 0);
}

// The documentation says both that a close is posted after all data is read and
// that one should look for data upon it.
TEST_F(WinsockRules, ACloseBehindDataIsToldWithOrAfterTheData) {
  ConnectAndSelect();
  ClientSends("a");
  ASSERT_EQ(::shutdown(m_client.Get(), SD_SEND), 0);
  const long first = Await(FD_READ);
  const long before = first | Meanwhile();
  Tell("a close behind data that is not read yet",
       (first & FD_CLOSE) != 0    ? "is told together with it"
       : (before & FD_CLOSE) != 0 ? "is told at once"
                                  : "is told once it is read");
  EXPECT_EQ(Receive(1), 1);
  if ((before & FD_CLOSE) == 0) EXPECT_EQ(Await(FD_CLOSE), FD_CLOSE);
  EXPECT_EQ(Meanwhile(), 0);
}

TEST_F(WinsockRules, AResetIsToldAsAClose) {
  ConnectAndSelect();
  ResetByClient();
  EXPECT_NE(Await(FD_CLOSE) & FD_CLOSE, 0);
  Tell("a receive after a reset gives", std::to_string(Receive(1)));
}

TEST_F(WinsockRules, AResetBehindDataIsToldAsAClose) {
  ConnectAndSelect();
  ClientSends("a");
  EXPECT_EQ(Await(FD_READ), FD_READ);
  ResetByClient();
  const long events = Await(FD_CLOSE);
  EXPECT_NE(events & FD_CLOSE, 0);
  Tell("a receive of data in front of a reset gives",
       std::to_string(Receive(1)));
}

TEST_F(WinsockRules, SuccessSaysNothingOfTheLastError) {
  ConnectAndSelect();
  ::WSASetLastError(WSAEWOULDBLOCK);
  EXPECT_EQ(Send(1), 1);
  Tell("the last error after a send that went well",
       ::WSAGetLastError() == WSAEWOULDBLOCK ? "is what it was" : "is another");
}

TEST_F(WinsockRules, WaitsNameTheFirstOfSeveralEvents) {
  const WSAEVENT both[] = {m_event.Get(), m_acceptEvent.Get()};
  for (const WSAEVENT event : both) ASSERT_TRUE(::WSASetEvent(event));
  EXPECT_EQ(::WSAWaitForMultipleEvents(2, both, FALSE, kSoonMs, FALSE),
            WSA_WAIT_EVENT_0);
}

TEST_F(WinsockRules, AnAddressIsWrittenWithItsPort) {
  sockaddr_in address = Loopback(::htons(5130));
  wchar_t text[64] = {};
  DWORD length = 64;
  ASSERT_EQ(::WSAAddressToStringW(reinterpret_cast<sockaddr*>(&address),
                                  sizeof(address), nullptr, text, &length),
            0);
  EXPECT_STREQ(text, L"127.0.0.1:5130");
}

TEST_F(WinsockRules, ASocketCanBeKeptFromChildren) {
  const auto handle = reinterpret_cast<HANDLE>(m_listening.Get());
  DWORD flags = 0;
  ASSERT_TRUE(::GetHandleInformation(handle, &flags));
  Tell("a new socket", (flags & HANDLE_FLAG_INHERIT) != 0
                           ? "is handed to children"
                           : "is not handed to children");
  ASSERT_TRUE(::SetHandleInformation(handle, HANDLE_FLAG_INHERIT, 0));
  ASSERT_TRUE(::GetHandleInformation(handle, &flags));
  EXPECT_EQ(flags & HANDLE_FLAG_INHERIT, 0u);
}

}  // namespace
