// Unit: what a waiting user is told.
#include "common/wait_notice.h"

#include <gtest/gtest.h>

#include "base/handles.h"

namespace {

using ::kova::UniqueKernelHandle;
using ::kova::ctl::WaitNotice;

// Standard error as a pipe for its scope.
class CapturedErrors {
 public:
  CapturedErrors() : m_before(::GetStdHandle(STD_ERROR_HANDLE)) {
    ::CreatePipe(m_read.Receive(), m_write.Receive(), nullptr, 0);
    ::SetStdHandle(STD_ERROR_HANDLE, m_write.Get());
  }
  ~CapturedErrors() { ::SetStdHandle(STD_ERROR_HANDLE, m_before); }

  CapturedErrors(const CapturedErrors&) = delete;
  CapturedErrors& operator=(const CapturedErrors&) = delete;

  // The next piece that was written; waits for it.
  std::string Read() {
    char bytes[256];
    DWORD count = 0;
    ::ReadFile(m_read.Get(), bytes, sizeof(bytes), &count, nullptr);
    return std::string(bytes, count);
  }
  // What is left after the end of everything that writes.
  std::string Rest() {
    m_write.Reset();
    return Read();
  }

 private:
  const HANDLE m_before;  // weak
  UniqueKernelHandle m_read;
  UniqueKernelHandle m_write;
};

TEST(WaitNotice, IsSilentAboutWhatIsQuick) {
  CapturedErrors errors;
  {
    const WaitNotice notice(L"waiting for the test");
  }
  EXPECT_EQ(errors.Rest(), "");
}

TEST(WaitNotice, TellsWhatTakesLong) {
  CapturedErrors errors;
  {
    const WaitNotice notice(L"waiting for the test");
    EXPECT_EQ(errors.Read(), "kovactl: waiting for the test (2 s)\n");
  }
  EXPECT_EQ(errors.Rest(), "");
}

}  // namespace
