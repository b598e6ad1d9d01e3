// A server of the built library under the load of several clients for long.
#pragma once

#include <atomic>
#include <cstdint>
#include <vector>

#include "test/soak/soak_client.h"
#include "test/soak/soak_report.h"
#include "test/support/demo_printer.h"
#include "test/support/server_fixture.h"

namespace kova::test {

// Loads and starts the server in this process, with a printer whose extension
// is the scripted one. The clients are threads of this process, too, and all
// that is measured includes them. Used on one thread; at most one may live at
// a time.
class Soak {
 public:
  explicit Soak(uint32_t clients);
  ~Soak();

  Soak(const Soak&) = delete;
  Soak& operator=(const Soak&) = delete;

  [[nodiscard]] bool IsReady() const { return m_isReady; }

  // Has the clients make that many requests, or a few more, waits until the
  // connections are gone, and measures. Calls `onProgress` every 4 s with the
  // number of requests since the beginning.
  SoakRow RunRound(uint64_t requests, void (*onProgress)(uint64_t requests));

 private:
  void Run(SoakClient& client, uint64_t target);
  void AwaitClients(void (*onProgress)(uint64_t requests)) const;
  void AwaitRest() const;
  SoakRow Measure(double seconds);

  DemoPrinter m_printer{kSoakPrinter, kSoakShare};
  ServerFixture m_server;
  std::vector<SoakClient> m_clients;
  std::atomic<uint64_t> m_requests{0};
  std::atomic<uint32_t> m_busyClients{0};
  uint64_t m_wrongAnswers = 0;
  uint64_t m_measuredRequests = 0;
  size_t m_threadsAtRest = 0;
  bool m_isReady = false;
};

}  // namespace kova::test
