// Whole: stopping, unloading and restarting under load, and what is left.
#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <thread>
#include <vector>

#include "test/support/import_patch.h"
#include "test/support/process_counts.h"
#include "test/support/server_fixture.h"
#include "test/support/test_client.h"
#include "test/whole/rounds.h"

namespace kova::test {
namespace {

constexpr DWORD kPatienceMs = 10000;
// The system opens and closes some handles of its own; one lost in each of 200
// rounds is far more than these.
constexpr size_t kHandleSlack = 5;
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

bool IsUnloaded() {
  for (DWORD waited = 0; waited < kPatienceMs; ++waited) {
    if (::GetModuleHandleW(L"KOVAServer.dll") == nullptr) return true;
    ::SleepEx(1, FALSE);
  }
  return false;
}

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
    server.Unload();
    ASSERT_TRUE(IsUnloaded()) << round;
  }
}

// The library must not hang on a thread of the host that it has run on.
TEST(UnloadTest, TheLibraryMayBeUnloadedByTheThreadThatStartedAndStopped) {
  ServerSettingsScope settings;
  ASSERT_TRUE(settings.SetPort(FreePort()));
  const std::wstring path = TestProgramFolder() + L"\\..\\bin\\KOVAServer.dll";
  for (int round = 0; round < 3; ++round) {
    UniqueModule library(::LoadLibraryW(path.c_str()));
    ASSERT_TRUE(library.IsValid());
    for (const char* name : {"StartKOVAServer", "StopKOVAServer"}) {
      const auto call = reinterpret_cast<KOVA_StartServer*>(
          reinterpret_cast<void*>(::GetProcAddress(library.Get(), name)));
      call();
    }
    library.Reset();
    ASSERT_TRUE(IsUnloaded());
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
  ::LoadLibraryW((TestProgramFolder() + L"\\..\\bin\\KOVAServer.dll").c_str());
}

TEST(UnloadTest, StartsAndStopsLeaveNoThreadAndNoHandleBehind) {
  ServerFixture server;
  size_t threads = 0;
  size_t handles = 0;
  for (int round = 0; round < 220; ++round) {
    server.Start();
    EXPECT_EQ(Ask(server.Port(), kRequest).substr(0, 12), "HTTP/1.1 400");
    const TestClient idle(server.Port());
    StopQuickly(server);
    if (round == 20) {
      threads = CountThreads();
      handles = CountHandles();
    }
  }
  // The restart thread ends behind the stop.
  EXPECT_TRUE(WaitForThreads(threads, kClientPatienceMs));
  EXPECT_LE(CountHandles(), handles + kHandleSlack);
}

TEST(UnloadTest, ConnectionsLeaveNoThreadAndNoHandleBehind) {
  ServerFixture server;
  server.Start();
  for (int i = 0; i < 20; ++i) Ask(server.Port(), kRequest);
  StopQuickly(server);
  server.Start();
  const size_t threads = CountThreads();
  const size_t handles = CountHandles();
  for (int i = 0; i < 200; ++i) {
    TestClient client(server.Port());
    client.Send(i % 3 == 0 ? "GET / HT" : kRequest);
    if (i % 3 == 1) client.Reset();
    if (i % 3 == 2) client.ReceiveAll();
  }
  StopQuickly(server);
  server.Start();
  // The restart thread ends behind the stop.
  EXPECT_TRUE(WaitForThreads(threads, kClientPatienceMs));
  EXPECT_LE(CountHandles(), handles + kHandleSlack);
}

}  // namespace
}  // namespace kova::test
