#include "test/schedules/scheduled_server.h"

#include <algorithm>

#include "test/schedules/extension.h"
#include "test/support/server_fixture.h"

namespace kova::test {
namespace {

// Grace times of the accept thread and of the connections, and the moments in
// which killed threads are seen off.
constexpr uint64_t kStopBoundMs = 10000;
// A restart that is under way is waited for: a stop, and the listener's time to
// answer.
constexpr uint64_t kRestartBoundMs = 40000;
constexpr const char* kRestartThread = "restart";
constexpr uint64_t kPatienceMs = 1000000;

template <typename Function>
Function* Find(HMODULE module, const char* name) {
  return reinterpret_cast<Function*>(
      reinterpret_cast<void*>(::GetProcAddress(module, name)));
}

// Takes every default.
class DefaultChooser : public Chooser {
 public:
  size_t Choose(const std::vector<Option>&, bool, ThreadId,
                const char*) override {
    return 0;
  }
};

void DoNothing(ScheduledServer&) {}

}  // namespace

ScheduledServer::ScheduledServer() { Load(); }

ScheduledServer::~ScheduledServer() { Unload(); }

bool ScheduledServer::Load() {
  m_machine.Reset();
  m_module = ::LoadLibraryW(
      (TestProgramFolder() + L"\\..\\bin\\KOVAServer.dll").c_str());
  if (m_module == nullptr) return false;
  m_escaping = m_machine.Capture(m_module);
  m_start = Find<KOVA_StartServer>(m_module, "StartKOVAServer");
  m_stop = Find<KOVA_StopServer>(m_module, "StopKOVAServer");
  DefaultChooser chooser;
  // The first run makes what lives as long as the library. So does the file
  // sink, deliberately, at its first line.
  m_machine.system.SetMask(~0u);
  for (int i = 0; i < 2; ++i) {
    m_machine.BeginRun();
    m_machine.scheduler.Run([this] { Live({"", &DoNothing}); }, chooser);
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
  for (const ThreadId thread : scheduler.LivingServerThreads()) {
    Complain("a thread of the server never ends: " + scheduler.NameOf(thread));
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
  uint64_t boundMs = kStopBoundMs + m_machine.locks.WaitedMs(0);
  boundMs += static_cast<uint64_t>(TheExtension().restarts) * kRestartBoundMs;
  for (const Scheduler::Step& stall : scheduler.Stalls()) {
    if (scheduler.NameOf(stall.thread) == kRestartThread) {
      boundMs += Scheduler::kStallMs;
    }
  }
  for (const ThreadId thread : scheduler.ThreadsNamed(kRestartThread)) {
    boundMs += m_machine.locks.WaitedMs(thread);
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
  const auto living = static_cast<int>(scheduler.LivingServerThreads().size());
  if (living > m_machine.system.ModuleReferences()) {
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

void ScheduledServer::AskAndClose(const std::string& act) {
  WinsockModel& winsock = m_machine.winsock;
  const ConnectionPtr connection = winsock.Connect();
  if (connection == nullptr) return;
  winsock.ClientSends(*connection,
                      "GET /?printer=KOVA&" + act + " HTTP/1.1\r\n\r\n");
  std::string got;
  while (!connection->serverClosed) {
    const std::string more = winsock.ClientReceives(*connection);
    if (more.empty()) break;
    got += more;
  }
  winsock.ClientCloses(*connection);
  if (!std::string(kAnswer).starts_with(got)) Complain("a client got " + got);
}

void ScheduledServer::ServeOnce() {
  Start();
  bool answered = false;
  Beside("last client", [this, &answered] {
    WinsockModel& winsock = m_machine.winsock;
    const ConnectionPtr connection = winsock.Connect();
    if (connection == nullptr) return;
    winsock.ClientSends(*connection, "GET /?printer=KOVA HTTP/1.1\r\n\r\n");
    answered = winsock.ClientReceives(*connection) == kAnswer;
    winsock.ClientCloses(*connection);
  });
  AwaitClients();
  if (!answered) Complain("a fresh start does not serve");
  Stop();
}

void ScheduledServer::Expect(const char* when, const char* what, int64_t before,
                             int64_t now, int64_t slack) {
  if (now >= before && now <= before + slack) return;
  Complain(std::string(when) + " there are " + std::to_string(now) + " " +
           what + " in place of " + std::to_string(before));
}

void ScheduledServer::CompareHeld(const char* when) {
  const Held held = m_machine.WhatIsHeld();
  const int64_t kills = m_machine.scheduler.Kills();
  const auto expect = [&](const char* what, auto before, auto now,
                          int64_t slack) {
    Expect(when, what, static_cast<int64_t>(before), static_cast<int64_t>(now),
           slack);
  };
  expect("handles", m_before.handles, held.handles, SilentStarts());
  expect("sockets", m_before.sockets, held.sockets, 0);
  expect("sessions", m_before.sessions, held.sessions, 0);
  expect("critical sections", m_before.locks, held.locks, 0);
  expect("keys", m_before.keys, held.keys, 0);
  expect("printers", m_before.printers, held.printers, kills);
  // A thread that was killed keeps its reference, by design, and what only it
  // knew of.
  expect("references", m_before.moduleReferences, held.moduleReferences, kills);
  constexpr int64_t kBlocksOfAThread = 50;
  expect("blocks", m_before.blocks, held.blocks, kills * kBlocksOfAThread);
  expect("responses", 0, TheExtension().responses, kills);
  m_verdict.blocksLost =
      std::max(m_verdict.blocksLost, held.blocks - m_before.blocks);
}

// Deliberate in the server: of a listener that did not answer in time, the
// event that it may yet signal stays open.
int64_t ScheduledServer::SilentStarts() const {
  return std::ranges::count_if(
      m_machine.system.Lines(), [](const std::wstring& line) {
        return line.find(L"Unable to get response") != std::wstring::npos;
      });
}

std::string ScheduledServer::Trace() const {
  const Scheduler& scheduler = m_machine.scheduler;
  std::string text;
  ThreadId last = kNoThread;
  for (const Scheduler::Step& step : scheduler.Steps()) {
    if (step.thread != last) {
      text += "\n  " + std::to_string(step.thread) + " " +
              scheduler.NameOf(step.thread) + ":";
      last = step.thread;
    }
    text += ' ';
    text += step.what;
  }
  return text + "\n";
}

}  // namespace kova::test
