// Unit: the shared debugger buffer of the system, read and written for real.
#include "logs/debug_buffer.h"

#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

namespace {

using ::kova::ctl::DebugBuffer;
using ::kova::ctl::DebugLine;
using ::kova::ctl::DebugScope;

constexpr DWORD kPatienceMs = 20'000;

// The lines of this process among the next ones, as many as asked for.
std::vector<DebugLine> TakeOwn(DebugBuffer& buffer, size_t count) {
  std::vector<DebugLine> lines;
  while (lines.size() < count &&
         ::WaitForSingleObject(buffer.LineReady(), kPatienceMs) ==
             WAIT_OBJECT_0) {
    DebugLine line = buffer.Take();
    if (line.processId == ::GetCurrentProcessId()) {
      lines.push_back(std::move(line));
    }
  }
  return lines;
}

TEST(DebugBufferTest, BringsLinesInOrder) {
  DebugBuffer buffer;
  ASSERT_EQ(buffer.Open(DebugScope::kSession), DWORD{ERROR_SUCCESS});
  std::thread writer([] {
    for (const wchar_t* text : {L"one", L"two\x20AC", L"three"}) {
      ::OutputDebugStringW(text);
    }
  });
  const std::vector<DebugLine> lines = TakeOwn(buffer, 3);
  writer.join();
  ASSERT_EQ(lines.size(), 3u);
  EXPECT_EQ(lines[0].text, L"one");
  EXPECT_EQ(lines[1].text, L"two\x20AC");
  EXPECT_EQ(lines[2].text, L"three");
}

TEST(DebugBufferTest, TellsThatALineWasCut) {
  DebugBuffer buffer;
  ASSERT_EQ(buffer.Open(DebugScope::kSession), DWORD{ERROR_SUCCESS});
  std::thread writer([] {
    ::OutputDebugStringA(std::string(4090, 'x').c_str());
    ::OutputDebugStringA(std::string(4092, 'y').c_str());
  });
  const std::vector<DebugLine> lines = TakeOwn(buffer, 2);
  writer.join();
  ASSERT_EQ(lines.size(), 2u);
  EXPECT_EQ(lines[0].text, std::wstring(4090, L'x'));
  EXPECT_FALSE(lines[0].isCut);
  EXPECT_EQ(lines[1].text, std::wstring(4091, L'y'));
  EXPECT_TRUE(lines[1].isCut);
}

TEST(DebugBufferTest, ToleratesNoSecondReader) {
  DebugBuffer first;
  ASSERT_EQ(first.Open(DebugScope::kSession), DWORD{ERROR_SUCCESS});
  DebugBuffer second;
  EXPECT_EQ(second.Open(DebugScope::kSession), DWORD{ERROR_ALREADY_EXISTS});
  EXPECT_FALSE(second.IsOpen());
  EXPECT_EQ(second.LineReady(), nullptr);
}

// A line that nobody took must not keep its writer, or the next one, waiting.
TEST(DebugBufferTest, LeavesNoWriterBehind) {
  std::thread writer;
  {
    DebugBuffer buffer;
    ASSERT_EQ(buffer.Open(DebugScope::kSession), DWORD{ERROR_SUCCESS});
    writer = std::thread([] {
      for (int i = 0; i < 3; ++i) ::OutputDebugStringW(L"nobody reads this");
    });
    ASSERT_EQ(::WaitForSingleObject(buffer.LineReady(), kPatienceMs),
              WAIT_OBJECT_0);
    static_cast<void>(buffer.Take());
  }
  const ULONGLONG start = ::GetTickCount64();
  writer.join();
  // A writer gives up after ten seconds.
  EXPECT_LT(::GetTickCount64() - start, 8'000u);
  DebugBuffer again;
  EXPECT_EQ(again.Open(DebugScope::kSession), DWORD{ERROR_SUCCESS});
}

}  // namespace
