// Whole: the library may be unloaded right after a stop, and not before.
#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

#include "test/support/import_patch.h"
#include "test/support/server_fixture.h"
#include "test/support/test_client.h"
#include "test/whole/rounds.h"

namespace kova::test {
namespace {

constexpr char kRequest[] = "GET / HTTP/1.1\r\n\r\n";

// Makes the looks of a release quick, without using up its grace time.
void WINAPI ShortSleep(DWORD) { ::SleepEx(5, FALSE); }

// Clients that connect, ask and hang up without pause, to whatever port is
// named at the moment.
class Load {
 public:
  explicit Load(int clients) {
    for (int i = 0; i < clients; ++i) {
      m_clients.emplace_back([this, i] { Run(i); });
    }
  }
  ~Load() {
    m_done = true;
    for (std::thread& client : m_clients) client.join();
  }

  void Aim(uint16_t port) { m_port = port; }
  // Waits until an answer has come since the call.
  void WaitForAnswer() const {
    const int before = m_answers;
    while (m_answers == before) std::this_thread::yield();
  }

 private:
  void Run(int number) {
    while (!m_done) {
      TestClient client(m_port);
      if (!client.IsConnected()) {
        std::this_thread::yield();
        continue;
      }
      // Every other client leaves its request unfinished or unread.
      client.Send(number % 2 == 0 ? kRequest : "GET / HT");
      if (number % 2 == 0 && !client.ReceiveAll(1000).empty()) ++m_answers;
    }
  }

  std::atomic<uint16_t> m_port{0};
  std::atomic<int> m_answers{0};
  std::atomic<bool> m_done{false};
  std::vector<std::thread> m_clients;
};

void StopQuickly(ServerFixture& server) {
  const ImportPatch<decltype(::Sleep)> patch(server.Module(), "Sleep",
                                             &ShortSleep);
  server.Stop();
}

TEST(UnloadTest, TheLibraryMayBeUnloadedRightAfterAStopUnderLoad) {
  Load load(3);
  for (int round = 0; round < Rounds(100, 1000); ++round) {
    ServerFixture server;
    ASSERT_TRUE(server.IsLoaded());
    server.Start();
    load.Aim(server.Port());
    if (round % 4 == 0) load.WaitForAnswer();
    StopQuickly(server);
    ASSERT_TRUE(server.Unload()) << round;
  }
}

TEST(UnloadTest, AServerThatWasNotStoppedKeepsItsLibraryLoaded) {
  ServerFixture server;
  server.Start();
  const uint16_t port = server.Port();
  HMODULE library = nullptr;
  ::GetModuleHandleExW(0, L"KOVAServer.dll", &library);
  ::FreeLibrary(library);
  ::FreeLibrary(server.Module());
  EXPECT_NE(::GetModuleHandleW(L"KOVAServer.dll"), nullptr);
  EXPECT_EQ(Ask(port, kRequest).substr(0, 12), "HTTP/1.1 400");
  // Gives the fixture its reference back, so that it can stop the server.
  ::LoadLibraryW(ServerLibraryPath().c_str());
}

}  // namespace
}  // namespace kova::test
