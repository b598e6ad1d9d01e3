#include "test/soak/soak.h"

#include <chrono>
#include <thread>

#include "test/support/process_counts.h"
#include "test/support/test_extension.h"
// After the Windows headers.
#include <psapi.h>

namespace kova::test {
namespace {

constexpr DWORD kLookAgainMs = 20;
constexpr uint64_t kProgressMs = 4000;
constexpr uint64_t kRestMs = 5000;

// The working set as the system counts it.
uint64_t ReadWorkingSet() {
  PROCESS_MEMORY_COUNTERS memory = {};
  ::GetProcessMemoryInfo(::GetCurrentProcess(), &memory, sizeof(memory));
  return memory.WorkingSetSize;
}

}  // namespace

Soak::Soak(uint32_t clients) {
  m_isReady = m_server.IsLoaded() &&
              m_printer.SetDriverPackage(ExtensionFolder(L"tidy"));
  if (!m_isReady) return;
  m_server.Start();
  m_clients.reserve(clients);
  for (uint32_t i = 0; i < clients; ++i) {
    m_clients.emplace_back(m_server.Port(), i + 1);
  }
  // What comes once, with the first requests.
  for (int i = 0; i < 3; ++i) (void)Ask(m_server.Port(), "GET / HTTP/1.1\n\n");
  AwaitRest();
  m_threadsAtRest = CountThreads();
}

Soak::~Soak() {
  if (m_isReady) m_server.Stop();
}

SoakRow Soak::RunRound(uint64_t requests, void (*onProgress)(uint64_t)) {
  using Clock = std::chrono::steady_clock;
  const uint64_t target = m_requests + requests;
  const Clock::time_point start = Clock::now();
  m_busyClients = static_cast<uint32_t>(m_clients.size());
  std::vector<std::thread> threads;
  for (SoakClient& client : m_clients) {
    threads.emplace_back([this, &client, target] { Run(client, target); });
  }
  AwaitClients(onProgress);
  for (std::thread& thread : threads) thread.join();
  const std::chrono::duration<double> elapsed = Clock::now() - start;
  AwaitRest();
  return Measure(elapsed.count());
}

void Soak::Run(SoakClient& client, uint64_t target) {
  while (m_requests < target) m_requests += client.RunOnce();
  --m_busyClients;
}

void Soak::AwaitClients(void (*onProgress)(uint64_t)) const {
  uint64_t shownMs = ::GetTickCount64();
  while (m_busyClients != 0) {
    ::Sleep(kLookAgainMs);
    if (::GetTickCount64() - shownMs < kProgressMs) continue;
    onProgress(m_requests);
    shownMs = ::GetTickCount64();
  }
}

// A thread that stays for good ends the wait, too, and is in the row.
void Soak::AwaitRest() const {
  const uint64_t endMs = ::GetTickCount64() + kRestMs;
  do {
    ::Sleep(kLookAgainMs);
  } while (CountThreads() > m_threadsAtRest && ::GetTickCount64() < endMs &&
           m_threadsAtRest != 0);
}

SoakRow Soak::Measure(double seconds) {
  SoakTally tally;
  PeerPorts ports;
  for (SoakClient& client : m_clients) {
    tally.Add(client.TakeTally());
    ports |= client.Ports();
  }
  m_wrongAnswers += tally.wrongAnswers;
  m_measuredRequests += tally.requests;
  SoakRow row;
  row.requests = m_measuredRequests;
  row.wrongAnswers = m_wrongAnswers;
  row.requestsPerSecond = static_cast<double>(tally.requests) / seconds;
  row.medianUs = Percentile(tally.latenciesUs, 50);
  row.percentile99Us = Percentile(tally.latenciesUs, 99);
  row.peers = ports.count();
  row.handles = CountHandles();
  row.threads = CountThreads();
  row.privateBytes = CountPrivateBytes();
  row.workingSetBytes = ReadWorkingSet();
  return row;
}

}  // namespace kova::test
