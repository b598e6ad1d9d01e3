// How the runner of the bench drives a server program: through its standard
// streams.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>

#include "bench/servers/answers.h"

namespace CLI {
class App;
}

namespace kova::bench {

// What a host pays to have a server that nobody asks yet.
struct Cost {
  double loadMs = 0;      // until its code is in the process
  double startMs = 0;     // from there until it listens
  int64_t heldBytes = 0;  // private memory that was committed for both
};

// What has passed since it was made.
class Meter {
 public:
  Meter();
  [[nodiscard]] double Milliseconds() const;
  [[nodiscard]] int64_t Bytes() const;

 private:
  const uint64_t m_privateBytes;
  const std::chrono::steady_clock::time_point m_start;
};

// One contestant, listening on 127.0.0.1 from its construction on. Its
// constructor throws std::runtime_error if it cannot. Used on the main thread.
class Server {
 public:
  Server() = default;
  virtual ~Server() = default;
  Server(const Server&) = delete;
  Server& operator=(const Server&) = delete;

  [[nodiscard]] virtual uint16_t Port() const = 0;
  // Stops as the host of such a server would and returns how many threads had
  // to be terminated. Called once: by the command or at the end.
  virtual size_t Stop() = 0;
  // All zeros where nobody asks.
  [[nodiscard]] virtual Cost Spent() const { return {}; }
};

// Adds the option that says which answer is given.
void AddAnswerOption(CLI::App& app, AnswerKind& kind);

// The body of a server program's main: `describe` names the program and adds
// its options, `makeServer` is called when they have their values. Writes one
// line of JSON once the server listens, {"port": N}, then answers each line of
// standard input with one line:
//   cost   {"loadMs": MILLISECONDS, "startMs": MILLISECONDS, "heldBytes":
//   BYTES} usage  {"privateBytes": BYTES}, the private memory that is committed
//   stop   {"stopMs": MILLISECONDS, "terminated": THREADS}
// The end of the input ends the program. Returns the exit code: 0, 1 if the
// server does not run, 2 for a command line that cannot be used, both with one
// line on standard error.
int RunServerProgram(
    int count, char** arguments,
    const std::function<void(CLI::App& app)>& describe,
    const std::function<std::unique_ptr<Server>()>& makeServer);

}  // namespace kova::bench
