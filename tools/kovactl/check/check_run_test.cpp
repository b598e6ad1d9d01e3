// Whole: extensions with one fault each, and sound ones, in real workers.
#include "check/check_run.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <ostream>

#include "common/file_path.h"

namespace kova::ctl::check {

// How the name of a row appears in a failure.
static void PrintTo(const Severity& severity, std::ostream* out) {
  *out << (severity == Severity::kFault ? "fault" : "warning");
}

namespace {

using ::testing::Contains;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

struct Row {
  const wchar_t* fault;  // for KOVA_FAULT
  const char* code;
  Callee callee = Callee::kNone;
  const char* detail = "";
  Severity severity = Severity::kFault;
  const wchar_t* folder = L"";
};

CheckOptions Options(const std::wstring& folder) {
  CheckOptions options;
  options.library = FullPath(ProgramFolder() + L"\\..\\bin\\" + folder +
                             L"\\Corvane_V3_NetMon.dll");
  options.program = FullPath(ProgramFolder() + L"\\..\\bin\\kovactl.exe");
  options.requests = 200;
  options.timeoutSeconds = 2;
  options.mostDeaths = 1;
  return options;
}

CheckReport CheckFaulty(const Row& row) {
  ::SetEnvironmentVariableW(L"KOVA_FAULT", row.fault);
  CheckReport report =
      CheckExtension(Options(std::wstring(L"faulty-extension") + row.folder),
                     [](size_t, uint64_t) {});
  ::SetEnvironmentVariableW(L"KOVA_FAULT", nullptr);
  return report;
}

// The finding of the row is there, and nothing else is.
void ExpectFound(const Row& row) {
  SCOPED_TRACE(testing::PrintToString(std::wstring(row.fault) + row.folder));
  const CheckReport report = CheckFaulty(row);
  EXPECT_FALSE(report.failure);
  ASSERT_EQ(report.findings.size(), 1u)
      << testing::PrintToString(ReportText(report));
  const Finding& found = report.findings.front().finding;
  EXPECT_STREQ(KindOf(found.flaw).code, row.code);
  EXPECT_EQ(KindOf(found.flaw).severity, row.severity);
  EXPECT_EQ(found.callee, row.callee) << CalleeName(found.callee);
  EXPECT_THAT(found.detail, HasSubstr(row.detail));
  EXPECT_FALSE(report.findings.front().steps.empty());
}

template <size_t Size>
void ExpectAllFound(const Row (&rows)[Size]) {
  for (const Row& row : rows) ExpectFound(row);
}

constexpr Severity kWarning = Severity::kWarning;
constexpr Severity kFault = Severity::kFault;

TEST(CheckRunTest, MissesEachExport) {
  const Row kRows[] = {
      {L"", "missing-export", Callee::kVersions, "unloads the library", kFault,
       L"\\no-GetInterfaceVersionsSupported"},
      {L"", "missing-optional-export", Callee::kSetRestart, "", kWarning,
       L"\\no-SetKOVAServerRestartRoutine"},
      {L"", "missing-optional-export", Callee::kInitialize, "", kWarning,
       L"\\no-WebServerInitialize"},
      {L"", "missing-export", Callee::kHandle, "every client gets 400", kFault,
       L"\\no-HandleServerRequest"},
      {L"", "missing-export", Callee::kLength, "every client gets 400", kFault,
       L"\\no-GetResponseLength"},
      {L"", "missing-export", Callee::kCopy, "every client gets 400", kFault,
       L"\\no-GetResponse"},
  };
  ExpectAllFound(kRows);
}

// Nothing is given back, which shows in the memory, too.
TEST(CheckRunTest, MissesTheReleaseAndItsEffect) {
  const CheckReport report = CheckFaulty(
      {L"", "", Callee::kNone, "", kFault, L"\\no-ReleaseResponse"});
  ASSERT_EQ(report.findings.size(), 2u);
  EXPECT_EQ(report.findings[0].finding.flaw, Flaw::kMissingExport);
  EXPECT_EQ(report.findings[0].finding.callee, Callee::kRelease);
  EXPECT_EQ(report.findings[1].finding.flaw, Flaw::kMemoryGrowth);
}

TEST(CheckRunTest, FindsFaultsWhileLoading) {
  const Row kRows[] = {
      {L"no-version", "no-version-1", Callee::kVersions,
       "offered: 2 0 0 0 0 0 0 0 0 0"},
      {L"unwritten-versions", "no-version-1", Callee::kVersions,
       "offered: 0 0 0 0 0 0 0 0 0 0"},
      {L"many-versions", "versions-overrun", Callee::kVersions, "10 entries"},
      {L"null-context", "null-context", Callee::kInitialize},
      {L"slow-initialize", "slow-initialize", Callee::kInitialize, " ms",
       kWarning},
  };
  ExpectAllFound(kRows);
}

TEST(CheckRunTest, FindsMissingAnswersAndCopies) {
  const Row kRows[] = {
      {L"refuses-post", "refused-request", Callee::kHandle, "", kWarning},
      {L"zero-length", "zero-length", Callee::kLength},
      {L"changing-length", "changing-length", Callee::kLength, ", then "},
      {L"failing-copy", "copy-failed", Callee::kCopy},
      {L"copies-past", "copy-overrun", Callee::kCopy, "the buffer has "},
      {L"copies-before", "copy-underrun", Callee::kCopy},
  };
  ExpectAllFound(kRows);
}

TEST(CheckRunTest, FindsWhatArgumentsMustNotBearAndFlagsMustNotHold) {
  const Row kRows[] = {
      {L"writes-request", "request-written", Callee::kHandle, "offset "},
      {L"reads-past", "request-overread", Callee::kHandle},
      {L"writes-address", "address-written", Callee::kHandle, "offset 28"},
      {L"reads-address", "address-overread", Callee::kHandle, "", kWarning},
      {L"wide-flag", "keep-open-overrun", Callee::kHandle},
      {L"kept-unmeasured", "keep-open-without-length", Callee::kCopy},
      {L"sticky-flag", "connection-disagrees", Callee::kCopy, "\"close\"",
       kWarning},
  };
  ExpectAllFound(kRows);
}

TEST(CheckRunTest, FindsMalformedAnswers) {
  const Row kRows[] = {
      {L"garbage", "status-line", Callee::kCopy, "\"%PDF-1.4 "},
      {L"short", "status-line", Callee::kCopy, "\"HTTP/1.1 2\""},
      {L"bad-header", "header-line", Callee::kCopy, "\"X Y: z\""},
      {L"bare-lf", "line-end", Callee::kCopy, "ends with LF alone"},
      {L"endless-headers", "no-empty-line", Callee::kCopy},
      {L"unmeasured", "no-content-length", Callee::kCopy, "2 bytes", kWarning},
      {L"odd-length", "content-length-text", Callee::kCopy, "\"ten\""},
      {L"bad-chunks", "chunks", Callee::kCopy},
      {L"body-204", "forbidden-body", Callee::kCopy, "status 204"},
      {L"body-head", "head-body", Callee::kCopy, "", kWarning},
  };
  for (const Row& row : kRows) {
    SCOPED_TRACE(row.code);
    const CheckReport report = CheckFaulty(row);
    const auto found = std::ranges::find_if(
        report.findings, [&](const ReportedFinding& other) {
          return std::string(row.code) == KindOf(other.finding.flaw).code;
        });
    ASSERT_NE(found, report.findings.end());
    EXPECT_THAT(found->finding.detail, HasSubstr(row.detail));
    EXPECT_EQ(report.Count(row.severity), 1u);
  }
}

TEST(CheckRunTest, TellsTheTwoWrongLengthsApart) {
  const Row kRows[] = {
      {L"long-length", "content-length-wrong", Callee::kCopy,
       "says 3, the body has 2 bytes"},
      {L"short-length", "content-length-wrong", Callee::kCopy,
       "says 1, the body has 2 bytes"},
  };
  for (const Row& row : kRows) {
    const CheckReport report = CheckFaulty(row);
    ASSERT_FALSE(report.findings.empty());
    EXPECT_STREQ(KindOf(report.findings[0].finding.flaw).code, row.code);
    EXPECT_THAT(report.findings[0].finding.detail, HasSubstr(row.detail));
  }
}

TEST(CheckRunTest, FindsTheSharedBufferAndTheLeak) {
  const CheckReport shared = CheckFaulty({L"one-buffer", ""});
  ASSERT_FALSE(shared.findings.empty());
  EXPECT_EQ(shared.findings[0].finding.flaw, Flaw::kMixedAnswers);
  for (const ReportedFinding& found : shared.findings) {
    ASSERT_EQ(found.steps.size(), 1u);
    EXPECT_STREQ(kSteps[found.steps[0]].name, "threads");
  }
  ExpectFound({L"leak", "memory-growth", Callee::kNone, " KiB over 200 "});
}

struct CalleeRow {
  const wchar_t* suffix;
  Callee callee;
  const char* lastStep;
};

constexpr CalleeRow kCalleeRows[] = {
    {L"versions", Callee::kVersions, "versions"},
    {L"restart", Callee::kSetRestart, "restart-routine"},
    {L"initialize", Callee::kInitialize, "initialize"},
    {L"handle", Callee::kHandle, "small"},
    {L"length", Callee::kLength, "small"},
    {L"copy", Callee::kCopy, "small"},
    {L"release", Callee::kRelease, "small"},
};

// The fault `prefix` in each of the seven functions ends the check there.
void ExpectDeaths(const std::wstring& prefix, const char* code,
                  const char* detail) {
  for (const CalleeRow& row : kCalleeRows) {
    const std::wstring fault = prefix + row.suffix;
    SCOPED_TRACE(testing::PrintToString(fault));
    const CheckReport report = CheckFaulty({fault.c_str(), code});
    ASSERT_EQ(report.findings.size(), 1u);
    const ReportedFinding& found = report.findings[0];
    EXPECT_STREQ(KindOf(found.finding.flaw).code, code);
    EXPECT_EQ(found.finding.callee, row.callee);
    EXPECT_THAT(found.finding.detail, HasSubstr(detail));
    ASSERT_EQ(found.steps.size(), 1u);
    EXPECT_STREQ(kSteps[found.steps[0]].name, row.lastStep);
    EXPECT_EQ(report.steps[found.steps[0]].verdict, StepVerdict::kFault);
    EXPECT_EQ(report.steps[kEndStep].verdict, StepVerdict::kNotTried);
  }
}

TEST(CheckRunTest, NamesTheEntryThatCrashes) {
  ExpectDeaths(L"crash-", "crash",
               "access violation, exception 0xC0000005, at "
               "Corvane_V3_NetMon.dll+0x");
}

TEST(CheckRunTest, NamesTheEntryThatThrows) {
  ExpectDeaths(L"throw-", "exception", "thrown as 0x20474343");
}

TEST(CheckRunTest, NamesTheEntryThatHangs) {
  ExpectDeaths(L"hang-", "hang", "after 2 s");
}

TEST(CheckRunTest, NamesTheEntryThatEndsTheProcess) {
  ExpectDeaths(L"exit-", "ended-process", "exit code 3");
}

TEST(CheckRunTest, NoticesACrashOfAThreadOfTheExtension) {
  ExpectFound({L"crash-thread", "crash", Callee::kOwnThread, "0xC0000005"});
}

TEST(CheckRunTest, GoesOnWithTheNextStepAfterACrash) {
  ::SetEnvironmentVariableW(L"KOVA_FAULT", L"crash-copy");
  CheckOptions options = Options(L"faulty-extension");
  options.mostDeaths = 3;
  const CheckReport report = CheckExtension(options, [](size_t, uint64_t) {});
  ::SetEnvironmentVariableW(L"KOVA_FAULT", nullptr);
  ASSERT_EQ(report.findings.size(), 1u);
  EXPECT_EQ(report.findings[0].steps.size(), 3u);
  EXPECT_EQ(report.findings[0].steps[2], report.findings[0].steps[0] + 2);
  EXPECT_EQ(report.Count(Severity::kFault), 1u);
  const size_t notTried = report.findings[0].steps[2] + 1;
  EXPECT_EQ(report.steps[notTried].verdict, StepVerdict::kNotTried);
}

TEST(CheckRunTest, OnlyCountsCallsOfTheRestartRoutine) {
  const CheckReport report = CheckFaulty({L"calls-restart", ""});
  EXPECT_THAT(report.findings, IsEmpty());
  EXPECT_GT(report.restartCalls, 200u);
}

TEST(CheckRunTest, RefusesNothingToAPlainRequest) {
  const CheckReport report = CheckFaulty({L"null-response", ""});
  ASSERT_EQ(report.findings.size(), 2u);
  EXPECT_EQ(report.findings[0].finding.flaw, Flaw::kNullResponse);
  EXPECT_EQ(report.findings[1].finding.flaw, Flaw::kRefused);
}

TEST(CheckRunTest, FindsAnOddFlagAndAnUnwrittenHalf) {
  const CheckReport odd = CheckFaulty({L"odd-flag", ""});
  ASSERT_FALSE(odd.findings.empty());
  EXPECT_EQ(odd.findings[0].finding.flaw, Flaw::kKeepOpenValue);
  EXPECT_EQ(odd.Count(Severity::kFault), 0u);
  const CheckReport half = CheckFaulty({L"copies-half", ""});
  ASSERT_FALSE(half.findings.empty());
  EXPECT_EQ(half.findings[0].finding.flaw, Flaw::kCopyIncomplete);
}

TEST(CheckRunTest, HasNothingToSayAboutSoundExtensions) {
  for (const wchar_t* const folder :
       {L"sample-extension", L"faulty-extension"}) {
    std::vector<size_t> begun;
    const CheckReport report = CheckExtension(
        Options(folder),
        [&begun](size_t step, uint64_t) { begun.push_back(step); });
    EXPECT_FALSE(report.failure);
    EXPECT_THAT(report.findings, IsEmpty())
        << testing::PrintToString(ReportText(report));
    EXPECT_THAT(begun, Contains(kEndStep));
    EXPECT_GT(report.Requests(), 400u);
    for (size_t step = 0; step < kStepCount; ++step) {
      const bool own = std::string_view(kSteps[step].name) == "own";
      EXPECT_EQ(report.steps[step].verdict,
                own ? StepVerdict::kLeftOut : StepVerdict::kGood)
          << kSteps[step].name;
    }
  }
}

}  // namespace
}  // namespace kova::ctl::check
