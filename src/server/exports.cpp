// The two functions that the host calls.
#include "crash/guard.h"
#include "kova/server.h"
#include "log/event_source.h"
#include "log/log_line.h"
#include "log/logger.h"
#include "server/network_monitor.h"

namespace {

using kova::LogLine;
using kova::ServerObject;
using tk::LogChannel;

unsigned Start(void*) {
  LogLine(LogChannel::DetailInfoH, "_StartKOVAServer") << L"Enter";
  tk::PrepareEventSource(kova::kDispatcherSource);
  tk::Logger::PopulateEventSourceRegKeys();
  WebServerHTTP* const server = ServerObject::Create();
  if (server != nullptr) NetworkMonitor::StartServer(*server);
  return 0;
}

unsigned Stop(void*) {
  LogLine(LogChannel::DetailInfoH, "_StopKOVAServer") << L"Enter";
  ServerObject::Destroy();
  return 0;
}

}  // namespace

extern "C" void StartKOVAServer(void) { kova::RunGuarded(&Start, nullptr); }

extern "C" void StopKOVAServer(void) { kova::RunGuarded(&Stop, nullptr); }
