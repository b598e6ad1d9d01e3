// Unit: what the models must see or do for the schedules to find faults. A
// model that were stricter than this would turn the schedules red by itself.
#include <gmock/gmock.h>

#include "test/schedules/explorer.h"
#include "test/schedules/machine.h"

namespace kova::test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

struct Ownership {
  Machine& machine;
  HANDLE mutex;
};

unsigned __stdcall TakeForEver(void* argument) {
  const auto& [machine, mutex] = *static_cast<Ownership*>(argument);
  EXPECT_EQ(machine.kernel.WaitOne(mutex, 0), WAIT_OBJECT_0);
  EXPECT_EQ(machine.kernel.WaitOne(mutex, 0), WAIT_OBJECT_0);
  machine.kernel.SleepFor(INFINITE);
  return 0;
}

class ModelsTest : public testing::Test {
 protected:
  Scheduler::Ending Run(const std::function<void()>& host) {
    ScheduleChooser chooser;
    m_machine.BeginRun();
    return m_machine.scheduler.Run(host, chooser);
  }
  // A socket that a client is connected to, which takes ten bytes unread.
  SOCKET AcceptOne() {
    WSADATA data = {};
    m_winsock.Startup(0x0202, &data);
    const SOCKET listener = m_winsock.MakeSocket(0, 0, 0, nullptr, 0, 0);
    m_winsock.Listen(listener, 0);
    m_client = m_winsock.Connect(10);
    return m_winsock.Accept(listener, nullptr, nullptr, nullptr, 0);
  }
  void Select(SOCKET socket, long mask) {
    m_winsock.Select(socket, m_kernel.MakeManualEvent(), mask);
  }
  long Events(SOCKET socket) {
    WSANETWORKEVENTS found = {};
    m_winsock.Enumerate(socket, nullptr, &found);
    return found.lNetworkEvents;
  }
  // How many bytes, or -1.
  int Receive(SOCKET socket) {
    char bytes[4] = {};
    WSABUF buffer = {sizeof(bytes), bytes};
    DWORD count = 0;
    return m_winsock.Receive(socket, &buffer, 1, &count, nullptr, nullptr,
                             nullptr) == 0
               ? static_cast<int>(count)
               : -1;
  }
  int Send(SOCKET socket, std::string bytes) {
    WSABUF buffer = {static_cast<ULONG>(bytes.size()), bytes.data()};
    DWORD count = 0;
    return m_winsock.Send(socket, &buffer, 1, &count, 0, nullptr, nullptr) == 0
               ? static_cast<int>(count)
               : -1;
  }

  Machine m_machine;
  KernelModel& m_kernel = m_machine.kernel;
  WinsockModel& m_winsock = m_machine.winsock;
  ConnectionPtr m_client;
};

TEST_F(ModelsTest, UseOfAClosedHandleIsSeen) {
  Run([this] {
    const HANDLE event = m_kernel.MakeManualEvent();
    EXPECT_TRUE(m_kernel.Close(event));
    EXPECT_EQ(m_kernel.WaitOne(event, 0), WAIT_FAILED);
    EXPECT_TRUE(m_kernel.Close(event));
  });
  EXPECT_THAT(m_machine.Complaints(),
              ElementsAre(HasSubstr("a closed handle is used"),
                          HasSubstr("a closed handle is used")));
}

TEST_F(ModelsTest, AMutexOfAKilledThreadIsAbandoned) {
  Run([this] {
    const HANDLE mutex = m_kernel.MakeMutex(nullptr, FALSE, nullptr);
    Ownership ownership = {m_machine, mutex};
    const auto thread = reinterpret_cast<HANDLE>(
        m_kernel.BeginThread(nullptr, 0, &TakeForEver, &ownership, 0, nullptr));
    constexpr DWORD kTimeout = WAIT_TIMEOUT;
    EXPECT_EQ(m_kernel.WaitOne(thread, 100), kTimeout);
    EXPECT_EQ(m_kernel.WaitOne(mutex, 0), kTimeout);
    EXPECT_TRUE(m_kernel.Terminate(thread, 7));
    EXPECT_EQ(m_kernel.WaitOne(thread, 0), WAIT_OBJECT_0);
    EXPECT_EQ(m_kernel.WaitOne(mutex, 0), static_cast<DWORD>(WAIT_ABANDONED));
    EXPECT_EQ(m_kernel.WaitOne(mutex, 0), WAIT_OBJECT_0);
  });
  EXPECT_THAT(m_machine.Complaints(), IsEmpty());
}

TEST_F(ModelsTest, ALockOfAKilledThreadStaysTaken) {
  CRITICAL_SECTION section;
  const auto ending = Run([this, &section] {
    const ThreadId owner = m_machine.scheduler.Begin(
        "owner",
        [this, &section] {
          m_kernel.Enter(&section);
          m_kernel.Enter(&section);
          m_kernel.Leave(&section);
          m_kernel.SleepFor(INFINITE);
        },
        true);
    m_kernel.SleepFor(1);
    m_machine.scheduler.Kill(owner);
    m_kernel.Enter(&section);
  });
  EXPECT_EQ(ending, Scheduler::Ending::kDeadlock);
}

TEST_F(ModelsTest, ReadingIsRecordedOnceUntilSomethingIsReceived) {
  Run([this] {
    const SOCKET socket = AcceptOne();
    m_winsock.ClientSends(*m_client, "abc");
    Select(socket, FD_READ | FD_CLOSE);
    EXPECT_EQ(Events(socket), FD_READ);
    m_winsock.ClientSends(*m_client, "def");
    EXPECT_EQ(Events(socket), 0);
    EXPECT_EQ(Receive(socket), 4);
    EXPECT_EQ(Events(socket), FD_READ);
    m_winsock.ClientCloses(*m_client);
    EXPECT_EQ(Events(socket), 0);
    EXPECT_EQ(Receive(socket), 2);
    EXPECT_EQ(Events(socket), FD_CLOSE);
    EXPECT_EQ(Events(socket), 0);
  });
}

TEST_F(ModelsTest, WritingIsRecordedAgainAfterAWouldBlock) {
  Run([this] {
    const SOCKET socket = AcceptOne();
    Select(socket, FD_WRITE);
    EXPECT_EQ(Events(socket), FD_WRITE);
    EXPECT_EQ(Send(socket, "0123456789ab"), 10);
    EXPECT_EQ(Send(socket, "ab"), -1);
    EXPECT_EQ(::GetLastError(), static_cast<DWORD>(WSAEWOULDBLOCK));
    EXPECT_EQ(Events(socket), 0);
    EXPECT_EQ(m_winsock.ClientReceives(*m_client), "0123456789");
    EXPECT_EQ(Events(socket), FD_WRITE);
    EXPECT_EQ(Events(socket), 0);
  });
}

TEST_F(ModelsTest, NoSocketOutlivesTheLastSession) {
  Run([this] {
    const SOCKET socket = AcceptOne();
    EXPECT_EQ(m_winsock.Cleanup(), 0);
    EXPECT_TRUE(m_client->serverClosed);
    EXPECT_EQ(Receive(socket), -1);
  });
  EXPECT_THAT(m_machine.Complaints(),
              ElementsAre(HasSubstr("used after the last session")));
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
