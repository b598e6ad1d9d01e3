#include "test/soak/soak_client.h"

#include <chrono>

#include "test/extensions/extension_answers.h"

namespace kova::test {
namespace {

constexpr int kRequestsOfAKeptConnection = 5;
constexpr size_t kMostLargeBytes = size_t{1} << 20;

uint64_t NowUs() {
  return static_cast<uint64_t>(
      std::chrono::duration_cast<std::chrono::microseconds>(
          std::chrono::steady_clock::now().time_since_epoch())
          .count());
}

std::string Get(const std::string& field, const std::string& actions) {
  return "GET /?" + field + "&act=" + actions + " HTTP/1.1\r\n\r\n";
}
std::string ByPrinter(const std::string& actions) {
  return Get("printer=KOVA+soak", actions);
}

}  // namespace

void SoakTally::Add(const SoakTally& other) {
  requests += other.requests;
  wrongAnswers += other.wrongAnswers;
  latenciesUs.insert(latenciesUs.end(), other.latenciesUs.begin(),
                     other.latenciesUs.end());
}

const SoakClient::Manner SoakClient::kManners[] = {
    {48, &SoakClient::AskByPrinter}, {10, &SoakClient::AskByShare},
    {10, &SoakClient::AskNobody},    {16, &SoakClient::AskRepeatedly},
    {2, &SoakClient::AskForMuch},    {3, &SoakClient::AskByteByByte},
    {4, &SoakClient::BreakOff},      {3, &SoakClient::SendGarbage},
    {4, &SoakClient::ResetUnread}};

uint64_t SoakClient::RunOnce() {
  const uint64_t before = m_tally.requests;
  uint32_t number = m_random() % 100;
  const Manner* manner = kManners;
  for (; number >= manner->share; ++manner) number -= manner->share;
  m_startedUs = NowUs();
  TestClient client(m_port);
  if (client.IsConnected()) {
    NotePort(client);
    (this->*manner->run)(client);
  } else {
    Expect(false);
  }
  return m_tally.requests - before;
}

SoakTally SoakClient::TakeTally() {
  SoakTally tally = m_tally;
  m_tally.requests = 0;
  m_tally.wrongAnswers = 0;
  // Keeps its memory, so that the soak itself does not look like a leak.
  m_tally.latenciesUs.clear();
  return tally;
}

void SoakClient::AskByPrinter(TestClient& client) {
  const std::string request = ByPrinter("");
  client.Send(request);
  ExpectEcho(client, request, 0);
}

void SoakClient::AskByShare(TestClient& client) {
  const std::string request = Get("share=KOVASOAK", "");
  client.Send(request);
  ExpectEcho(client, request, 0);
}

void SoakClient::AskNobody(TestClient& client) {
  client.Send(Get("printer=nobody", ""));
  Expect(client.ReceiveAll().starts_with("HTTP/1.1 400 ") &&
         client.ClosedByPeer());
}

void SoakClient::AskRepeatedly(TestClient& client) {
  for (int i = 0; i < kRequestsOfAKeptConnection; ++i) {
    const bool isLast = i + 1 == kRequestsOfAKeptConnection;
    const std::string request = ByPrinter(isLast ? "close" : "keep");
    client.Send(request);
    ExpectEcho(client, request, i == 0 ? 0 : 1);
    m_startedUs = NowUs();
  }
}

void SoakClient::AskForMuch(TestClient& client) {
  const size_t count = 1 + m_random() % kMostLargeBytes;
  client.Send(ByPrinter("bytes-" + std::to_string(count)));
  Expect(client.ReceiveAll() == Pattern(count));
}

void SoakClient::AskByteByByte(TestClient& client) {
  const std::string request = ByPrinter("");
  client.SendByteByByte(request);
  ExpectEcho(client, request, 0);
}

void SoakClient::BreakOff(TestClient& client) {
  const std::string request = ByPrinter("");
  client.Send(request.substr(0, m_random() % request.size()));
  ++m_tally.requests;
}

void SoakClient::SendGarbage(TestClient& client) {
  std::string bytes(1 + m_random() % 3000, '\0');
  // A zero in front keeps the rest from ever being a request.
  for (size_t i = 1; i < bytes.size(); ++i) {
    bytes[i] = static_cast<char>(m_random());
  }
  client.Send(bytes);
  client.FinishSending();
  Expect(client.ReceiveAll().empty() && client.ClosedByPeer());
}

void SoakClient::ResetUnread(TestClient& client) {
  client.Send(ByPrinter("bytes-100000"));
  client.Reset();
  ++m_tally.requests;
}

void SoakClient::Expect(bool isRight) {
  ++m_tally.requests;
  if (!isRight) ++m_tally.wrongAnswers;
  m_tally.latenciesUs.push_back(static_cast<uint32_t>(NowUs() - m_startedUs));
}

void SoakClient::ExpectEcho(TestClient& client, const std::string& request,
                            uint32_t keepOpen) {
  const std::string expected = Echo(client.Address(), keepOpen, request);
  Expect(client.Receive(expected.size()) == expected);
}

void SoakClient::NotePort(const TestClient& client) {
  m_ports.set(client.LocalPort());
}

}  // namespace kova::test
