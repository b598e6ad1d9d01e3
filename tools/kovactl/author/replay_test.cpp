// Unit, whole: recorded requests, asked again.
#include "author/replay.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "author/recording.h"
#include "common/program_run.h"

namespace {

using ::kova::ctl::Compare;
using ::kova::ctl::Difference;
using ::kova::ctl::Json;
using ::kova::ctl::ReadRecording;
using ::kova::ctl::Recorded;
using ::kova::ctl::Recorder;
using ::kova::ctl::SeenExchange;
using ::kova::ctl::test::ExpectRefusal;
using ::kova::ctl::test::ProgramResult;
using ::kova::ctl::test::RunKovactl;
using ::testing::HasSubstr;

SeenExchange Answered(const std::string& request, const std::string& response) {
  SeenExchange exchange;
  exchange.client = L"192.0.2.7:50123";
  exchange.request = request;
  exchange.requestBytes = request.size();
  exchange.response = response;
  exchange.responseBytes = response.size();
  return exchange;
}

SeenExchange Answered(const std::string& response) {
  return Answered("GET / HTTP/1.1\r\n\r\n", response);
}

// "what: recorded -> now" of each difference.
std::vector<std::string> Texts(const std::vector<Difference>& differences) {
  std::vector<std::string> texts;
  for (const Difference& row : differences) {
    texts.push_back(row.what + ": " + row.recorded + " -> " + row.now);
  }
  return texts;
}

constexpr char kAnswer[] = "HTTP/1.1 200 OK\r\nA: 1\r\nB: 2\r\n\r\nbody";

TEST(CompareTest, FindsWhatDiffers) {
  using Rows = std::vector<std::string>;
  const struct {
    const char* now;
    Rows differences;
  } kRows[] = {
      {kAnswer, {}},
      {"HTTP/1.0 200 Fine\r\nb:2\r\nA:  1 \r\n\r\nbody", {}},
      {"HTTP/1.1 500 OK\r\nA: 1\r\nB: 2\r\n\r\nbody", {"status: 200 -> 500"}},
      {"HTTP/1.1 200 OK\r\nA: x\r\nC: 3\r\n\r\nbody",
       {"header a: 1 -> x", "header b: 2 -> absent", "header c: absent -> 3"}},
      {"HTTP/1.1 200 OK\r\nA: 1\r\nA: 1\r\nB: 2\r\n\r\nbody",
       {"header a: 1 -> 1, 1"}},
      {"HTTP/1.1 200 OK\r\nA: 1\r\nB: 2\r\n\r\nboat",
       {"body: 4 bytes -> 4 bytes, another one from byte 2 on"}},
      {"HTTP/1.1 200 OK\r\nA: 1\r\nB: 2\r\n\r\nbodys",
       {"body: 4 bytes -> 5 bytes, another one from byte 4 on"}},
      {"", {"answer: one -> none"}},
  };
  for (const auto& row : kRows) {
    EXPECT_EQ(Texts(Compare(Answered(kAnswer), Answered(row.now), false, {})),
              row.differences)
        << row.now;
  }
}

TEST(CompareTest, LeavesOutWhatItIsTold) {
  const SeenExchange now =
      Answered("HTTP/1.1 200 OK\r\nA: x\r\nB: 2\r\n\r\nother");
  EXPECT_EQ(Texts(Compare(Answered(kAnswer), now, true, {"a"})),
            std::vector<std::string>{});
  EXPECT_EQ(Texts(Compare(Answered(kAnswer), now, true, {"B"})),
            std::vector<std::string>{"header a: 1 -> x"});
}

TEST(CompareTest, TellsWhatBecameOfTheConnection) {
  SeenExchange kept = Answered(kAnswer);
  kept.keepOpenAfter = 1;
  EXPECT_EQ(Texts(Compare(kept, Answered(kAnswer), false, {})),
            std::vector<std::string>{"connection: kept open -> closed"});
  EXPECT_EQ(Texts(Compare(kept, kept, false, {})), std::vector<std::string>{});
}

class ReplayTest : public ::testing::Test {
 protected:
  ReplayTest() { std::filesystem::remove_all(kFolder); }
  ~ReplayTest() override { std::filesystem::remove_all(kFolder); }

  static void Record(const std::vector<SeenExchange>& exchanges,
                     bool withBodies) {
    Recorder recorder;
    ASSERT_FALSE(recorder.Open(kFolder, withBodies).has_value());
    for (const SeenExchange& exchange : exchanges) {
      ASSERT_TRUE(recorder.Add(exchange));
    }
  }

  static ProgramResult RunReplay(const std::wstring& options = L"") {
    return RunKovactl(std::wstring(L"replay ") + kFolder +
                      L" ../bin/sample-extension " + options);
  }

  static constexpr wchar_t kFolder[] = L"replay_test";
};

// What the sample answers to a form, whatever the printer.
const std::string kPost =
    "POST /?printer=P HTTP/1.1\r\nContent-Length: 5\r\n\r\nhello";

std::string Echoed() {
  return "HTTP/1.1 200 OK\r\nContent-Type: text/plain; charset=utf-8\r\n"
         "Content-Length: 5\r\nConnection: close\r\nDate: then\r\n\r\nhello";
}

TEST_F(ReplayTest, ShowsWhatIsAnsweredOtherwise) {
  Record({Answered(kPost, Echoed())}, true);
  const ProgramResult result = RunReplay();
  EXPECT_EQ(result.exitCode, 1u);
  EXPECT_THAT(result.output, HasSubstr("000001  POST /\n"));
  EXPECT_THAT(result.output, HasSubstr("  header date: then -> absent\n"));
  EXPECT_THAT(result.output,
              HasSubstr("1 of 1 requests answered otherwise.\n"));
}

TEST_F(ReplayTest, IsContentIfNothingElseDiffers) {
  Record({Answered(kPost, Echoed()), Answered(kPost, Echoed())}, true);
  const ProgramResult result = RunReplay(
      L"--ignore Date --ignore Cache-Control --ignore x-content-type-options "
      L"--ignore Content-Security-Policy");
  EXPECT_EQ(result.exitCode, 0u) << result.output;
  EXPECT_EQ(result.output, "0 of 2 requests answered otherwise.\n");
}

TEST_F(ReplayTest, SpeaksJson) {
  SeenExchange get =
      Answered("GET /?printer=P HTTP/1.1\r\n\r\n", "HTTP/1.1 404 No\r\n\r\n");
  Record({get, Answered(kPost, Echoed())}, false);
  const ProgramResult result = RunReplay(L"--json");
  EXPECT_EQ(result.exitCode, 1u);
  const Json report = Json::parse(result.output, nullptr, false);
  ASSERT_FALSE(report.is_discarded()) << result.output;
  EXPECT_EQ(report["requests"], 1);
  EXPECT_EQ(report["skipped"], 1);
  EXPECT_EQ(report["different"][0]["name"], "000001");
  EXPECT_EQ(report["different"][0]["differences"][0],
            (Json{{"what", "status"}, {"recorded", "404"}, {"now", "200"}}));
}

TEST_F(ReplayTest, RefusesWhatItCannotReplay) {
  ExpectRefusal(RunReplay(), 3, "there is no recording in ");
  Record({}, true);
  ExpectRefusal(RunKovactl(std::wstring(L"replay ") + kFolder + L" no-folder"),
                3, "there is no library ");
  std::vector<Recorded> recording;
  EXPECT_FALSE(ReadRecording(kFolder, recording).has_value());
  EXPECT_EQ(recording.size(), 0u);
}

TEST_F(ReplayTest, NamesTheRequestThatCrashesTheExtension) {
  Record({Answered(kPost, Echoed())}, true);
  ::SetEnvironmentVariableW(L"KOVA_FAULT", L"crash-copy");
  const ProgramResult result = RunKovactl(std::wstring(L"replay ") + kFolder +
                                          L" ../bin/faulty-extension");
  ::SetEnvironmentVariableW(L"KOVA_FAULT", nullptr);
  ExpectRefusal(result, 1,
                "crashed, exception 0xc0000005, while it answered "
                "000001.request");
}

}  // namespace
