#include "bench/servers/command_loop.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <exception>
#include <iostream>

#include "bench/servers/usage.h"

namespace kova::bench {
namespace {

constexpr int kCannotRun = 1;
constexpr int kBadCommandLine = 2;

void Say(const std::string& line) {
  std::printf("%s\n", line.c_str());
  std::fflush(stdout);
}

// The libraries word some mistakes on several lines.
void Complain(const CLI::App& app, std::string what) {
  std::replace(what.begin(), what.end(), '\n', ' ');
  std::fprintf(stderr, "%s: error: %s\n", app.get_name().c_str(), what.c_str());
}

std::string StopText(Server& server) {
  const auto start = std::chrono::steady_clock::now();
  const size_t terminated = server.Stop();
  const std::chrono::duration<double, std::milli> took =
      std::chrono::steady_clock::now() - start;
  return "{\"stopMs\": " + std::to_string(took.count()) +
         ", \"terminated\": " + std::to_string(terminated) + "}";
}

std::string UsageText(Server& server, size_t threadsAtRest) {
  Usage usage = ReadUsage();
  const size_t more = usage.threads - std::min(usage.threads, threadsAtRest);
  return ToJson(usage, server.Connections().value_or(more));
}

std::string Answer(Server& server, size_t threadsAtRest, bool& isRunning,
                   const std::string& command) {
  if (command == "usage") return UsageText(server, threadsAtRest);
  if (command == "stop" && isRunning) {
    isRunning = false;
    return StopText(server);
  }
  return R"({"error": "the commands are usage, stop (once) and quit"})";
}

void ServeCommands(Server& server) {
  const size_t threadsAtRest = ReadUsage().threads;
  bool isRunning = true;
  Say("{\"port\": " + std::to_string(server.Port()) + "}");
  for (std::string line; std::getline(std::cin, line);) {
    if (!line.empty() && line.back() == '\r') line.pop_back();
    if (line == "quit") break;
    Say(Answer(server, threadsAtRest, isRunning, line));
  }
  if (isRunning) server.Stop();
}

int Run(const CLI::App& app, Program& program) {
  const std::unique_ptr<Server> server = program.MakeServer();
  const std::string failure = server->Start();
  if (!failure.empty()) {
    Complain(app, failure);
    return kCannotRun;
  }
  ServeCommands(*server);
  return 0;
}

}  // namespace

int RunProgram(Program& program, int count, char** arguments) {
  CLI::App app;
  try {
    app.allow_windows_style_options(false);
    program.Describe(app);
    app.parse(count, arguments);
    return Run(app, program);
  } catch (const CLI::Success& request) {
    return app.exit(request);
  } catch (const CLI::ParseError& mistake) {
    Complain(app, mistake.what());
    return kBadCommandLine;
  } catch (const std::exception& failure) {
    Complain(app, failure.what());
    return kCannotRun;
  }
}

}  // namespace kova::bench
