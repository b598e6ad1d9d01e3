#include "test/schedules/scheduled_server.h"

#include <algorithm>

#include "test/schedules/extension.h"
#include "test/support/exported_function.h"
#include "test/support/server_fixture.h"

namespace kova::test {
namespace {

// Grace times of the accept thread and of the connections, and the moments in
// which killed threads are seen off.
constexpr uint64_t kStopBoundMs = 10000;
// A restart that is under way is waited for: a stop, and the listener's time to
// answer.
constexpr uint64_t kRestartBoundMs = 40000;
constexpr std::string_view kRestartThread = "restart";
constexpr uint64_t kPatienceMs = 1000000;
// Of those in use, what a thread that is killed may keep: the reference that it
// holds, by design, and what only it knew of.
constexpr size_t kBlocksOfAThread = 50;

}  // namespace

ScheduledServer::ScheduledServer() { Load(); }

ScheduledServer::~ScheduledServer() { Unload(); }

bool ScheduledServer::Load() {
  m_machine.Reset();
  m_module = ::LoadLibraryW(ServerLibraryPath().c_str());
  if (m_module == nullptr) return false;
  m_escaping = m_machine.Capture(m_module);
  m_start = ExportedFunction<KOVA_StartServer>(m_module, "StartKOVAServer");
  m_stop = ExportedFunction<KOVA_StopServer>(m_module, "StopKOVAServer");
  ScheduleChooser chooser;
  // The first run makes what lives as long as the library. So does the file
  // sink, deliberately, at its first line.
  m_machine.system.SetMask(~0u);
  m_before = m_machine.WhatIsHeld();
  for (int i = 0; i < 2; ++i) {
    m_machine.BeginRun();
    m_machine.scheduler.Run([this] { Live({"", [](ScheduledServer&) {}}); },
                            chooser);
    m_machine.heap.Sift();
  }
  return true;
}

void ScheduledServer::Unload() {
  m_machine.heap.Sift();
  m_machine.scheduler.DropStacks();
  if (m_module != nullptr) ::FreeLibrary(m_module);
  m_module = nullptr;
  m_start = nullptr;
  m_stop = nullptr;
}

Verdict ScheduledServer::Run(const Scenario& scenario, Chooser& chooser) {
  if (m_isSpoilt) {
    Unload();
    Load();
  }
  m_verdict = {};
  m_clients = 0;
  m_before = m_machine.WhatIsHeld();
  m_machine.BeginRun();
  m_machine.system.ForgetLines();
  m_machine.system.SetMask(SystemModel::kUsualMask);
  KOVA_RestartRoutine* const restart = TheExtension().restart;
  TheExtension() = {};
  TheExtension().restart = restart;
  Scheduler& scheduler = m_machine.scheduler;
  m_machine.winsock.SetQuiet(false);
  const auto ending =
      scheduler.Run([this, &scenario] { Live(scenario); }, chooser);
  m_machine.heap.Sift();
  m_verdict.faults = m_machine.Complaints();
  m_verdict.kills = scheduler.Kills();
  if (ending == Scheduler::Ending::kDeadlock) {
    m_verdict.faults.push_back("deadlock\n" + scheduler.Standing());
  } else if (ending == Scheduler::Ending::kLivelock) {
    m_verdict.faults.push_back("no end\n" + scheduler.Standing());
  } else if (ending == Scheduler::Ending::kCrash) {
    m_verdict.faults.push_back(scheduler.CrashText());
  }
  m_isSpoilt = !m_verdict.faults.empty();
  return m_verdict;
}

void ScheduledServer::Live(const Scenario& scenario) {
  scenario.script(*this);
  LetAllEnd();
  CompareHeld("at rest");
  m_machine.scheduler.TakeDefaults();
  ServeOnce();
  LetAllEnd();
  CompareHeld("after a fresh start");
}

void ScheduledServer::LetAllEnd() {
  Scheduler& scheduler = m_machine.scheduler;
  TheExtension().gateIsOpen = true;
  scheduler.Await(
      "waiting for all to end", [&] { return scheduler.AllOthersEnded(); },
      kPatienceMs);
  for (const auto& thread : scheduler.Threads()) {
    if (thread->isServers && !thread->hasEnded) {
      Complain("a thread of the server never ends: " + thread->name);
    }
  }
  if (m_machine.winsock.IsListening()) Complain("it listens at rest");
}

void ScheduledServer::Start() {
  m_machine.winsock.SetQuiet(false);
  m_start();
}

void ScheduledServer::Stop() {
  Scheduler& scheduler = m_machine.scheduler;
  const uint64_t startMs = scheduler.NowMs();
  m_stop();
  m_machine.winsock.SetQuiet(true);
  CheckAfterStop(scheduler.NowMs() - startMs);
}

// The restart thread is waited for as long as it takes, and so is a lock: one
// whose owner gets no processor cannot be given up.
uint64_t ScheduledServer::StopBoundMs() const {
  const Scheduler& scheduler = m_machine.scheduler;
  uint64_t boundMs = kStopBoundMs + m_machine.kernel.WaitedMs(0);
  boundMs += static_cast<uint64_t>(TheExtension().restarts) * kRestartBoundMs;
  for (const Scheduler::Step& stall : scheduler.Stalls()) {
    if (scheduler[stall.thread].name == kRestartThread) {
      boundMs += Scheduler::kStallMs;
    }
  }
  for (const auto& thread : scheduler.Threads()) {
    if (thread->name != kRestartThread) continue;
    boundMs += m_machine.kernel.WaitedMs(thread->id);
  }
  return boundMs;
}

void ScheduledServer::CheckAfterStop(uint64_t elapsedMs) {
  Scheduler& scheduler = m_machine.scheduler;
  const uint64_t boundMs = StopBoundMs();
  if (boundMs == kStopBoundMs) {
    m_verdict.longestStopMs = std::max(m_verdict.longestStopMs, elapsedMs);
  }
  if (elapsedMs > boundMs) {
    Complain("a stop took " + std::to_string(elapsedMs) + " ms");
  }
  if (m_machine.winsock.IsListening()) Complain("it listens after a stop");
  const auto living =
      std::ranges::count_if(scheduler.Threads(), [](const auto& thread) {
        return thread->isServers && !thread->hasEnded;
      });
  if (static_cast<size_t>(living) > m_machine.system.ModuleReferences()) {
    Complain("a thread outlives the stop without a hold on the library");
  }
}

void ScheduledServer::Beside(const char* name, std::function<void()> body) {
  ++m_clients;
  m_machine.scheduler.Begin(
      name,
      [this, body = std::move(body)] {
        body();
        --m_clients;
      },
      false);
}

void ScheduledServer::Await(const char* what,
                            const Scheduler::Ready& condition) {
  m_machine.scheduler.Await(what, condition, Scheduler::kStallMs * 2);
}

void ScheduledServer::AwaitClients() {
  m_machine.scheduler.Await(
      "waiting for the clients", [this] { return m_clients == 0; },
      kPatienceMs);
}

std::string ScheduledServer::Request(const std::string& act) {
  return "GET /?printer=KOVA&act=" + act + " HTTP/1.1\r\n\r\n";
}

std::string ScheduledServer::Ask(const std::string& act) {
  WinsockModel& winsock = m_machine.winsock;
  const ConnectionPtr connection = winsock.Connect();
  if (connection == nullptr) return {};
  winsock.ClientSends(*connection, Request(act));
  std::string got;
  while (!connection->serverClosed) {
    const std::string more = winsock.ClientReceives(*connection);
    if (more.empty()) break;
    got += more;
  }
  winsock.ClientCloses(*connection);
  return got;
}

void ScheduledServer::AskAndClose(const std::string& act) {
  const std::string got = Ask(act);
  if (!std::string(kAnswer).starts_with(got)) Complain("a client got " + got);
}

void ScheduledServer::ServeOnce() {
  Start();
  bool answered = false;
  Beside("last client",
         [this, &answered] { answered = Ask("echo") == kAnswer; });
  AwaitClients();
  if (!answered) Complain("a fresh start does not serve");
  Stop();
}

void ScheduledServer::CompareHeld(const char* when) {
  const std::vector<Held> held = m_machine.WhatIsHeld();
  for (size_t i = 0; i < held.size(); ++i) {
    const auto& [what, now] = held[i];
    const size_t before = m_before[i].count;
    if (now >= before && now <= before + SlackOf(what)) continue;
    Complain(std::string(when) + " there are " + std::to_string(now) + " " +
             what + " in place of " + std::to_string(before));
  }
  const int responses = TheExtension().responses;
  if (responses < 0 || responses > m_machine.scheduler.Kills()) {
    Complain(std::string(when) + " responses are not released");
  }
  m_verdict.blocksLost =
      std::max(m_verdict.blocksLost, held.back().count - m_before.back().count);
}

size_t ScheduledServer::SlackOf(const std::string& what) const {
  const auto kills = static_cast<size_t>(m_machine.scheduler.Kills());
  if (what == "printers" || what == "references") return kills;
  if (what == "blocks") return kills * kBlocksOfAThread;
  if (what != "handles") return 0;
  // Deliberate in the server: of a listener that did not answer in time, the
  // event that it may yet signal stays open.
  return static_cast<size_t>(std::ranges::count_if(
      m_machine.system.Lines(), [](const std::wstring& line) {
        return line.find(L"Unable to get response") != line.npos;
      }));
}

std::string ScheduledServer::Trace() const {
  const Scheduler& scheduler = m_machine.scheduler;
  std::string text;
  ThreadId last = kNoThread;
  for (const Scheduler::Step& step : scheduler.Steps()) {
    if (step.thread != last) {
      text += "\n  " + std::to_string(step.thread) + " " +
              scheduler[step.thread].name + ":";
      last = step.thread;
    }
    text += ' ';
    text += step.what;
  }
  return text + "\n";
}

}  // namespace kova::test
