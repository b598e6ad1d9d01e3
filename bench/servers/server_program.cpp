#include "bench/servers/server_program.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <chrono>
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
  const auto start = std::chrono::steady_clock::now();
  const size_t terminated = server.Stop();
  const std::chrono::duration<double, std::milli> took =
      std::chrono::steady_clock::now() - start;
  return "{\"stopMs\": " + std::to_string(took.count()) +
         ", \"terminated\": " + std::to_string(terminated) + "}";
}

void ServeCommands(Server& server) {
  bool isRunning = true;
  Say("{\"port\": " + std::to_string(server.Port()) + "}");
  for (std::string line; std::getline(std::cin, line);) {
    if (line.ends_with('\r')) line.pop_back();
    if (line == "usage") {
      Say("{\"privateBytes\": " + std::to_string(test::CountPrivateBytes()) +
          "}");
    } else if (line == "stop" && isRunning) {
      isRunning = false;
      Say(StopText(server));
    } else {
      Say(R"({"error": "the commands are usage and, once, stop"})");
    }
  }
  if (isRunning) server.Stop();
}

}  // namespace

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
