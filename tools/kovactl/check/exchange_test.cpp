// Unit: which bytes of an answer were not written, and which answer is wrong.
#include "check/exchange.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <memory>

#include "check/expected_answer.h"

namespace kova::ctl::check {
namespace {

TEST(CountUnwrittenTest, FindsEachByteThatHoldsBothFills) {
  EXPECT_EQ(CountUnwritten("abc", "abc"), 0u);
  EXPECT_EQ(CountUnwritten("\xA5"
                           "b\xA5",
                           "\x5A"
                           "b\xA5"),
            1u);
  EXPECT_EQ(CountUnwritten("ab\xA5", "ab\x5A"), 1u);
  EXPECT_EQ(CountUnwritten("", ""), 0u);
}

TEST(CountUnwrittenTest, ComparesEndsOfDifferentLengthsToo) {
  EXPECT_EQ(CountUnwritten("abc\xA5", "abcd\x5A"), 1u);
  EXPECT_EQ(CountUnwritten("\xA5"
                           "b",
                           "\x5A"
                           "bcd"),
            1u);
}

// What the extension below answers, one after the other; the last one again and
// again.
std::vector<std::string> g_answers;
std::atomic<size_t> g_asked{0};

KOVA_Response Handle(KOVA_Context, const void*, uint32_t, const wchar_t*,
                     uint32_t, uint32_t*) {
  return &g_answers[std::min(g_asked++, g_answers.size() - 1)];
}
uint32_t Length(KOVA_Context, KOVA_Response response) {
  return static_cast<uint32_t>(static_cast<std::string*>(response)->size());
}
int32_t Copy(KOVA_Context, KOVA_Response response, void* buffer,
             uint32_t lengthBytes) {
  std::memcpy(buffer, static_cast<std::string*>(response)->data(), lengthBytes);
  return 1;
}

struct AnswerRow {
  const char* name;
  std::vector<std::string> answers;  // alone, alone, the answer, asked again
  bool matches;
  bool wrong;
};

class ExpectedAnswerTest : public ::testing::TestWithParam<AnswerRow> {
 protected:
  // More than fits a stack.
  const std::unique_ptr<WorkerState> m_state = std::make_unique<WorkerState>();
  Reporter m_reporter{INVALID_HANDLE_VALUE};
};

TEST_P(ExpectedAnswerTest, TellsWrongFromChanging) {
  g_answers = GetParam().answers;
  g_asked = 0;
  Extension extension;
  extension.handle = &Handle;
  extension.length = &Length;
  extension.copy = &Copy;
  Exchange exchange(*m_state, 0, extension, m_reporter);
  const Request request{"GET / HTTP/1.1\r\n\r\n"};
  ExpectedAnswer expected(exchange, request);
  const Answer answer = exchange.Send(request);
  EXPECT_EQ(expected.Matches(answer), GetParam().matches);
  EXPECT_EQ(expected.IsWrong(exchange, answer), GetParam().wrong);
}

INSTANTIATE_TEST_SUITE_P(
    Answers, ExpectedAnswerTest,
    ::testing::Values(
        AnswerRow{"Same", {"a", "a", "a"}, true, false},
        AnswerRow{"Outlier", {"a", "a", "b", "a"}, false, true},
        AnswerRow{"Changed", {"a", "a", "b", "b"}, false, false},
        AnswerRow{"Date",
                  {"x\r\nDate: 1\r\n\r\n", "x\r\nDate: 2\r\n\r\n",
                   "x\r\nDate: 3\r\n\r\n"},
                  true,
                  false},
        AnswerRow{"Clock", {"12:59 a", "13:00 a", "13:1 a"}, true, false},
        AnswerRow{"ClockOutlier",
                  {"12:59 a", "13:00 a", "13:00 b", "13:01 a"},
                  false,
                  true},
        AnswerRow{"ClockAfterAll", {"1 a", "1 a", "2 a", "2 a"}, false, false},
        AnswerRow{"NeverTheSame", {"a", "b", "c"}, true, false}),
    [](const auto& row) { return row.param.name; });

}  // namespace
}  // namespace kova::ctl::check
