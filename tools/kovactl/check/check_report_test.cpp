// Unit: how a report reads.
#include "check/check_report.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <set>
#include <sstream>
#include <string_view>

namespace kova::ctl::check {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;

CheckReport Sound() {
  CheckReport report;
  report.library = "C:\\mine\\Corvane_V3_NetMon.dll";
  for (StepResult& step : report.steps) {
    step = {StepVerdict::kGood, "fine", 100};
  }
  report.steps[kOwnStep] = {StepVerdict::kLeftOut, "none given", 0};
  report.versions = {1, 0};
  report.seconds = 1.25;
  return report;
}

CheckReport WithEveryFlaw() {
  CheckReport report = Sound();
  for (int flaw = 0; flaw < static_cast<int>(kFlawCount); ++flaw) {
    report.findings.push_back(
        {{static_cast<Flaw>(flaw), Callee::kVersions,
          std::string(30, 'a') + " " + std::string(40, 'b') + " c d e f g h i"},
         {5, 6, 7, 8, 9}});
  }
  return report;
}

TEST(CheckReportTest, SaysLittleWhenAllIsWell) {
  const std::wstring text = ReportText(Sound());
  EXPECT_THAT(text, HasSubstr(L"Checked C:\\mine\\Corvane_V3_NetMon.dll\n\n"));
  EXPECT_THAT(text, HasSubstr(L"\n  ok       a small GET  "));
  EXPECT_THAT(text, Not(HasSubstr(L"--request")));
  EXPECT_TRUE(
      text.ends_with(L"\n\n0 faults, 0 warnings; 2,400 requests in 1.2 s.\n") ||
      text.ends_with(L"\n\n0 faults, 0 warnings; 2,400 requests in 1.3 s.\n"))
      << testing::PrintToString(text);
}

TEST(CheckReportTest, FitsEightyColumnsWithoutTrailingBlanks) {
  std::wistringstream lines(ReportText(WithEveryFlaw()));
  size_t count = 0;
  for (std::wstring line; std::getline(lines, line); ++count) {
    EXPECT_LE(line.size(), 80u) << testing::PrintToString(line);
    EXPECT_FALSE(line.ends_with(L' ')) << testing::PrintToString(line);
  }
  EXPECT_GT(count, 200u);
}

TEST(CheckReportTest, ShowsFaultsBeforeWarnings) {
  CheckReport report = Sound();
  report.findings.push_back({{Flaw::kFileName, Callee::kNone, "it is x"}, {0}});
  report.findings.push_back(
      {{Flaw::kZeroLength, Callee::kLength, ""}, {5, 6, 7, 8}});
  const std::wstring text = ReportText(report);
  EXPECT_LT(text.find(L"FAULT    The response's length is 0 [zero-length]"),
            text.find(L"WARNING  The file has another name [file-name]"));
  EXPECT_THAT(text, HasSubstr(L"\n  where  WSIE_GetResponseLength\n  in     a "
                              L"small GET, a GET without headers, a HEAD, and "
                              L"1 more\n"));
  EXPECT_THAT(text, HasSubstr(L"\n1 fault, 1 warning; "));
}

TEST(CheckReportTest, PointsToSharedStateAndCountsRestarts) {
  CheckReport report = Sound();
  report.findings.push_back(
      {{Flaw::kCrash, Callee::kCopy, ""},
       {StepCalled("interleave"), StepCalled("threads")}});
  report.restartCalls = 3;
  const std::wstring text = ReportText(report);
  EXPECT_THAT(text, HasSubstr(L"Not seen while requests came one at a time"));
  EXPECT_THAT(text, HasSubstr(L"\nIt called the restart routine 3 times, "));
  report.findings[0].steps = {5, StepCalled("threads")};
  EXPECT_THAT(ReportText(report), Not(HasSubstr(L"one at a time")));
}

TEST(CheckReportTest, LeavesUntriedStepsOut) {
  CheckReport report = Sound();
  for (size_t i = 8; i < kStepCount; ++i) report.steps[i] = {};
  const std::wstring text = ReportText(report);
  EXPECT_THAT(text, HasSubstr(std::to_wstring(kStepCount - 8) +
                              L" further steps not tried\n"));
  EXPECT_THAT(text, Not(HasSubstr(L"a posted form")));
}

TEST(CheckReportTest, TamesForeignText) {
  CheckReport report = Sound();
  report.findings.push_back(
      {{Flaw::kFileName, Callee::kNone, "it is \x1b[2J\xC2\x9B"}, {0}});
  const std::wstring text = ReportText(report);
  EXPECT_EQ(text.find(L'\x1b'), std::wstring::npos);
  EXPECT_THAT(text, HasSubstr(L"it is \xFFFD[2J\xFFFD"));
}

TEST(CheckReportTest, IsJsonForPrograms) {
  CheckReport report = Sound();
  report.findings.push_back(
      {{Flaw::kZeroLength, Callee::kLength, "d"}, {5, 6}});
  report.privateBytesGrowth = 4096;
  const nlohmann::ordered_json json = ReportJson(report);
  EXPECT_EQ(json["verdict"], "faults");
  EXPECT_EQ(json["faults"], 1);
  EXPECT_EQ(json["versions"], (std::vector<int>{1, 0}));
  EXPECT_EQ(json["privateBytesGrowth"], 4096);
  EXPECT_EQ(json["steps"].size(), kStepCount);
  EXPECT_EQ(json["steps"][5]["name"], "small");
  EXPECT_EQ(json["steps"][kOwnStep]["verdict"], "left out");
  EXPECT_EQ(json["findings"][0]["code"], "zero-length");
  EXPECT_EQ(json["findings"][0]["entry"], "WSIE_GetResponseLength");
  EXPECT_EQ(json["findings"][0]["steps"],
            (std::vector<std::string>{"small", "bare"}));
  EXPECT_EQ(ReportJson(Sound())["verdict"], "ok");
  EXPECT_TRUE(ReportJson(Sound())["privateBytesGrowth"].is_null());
  EXPECT_TRUE(ReportJson(Sound())["failure"].is_null());
  report.failure = Failure{ExitCode::kMissingFile, L"no library"};
  EXPECT_EQ(ReportJson(report)["verdict"], "failed");
  EXPECT_EQ(ReportJson(report)["failure"], "no library");
}

TEST(CheckReportTest, EveryFlawHasACodeOfItsOwnAndAdvice) {
  std::set<std::string> codes;
  for (int i = 0; i < static_cast<int>(kFlawCount); ++i) {
    const auto flaw = static_cast<Flaw>(i);
    const FlawKind& kind = KindOf(flaw);
    EXPECT_TRUE(codes.insert(kind.code).second) << kind.code;
    EXPECT_EQ(FlawWithCode(kind.code), flaw);
    for (const std::string_view text : {kind.client, kind.advice}) {
      EXPECT_TRUE(text.ends_with('.')) << kind.code;
    }
  }
  EXPECT_FALSE(FlawWithCode("no-such-code"));
}

TEST(CheckReportTest, StepsHaveNamesOfTheirOwnAndShortTitles) {
  std::set<std::string> names;
  for (const StepInfo& step : kSteps) {
    EXPECT_TRUE(names.insert(step.name).second) << step.name;
    EXPECT_LE(std::string_view(step.title).size(), 38u) << step.title;
  }
  EXPECT_STREQ(kSteps[kFirstRequestStep].name, "small");
  EXPECT_STREQ(kSteps[kOwnStep].name, "own");
  EXPECT_STREQ(kSteps[kEndStep].name, "end");
}

}  // namespace
}  // namespace kova::ctl::check
