// Patched: the list of live connection threads, without threads. The patches
// only count.
#include "net/client_list.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <optional>
#include <vector>

#include "test/net/windows_calls.h"

namespace {

using kova::ClientList;
using kova::ClientWorker;
using kova::test::Call;
using kova::test::WindowsCalls;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

enum class Told { kSignals, kStop, kKill, kFree };
using Log = std::vector<std::pair<int, Told>>;

// Notes what the list tells it.
class Worker final : public ClientWorker {
 public:
  Worker(int number, Log& log) : m_number(number), m_log(log) {}

  void AcceptStopSignals() override { Note(Told::kSignals); }
  void SignalStop() override { Note(Told::kStop); }
  void Kill() override { Note(Told::kKill); }
  bool FreeKilled(DWORD /*timeoutMs*/) override {
    Note(Told::kFree);
    return true;
  }

 private:
  void Note(Told told) { m_log.emplace_back(m_number, told); }

  const int m_number;
  Log& m_log;
};

class ClientListTest : public testing::Test {
 protected:
  // Nobody sleeps between the looks of a release.
  ClientListTest() {
    m_windows.Before(Call::kLookAgain, [](uint64_t) {});
  }

  void Register(std::initializer_list<int> numbers) {
    for (const int i : numbers) EXPECT_TRUE(m_list->RegisterClient(&m_all[i]));
  }
  // Who is listed, as a release tells them to stop.
  std::vector<int> Listed() {
    m_log.clear();
    m_list->ReleaseClients();
    m_list->Open();
    std::vector<int> numbers;
    for (const auto& [number, told] : m_log) {
      if (told == Told::kStop) numbers.push_back(number);
    }
    return numbers;
  }

  WindowsCalls m_windows;
  Log m_log;
  std::array<Worker, 4> m_all{Worker(0, m_log), Worker(1, m_log),
                              Worker(2, m_log), Worker(3, m_log)};
  const std::shared_ptr<ClientList> m_list = std::make_shared<ClientList>();
};

TEST_F(ClientListTest, TellsAllToStopInTheOrderOfTheirArrival) {
  Register({2, 0, 3, 1});
  EXPECT_THAT(Listed(), ElementsAre(2, 0, 3, 1));
}

TEST_F(ClientListTest, AnAbsentWorkerChangesNothing) {
  m_list->UnregisterClient(&m_all[0]);
  Register({1});
  m_list->UnregisterClient(&m_all[2]);
  m_list->UnregisterClient(nullptr);
  EXPECT_THAT(Listed(), ElementsAre(1));
}

TEST_F(ClientListTest, TakesOutTheFirstSlotOfAWorkerOnly) {
  Register({1, 2, 1, 3});
  m_list->UnregisterClient(&m_all[1]);
  EXPECT_THAT(Listed(), ElementsAre(2, 1, 3));
}

TEST_F(ClientListTest, KeepsTheOthersWhereverOneIsTakenOut) {
  for (const int out : {0, 1, 2}) {
    Register({0, 1, 2});
    m_list->UnregisterClient(&m_all[out]);
    EXPECT_THAT(Listed(), ElementsAre(out == 0 ? 1 : 0, out == 2 ? 1 : 2));
  }
}

TEST_F(ClientListTest, ARoundOfManyLeavesNobody) {
  for (int i = 0; i < 40; ++i) Register({i % 4});
  for (int i = 0; i < 40; ++i) m_list->UnregisterClient(&m_all[i % 4]);
  EXPECT_THAT(Listed(), IsEmpty());
}

TEST_F(ClientListTest, TurnsNewcomersAwayFromAReleaseUntilItIsOpenedAgain) {
  m_list->ReleaseClients();
  EXPECT_FALSE(m_list->RegisterClient(&m_all[1]));
  m_list->Open();
  Register({1});
  EXPECT_THAT(Listed(), ElementsAre(1));
}

TEST_F(ClientListTest, AWorkerThatIsReadyAfterAReleaseIsToldToStopAtOnce) {
  m_list->Ready(&m_all[0]);
  EXPECT_THAT(m_log, ElementsAre(Pair(0, Told::kSignals)));
  m_list->ReleaseClients();
  m_list->Ready(&m_all[1]);
  EXPECT_THAT(m_log,
              ElementsAre(Pair(0, Told::kSignals), Pair(1, Told::kSignals),
                          Pair(1, Told::kStop)));
}

TEST_F(ClientListTest, AReleaseOfNobodyDoesNotSleep) {
  m_list->ReleaseClients();
  EXPECT_EQ(m_windows.Calls(Call::kLookAgain), 0);
}

TEST_F(ClientListTest, AReleaseWaitsForWorkersThatAreNotYetListed) {
  std::optional<ClientList::Alive> alive(m_list);
  m_windows.Before(Call::kLookAgain, [&](uint64_t) {
    if (m_windows.Calls(Call::kLookAgain) == 3) alive.reset();
  });
  m_list->ReleaseClients();
  EXPECT_EQ(m_windows.Calls(Call::kLookAgain), 3);
}

TEST_F(ClientListTest, AReleaseLooksFiftyTimesThenKillsAllAndFreesAll) {
  Register({0, 1});
  m_list->ReleaseClients();
  EXPECT_EQ(m_windows.Calls(Call::kLookAgain), 50);
  EXPECT_THAT(m_log, ElementsAre(Pair(0, Told::kStop), Pair(1, Told::kStop),
                                 Pair(0, Told::kKill), Pair(1, Told::kKill),
                                 Pair(0, Told::kFree), Pair(1, Told::kFree)));
  EXPECT_THAT(Listed(), IsEmpty());
}

// To close a session first would close every socket of the process if it was
// the last one.
TEST_F(ClientListTest, KeepsTheWinsockSessionThatItHas) {
  {
    ClientList list;
    list.Open();
    list.Open();
    EXPECT_EQ(m_windows.Calls(Call::kStartup), 1);
    EXPECT_EQ(m_windows.Calls(Call::kCleanup), 0);
  }
  EXPECT_EQ(m_windows.Calls(Call::kCleanup), 1);
}

TEST_F(ClientListTest, AWorkerKeepsItsListAlive) {
  auto list = std::make_shared<ClientList>();
  const std::weak_ptr<ClientList> seen = list;
  std::optional<ClientList::Alive> alive(std::move(list));
  EXPECT_FALSE(seen.expired());
  EXPECT_EQ(&alive->List(), seen.lock().get());
  alive.reset();
  EXPECT_TRUE(seen.expired());
}

}  // namespace
