// Watches, fails and holds back the Windows calls of the server, for tests.
#pragma once

#include <cstdint>
#include <functional>
#include <vector>

#include "base/windows_api.h"

namespace kova::test {

// The calls that can be watched. The last three are told apart by how long
// they wait.
enum class Call {
  kStartup,
  kCleanup,
  kSocket,
  kBind,
  kListen,
  kAccept,
  kCreateEvent,
  kEventSelect,
  kWait,
  kEnumEvents,
  kBeginThread,
  kResumeThread,
  kAwaitAnswer,  // WaitForSingleObject for 30000 ms: Run()
  kAwaitEnd,     // WaitForSingleObject for 1000 ms: Stop()
  kLookAgain,    // Sleep(100): the release of the connections
  kCount
};

// From construction to destruction, keeps account of the sockets, events,
// Winsock references and threads that the server opens in this program. At
// most one may live at a time, and it must outlive every server and thread
// that it watched. Safe to use on any thread.
class WindowsCalls {
 public:
  // What runs before a call, on the thread that calls. `detail` is how long a
  // waiting call would wait in ms, 0 for others.
  using Hook = std::function<void(uint64_t detail)>;

  WindowsCalls();
  ~WindowsCalls();
  WindowsCalls(const WindowsCalls&) = delete;
  WindowsCalls& operator=(const WindowsCalls&) = delete;

  // Makes one call fail: the next but `callsBefore`. `error` is the code it
  // leaves behind (errno for kBeginThread, the result for kStartup, not used
  // by those that have none). kAwaitAnswer and kAwaitEnd run into their time
  // limit at once.
  void Fail(Call call, int error, int callsBefore = 0);
  // Sets what runs before each such call, or nothing if it is null; for
  // kLookAgain, in place of it. Unless a hook is set, kLookAgain goes on as
  // soon as all threads have ended.
  void Before(Call call, Hook hook);
  // What WSAStartup grants, whatever is asked for.
  void GrantVersion(WORD version);
  // Lets the next WSAEnumNetworkEvents find no event.
  void HideNextEvents();

  [[nodiscard]] int Calls(Call call) const;
  // Of what was opened since construction, how much is open.
  [[nodiscard]] size_t OpenSockets() const;
  [[nodiscard]] size_t OpenEvents() const;
  [[nodiscard]] int OpenSessions() const;
  // Thread handles and started events.
  [[nodiscard]] size_t OpenHandles() const;
  // Sockets, events and handles together.
  [[nodiscard]] size_t OpenInAll() const;

  // The address that the last listening socket was bound to.
  [[nodiscard]] sockaddr_in ListeningAddress() const;
  [[nodiscard]] uint16_t Port() const;

  // Threads are numbered in the order of their start, from 0.
  [[nodiscard]] size_t ThreadsBegun() const;
  // Waits for the end of one thread, which may yet have to begin, or of all
  // that have begun; false after `timeoutMs`.
  [[nodiscard]] bool ThreadEnds(size_t thread, DWORD timeoutMs) const;
  [[nodiscard]] bool AllThreadsEnd(DWORD timeoutMs) const;
  [[nodiscard]] DWORD ExitCode(size_t thread) const;
  // The exit codes given to TerminateThread.
  [[nodiscard]] std::vector<DWORD> Terminations() const;
};

}  // namespace kova::test
