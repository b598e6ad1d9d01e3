#include "test/schedules/scenarios.h"

#include "test/schedules/extension.h"

namespace kova::test {
namespace {

void StartAndStop(ScheduledServer& server) {
  server.Start();
  server.Stop();
}

void StopAndNewcomer(ScheduledServer& server) {
  server.Start();
  server.Beside("client", [&server] { server.AskAndClose("act=echo"); });
  server.Stop();
}

void StopAndRestart(ScheduledServer& server) {
  server.Start();
  server.Beside("extension", &AskForRestart);
  server.Stop();
}

void RestartWithAConnection(ScheduledServer& server) {
  server.Start();
  server.Beside("client", [&server] { server.AskAndClose("act=echo"); });
  server.Beside("extension", &AskForRestart);
  server.AwaitClients();
  server.Stop();
}

void TwoRestarts(ScheduledServer& server) {
  server.Start();
  server.Beside("extension", &AskForRestart);
  server.Beside("extension", &AskForRestart);
  server.AwaitClients();
  server.Stop();
}

void RestartFromAHandler(ScheduledServer& server) {
  server.Start();
  server.Beside("client", [&server] { server.AskAndClose("act=restart"); });
  server.AwaitClients();
  server.Stop();
}

void RestartInAHandlerAndStop(ScheduledServer& server) {
  server.Start();
  server.Beside("client", [&server] { server.AskAndClose("act=restart"); });
  server.Stop();
}

// One connection, as far as a request that begins with `bytes` gets it.
ConnectionPtr ConnectAndSend(ScheduledServer& server, const std::string& bytes,
                             size_t windowBytes = 65536) {
  WinsockModel& winsock = server.TheMachine().winsock;
  ConnectionPtr connection;
  bool sent = false;
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

void StopConnected(ScheduledServer& server) {
  server.Start();
  StopWith(server, ConnectAndSend(server, ""));
}

void StopAfterHalfARequest(ScheduledServer& server) {
  server.Start();
  const ConnectionPtr connection = ConnectAndSend(server, "GET /?printer=KOVA");
  server.Await("waiting for half a request", [&] {
    return connection != nullptr && connection->toServer.empty();
  });
  StopWith(server, connection);
}

void StopInsideTheExtension(ScheduledServer& server) {
  server.Start();
  TheExtension().gateIsOpen = false;
  const ConnectionPtr connection =
      ConnectAndSend(server, "GET /?printer=KOVA&act=wait HTTP/1.1\r\n\r\n");
  server.Await("waiting for the extension",
               [] { return TheExtension().inside > 0; });
  server.Beside("driver", [] { TheExtension().gateIsOpen = true; });
  StopWith(server, connection);
}

void StopWithAStuckExtension(ScheduledServer& server) {
  server.Start();
  TheExtension().gateIsOpen = false;
  const ConnectionPtr connection =
      ConnectAndSend(server, "GET /?printer=KOVA&act=wait HTTP/1.1\r\n\r\n");
  server.Await("waiting for the extension",
               [] { return TheExtension().inside > 0; });
  StopWith(server, connection);
}

void StopAfterHalfAnAnswer(ScheduledServer& server) {
  server.Start();
  const ConnectionPtr connection = ConnectAndSend(
      server, "GET /?printer=KOVA&act=big HTTP/1.1\r\n\r\n", kBigBytes / 2);
  server.Await("waiting for half an answer", [&] {
    return connection != nullptr &&
           connection->toClient.size() == connection->windowBytes;
  });
  StopWith(server, connection);
}

void StopKeptOpen(ScheduledServer& server) {
  server.Start();
  const ConnectionPtr connection =
      ConnectAndSend(server, "GET /?printer=KOVA&act=keep HTTP/1.1\r\n\r\n");
  server.Await("waiting for the answer", [&] {
    return connection != nullptr && connection->toClient == kAnswer;
  });
  StopWith(server, connection);
}

void StopWithTwoConnections(ScheduledServer& server) {
  server.Start();
  for (int i = 0; i < 2; ++i) {
    server.Beside("client", [&server] { server.AskAndClose("act=echo"); });
  }
  server.Await("waiting for a connection", [&server] {
    return server.TheMachine().winsock.OpenSockets() > 1;
  });
  server.Stop();
}

// A send that succeeds leaves the last error alone, and nothing is left to send
// for which the system would report that there is room.
void AnswerAfterAStaleError(ScheduledServer& server) {
  constexpr uint64_t kPromptMs = 1000;
  const Scheduler& scheduler = server.TheMachine().scheduler;
  server.Start();
  const uint64_t startMs = scheduler.NowMs();
  server.Beside("client", [&server] { server.AskAndClose("act=stale"); });
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
    if (machine.scheduler.StandsAt(0, "Sleep")) ++flow.takenInStop;
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

constexpr uint32_t kEverything = 0xFFFFFFFF;

// Each line takes locks and calls the system in the middle of everything else.
void StopAmongLines(ScheduledServer& server) {
  server.TheMachine().system.SetMask(kEverything);
  server.Start();
  server.Beside("client", [&server] { server.AskAndClose("act=echo"); });
  server.Await("waiting for a connection", [&server] {
    return server.TheMachine().winsock.OpenSockets() > 1;
  });
  server.Stop();
}

constexpr DWORD kAfterARefreshMs = 5100;

void MaskChangeAndLines(ScheduledServer& server) {
  SystemModel& system = server.TheMachine().system;
  Scheduler& scheduler = server.TheMachine().scheduler;
  system.SetMask(kEverything);
  scheduler.Await("passing time", [] { return false; }, kAfterARefreshMs);
  server.Start();
  server.Beside("client", [&server] { server.AskAndClose("act=echo"); });
  server.Beside("administrator", [&system, &scheduler] {
    system.SetMask(SystemModel::kUsualMask);
    scheduler.Await("passing time", [] { return false; }, kAfterARefreshMs);
    system.SetMask(kEverything);
  });
  server.AwaitClients();
  server.Stop();
  for (const std::wstring& line : system.Lines()) {
    if (line.find(L": ") == std::wstring::npos) {
      server.Complain("a line is no line");
    }
  }
}

}  // namespace

std::span<const Scenario> Scenarios() {
  static const Scenario scenarios[] = {
      {"StartAndStop", &StartAndStop},
      {"StopAndNewcomer", &StopAndNewcomer},
      {"StopAndRestart", &StopAndRestart},
      {"RestartWithAConnection", &RestartWithAConnection},
      {"TwoRestarts", &TwoRestarts},
      {"RestartFromAHandler", &RestartFromAHandler},
      {"RestartInAHandlerAndStop", &RestartInAHandlerAndStop},
      {"StopConnected", &StopConnected},
      {"StopAfterHalfARequest", &StopAfterHalfARequest},
      {"StopInsideTheExtension", &StopInsideTheExtension},
      {"StopWithAStuckExtension", &StopWithAStuckExtension},
      {"StopAfterHalfAnAnswer", &StopAfterHalfAnAnswer},
      {"StopKeptOpen", &StopKeptOpen},
      {"StopWithTwoConnections", &StopWithTwoConnections},
      {"AnswerAfterAStaleError", &AnswerAfterAStaleError},
      {"StopWhileDataFlows", &StopWhileDataFlows},
      {"StopAmongLines", &StopAmongLines},
      {"MaskChangeAndLines", &MaskChangeAndLines},
  };
  return scenarios;
}

}  // namespace kova::test
