// Unit: what every verb shares.
#include "common/verb.h"

#include <gtest/gtest.h>

#include <string>

#include "common/captured_output.h"

namespace {

using ::kova::ctl::AddJsonFlag;
using ::kova::ctl::EndVerb;
using ::kova::ctl::ExitCode;
using ::kova::ctl::Failure;
using ::kova::ctl::ShowJson;
using ::kova::ctl::ShowOutcome;
using ::kova::ctl::test::CapturedOutput;

TEST(Verb, WritesJsonInTheOrderItWasFilledWithIndentation) {
  CapturedOutput output;
  ShowJson({{"name", "b"}, {"list", {1, 2}}});
  ShowOutcome(L"the verb", 0, L"", 2);
  EXPECT_EQ(
      output.Finish(),
      "{\n  \"schema\": 1,\n  \"verb\": \"the verb\",\n  \"exitCode\": 0,"
      "\n  \"error\": null,\n  \"name\": \"b\",\n  \"list\": [\n    1,\n  "
      "  2\n  ]\n}\n");
}

TEST(Verb, WritesJsonOfBrokenTextRatherThanFailing) {
  CapturedOutput output;
  ShowJson({{"name", "a\xFF"}});
  ShowOutcome(L"v", 9, L"no", -1);
  EXPECT_EQ(output.Finish(),
            "{\"schema\":1,\"verb\":\"v\",\"exitCode\":9,\"error\":\"no\","
            "\"name\":\"a\xEF\xBF\xBD\"}\n");
}

TEST(Verb, EndsAFailedVerbWithItsCode) {
  EXPECT_NO_THROW(EndVerb(std::nullopt));
  try {
    EndVerb(Failure{ExitCode::kSpooler, L"the verb's own test"});
    FAIL() << "went on after a failure";
  } catch (const CLI::RuntimeError& error) {
    EXPECT_EQ(error.get_exit_code(), 8);
  }
}

TEST(Verb, TakesTheFlagForJson) {
  CLI::App app;
  bool json = false;
  AddJsonFlag(app, json);
  app.parse("--json");
  EXPECT_TRUE(json);
}

}  // namespace
