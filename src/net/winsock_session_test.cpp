// Patched: one reference to Windows Sockets.
#include "net/winsock_session.h"

#include <gtest/gtest.h>

#include "test/net/windows_calls.h"

namespace {

using kova::WinsockSession;
using kova::test::Call;
using kova::test::WindowsCalls;

class WinsockSessionTest : public testing::Test {
 protected:
  WindowsCalls m_windows;
  WORD m_granted = 0;
};

TEST_F(WinsockSessionTest, GivesItsReferenceBackAtTheEnd) {
  {
    WinsockSession session;
    EXPECT_EQ(session.Open(&m_granted), 0);
    EXPECT_EQ(m_granted, 0x0202);
    EXPECT_EQ(m_windows.OpenSessions(), 1);
  }
  EXPECT_EQ(m_windows.OpenSessions(), 0);
}

TEST_F(WinsockSessionTest, HoldsNothingBeforeItIsOpened) {
  {
    const WinsockSession session;
  }
  EXPECT_EQ(m_windows.Calls(Call::kCleanup), 0);
}

TEST_F(WinsockSessionTest, HoldsNothingAfterAFailure) {
  m_windows.Fail(Call::kStartup, 10092);
  {
    WinsockSession session;
    EXPECT_EQ(session.Open(&m_granted), 10092);
  }
  EXPECT_EQ(m_windows.Calls(Call::kCleanup), 0);
}

TEST_F(WinsockSessionTest, ClosesOnceAndMayBeOpenedAgain) {
  WinsockSession session;
  EXPECT_EQ(session.Open(&m_granted), 0);
  session.Close();
  session.Close();
  EXPECT_EQ(m_windows.Calls(Call::kCleanup), 1);
  EXPECT_EQ(session.Open(&m_granted), 0);
  EXPECT_EQ(session.Open(&m_granted), 0);
  EXPECT_EQ(m_windows.OpenSessions(), 1);
}

TEST_F(WinsockSessionTest, KeepsTheLastErrorWhileClosing) {
  WinsockSession session;
  EXPECT_EQ(session.Open(&m_granted), 0);
  ::SetLastError(1234);
  session.Close();
  EXPECT_EQ(::GetLastError(), 1234u);
}

}  // namespace
