// Unit: the modelled machine does what Windows documents.
#include <gmock/gmock.h>

#include "test/schedules/explorer.h"
#include "test/schedules/machine.h"

namespace kova::test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using Kind = KernelObject::Kind;

DWORD WaitFor(Machine& machine, HANDLE handle) {
  const HANDLE handles[] = {handle};
  return machine.kernel.Wait("a wait", handles, 0);
}

struct Ownership {
  Machine& machine;
  HANDLE mutex;
};

unsigned __stdcall TakeForEver(void* argument) {
  const auto& [machine, mutex] = *static_cast<Ownership*>(argument);
  EXPECT_EQ(WaitFor(machine, mutex), WAIT_OBJECT_0);
  EXPECT_EQ(WaitFor(machine, mutex), WAIT_OBJECT_0);
  machine.scheduler.Await("for ever", [] { return false; });
  return 0;
}

class ModelsTest : public testing::Test {
 protected:
  void Run(const std::function<void()>& host) {
    ScheduleChooser chooser({});
    m_machine.BeginRun();
    m_ending = m_machine.scheduler.Run(host, chooser);
  }
  // A socket that a client is connected to.
  SOCKET AcceptOne() {
    m_client = m_machine.winsock.Connect(10);
    return m_machine.winsock.Accept(m_listener);
  }
  void Listen() {
    WSADATA data = {};
    m_machine.winsock.Startup(0x0202, &data);
    m_listener = m_machine.winsock.MakeSocket();
    m_machine.winsock.Bind(m_listener, 5130);
    m_machine.winsock.Listen(m_listener);
  }
  HANDLE MakeEvent(bool manual) {
    auto event = std::make_shared<KernelObject>();
    event->manual = manual;
    return m_machine.kernel.Add(event);
  }
  long Events(SOCKET socket) {
    WSANETWORKEVENTS found = {};
    m_machine.winsock.Enumerate(socket, nullptr, &found);
    return found.lNetworkEvents;
  }
  DWORD Wait(HANDLE handle) { return WaitFor(m_machine, handle); }

  Machine m_machine;
  Scheduler::Ending m_ending = Scheduler::Ending::kAllEnded;
  SOCKET m_listener = INVALID_SOCKET;
  ConnectionPtr m_client;
};

TEST_F(ModelsTest, OneWaitTakesAnAutoResetEvent) {
  Run([this] {
    const HANDLE automatic = MakeEvent(false);
    const HANDLE manual = MakeEvent(true);
    for (const HANDLE event : {automatic, manual}) {
      m_machine.kernel.Find(event, "")->signalled = true;
      EXPECT_EQ(Wait(event), WAIT_OBJECT_0);
    }
    EXPECT_EQ(Wait(automatic), static_cast<DWORD>(WAIT_TIMEOUT));
    EXPECT_EQ(Wait(manual), WAIT_OBJECT_0);
  });
}

TEST_F(ModelsTest, UseOfAClosedHandleIsSeen) {
  Run([this] {
    const HANDLE event = MakeEvent(false);
    EXPECT_TRUE(m_machine.kernel.Close(event, "CloseHandle"));
    EXPECT_EQ(Wait(event), WAIT_FAILED);
    EXPECT_TRUE(m_machine.kernel.Close(event, "CloseHandle"));
  });
  EXPECT_THAT(m_machine.Complaints(),
              ElementsAre(HasSubstr("a wait got a handle that is closed"),
                          HasSubstr("CloseHandle got a handle")));
}

TEST_F(ModelsTest, AMutexOfAKilledThreadIsAbandoned) {
  Run([this] {
    auto mutex = std::make_shared<KernelObject>();
    mutex->kind = Kind::kMutex;
    const HANDLE handle = m_machine.kernel.Add(mutex);
    Ownership ownership = {m_machine, handle};
    const HANDLE thread =
        m_machine.kernel.BeginThread(&TakeForEver, &ownership, false, nullptr);
    const HANDLE threads[] = {thread};
    EXPECT_EQ(m_machine.kernel.Wait("", threads, 100),
              static_cast<DWORD>(WAIT_TIMEOUT));
    EXPECT_EQ(Wait(handle), static_cast<DWORD>(WAIT_TIMEOUT));
    m_machine.kernel.Terminate(*m_machine.kernel.Find(thread, ""), 7);
    EXPECT_EQ(Wait(thread), WAIT_OBJECT_0);
    EXPECT_EQ(Wait(handle), static_cast<DWORD>(WAIT_ABANDONED));
    EXPECT_EQ(Wait(handle), WAIT_OBJECT_0);
  });
  EXPECT_THAT(m_machine.Complaints(), IsEmpty());
}

TEST_F(ModelsTest, ALockOfAKilledThreadStaysTaken) {
  int section = 0;
  Run([this, &section] {
    const ThreadId owner = m_machine.scheduler.Begin(
        "owner",
        [this, &section] {
          m_machine.locks.Enter("", &section, true);
          m_machine.locks.Enter("", &section, true);
          m_machine.locks.Leave("", &section);
          m_machine.scheduler.Await("for ever", [] { return false; });
        },
        true);
    m_machine.scheduler.Await("a while", [] { return false; }, 1);
    m_machine.scheduler.Kill(owner);
    m_machine.locks.Enter("entering", &section, true);
  });
  EXPECT_EQ(m_ending, Scheduler::Ending::kDeadlock);
}

TEST_F(ModelsTest, ALockIsFreeOnceItIsLeftAsOftenAsEntered) {
  int section = 0;
  Run([this, &section] {
    for (int i = 0; i < 2; ++i) m_machine.locks.Enter("", &section, true);
    for (int i = 0; i < 2; ++i) m_machine.locks.Leave("", &section);
    m_machine.scheduler.Begin(
        "other",
        [this, &section] { m_machine.locks.Enter("", &section, true); }, false);
  });
  EXPECT_EQ(m_ending, Scheduler::Ending::kAllEnded);
  EXPECT_THAT(m_machine.Complaints(), IsEmpty());
}

TEST_F(ModelsTest, ReadingIsRecordedOnceUntilSomethingIsReceived) {
  Run([this] {
    Listen();
    const SOCKET socket = AcceptOne();
    m_machine.winsock.ClientSends(*m_client, "abc");
    m_machine.winsock.Select(socket, MakeEvent(true), FD_READ | FD_CLOSE);
    EXPECT_EQ(Events(socket), FD_READ);
    m_machine.winsock.ClientSends(*m_client, "def");
    EXPECT_EQ(Events(socket), 0);
    char bytes[4] = {};
    DWORD received = 0;
    EXPECT_EQ(m_machine.winsock.Receive(socket, bytes, 4, &received), 0);
    EXPECT_EQ(received, 4u);
    EXPECT_EQ(Events(socket), FD_READ);
    m_machine.winsock.ClientCloses(*m_client);
    EXPECT_EQ(Events(socket), 0);
    EXPECT_EQ(m_machine.winsock.Receive(socket, bytes, 4, &received), 0);
    EXPECT_EQ(received, 2u);
    EXPECT_EQ(Events(socket), FD_CLOSE);
    EXPECT_EQ(Events(socket), 0);
  });
}

TEST_F(ModelsTest, WritingIsRecordedAgainAfterAWouldBlock) {
  Run([this] {
    Listen();
    const SOCKET socket = AcceptOne();
    m_machine.winsock.Select(socket, MakeEvent(true), FD_WRITE);
    EXPECT_EQ(Events(socket), FD_WRITE);
    DWORD sent = 0;
    EXPECT_EQ(m_machine.winsock.Send(socket, "0123456789ab", 12, &sent), 0);
    EXPECT_EQ(sent, 10u);
    EXPECT_EQ(m_machine.winsock.Send(socket, "ab", 2, &sent), SOCKET_ERROR);
    EXPECT_EQ(::GetLastError(), static_cast<DWORD>(WSAEWOULDBLOCK));
    EXPECT_EQ(Events(socket), 0);
    EXPECT_EQ(m_machine.winsock.ClientReceives(*m_client), "0123456789");
    EXPECT_EQ(Events(socket), FD_WRITE);
    EXPECT_EQ(Events(socket), 0);
  });
}

TEST_F(ModelsTest, TheLastSessionEndsAllConnections) {
  Run([this] {
    Listen();
    const SOCKET socket = AcceptOne();
    EXPECT_TRUE(m_machine.winsock.IsListening());
    EXPECT_EQ(m_machine.winsock.Cleanup(), 0);
    EXPECT_FALSE(m_machine.winsock.IsListening());
    EXPECT_TRUE(m_client->serverClosed);
    EXPECT_EQ(m_machine.winsock.Close(socket), 0);
  });
}

TEST_F(ModelsTest, MemoryThatIsLeftAloneIsNot) {
  m_machine.heap.Free(m_machine.heap.Allocate(16));
  m_machine.heap.Free(m_machine.heap.AllocateAgain(nullptr, 4000));
  m_machine.heap.Sift();
  EXPECT_THAT(m_machine.Complaints(), IsEmpty());
}

TEST_F(ModelsTest, MemoryUsedAfterItWasFreedIsSeen) {
  auto* const block = static_cast<char*>(m_machine.heap.Allocate(16));
  m_machine.heap.Free(block);
  block[3] = 'x';
  m_machine.heap.Free(block);
  m_machine.heap.Sift();
  EXPECT_THAT(m_machine.Complaints(),
              ElementsAre("a block of memory is freed twice",
                          "a block of memory is written to after it was "
                          "freed"));
  EXPECT_EQ(m_machine.heap.Blocks(), 0u);
}

}  // namespace
}  // namespace kova::test
