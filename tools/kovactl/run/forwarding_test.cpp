// Whole: the built server with functions of the tool before its extensions'.
#include "run/forwarding.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <mutex>
#include <string>
#include <vector>

#include "author/recording.h"
#include "common/captured_output.h"
#include "kova/extension.h"
#include "run/debug_output_hook.h"
#include "run/traffic.h"
#include "test/extensions/extension_answers.h"
#include "test/support/demo_printer.h"
#include "test/support/server_fixture.h"
#include "test/support/test_client.h"

namespace {

namespace fs = std::filesystem;

using ::kova::ctl::DebugOutputHook;
using ::kova::ctl::ExchangeSink;
using ::kova::ctl::Forwarding;
using ::kova::ctl::ForwardingOptions;
using ::kova::ctl::LinePump;
using ::kova::ctl::Output;
using ::kova::ctl::ReadRecording;
using ::kova::ctl::Recorded;
using ::kova::ctl::SeenExchange;
using ::kova::ctl::Traffic;
using ::kova::ctl::test::CapturedOutput;
using ::kova::test::Ask;
using ::kova::test::DemoPrinter;
using ::kova::test::Echo;
using ::kova::test::ServerFixture;
using ::kova::test::TestClient;
using ::kova::test::TestProgramFolder;
using ::testing::HasSubstr;
using ::testing::StartsWith;

class KeepingSink : public ExchangeSink {
 public:
  void OnExchange(const SeenExchange& exchange) override {
    const std::lock_guard held(m_mutex);
    m_exchanges.push_back(exchange);
  }
  [[nodiscard]] std::vector<SeenExchange> Exchanges() {
    const std::lock_guard held(m_mutex);
    return m_exchanges;
  }

 private:
  std::mutex m_mutex;
  std::vector<SeenExchange> m_exchanges;
};

fs::path ScriptedLibrary() {
  return fs::path(TestProgramFolder()) / "extensions" / "scripted" /
         KOVA_EXTENSION_FILE_NAME;
}
fs::path SampleLibrary() {
  return fs::path(TestProgramFolder()) / ".." / "bin" / "sample-extension" /
         KOVA_EXTENSION_FILE_NAME;
}

std::string Get(const std::string& actions = "") {
  return "GET /?printer=KOVA+forwarded&act=" + actions + " HTTP/1.1\r\n\r\n";
}

class ForwardingTest : public ::testing::Test {
 protected:
  ~ForwardingTest() override {
    m_server.Stop();
    m_hook.reset();
    m_forwarding.reset();
    fs::remove_all(kFolder);
    fs::remove_all(kRecording);
  }

  void Start(const ForwardingOptions& options, ExchangeSink& sink,
             const fs::path& package) {
    ASSERT_TRUE(m_printer.SetDriverPackage(fs::absolute(package).wstring()));
    m_forwarding.emplace(m_server.Module(), options, sink, *m_pump);
    ASSERT_TRUE(m_forwarding->IsInstalled());
    m_hook.emplace(m_server.Module(), *m_forwarding);
    m_server.Start();
  }

  // Stops everything; what was shown.
  std::string Shown() {
    m_server.Stop();
    m_hook.reset();
    m_forwarding.reset();
    m_pump.reset();
    return m_capture.Finish();
  }

  static constexpr wchar_t kFolder[] = L"forwarding_test";
  static constexpr wchar_t kRecording[] = L"forwarding_test_recording";

  DemoPrinter m_printer{L"KOVA forwarded", L"kovaForwarded"};
  CapturedOutput m_capture;
  Output m_output{STD_OUTPUT_HANDLE};
  std::optional<LinePump> m_pump{std::in_place, m_output, false};
  KeepingSink m_sink;
  ServerFixture m_server;
  std::optional<Forwarding> m_forwarding;
  std::optional<DebugOutputHook> m_hook;
};

TEST_F(ForwardingTest, ChangesNothingAndSeesEverything) {
  Start({}, m_sink, ScriptedLibrary().parent_path());
  TestClient client(m_server.Port());
  const std::string kept = Get("keep");
  ASSERT_TRUE(client.Send(kept));
  const std::string first = Echo(client.Address(), 0, kept);
  EXPECT_EQ(client.Receive(first.size()), first);
  ASSERT_TRUE(client.Send(Get("close")));
  EXPECT_EQ(client.ReceiveAll(), Echo(client.Address(), 1, Get("close")));
  const std::vector<SeenExchange> seen = m_sink.Exchanges();
  ASSERT_EQ(seen.size(), 2u);
  EXPECT_EQ(seen[0].request, kept);
  EXPECT_EQ(seen[0].requestBytes, kept.size());
  EXPECT_EQ(seen[0].response, first);
  EXPECT_EQ(seen[0].responseBytes, first.size());
  EXPECT_EQ(seen[0].keepOpenBefore, 0u);
  EXPECT_EQ(seen[0].keepOpenAfter, 1u);
  EXPECT_EQ(seen[1].keepOpenBefore, 1u);
  EXPECT_EQ(seen[1].keepOpenAfter, 0u);
  const std::string address = client.Address();
  EXPECT_EQ(seen[1].client, std::wstring(address.begin(), address.end()));
}

TEST_F(ForwardingTest, TellsOnceOfARequestThatTheExtensionFailed) {
  Start({}, m_sink, ScriptedLibrary().parent_path());
  for (const char* const action : {"null", "length0", "nocopy"}) {
    EXPECT_THAT(Ask(m_server.Port(), Get(action)), StartsWith("HTTP/1.1 400 "))
        << action;
  }
  const std::vector<SeenExchange> seen = m_sink.Exchanges();
  ASSERT_EQ(seen.size(), 3u);
  for (const SeenExchange& exchange : seen) {
    EXPECT_THAT(exchange.request, HasSubstr("act="));
    EXPECT_EQ(exchange.responseBytes, 0u);
  }
}

TEST_F(ForwardingTest, KeepsLongBodiesOnlyIfTheyAreWanted) {
  const std::string head =
      "POST /?printer=KOVA+forwarded HTTP/1.1\r\n"
      "Content-Length: 100000\r\n\r\n";
  const std::string request = head + std::string(100000, 'x');
  Start({}, m_sink, ScriptedLibrary().parent_path());
  EXPECT_THAT(Ask(m_server.Port(), request), StartsWith("HTTP/1.1 200 "));
  ASSERT_EQ(m_sink.Exchanges().size(), 1u);
  const SeenExchange exchange = m_sink.Exchanges().front();
  EXPECT_EQ(exchange.request, head);
  EXPECT_EQ(exchange.requestBytes, request.size());
  EXPECT_TRUE(exchange.response.ends_with("\r\n\r\n"));
  EXPECT_GT(exchange.responseBytes, request.size());
}

TEST_F(ForwardingTest, RecordsWhatReadRecordingReads) {
  Traffic traffic(*m_pump, false);
  ASSERT_FALSE(traffic.Open({L"", kRecording, true}).has_value());
  Start({.withBodies = true}, traffic, ScriptedLibrary().parent_path());
  TestClient client(m_server.Port());
  ASSERT_TRUE(client.Send(Get()));
  const std::string answer = client.ReceiveAll();
  EXPECT_THAT(Ask(m_server.Port(), Get("null")), HasSubstr(" 400 "));
  std::vector<Recorded> recording;
  ASSERT_FALSE(ReadRecording(kRecording, recording).has_value());
  ASSERT_EQ(recording.size(), 2u);
  EXPECT_EQ(recording[0].name, "000001");
  EXPECT_EQ(recording[0].exchange.request, Get());
  EXPECT_EQ(recording[0].exchange.response, answer);
  EXPECT_EQ(recording[0].exchange.responseBytes, answer.size());
  EXPECT_EQ(recording[1].exchange.responseBytes, 0u);
  const auto again = Traffic(*m_pump, false).Open({L"", kRecording, true});
  ASSERT_TRUE(again.has_value());
  EXPECT_THAT(again->text, HasSubstr(L"already"));
  EXPECT_THAT(Shown(), HasSubstr(" GET /?printer=KOVA+forwarded&act= 200 "));
}

TEST_F(ForwardingTest, LetsARebuiltLibraryAnswerTheNextRequest) {
  fs::create_directory(kFolder);
  const fs::path library = fs::path(kFolder) / KOVA_EXTENSION_FILE_NAME;
  std::ofstream(library) << "no library";
  Start({.watch = true}, m_sink, kFolder);
  EXPECT_THAT(Ask(m_server.Port(), Get()), StartsWith("HTTP/1.1 400 "));
  EXPECT_THAT(Ask(m_server.Port(), Get()), StartsWith("HTTP/1.1 400 "));
  // As a linker does: the file is written while it is in use.
  auto time = fs::last_write_time(library);
  const auto build = [&](const fs::path& from) {
    ASSERT_TRUE(::CopyFileW(from.c_str(), library.c_str(), FALSE));
    fs::last_write_time(library, time += std::chrono::seconds(1));
  };
  build(ScriptedLibrary());
  EXPECT_THAT(Ask(m_server.Port(), Get()), HasSubstr("address=127.0.0.1:"));
  build(SampleLibrary());
  EXPECT_THAT(Ask(m_server.Port(), Get()), HasSubstr("<!DOCTYPE html>"));
  EXPECT_THAT(Ask(m_server.Port(), Get()), HasSubstr("<!DOCTYPE html>"));
  std::ofstream(library) << "no library again";
  fs::last_write_time(library, time += std::chrono::seconds(1));
  EXPECT_THAT(Ask(m_server.Port(), Get()), HasSubstr("<!DOCTYPE html>"));
  EXPECT_EQ(m_sink.Exchanges().size(), 6u);
  const std::string shown = Shown();
  EXPECT_THAT(shown, HasSubstr("A new build of "));
  EXPECT_THAT(shown, HasSubstr("does not load: "));
  EXPECT_THAT(shown, HasSubstr("; the one before goes on.\n"));
}

TEST_F(ForwardingTest, SaysWhenThereIsNothingToReplace) {
  const Forwarding none(::GetModuleHandleW(L"ntdll.dll"), {}, m_sink, *m_pump);
  EXPECT_FALSE(none.IsInstalled());
}

}  // namespace
