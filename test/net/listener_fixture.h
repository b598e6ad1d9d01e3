// What the tests of the listening server stand on.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "log/log_channel.h"
#include "test/net/test_server.h"
#include "test/net/windows_calls.h"
#include "test/support/fake_tick_count.h"
#include "test/support/log_capture.h"
#include "test/support/test_client.h"

namespace kova::test {

inline constexpr uint32_t kInfoMask = 0xE0000000;
inline constexpr DWORD kSoonMs = 10000;

// Lets tests see every line of the channels in `mask`: a clock far ahead of
// any other test's makes the logger read its mask.
class LoggingTest : public testing::Test {
 protected:
  explicit LoggingTest(uint32_t mask = kInfoMask)
      : m_mask(mask | tk::kDebuggerShowsAll), m_clock(s_nowMs += 100000) {}

  static inline uint64_t s_nowMs = uint64_t{1} << 40;
  const ScopedLogMask m_mask;
  const FakeTickCount m_clock;
  LogCapture m_log;
};

// A server on a port that the system chooses, and all it opens.
class ServerTest : public LoggingTest {
 protected:
  explicit ServerTest(uint32_t mask = kInfoMask) : LoggingTest(mask) {}
  // Whatever a test did, nothing is left when the server is gone.
  void TearDown() override {
    m_server.reset();
    EXPECT_TRUE(m_windows.AllThreadsEnd(kSoonMs));
    EXPECT_EQ(m_windows.OpenSockets(), 0u);
    EXPECT_EQ(m_windows.OpenEvents(), 0u);
    EXPECT_EQ(m_windows.OpenSessions(), 0);
    EXPECT_EQ(m_windows.OpenHandles(), 0u);
  }

  int Run() { return m_server->Run(0, 0, INADDR_LOOPBACK); }

  WindowsCalls m_windows;
  std::unique_ptr<TestServer> m_server = std::make_unique<TestServer>();
};

}  // namespace kova::test
