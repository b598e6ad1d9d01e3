// Whole: kovactl check-extension as a child, with each of its exit codes.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <iterator>
#include <nlohmann/json.hpp>
#include <string>

#include "base/windows_api.h"
#include "common/program_run.h"

namespace {

using ::kova::ctl::test::ProgramResult;
using ::kova::ctl::test::RunKovactl;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::StartsWith;

constexpr wchar_t kSound[] = L"check-extension ..\\bin\\sample-extension ";
constexpr wchar_t kFaulty[] =
    L"check-extension ..\\bin\\faulty-extension\\Corvane_V3_NetMon.dll ";

ProgramResult RunFaulty(const wchar_t* fault, const std::wstring& arguments) {
  ::SetEnvironmentVariableW(L"KOVA_FAULT", fault);
  ProgramResult result = RunKovactl(kFaulty + arguments);
  ::SetEnvironmentVariableW(L"KOVA_FAULT", nullptr);
  return result;
}

void ExpectRefusal(const std::wstring& arguments, unsigned long code,
                   const std::string& text) {
  const ProgramResult result = RunKovactl(arguments);
  EXPECT_EQ(result.exitCode, code);
  EXPECT_EQ(result.output, "");
  EXPECT_THAT(result.errors, StartsWith("kovactl: error: "));
  EXPECT_THAT(result.errors, HasSubstr(text));
  EXPECT_EQ(std::ranges::count(result.errors, '\n'), 1);
}

// A file in the current folder, gone at the end of the scope.
class ScratchFile {
 public:
  ScratchFile(const char* name, const std::string& bytes) : m_name(name) {
    std::ofstream(name, std::ios::binary) << bytes;
  }
  ~ScratchFile() { ::DeleteFileA(m_name); }
  ScratchFile(const ScratchFile&) = delete;
  ScratchFile& operator=(const ScratchFile&) = delete;

 private:
  const char* const m_name;
};

TEST(VerbCheckTest, PassesASoundExtension) {
  const ProgramResult result =
      RunKovactl(kSound + std::wstring(L"--only small"));
  EXPECT_EQ(result.exitCode, 0u);
  EXPECT_THAT(result.output, StartsWith("Checked "));
  EXPECT_THAT(result.output, HasSubstr("\n0 faults, 0 warnings; "));
}

TEST(VerbCheckTest, EndsWith1AfterAFaultAndWith0AfterAWarning) {
  const ProgramResult fault = RunFaulty(L"zero-length", L"--only small");
  EXPECT_EQ(fault.exitCode, 1u);
  // On a busy machine it says what it waits for.
  EXPECT_THAT(fault.errors, Not(HasSubstr("error: ")));
  EXPECT_THAT(fault.output, HasSubstr("\n1 fault, 0 warnings; "));
  const ProgramResult warning = RunFaulty(L"sticky-flag", L"--only keep-open");
  EXPECT_EQ(warning.exitCode, 0u);
  EXPECT_THAT(warning.output, HasSubstr("\n0 faults, 1 warning; "));
}

TEST(VerbCheckTest, WritesJsonForPrograms) {
  const ProgramResult result =
      RunFaulty(L"failing-copy", L"--json --only small");
  EXPECT_EQ(result.exitCode, 1u);
  const auto json = nlohmann::json::parse(result.output, nullptr, false);
  ASSERT_TRUE(json.is_object());
  EXPECT_EQ(json["verdict"], "faults");
  EXPECT_EQ(json["findings"][0]["code"], "copy-failed");
  EXPECT_EQ(json["versions"][0], 1);
}

TEST(VerbCheckTest, RefusesWhatCannotBeChecked) {
  ExpectRefusal(L"check-extension nowhere\\x.dll", 3, "there is no library ");
  ExpectRefusal(L"check-extension /nowhere/x.dll", 3, "nowhere\\x.dll; name");
  ExpectRefusal(L"check-extension .", 3, "Corvane_V3_NetMon.dll; name the");
  ExpectRefusal(L"check-extension ..\\bin\\KOVAServer.lib", 4,
                "is not a library");
  ExpectRefusal(L"check-extension", 2, "path");
  ExpectRefusal(kSound + std::wstring(L"--threads 1"), 2, "--threads");
  ExpectRefusal(kSound + std::wstring(L"--threads 65"), 2, "--threads");
  ExpectRefusal(kSound + std::wstring(L"--requests 99"), 2, "--requests");
  ExpectRefusal(kSound + std::wstring(L"--timeout 0"), 2, "--timeout");
  ExpectRefusal(kSound + std::wstring(L"--budget 4"), 2, "--budget");
  ExpectRefusal(kSound + std::wstring(L"--only never"), 2, "no step never");
  ExpectRefusal(kSound + std::wstring(L"--request nowhere.http"), 3,
                "there is no request file ");
  ExpectRefusal(L"check-extension-worker 4", 2, "part of check-extension");
}

TEST(VerbCheckTest, RefusesALibraryThatDoesNotLoad) {
  ::SetEnvironmentVariableW(L"KOVA_FAULT", L"refuses-load");
  ExpectRefusal(kFaulty, 4, "cannot load ");
  const ProgramResult result = RunKovactl(kFaulty + std::wstring(L"--json"));
  EXPECT_EQ(result.exitCode, 4u);
  const auto json = nlohmann::json::parse(result.output, nullptr, false);
  ASSERT_TRUE(json.is_object()) << result.output;
  EXPECT_EQ(json["verdict"], "failed");
  ::SetEnvironmentVariableW(L"KOVA_FAULT", nullptr);
}

TEST(VerbCheckTest, WarnsOfAnotherFileName) {
  ASSERT_TRUE(::CopyFileW(L"..\\bin\\sample-extension\\Corvane_V3_NetMon.dll",
                          L"other.dll", FALSE));
  const ProgramResult result =
      RunKovactl(L"check-extension other.dll --only small");
  ::DeleteFileW(L"other.dll");
  EXPECT_EQ(result.exitCode, 0u);
  EXPECT_THAT(result.output, HasSubstr("[file-name]"));
  EXPECT_THAT(result.output, HasSubstr("it is other.dll"));
}

TEST(VerbCheckTest, SendsTheUsersOwnRequests) {
  const ScratchFile file("check_request.http",
                         "GET /own?printer=P HTTP/1.1\r\n\r\n");
  const ScratchFile other("check_other.http",
                          "HEAD /own?printer=P HTTP/1.1\r\n\r\n");
  const ProgramResult result = RunKovactl(
      L"check-extension --only own --request check_request.http "
      L"--request check_other.http ..\\bin\\sample-extension");
  EXPECT_EQ(result.exitCode, 0u) << result.errors;
  EXPECT_THAT(result.output, HasSubstr("the request of --request"));
  EXPECT_THAT(result.output, HasSubstr(" 2 of 2 answered\n"));
  const ProgramResult refused =
      RunFaulty(L"null-response", L"--request check_request.http --only own");
  EXPECT_EQ(refused.exitCode, 1u);
  EXPECT_THAT(refused.output, HasSubstr("  in     the request of --request\n"));
}

TEST(VerbCheckTest, NamesTheLibraryThatIsMissing) {
  // The name of a library that it needs is replaced in a copy.
  std::ifstream from("..\\bin\\sample-extension\\Corvane_V3_NetMon.dll",
                     std::ios::binary);
  std::string image((std::istreambuf_iterator<char>(from)), {});
  const size_t at = image.find("KERNEL32.dll");
  ASSERT_NE(at, std::string::npos);
  image.replace(at, 6, "absent");
  const ScratchFile broken("Corvane_V3_NetMon.dll", image);
  ExpectRefusal(L"check-extension .", 4, "was not found, absent32.dll; link");
}

TEST(VerbCheckTest, RefusesARequestThatTheServerWouldWaitFor) {
  const ScratchFile file("check_request.http",
                         "GET /own?printer=P HTTP/1.1\r\nHost: a\r\n");
  ExpectRefusal(kSound + std::wstring(L"--request check_request.http"), 2,
                "does not hold a whole request");
}

TEST(VerbCheckTest, SaysWhatItWaitsFor) {
  const ProgramResult result =
      RunFaulty(L"hang-handle", L"--timeout 3 --budget 5");
  EXPECT_EQ(result.exitCode, 1u);
  EXPECT_THAT(result.errors, StartsWith("kovactl: checking: a small GET"));
  EXPECT_THAT(result.output, HasSubstr("[hang]"));
  EXPECT_THAT(result.output, HasSubstr("after 3 s\n"));
}

TEST(VerbCheckTest, HidesTheVerbInWhichTheExtensionRuns) {
  const ProgramResult help = RunKovactl(L"--help");
  EXPECT_THAT(help.output, HasSubstr("check-extension "));
  EXPECT_THAT(help.output, Not(HasSubstr("check-extension-worker")));
  EXPECT_THAT(RunKovactl(L"check-extension --help").output,
              HasSubstr("Examples:\n  kovactl check-extension "));
}

}  // namespace
