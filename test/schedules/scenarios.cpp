#include "test/schedules/scenarios.h"

#include "test/schedules/extension.h"

namespace kova::test {
namespace {

constexpr uint32_t kEverything = 0xFFFFFFFF;
constexpr DWORD kAfterARefreshMs = 5100;

void AskBeside(ScheduledServer& server, const char* act) {
  server.Beside("client", [&server, act] { server.AskAndClose(act); });
}

void StartAndAsk(ScheduledServer& server, const char* act) {
  server.Start();
  AskBeside(server, act);
}

void AwaitAConnection(ScheduledServer& server) {
  server.Await("waiting for a connection", [&server] {
    return server.TheMachine().winsock.OpenSockets() > 1;
  });
}

void WaitForClientsAndStop(ScheduledServer& server) {
  server.AwaitClients();
  server.Stop();
}

// Starts; one connection, as far as a request that begins with `bytes` gets it.
ConnectionPtr StartAndSend(ScheduledServer& server, const std::string& bytes,
                           size_t windowBytes = 65536) {
  WinsockModel& winsock = server.TheMachine().winsock;
  ConnectionPtr connection;
  bool sent = false;
  server.Start();
  server.Beside("client", [&] {
    connection = winsock.Connect(windowBytes);
    if (connection != nullptr && !bytes.empty()) {
      winsock.ClientSends(*connection, bytes);
    }
    sent = true;
  });
  server.Await("waiting for the client", [&] { return sent; });
  return connection;
}

// The client goes at last, so that nothing else ends the connection.
void StopWith(ScheduledServer& server, const ConnectionPtr& connection) {
  server.Stop();
  if (connection != nullptr) {
    server.TheMachine().winsock.ClientCloses(*connection);
  }
}

// A connection whose request waits in the extension.
ConnectionPtr EnterTheExtension(ScheduledServer& server) {
  TheExtension().gateIsOpen = false;
  ConnectionPtr connection =
      StartAndSend(server, ScheduledServer::Request("wait"));
  server.Await("waiting for the extension",
               [] { return TheExtension().inside > 0; });
  return connection;
}

void StopAfterHalfARequest(ScheduledServer& server) {
  const ConnectionPtr connection = StartAndSend(server, "GET /?printer=KOVA");
  server.Await("waiting for half a request", [&] {
    return connection != nullptr && connection->toServer.empty();
  });
  StopWith(server, connection);
}

void StopInsideTheExtension(ScheduledServer& server) {
  const ConnectionPtr connection = EnterTheExtension(server);
  server.Beside("driver", [] { TheExtension().gateIsOpen = true; });
  StopWith(server, connection);
}

void StopAfterHalfAnAnswer(ScheduledServer& server) {
  const ConnectionPtr connection =
      StartAndSend(server, ScheduledServer::Request("big"), kBigBytes / 2);
  server.Await("waiting for half an answer", [&] {
    return connection != nullptr &&
           connection->toClient.size() == connection->windowBytes;
  });
  StopWith(server, connection);
}

void StopKeptOpen(ScheduledServer& server) {
  const ConnectionPtr connection =
      StartAndSend(server, ScheduledServer::Request("keep"));
  server.Await("waiting for the answer", [&] {
    return connection != nullptr && connection->toClient == kAnswer;
  });
  StopWith(server, connection);
}

// A send that succeeds leaves the last error alone, and nothing is left to send
// for which the system would report that there is room.
void AnswerAfterAStaleError(ScheduledServer& server) {
  constexpr uint64_t kPromptMs = 1000;
  const Scheduler& scheduler = server.TheMachine().scheduler;
  server.Start();
  const uint64_t startMs = scheduler.NowMs();
  AskBeside(server, "stale");
  server.AwaitClients();
  if (scheduler.Stalls().empty() && scheduler.NowMs() - startMs > kPromptMs) {
    server.Complain("a connection stays open after its whole answer");
  }
  server.Stop();
}

struct Flow {
  ConnectionPtr connection;
  int taken = 0;
  int takenInStop = 0;  // while the stop waits for the connections
};

// Sends more as soon as what was sent is taken.
void KeepSending(Machine& machine, Flow& flow) {
  constexpr int kPieces = 30;
  flow.connection = machine.winsock.Connect();
  if (flow.connection == nullptr) return;
  Connection& connection = *flow.connection;
  machine.winsock.ClientSends(connection, "GET /?printer=KOVA");
  while (!connection.serverClosed && flow.taken < kPieces) {
    machine.scheduler.Await("waiting until it is taken", [&connection] {
      return connection.toServer.empty() || connection.serverClosed;
    });
    ++flow.taken;
    if (machine.scheduler[0].at == std::string_view("Sleep")) {
      ++flow.takenInStop;
    }
    machine.winsock.ClientSends(connection, "more");
  }
  machine.winsock.ClientCloses(connection);
}

void StopWhileDataFlows(ScheduledServer& server) {
  // What a connection may still have taken when it is told to end.
  constexpr int kMostInStop = 2;
  server.Start();
  const auto flow = std::make_shared<Flow>();
  server.Beside("client",
                [&server, flow] { KeepSending(server.TheMachine(), *flow); });
  server.Await("waiting for the flow", [&flow] { return flow->taken > 2; });
  server.Stop();
  if (flow->takenInStop > kMostInStop) {
    server.Complain("a stop waits for a connection on which data flows");
  }
}

void MaskChangeAndLines(ScheduledServer& server) {
  SystemModel& system = server.TheMachine().system;
  Scheduler& scheduler = server.TheMachine().scheduler;
  system.SetMask(kEverything);
  scheduler.Await("passing time", [] { return false; }, kAfterARefreshMs);
  StartAndAsk(server, "echo");
  server.Beside("administrator", [&system, &scheduler] {
    system.SetMask(SystemModel::kUsualMask);
    scheduler.Await("passing time", [] { return false; }, kAfterARefreshMs);
    system.SetMask(kEverything);
  });
  WaitForClientsAndStop(server);
  for (const std::wstring& line : system.Lines()) {
    if (line.find(L": ") == line.npos) server.Complain("a line is no line");
  }
}

}  // namespace

std::span<const Scenario> Scenarios() {
  using Server = ScheduledServer;
  static const Scenario scenarios[] = {
      {"StartAndStop",
       [](Server& server) {
         server.Start();
         server.Stop();
       }},
      {"StopAndNewcomer",
       [](Server& server) {
         StartAndAsk(server, "echo");
         server.Stop();
       }},
      {"StopAndRestart",
       [](Server& server) {
         server.Start();
         server.Beside("extension", &AskForRestart);
         server.Stop();
       }},
      {"RestartWithAConnection",
       [](Server& server) {
         StartAndAsk(server, "echo");
         server.Beside("extension", &AskForRestart);
         WaitForClientsAndStop(server);
       }},
      {"TwoRestarts",
       [](Server& server) {
         server.Start();
         server.Beside("extension", &AskForRestart);
         server.Beside("extension", &AskForRestart);
         WaitForClientsAndStop(server);
       }},
      {"RestartFromAHandler",
       [](Server& server) {
         StartAndAsk(server, "restart");
         WaitForClientsAndStop(server);
       }},
      {"RestartInAHandlerAndStop",
       [](Server& server) {
         StartAndAsk(server, "restart");
         server.Stop();
       }},
      {"StopConnected",
       [](Server& server) { StopWith(server, StartAndSend(server, "")); }},
      {"StopAfterHalfARequest", &StopAfterHalfARequest},
      {"StopInsideTheExtension", &StopInsideTheExtension},
      {"StopWithAStuckExtension",
       [](Server& server) { StopWith(server, EnterTheExtension(server)); }},
      {"StopAfterHalfAnAnswer", &StopAfterHalfAnAnswer},
      {"StopKeptOpen", &StopKeptOpen},
      {"StopWithTwoConnections",
       [](Server& server) {
         StartAndAsk(server, "echo");
         AskBeside(server, "echo");
         AwaitAConnection(server);
         server.Stop();
       }},
      {"AnswerAfterAStaleError", &AnswerAfterAStaleError},
      {"StopWhileDataFlows", &StopWhileDataFlows},
      // Each line takes locks and calls the system in the middle of everything
      // else.
      {"StopAmongLines",
       [](Server& server) {
         server.TheMachine().system.SetMask(kEverything);
         StartAndAsk(server, "echo");
         AwaitAConnection(server);
         server.Stop();
       }},
      {"MaskChangeAndLines", &MaskChangeAndLines},
  };
  return scenarios;
}

}  // namespace kova::test
