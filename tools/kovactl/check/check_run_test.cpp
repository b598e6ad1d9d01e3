// Whole: extensions with one fault each, and sound ones, in real workers.
#include "check/check_run.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <ostream>
#include <string_view>

#include "common/file_path.h"

namespace kova::ctl::check {

// How the name of a row appears in a failure.
static void PrintTo(const Severity& severity, std::ostream* out) {
  *out << (severity == Severity::kFault ? "fault" : "warning");
}

namespace {

using ::testing::AllOf;
using ::testing::Contains;
using ::testing::Field;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

constexpr std::string_view kDefaultStep = "small";

struct Row {
  const wchar_t* fault;  // for KOVA_FAULT
  const char* code;
  Callee callee = Callee::kNone;
  const char* detail = "";
  Severity severity = Severity::kFault;
  const wchar_t* folder = L"";
  std::string_view step = kDefaultStep;
};

CheckOptions Options(const std::wstring& folder) {
  CheckOptions options;
  options.library = FullPath(ProgramFolder() + L"\\..\\bin\\" + folder +
                             L"\\Corvane_V3_NetMon.dll");
  options.program = FullPath(ProgramFolder() + L"\\..\\bin\\kovactl.exe");
  options.requests = 200;
  options.timeoutSeconds = 2;
  options.budgetSeconds = 20;
  options.mostDeaths = 1;
  return options;
}

CheckReport CheckFaulty(const Row& row, uint32_t timeoutSeconds = 2) {
  ::SetEnvironmentVariableW(L"KOVA_FAULT", row.fault);
  CheckOptions options =
      Options(std::wstring(L"faulty-extension") + row.folder);
  options.timeoutSeconds = timeoutSeconds;
  options.only = StepBit(StepCalled(row.step));
  CheckReport report = CheckExtension(options, [](size_t, uint64_t) {});
  ::SetEnvironmentVariableW(L"KOVA_FAULT", nullptr);
  return report;
}

void PrintTo(const Row& row, std::ostream* out) {
  *out << row.code << " in step " << row.step;
}

std::string NameOf(const Row& row) {
  std::string name;
  for (const wchar_t c : std::wstring(row.fault) + row.folder) {
    if (c < 0x80 && std::isalnum(static_cast<int>(c)) != 0) {
      name += static_cast<char>(c);
    }
  }
  return name;
}

constexpr Severity kWarning = Severity::kWarning;
constexpr Severity kFault = Severity::kFault;

constexpr Row kRows[] = {
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
    {L"", "missing-export", Callee::kRelease, "no response is ever given back",
     kFault, L"\\no-ReleaseResponse"},
    {L"", "mangled-exports", Callee::kNone,
     "the first is _Z9WSIE_GetInterfaceVersionsSupportedPv", kFault,
     L"\\mangled"},

    {L"no-version", "no-version-1", Callee::kVersions,
     "offered: 2 0 0 0 0 0 0 0 0 0"},
    {L"unwritten-versions", "no-version-1", Callee::kVersions,
     "offered: 0 0 0 0 0 0 0 0 0 0"},
    {L"many-versions", "versions-overrun", Callee::kVersions, "10 entries"},
    {L"null-context", "null-context", Callee::kInitialize},
    {L"slow-initialize", "slow-initialize", Callee::kInitialize, " ms",
     kWarning},

    {L"null-response", "null-response", Callee::kHandle},
    {L"refuses-post", "refused-request", Callee::kHandle, "", kWarning, L"",
     "form"},
    {L"zero-length", "zero-length", Callee::kLength},
    {L"giant-length", "giant-length", Callee::kLength, "that is -1"},
    {L"changing-length", "changing-length", Callee::kLength, ", then ",
     kWarning, L"", "measured-twice"},
    {L"failing-copy", "copy-failed", Callee::kCopy},
    {L"copies-past", "copy-overrun", Callee::kCopy, "the buffer has "},
    {L"copies-before", "copy-underrun", Callee::kCopy},
    {L"short-by-one", "copy-incomplete", Callee::kCopy, "1 of "},
    {L"hole", "copy-incomplete", Callee::kCopy, "1 of "},
    {L"copies-half", "copy-incomplete", Callee::kCopy, " were not written"},

    {L"writes-request", "request-written", Callee::kHandle, "offset "},
    {L"reads-past", "request-overread", Callee::kHandle},
    {L"writes-address", "address-written", Callee::kHandle, "offset 28"},
    {L"reads-address", "address-overread", Callee::kHandle, "", kWarning, L"",
     "bare-address"},
    {L"keeps-request", "argument-kept", Callee::kCopy,
     "the request, read at Corvane_V3_NetMon.dll+0x"},
    {L"keeps-address", "argument-kept", Callee::kLength,
     "the client's address, read at "},
    {L"keeps-flag", "argument-kept", Callee::kRelease,
     "the keep-open flag, written at "},
    {L"keeps-buffer", "argument-kept", Callee::kRelease,
     "the buffer for the answer, written at "},
    {L"wide-flag", "keep-open-overrun", Callee::kHandle},
    {L"odd-flag", "keep-open-value", Callee::kHandle, "its value is 3435973836",
     kWarning, L"", "head"},
    {L"kept-unmeasured", "keep-open-without-length", Callee::kCopy},
    {L"sticky-flag", "connection-disagrees", Callee::kCopy, "\"close\"",
     kWarning, L"", "keep-open"},

    {L"garbage", "status-line", Callee::kCopy, "\"%PDF-1.4 "},
    {L"short", "status-line", Callee::kCopy, "\"HTTP/1.1 2\""},
    {L"bad-header", "header-line", Callee::kCopy, "\"X Y: z\""},
    {L"bare-lf", "line-end", Callee::kCopy, "ends with LF alone"},
    {L"endless-headers", "no-empty-line", Callee::kCopy},
    {L"unmeasured", "no-content-length", Callee::kCopy, "2 bytes", kWarning},
    {L"odd-length", "content-length-text", Callee::kCopy, "\"ten\""},
    {L"long-length", "content-length-wrong", Callee::kCopy,
     "says 3, the body has 2 bytes"},
    {L"short-length", "content-length-wrong", Callee::kCopy,
     "says 1, the body has 2 bytes"},
    {L"bad-chunks", "chunks", Callee::kCopy},
    {L"two-lengths", "chunks", Callee::kCopy, "is sent with chunks"},
    {L"status-999", "status-range", Callee::kCopy, "999"},
    {L"not-gzip", "content-encoding", Callee::kCopy,
     "\"gzip\", the body begins with \"ok\""},
    {L"splits-header", "header-injection", Callee::kCopy, "X-Kovacheck: split",
     kFault, L"", "malformed"},
    {L"body-204", "forbidden-body", Callee::kCopy, "status 204"},
    {L"body-head", "forbidden-body", Callee::kCopy, "HEAD on", kFault, L"",
     "head"},
    {L"body-head-closed", "head-body", Callee::kCopy, "", kWarning, L"",
     "head"},

    {L"one-buffer", "mixed-answers", Callee::kCopy, "in the order Handle ",
     kFault, L"", "interleave"},
    {L"wrong-at-times", "differing-answers", Callee::kCopy,
     "otherwise now and then", kFault, L"", "memory"},
    {L"holds-lock", "waits-for-other", Callee::kHandle, "", kWarning, L"",
     "interleave"},
    {L"slow-form", "slow-answer", Callee::kHandle, " ms", kWarning, L"",
     "form"},
    {L"leak", "memory-growth", Callee::kNone, " blocks of the heap over 200 ",
     kFault, L"", "memory"},
    {L"", "memory-growth", Callee::kNone, " blocks of the heap over 200 ",
     kFault, L"\\no-ReleaseResponse", "memory"},

    {L"leaks-handle", "handle-growth", Callee::kNone, " handles over 200 ",
     kFault, L"", "memory"},
    {L"leaks-thread", "thread-growth", Callee::kNone, " threads over 200 ",
     kFault, L"", "memory"},
    {L"leaks-bytes", "memory-growth", Callee::kNone,
     "200 blocks of the heap over 200 ", kFault, L"", "memory"},
    {L"frees-in-copy", "unfetched-growth", Callee::kRelease,
     " blocks of the heap ", kFault, L"", "unfetched"},
    {L"leaks-connection", "connection-growth", Callee::kNone,
     " blocks of the heap ", kFault, L"", "connections"},
    {L"spins", "busy-thread", Callee::kOwnThread, "of processor time in ",
     kWarning, L"", "idle"},
    {L"slow-load", "slow-load", Callee::kLoad, " ms", kWarning},
    {L"changes-folder", "host-state", Callee::kHandle, "the current folder",
     kWarning},
    {L"changes-filter", "host-state", Callee::kInitialize,
     "the unhandled-exception filter", kWarning},
    {L"changes-rounding", "floating-point-state", Callee::kHandle, "of SSE"},
    {L"closes-handles", "foreign-handle", Callee::kNone},
    {L"damages-heap", "heap-damage", Callee::kNone},

    {L"end-thread", "ended-thread", Callee::kHandle},
    {L"crash-thread", "crash", Callee::kOwnThread, "0xC0000005"},
};

class FaultTest : public ::testing::TestWithParam<Row> {};

// The finding of the row is there, and nothing else that its step would show.
TEST_P(FaultTest, IsFound) {
  const Row& row = GetParam();
  const CheckReport report = CheckFaulty(row);
  EXPECT_FALSE(report.failure);
  const auto found =
      std::ranges::find_if(report.findings, [&](const ReportedFinding& other) {
        return std::string_view(row.code) == KindOf(other.finding.flaw).code;
      });
  ASSERT_NE(found, report.findings.end())
      << testing::PrintToString(ReportText(report));
  EXPECT_EQ(KindOf(found->finding.flaw).severity, row.severity);
  EXPECT_EQ(found->finding.callee, row.callee)
      << CalleeName(found->finding.callee);
  EXPECT_THAT(found->finding.detail, HasSubstr(row.detail));
  EXPECT_FALSE(found->steps.empty());
  // What exports no release has two.
  const bool isLeaky = row.folder[0] != L'\0' && row.step != kDefaultStep;
  EXPECT_EQ(report.findings.size(), isLeaky ? 2u : 1u)
      << testing::PrintToString(ReportText(report));
}

INSTANTIATE_TEST_SUITE_P(Faults, FaultTest, ::testing::ValuesIn(kRows),
                         [](const auto& row) {
                           return NameOf(row.param) + std::to_string(row.index);
                         });

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
    const CheckReport report =
        CheckFaulty({fault.c_str(), code}, prefix == L"hang-" ? 1 : 2);
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
  ExpectDeaths(L"hang-", "hang", "after 1 s");
}

TEST(CheckRunTest, NamesTheEntryThatEndsTheProcess) {
  ExpectDeaths(L"exit-", "ended-process", "exit code 3");
}

TEST(CheckRunTest, EndsInTimeAndSaysWhatItLeftOut) {
  ::SetEnvironmentVariableW(L"KOVA_FAULT", L"hang-copy");
  CheckOptions options = Options(L"faulty-extension");
  options.timeoutSeconds = 60;
  options.budgetSeconds = 1;
  const CheckReport report = CheckExtension(options, [](size_t, uint64_t) {});
  ::SetEnvironmentVariableW(L"KOVA_FAULT", nullptr);
  EXPECT_THAT(report.findings, IsEmpty());
  EXPECT_THAT(report.steps,
              Contains(AllOf(Field(&StepResult::verdict, StepVerdict::kLeftOut),
                             Field(&StepResult::note, HasSubstr("--budget")))));
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
  const CheckReport report = CheckFaulty(
      {L"calls-restart", "", Callee::kNone, "", kFault, L"", "memory"});
  EXPECT_THAT(report.findings, IsEmpty());
  EXPECT_GT(report.restartCalls, 200u);
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
