// The built library on a modelled machine, one schedule after another.
#pragma once

#include <functional>
#include <ostream>
#include <string>
#include <vector>

#include "kova/server.h"
#include "test/schedules/explorer.h"
#include "test/schedules/machine.h"

namespace kova::test {

class ScheduledServer;

// What the host's thread does in a run; the library is loaded, no server runs.
struct Scenario {
  const char* name;
  void (*script)(ScheduledServer& server);
};

// For messages of the test framework.
inline void PrintTo(const Scenario& scenario, std::ostream* stream) {
  *stream << scenario.name;
}

struct Verdict {
  // What should not have happened, in order; empty: all is well.
  std::vector<std::string> faults;
  // Of the stops that had nothing to wait for but connections and listener.
  uint64_t longestStopMs = 0;
  int kills = 0;
  // Of memory, lost with threads that were killed.
  size_t blocksLost = 0;
};

// Loads ../bin/KOVAServer.dll, seen from the test program. After a run with a
// fault the library is loaded anew, so that runs do not hang together. At most
// one may live at a time.
class ScheduledServer {
 public:
  ScheduledServer();
  ~ScheduledServer();
  ScheduledServer(const ScheduledServer&) = delete;
  ScheduledServer& operator=(const ScheduledServer&) = delete;

  [[nodiscard]] bool IsLoaded() const { return m_stop != nullptr; }
  // Calls of the library that wait and that no model knows.
  [[nodiscard]] const std::vector<std::string>& EscapingCalls() const {
    return m_escaping;
  }

  // Runs the script, lets everything come to its end, then has a server started
  // afresh answer one request. All three are followed by a look at what is
  // left.
  Verdict Run(const Scenario& scenario, Chooser& chooser);
  // The calls of the last run, a line each time another thread goes on.
  [[nodiscard]] std::string Trace() const;

  // For scripts, on the host's thread.

  void Start();
  void Stop();
  // Runs `body` on a thread of its own, which is none of the server's.
  void Beside(const char* name, std::function<void()> body);
  // Lets others run until `condition` is true, or nothing happens any more.
  void Await(const char* what, const Scheduler::Ready& condition);
  // Waits until no thread but those of the server is left.
  void AwaitClients();
  // Something that a script saw.
  void Complain(const std::string& text) { m_machine.Complain(text); }
  [[nodiscard]] Machine& TheMachine() { return m_machine; }

  // For clients, on their own threads: a request that the extension gets; asks,
  // and takes what comes until the connection ends; the same, and complains of
  // bytes that nobody should have sent.
  static std::string Request(const std::string& act);
  std::string Ask(const std::string& act);
  void AskAndClose(const std::string& act);

 private:
  bool Load();
  void Unload();
  void Live(const Scenario& scenario);
  void ServeOnce();
  void LetAllEnd();
  [[nodiscard]] uint64_t StopBoundMs() const;
  void CheckAfterStop(uint64_t elapsedMs);
  void CompareHeld(const char* when);
  [[nodiscard]] size_t SlackOf(const std::string& what) const;

  Machine m_machine;
  HMODULE m_module = nullptr;
  KOVA_StartServer* m_start = nullptr;
  KOVA_StopServer* m_stop = nullptr;
  std::vector<std::string> m_escaping;
  std::vector<Held> m_before;
  bool m_isSpoilt = false;  // load it anew before the next run
  int m_clients = 0;
  Verdict m_verdict;
};

}  // namespace kova::test
