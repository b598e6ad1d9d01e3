// The product's design with nothing else in it: an accept thread that waits for
// events, and a fresh thread for every connection; the calls that the design
// cannot do without, in the product's order. What it reaches is what the
// product can reach at best.
#include <CLI/CLI.hpp>
#include <stdexcept>

#include "bench/servers/bare_connections.h"
#include "bench/servers/bench_printer.h"
#include "bench/servers/server_program.h"
#include "net/winsock_session.h"
#include "spooler/printers.h"

namespace kova::bench {
namespace {

constexpr int kMostBacklog = 0x7FFFFFFF;
constexpr DWORD kEndMs = 1000;

class BareServer : public Server {
 public:
  explicit BareServer(BarePlan plan) : m_connections(std::move(plan)) {
    const Meter meter;
    WORD granted = 0;
    if (m_winsock.Open(&granted) != 0 || !Listen()) {
      throw std::runtime_error("cannot listen on 127.0.0.1, Winsock error " +
                               std::to_string(::WSAGetLastError()));
    }
    unsigned id = 0;
    m_thread.Reset(reinterpret_cast<HANDLE>(
        ::_beginthreadex(nullptr, 0, &_AcceptThread, this, 0, &id)));
    if (!m_thread.IsValid()) throw std::runtime_error("no accept thread");
    m_spent.startMs = meter.Milliseconds();
    m_spent.heldBytes = meter.Bytes();
  }

  uint16_t Port() const override { return m_port; }

  size_t Stop() override {
    ::WSASetEvent(m_shutdownEvent.Get());
    const bool ended = ::WaitForSingleObject(m_thread.Get(), kEndMs) == 0;
    m_thread.Reset();
    return (ended ? 0 : 1) + m_connections.Release();
  }
  Cost Spent() const override { return m_spent; }

 private:
  static unsigned __stdcall _AcceptThread(void* server) {
    static_cast<BareServer*>(server)->Accept();
    return 0;
  }

  [[nodiscard]] bool Listen() {
    m_listener.Reset(
        ::WSASocketW(AF_INET, SOCK_STREAM, 0, nullptr, 0, WSA_FLAG_OVERLAPPED));
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = ::htonl(INADDR_LOOPBACK);
    int sizeBytes = sizeof(address);
    auto* const plain = reinterpret_cast<sockaddr*>(&address);
    if (!m_listener.IsValid() || ::bind(m_listener.Get(), plain, sizeBytes) ||
        ::listen(m_listener.Get(), kMostBacklog) ||
        ::getsockname(m_listener.Get(), plain, &sizeBytes)) {
      return false;
    }
    m_port = ::ntohs(address.sin_port);
    m_shutdownEvent.Reset(::WSACreateEvent());
    m_networkEvent.Reset(::WSACreateEvent());
    return ::WSAEventSelect(m_listener.Get(), m_networkEvent.Get(),
                            FD_ACCEPT) == 0;
  }

  void Accept() {
    const WSAEVENT events[] = {m_shutdownEvent.Get(), m_networkEvent.Get()};
    while (::WSAWaitForMultipleEvents(2, events, FALSE, WSA_INFINITE, FALSE) ==
           WSA_WAIT_EVENT_0 + 1) {
      WSANETWORKEVENTS found = {};
      ::WSAEnumNetworkEvents(m_listener.Get(), m_networkEvent.Get(), &found);
      if (!(found.lNetworkEvents & FD_ACCEPT)) continue;
      sockaddr_in peer = {};
      int sizeBytes = sizeof(peer);
      const SOCKET socket =
          ::WSAAccept(m_listener.Get(), reinterpret_cast<sockaddr*>(&peer),
                      &sizeBytes, nullptr, 0);
      if (socket != INVALID_SOCKET) m_connections.Start(socket);
    }
    m_listener.Reset();
  }

  uint16_t m_port = 0;
  Cost m_spent;
  BareConnections m_connections;
  WinsockSession m_winsock;
  UniqueSocket m_listener;
  UniqueWsaEvent m_shutdownEvent;
  UniqueWsaEvent m_networkEvent;
  UniqueKernelHandle m_thread;
};

// What the command line fills in.
struct Arguments {
  AnswerKind kind = AnswerKind::kRefusal;
  BarePlan plan;
  std::string printer;
};

void Describe(CLI::App& app, Arguments& arguments) {
  BarePlan& plan = arguments.plan;
  app.name("bench_bare");
  app.description("One thread per connection and event-select, no more.");
  AddAnswerOption(app, arguments.kind);
  app.add_flag("--copy", plan.copy,
               "Copy each answer into a block of its own, as extensions must");
  app.add_flag("--keep-open", plan.keepOpen, "Go on receiving after an answer");
  app.add_option("--body", plan.bodyBytes,
                 "Answer when so many bytes have come; 0: at each receive");
  app.add_option("--receive", plan.growth,
                 "How the block they go to grows: reserved or exact")
      ->transform(CLI::CheckedTransformer(std::map<std::string, Growth>{
          {"reserved", Growth::kReserved}, {"exact", Growth::kExact}}));
  app.add_option("--lookup", arguments.printer,
                 "Ask the spooler for this printer's package each time");
}

}  // namespace
}  // namespace kova::bench

int main(int count, char** arguments) {
  using namespace kova::bench;
  Arguments given;
  std::unique_ptr<BenchPrinter> printer;
  return RunServerProgram(
      count, arguments, [&](CLI::App& app) { Describe(app, given); },
      [&] {
        BarePlan& plan = given.plan;
        plan.answer = MakeAnswer(given.kind, plan.keepOpen);
        plan.printer.assign(given.printer.begin(), given.printer.end());
        // Made where no other contestant has made it.
        if (!plan.printer.empty() &&
            GetDriverPackagePath(plan.printer.c_str()).empty()) {
          printer = std::make_unique<BenchPrinter>(plan.printer);
        }
        return std::make_unique<BareServer>(plan);
      });
}
