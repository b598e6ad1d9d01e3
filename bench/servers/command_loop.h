// How a measuring program drives a server program: through its standard
// streams.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

namespace CLI {
class App;
}

namespace kova::bench {

// One contestant. Used on the main thread.
class Server {
 public:
  Server() = default;
  virtual ~Server() = default;
  Server(const Server&) = delete;
  Server& operator=(const Server&) = delete;

  // Listens on 127.0.0.1. Returns what went wrong, or an empty text. Called
  // once, before all others.
  [[nodiscard]] virtual std::string Start() = 0;
  [[nodiscard]] virtual uint16_t Port() const = 0;
  // The connections it serves now; nothing if it keeps no count, and then
  // every thread beyond those at rest stands for one.
  [[nodiscard]] virtual std::optional<size_t> Connections() {
    return std::nullopt;
  }
  // Stops as the host of such a server would and returns how many threads had
  // to be terminated. Called once for every server that was started, by the
  // command or at the end.
  virtual size_t Stop() = 0;
};

// One server program: its command line, and the server that it describes.
class Program {
 public:
  Program() = default;
  virtual ~Program() = default;
  Program(const Program&) = delete;
  Program& operator=(const Program&) = delete;

  // Names and describes the program and adds its options.
  virtual void Describe(CLI::App& app) = 0;
  // Called once, when the options have their values. Lives no longer than this
  // object.
  [[nodiscard]] virtual std::unique_ptr<Server> MakeServer() = 0;
};

// The body of a server program's main: reads the command line, makes the
// server and starts it. Writes one line of JSON once it listens,
// {"port": N}, then answers each line of standard input with one line:
//   usage  what the process holds: {"privateBytes": ..., "threads": ...}
//   stop   {"stopMs": MILLISECONDS, "terminated": THREADS}
//   quit   no answer; the program ends, as it does at the end of the input
// Returns the exit code: 0, 1 if the server does not run, 2 for a command line
// that cannot be used, both with one line on standard error.
int RunProgram(Program& program, int count, char** arguments);

}  // namespace kova::bench
