// Unit: the way of a line from the debugger output to the screen.
#include "run/line_pump.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "common/captured_output.h"
#include "run/debug_output_hook.h"

namespace {

using ::kova::ctl::ColorMode;
using ::kova::ctl::DebugOutputHook;
using ::kova::ctl::LinePump;
using ::kova::ctl::Output;
using ::kova::ctl::test::CapturedOutput;
using ::testing::ElementsAre;

class LinePumpTest : public ::testing::Test {
 protected:
  // Shows what is left and returns everything that was shown.
  std::string Shown() {
    m_pump.reset();
    return m_capture.Finish();
  }

  CapturedOutput m_capture;
  const Output m_output{STD_OUTPUT_HANDLE};
  std::optional<LinePump> m_pump{std::in_place, m_output, false};
};

TEST_F(LinePumpTest, ShowsLinesAndNoticesInOrder) {
  m_pump->PushLine(L"Info A::B: one");
  m_pump->PushNotice(L"two");
  m_pump->PushLine(L"Warning A::B: \x00E4\x20AC");
  EXPECT_EQ(Shown(),
            "Info        A::B: one\ntwo\n"
            "Warning     A::B: \xC3\xA4\xE2\x82\xAC\n");
}

TEST_F(LinePumpTest, RemembersTheErrors) {
  m_pump->PushLine(L"Error A::B: one");
  m_pump->PushLine(L"Warning A::B: Error two");
  m_pump->PushLine(L"Errors three");
  m_pump->PushLine(L"Error A::B: four");
  EXPECT_THAT(m_pump->ErrorLines(),
              ElementsAre(L"Error A::B: one", L"Error A::B: four"));
}

TEST_F(LinePumpTest, KeepsLinesOfSeveralThreadsApart) {
  {
    std::vector<std::jthread> threads;
    for (int thread = 0; thread < 4; ++thread) {
      threads.emplace_back([this] {
        for (int i = 0; i < 200; ++i) m_pump->PushLine(L"Info abc");
      });
    }
  }
  std::string expected;
  for (int i = 0; i < 800; ++i) expected += "Info        abc\n";
  EXPECT_EQ(Shown(), expected);
}

TEST_F(LinePumpTest, HearsWhatAModuleTellsTheDebugger) {
  {
    const DebugOutputHook hook(::GetModuleHandleW(nullptr), *m_pump);
    EXPECT_TRUE(hook.IsInstalled());
    ::OutputDebugStringW(L"Info heard");
  }
  ::OutputDebugStringW(L"Info not heard");
  EXPECT_EQ(Shown(), "Info        heard\n");
}

TEST_F(LinePumpTest, SaysWhenAModuleTellsTheDebuggerNothing) {
  const DebugOutputHook hook(::GetModuleHandleW(L"ntdll.dll"), *m_pump);
  EXPECT_FALSE(hook.IsInstalled());
}

TEST_F(LinePumpTest, ColoursAPipeOnlyWhenToldTo) {
  EXPECT_FALSE(m_output.TakesColor(ColorMode::kAuto));
  EXPECT_FALSE(m_output.TakesColor(ColorMode::kNever));
  EXPECT_TRUE(m_output.TakesColor(ColorMode::kAlways));
}

}  // namespace
