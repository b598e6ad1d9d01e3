// Whole: each call that the library makes fails once. For every function that
// it imports and every n, a scenario in which the n-th call of that function
// alone fails; then what clients and the log see, what is left behind, and a
// further start.
#include <gmock/gmock.h>

#include <algorithm>
#include <set>
#include <string_view>

#include "test/failing_calls/expectations.h"

namespace kova::test {
namespace {

using testing::IsEmpty;

// The waits of the library, scaled down by the scenario, and the client's.
constexpr uint64_t kMostMs = 10000;
// Of the system's own making, over all runs with one function.
constexpr int kHandleSlack = 6;
// Deliberate in the server: its logger's key stays open.
constexpr int kHandlesOfALife = 1;

class FailingCallsTest : public testing::TestWithParam<FailingFunction> {
 protected:
  static void SetUpTestSuite() {
    s_scenario = new FailureScenario;
    // What the system opens at its first use.
    for (int i = 0; i < 2; ++i) (void)s_scenario->Run({});
  }
  static void TearDownTestSuite() {
    delete s_scenario;
    s_scenario = nullptr;
  }
  void SetUp() override { ASSERT_TRUE(s_scenario->IsReady()); }

  static void ExpectClients(const Outcome& outcome, const char* allowed) {
    for (const Got got : {outcome.refused, outcome.routed, outcome.large,
                          outcome.afterRestart}) {
      const std::string letters = std::string("A") + allowed;
      EXPECT_NE(letters.find(Letter(got)), std::string::npos) << Letter(got);
    }
  }
  static void ExpectLines(const Outcome& outcome,
                          const std::vector<const wchar_t*>& allowed) {
    const std::set<std::wstring> lines(outcome.troubles.begin(),
                                       outcome.troubles.end());
    for (const std::wstring& line : lines) {
      const std::wstring text = line.substr(line.find(L' ') + 1);
      const bool known =
          std::ranges::any_of(allowed, [&text](const wchar_t* beginning) {
            return text.starts_with(beginning);
          });
      EXPECT_TRUE(known) << testing::PrintToString(line);
    }
  }

  static FailureScenario* s_scenario;
};

FailureScenario* FailingCallsTest::s_scenario = nullptr;

// Where one of these fails a thread is killed. The universal C runtime takes a
// reference to the library for each thread that it starts; that of a thread
// that is killed is never given back, and the library stays for the tests
// behind.
bool KeepsTheLibraryLoaded(std::string_view name) {
#if defined(_UCRT)
  return name == "ResumeThread" || name == "WSASetEvent";
#else
  return name.empty();
#endif
}

TEST_P(FailingCallsTest, LeavesTheServerAndItsHostWhole) {
  const FailingFunction& row = GetParam();
  if (KeepsTheLibraryLoaded(row.name)) {
    GTEST_SKIP() << "this C runtime keeps the library loaded";
  }
  int handlesLeft = 0;
  uint32_t runs = 0;
  for (uint32_t nth = 1;; ++nth) {
    SCOPED_TRACE(std::string(row.name) + ", call " + std::to_string(nth));
    const Outcome outcome =
        s_scenario->Run({row.name, nth, {row.result, row.lastError}});
    if (!outcome.failed) break;
    ++runs;
    ExpectClients(outcome, row.clients);
    ExpectLines(outcome, row.lines);
    EXPECT_LT(outcome.elapsedMs, kMostMs);
    EXPECT_TRUE(outcome.servesAgain);
    EXPECT_TRUE(outcome.unloaded);
    EXPECT_EQ(outcome.threadsLeft, 0);
    handlesLeft += outcome.handlesLeft;
    if (HasFailure()) break;
  }
  EXPECT_LE(handlesLeft,
            static_cast<int>(runs) * (kHandlesOfALife + row.lostHandles) +
                kHandleSlack);
  RecordProperty("runs", static_cast<int>(runs));
}

INSTANTIATE_TEST_SUITE_P(Imports, FailingCallsTest,
                         testing::ValuesIn(FailingFunctions()),
                         [](const auto& row) { return row.param.name; });

TEST(ImportListTest, EveryCallIsMadeToFailOrCannot) {
  std::set<std::string> known;
  for (const FailingFunction& row : FailingFunctions()) known.insert(row.name);
  for (const SoundFunctions& group : FunctionsThatDoNotFail()) {
    known.insert(group.names.begin(), group.names.end());
  }
  FailureScenario scenario;
  const Outcome outcome = scenario.Run({});
  EXPECT_EQ(outcome.refused, Got::kAnswer);
  EXPECT_EQ(outcome.routed, Got::kAnswer);
  EXPECT_EQ(outcome.large, Got::kAnswer);
  EXPECT_EQ(outcome.afterRestart, Got::kAnswer);
  EXPECT_THAT(outcome.troubles, IsEmpty());
  for (const auto& [name, calls] : scenario.Calls()) {
    EXPECT_TRUE(calls == 0 || known.contains(name)) << name;
  }
}

}  // namespace
}  // namespace kova::test
