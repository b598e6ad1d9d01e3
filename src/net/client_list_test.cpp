// Unit: the list of live connection threads, without threads.
#include "net/client_list.h"

#include <gtest/gtest.h>

#include <optional>

#include "test/net/windows_calls.h"

namespace {

using kova::ClientList;
using kova::ClientWorker;
using kova::test::Call;
using kova::test::WindowsCalls;

class ClientListTest : public testing::Test {
 protected:
  // Workers that the list only compares.
  static ClientWorker* Worker(uintptr_t number) {
    return reinterpret_cast<ClientWorker*>(number * 16);
  }

  const std::shared_ptr<ClientList> m_list = std::make_shared<ClientList>();
};

TEST_F(ClientListTest, StartsEmpty) { EXPECT_EQ(m_list->Count(), 0); }

TEST_F(ClientListTest, CountsWhatIsRegistered) {
  for (uintptr_t i = 1; i <= 40; ++i) EXPECT_TRUE(m_list->Register(Worker(i)));
  EXPECT_EQ(m_list->Count(), 40);
  for (uintptr_t i = 40; i >= 1; --i) m_list->Unregister(Worker(i));
  EXPECT_EQ(m_list->Count(), 0);
}

TEST_F(ClientListTest, AnAbsentWorkerChangesNothing) {
  m_list->Unregister(Worker(1));
  EXPECT_TRUE(m_list->Register(Worker(1)));
  m_list->Unregister(Worker(2));
  m_list->Unregister(nullptr);
  EXPECT_EQ(m_list->Count(), 1);
}

TEST_F(ClientListTest, TakesOutTheFirstSlotOfAWorkerOnly) {
  for (uintptr_t i : {1, 2, 1, 3}) EXPECT_TRUE(m_list->Register(Worker(i)));
  m_list->Unregister(Worker(1));
  EXPECT_EQ(m_list->Count(), 3);
  m_list->Unregister(Worker(1));
  EXPECT_EQ(m_list->Count(), 2);
  m_list->Unregister(Worker(1));
  EXPECT_EQ(m_list->Count(), 2);
}

TEST_F(ClientListTest, KeepsTheOthersWhereverOneIsTakenOut) {
  for (uintptr_t out = 1; out <= 3; ++out) {
    ClientList list;
    for (uintptr_t i : {1, 2, 3}) EXPECT_TRUE(list.Register(Worker(i)));
    list.Unregister(Worker(out));
    list.Unregister(Worker(out));
    EXPECT_EQ(list.Count(), 2) << out;
    for (uintptr_t i : {1, 2, 3}) list.Unregister(Worker(i));
    EXPECT_EQ(list.Count(), 0) << out;
  }
}

TEST_F(ClientListTest, TurnsNewcomersAwayFromAReleaseUntilItIsOpenedAgain) {
  m_list->Release();
  EXPECT_FALSE(m_list->Register(Worker(1)));
  EXPECT_EQ(m_list->Count(), 0);
  m_list->Open();
  EXPECT_TRUE(m_list->Register(Worker(1)));
}

TEST_F(ClientListTest, AReleaseOfNobodyDoesNotSleep) {
  const WindowsCalls windows;
  m_list->Release();
  EXPECT_EQ(windows.Calls(Call::kLookAgain), 0);
}

TEST_F(ClientListTest, AReleaseWaitsForWorkersThatAreNotYetListed) {
  WindowsCalls windows;
  std::optional<ClientList::Alive> alive(m_list);
  windows.Before(Call::kLookAgain, [&](uint64_t) {
    if (windows.Calls(Call::kLookAgain) == 3) alive.reset();
  });
  m_list->Release();
  EXPECT_EQ(windows.Calls(Call::kLookAgain), 3);
}

TEST_F(ClientListTest, AReleaseLooksFiftyTimesAtMost) {
  WindowsCalls windows;
  const ClientList::Alive alive(m_list);
  windows.Before(Call::kLookAgain, [](uint64_t) {});
  m_list->Release();
  EXPECT_EQ(windows.Calls(Call::kLookAgain), 50);
}

// To close a session first would close every socket of the process if it was
// the last one.
TEST_F(ClientListTest, KeepsTheWinsockSessionThatItHas) {
  const WindowsCalls windows;
  {
    ClientList list;
    list.Open();
    list.Open();
    EXPECT_EQ(windows.Calls(Call::kStartup), 1);
    EXPECT_EQ(windows.Calls(Call::kCleanup), 0);
  }
  EXPECT_EQ(windows.Calls(Call::kCleanup), 1);
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
