// One of the clients of a soak, with a mix of good and bad manners.
#pragma once

#include <bitset>
#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include "test/support/test_client.h"

namespace kova::test {

inline constexpr wchar_t kSoakPrinter[] = L"KOVA soak";
inline constexpr wchar_t kSoakShare[] = L"kovaSoak";

// The TCP ports that clients have come from.
using PeerPorts = std::bitset<65536>;

// What clients have done and seen.
struct SoakTally {
  uint64_t requests = 0;
  // Those whose answer was missing or not the expected one, to the byte.
  uint64_t wrongAnswers = 0;
  // Of the requests that are owed an answer: from before the connection is
  // made, or the request is sent on a kept one, to the last byte.
  std::vector<uint32_t> latenciesUs;

  void Add(const SoakTally& other);
};

// Sends to the server at `port` on this machine, which must route kSoakPrinter
// and kSoakShare to a scripted extension. Used on one thread at a time.
class SoakClient {
 public:
  SoakClient(uint16_t port, uint32_t seed) : m_port(port), m_random(seed) {}

  // One connection of some kind, chosen at random: routed by printer or share,
  // refused, kept open for several requests, with a large answer, sent byte by
  // byte, broken off half-way, no request at all, or reset. Returns the number
  // of requests it made.
  uint64_t RunOnce();

  // What has come together since the last call.
  SoakTally TakeTally();
  [[nodiscard]] const PeerPorts& Ports() const { return m_ports; }

 private:
  struct Manner {
    uint32_t share;  // in a hundred connections
    void (SoakClient::*run)(TestClient& client);
  };
  static const Manner kManners[];

  void AskByPrinter(TestClient& client);
  void AskByShare(TestClient& client);
  void AskNobody(TestClient& client);
  void AskRepeatedly(TestClient& client);
  void AskForMuch(TestClient& client);
  void AskByteByByte(TestClient& client);
  void BreakOff(TestClient& client);
  void SendGarbage(TestClient& client);
  void ResetUnread(TestClient& client);

  void Expect(bool isRight);
  void ExpectEcho(TestClient& client, const std::string& request,
                  uint32_t keepOpen);
  void NotePort(const TestClient& client);

  const uint16_t m_port;
  std::mt19937 m_random;
  uint64_t m_startedUs = 0;
  SoakTally m_tally;
  PeerPorts m_ports;
};

}  // namespace kova::test
