#include "bench/servers/server_program.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdio>
#include <exception>
#include <iostream>
#include <map>

#include "test/support/process_counts.h"

namespace kova::bench {
namespace {

constexpr int kCannotRun = 1;
constexpr int kBadCommandLine = 2;

void Say(const std::string& line) {
  std::printf("%s\n", line.c_str());
  std::fflush(stdout);
}

// The libraries word some mistakes on several lines.
int Complain(const CLI::App& app, std::string what, int exitCode) {
  std::replace(what.begin(), what.end(), '\n', ' ');
  std::fprintf(stderr, "%s: error: %s\n", app.get_name().c_str(), what.c_str());
  return exitCode;
}

std::string StopText(Server& server) {
  const Meter meter;
  const size_t terminated = server.Stop();
  return "{\"stopMs\": " + std::to_string(meter.Milliseconds()) +
         ", \"terminated\": " + std::to_string(terminated) + "}";
}

std::string CostText(const Cost& cost) {
  return "{\"loadMs\": " + std::to_string(cost.loadMs) +
         ", \"startMs\": " + std::to_string(cost.startMs) +
         ", \"heldBytes\": " + std::to_string(cost.heldBytes) + "}";
}

void ServeCommands(Server& server) {
  bool isRunning = true;
  Say("{\"port\": " + std::to_string(server.Port()) + "}");
  for (std::string line; std::getline(std::cin, line);) {
    if (line.ends_with('\r')) line.pop_back();
    if (line == "usage") {
      Say("{\"privateBytes\": " + std::to_string(test::CountPrivateBytes()) +
          "}");
    } else if (line == "cost") {
      Say(CostText(server.Spent()));
    } else if (line == "stop" && isRunning) {
      isRunning = false;
      Say(StopText(server));
    } else {
      Say(R"({"error": "the commands are cost, usage and, once, stop"})");
    }
  }
  if (isRunning) server.Stop();
}

}  // namespace

Meter::Meter()
    : m_privateBytes(test::CountPrivateBytes()),
      m_start(std::chrono::steady_clock::now()) {}

double Meter::Milliseconds() const {
  const std::chrono::duration<double, std::milli> took =
      std::chrono::steady_clock::now() - m_start;
  return took.count();
}

int64_t Meter::Bytes() const {
  return static_cast<int64_t>(test::CountPrivateBytes() - m_privateBytes);
}

void AddAnswerOption(CLI::App& app, AnswerKind& kind) {
  app.add_option("--answer", kind, "refusal, small (1 KiB) or large (8 MiB)")
      ->transform(CLI::CheckedTransformer(
          std::map<std::string, AnswerKind>{{"refusal", AnswerKind::kRefusal},
                                            {"small", AnswerKind::kSmall},
                                            {"large", AnswerKind::kLarge}}));
}

int RunServerProgram(
    int count, char** arguments,
    const std::function<void(CLI::App& app)>& describe,
    const std::function<std::unique_ptr<Server>()>& makeServer) {
  CLI::App app;
  try {
    app.allow_windows_style_options(false);
    describe(app);
    app.parse(count, arguments);
    const std::unique_ptr<Server> server = makeServer();
    ServeCommands(*server);
    return 0;
  } catch (const CLI::Success& request) {
    return app.exit(request);
  } catch (const CLI::ParseError& mistake) {
    return Complain(app, mistake.what(), kBadCommandLine);
  } catch (const std::exception& failure) {
    return Complain(app, failure.what(), kCannotRun);
  }
}

}  // namespace kova::bench
