#include "test/net/windows_calls.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <utility>

#include "test/support/import_patch.h"

namespace kova::test {
namespace {

constexpr DWORD kAnswerMs = 30000;
constexpr DWORD kEndMs = 1000;
constexpr DWORD kLookAgainMs = 100;
constexpr std::chrono::seconds kBeginTime{10};

int WSAAPI Startup(WORD version, LPWSADATA data);
int WSAAPI Cleanup();
SOCKET WSAAPI Socket(int family, int type, int protocol,
                     LPWSAPROTOCOL_INFOW info, GROUP group, DWORD flags);
int WSAAPI Bind(SOCKET socket, const sockaddr* name, int bytes);
int WSAAPI Listen(SOCKET socket, int backlog);
SOCKET WSAAPI Accept(SOCKET socket, sockaddr* peer, LPINT bytes,
                     LPCONDITIONPROC condition, DWORD_PTR data);
int WSAAPI CloseSocket(SOCKET socket);
WSAEVENT WSAAPI CreateWsaEvent();
WINBOOL WSAAPI CloseWsaEvent(WSAEVENT event);
int WSAAPI EventSelect(SOCKET socket, WSAEVENT event, long bits);
DWORD WSAAPI Wait(DWORD count, const WSAEVENT* events, WINBOOL all,
                  DWORD timeoutMs, WINBOOL alertable);
int WSAAPI EnumEvents(SOCKET socket, WSAEVENT event, LPWSANETWORKEVENTS found);
uintptr_t __cdecl BeginThread(void* security, unsigned stack,
                              unsigned(__stdcall* start)(void*), void* argument,
                              unsigned flags, unsigned* id);
DWORD WINAPI Resume(HANDLE thread);
WINBOOL WINAPI Terminate(HANDLE thread, DWORD exitCode);
DWORD WINAPI WaitSingle(HANDLE object, DWORD timeoutMs);
void WINAPI SleepFor(DWORD timeMs);
HANDLE WINAPI CreateStartedEvent(LPSECURITY_ATTRIBUTES security, WINBOOL manual,
                                 WINBOOL signalled, LPCWSTR name);
WINBOOL WINAPI Close(HANDLE handle);

template <typename Function>
using Patch = ImportPatch<Function>;

struct Patches {
  Patch<decltype(Startup)> startup{nullptr, "WSAStartup", &Startup};
  Patch<decltype(Cleanup)> cleanup{nullptr, "WSACleanup", &Cleanup};
  Patch<decltype(Socket)> socket{nullptr, "WSASocketW", &Socket};
  Patch<decltype(Bind)> bind{nullptr, "bind", &Bind};
  Patch<decltype(Listen)> listen{nullptr, "listen", &Listen};
  Patch<decltype(Accept)> accept{nullptr, "WSAAccept", &Accept};
  Patch<decltype(CloseSocket)> closeSocket{nullptr, "closesocket",
                                           &CloseSocket};
  Patch<decltype(CreateWsaEvent)> createEvent{nullptr, "WSACreateEvent",
                                              &CreateWsaEvent};
  Patch<decltype(CloseWsaEvent)> closeEvent{nullptr, "WSACloseEvent",
                                            &CloseWsaEvent};
  Patch<decltype(EventSelect)> select{nullptr, "WSAEventSelect", &EventSelect};
  Patch<decltype(Wait)> wait{nullptr, "WSAWaitForMultipleEvents", &Wait};
  Patch<decltype(EnumEvents)> enumEvents{nullptr, "WSAEnumNetworkEvents",
                                         &EnumEvents};
  Patch<decltype(BeginThread)> begin{nullptr, "_beginthreadex", &BeginThread};
  Patch<decltype(Resume)> resume{nullptr, "ResumeThread", &Resume};
  Patch<decltype(Terminate)> terminate{nullptr, "TerminateThread", &Terminate};
  Patch<decltype(WaitSingle)> waitSingle{nullptr, "WaitForSingleObject",
                                         &WaitSingle};
  Patch<decltype(SleepFor)> sleep{nullptr, "Sleep", &SleepFor};
  Patch<decltype(CreateStartedEvent)> createStarted{nullptr, "CreateEventW",
                                                    &CreateStartedEvent};
  Patch<decltype(Close)> close{nullptr, "CloseHandle", &Close};
};

struct Failure {
  int callsBefore = 0;
  int error = 0;
};

struct OneCall {
  int calls = 0;
  std::optional<Failure> failure;
  std::shared_ptr<const WindowsCalls::Hook> hook;
};

struct State {
  std::mutex mutex;
  std::condition_variable threadBegun;
  std::array<OneCall, static_cast<size_t>(Call::kCount)> calls;
  std::set<SOCKET> sockets;
  std::set<WSAEVENT> events;
  std::set<HANDLE> handles;
  int sessions = 0;
  WORD grantedVersion = 0;
  bool hideNextEvents = false;
  sockaddr_in listening = {};
  std::vector<HANDLE> threads;  // duplicates, closed at the end
  std::vector<DWORD> terminations;
};

using Lock = std::lock_guard<std::mutex>;

State* g_state;
const Patches* g_patches;

OneCall& Of(Call call) { return g_state->calls[static_cast<size_t>(call)]; }

// Whether all threads ended within `timeoutMs`.
bool WaitForThreads(DWORD timeoutMs) {
  std::vector<HANDLE> threads;
  {
    const Lock lock(g_state->mutex);
    threads = g_state->threads;
  }
  const DWORD start = ::GetTickCount();
  for (const HANDLE thread : threads) {
    const DWORD passed = std::min(::GetTickCount() - start, timeoutMs);
    if (g_patches->waitSingle.Original()(thread, timeoutMs - passed) !=
        WAIT_OBJECT_0) {
      return false;
    }
  }
  return true;
}

// Counts the call and runs its hook. The code to fail with, if it is to fail.
std::optional<int> Enter(Call call, uint64_t detail = 0) {
  std::shared_ptr<const WindowsCalls::Hook> hook;
  std::optional<int> error;
  {
    const Lock lock(g_state->mutex);
    OneCall& one = Of(call);
    ++one.calls;
    hook = one.hook;
    if (one.failure && one.failure->callsBefore-- == 0) {
      error = one.failure->error;
      one.failure.reset();
    }
  }
  if (hook != nullptr) (*hook)(detail);
  return error;
}

template <typename Value>
Value FailWith(int error, Value value) {
  ::WSASetLastError(error);
  return value;
}

int WSAAPI Startup(WORD version, LPWSADATA data) {
  if (const auto error = Enter(Call::kStartup)) return *error;
  const int result = g_patches->startup.Original()(version, data);
  const Lock lock(g_state->mutex);
  if (result == 0) ++g_state->sessions;
  if (g_state->grantedVersion != 0) data->wVersion = g_state->grantedVersion;
  return result;
}

int WSAAPI Cleanup() {
  Enter(Call::kCleanup);
  {
    const Lock lock(g_state->mutex);
    --g_state->sessions;
  }
  return g_patches->cleanup.Original()();
}

SOCKET WSAAPI Socket(int family, int type, int protocol,
                     LPWSAPROTOCOL_INFOW info, GROUP group, DWORD flags) {
  const auto error = Enter(Call::kSocket);
  if (error) return FailWith(*error, INVALID_SOCKET);
  const SOCKET socket =
      g_patches->socket.Original()(family, type, protocol, info, group, flags);
  const Lock lock(g_state->mutex);
  if (socket != INVALID_SOCKET) g_state->sockets.insert(socket);
  return socket;
}

int WSAAPI Bind(SOCKET socket, const sockaddr* name, int bytes) {
  const auto error = Enter(Call::kBind);
  if (error) return FailWith(*error, SOCKET_ERROR);
  return g_patches->bind.Original()(socket, name, bytes);
}

int WSAAPI Listen(SOCKET socket, int backlog) {
  const auto error = Enter(Call::kListen);
  if (error) return FailWith(*error, SOCKET_ERROR);
  sockaddr_in local = {};
  int bytes = sizeof(local);
  ::getsockname(socket, reinterpret_cast<sockaddr*>(&local), &bytes);
  {
    const Lock lock(g_state->mutex);
    g_state->listening = local;
  }
  return g_patches->listen.Original()(socket, backlog);
}

// A failed call takes the connection all the same: otherwise the system would
// not announce the next one.
SOCKET WSAAPI Accept(SOCKET socket, sockaddr* peer, LPINT bytes,
                     LPCONDITIONPROC condition, DWORD_PTR data) {
  const auto error = Enter(Call::kAccept);
  const SOCKET accepted =
      g_patches->accept.Original()(socket, peer, bytes, condition, data);
  if (error) {
    g_patches->closeSocket.Original()(accepted);
    return FailWith(*error, INVALID_SOCKET);
  }
  const Lock lock(g_state->mutex);
  if (accepted != INVALID_SOCKET) g_state->sockets.insert(accepted);
  return accepted;
}

int WSAAPI CloseSocket(SOCKET socket) {
  {
    const Lock lock(g_state->mutex);
    g_state->sockets.erase(socket);
  }
  return g_patches->closeSocket.Original()(socket);
}

WSAEVENT WSAAPI CreateWsaEvent() {
  const auto error = Enter(Call::kCreateEvent);
  if (error) return FailWith(*error, WSA_INVALID_EVENT);
  const WSAEVENT event = g_patches->createEvent.Original()();
  const Lock lock(g_state->mutex);
  g_state->events.insert(event);
  return event;
}

WINBOOL WSAAPI CloseWsaEvent(WSAEVENT event) {
  {
    const Lock lock(g_state->mutex);
    g_state->events.erase(event);
  }
  return g_patches->closeEvent.Original()(event);
}

int WSAAPI EventSelect(SOCKET socket, WSAEVENT event, long bits) {
  const auto error = Enter(Call::kEventSelect);
  if (error) return FailWith(*error, SOCKET_ERROR);
  return g_patches->select.Original()(socket, event, bits);
}

DWORD WSAAPI Wait(DWORD count, const WSAEVENT* events, WINBOOL all,
                  DWORD timeoutMs, WINBOOL alertable) {
  const auto error = Enter(Call::kWait, timeoutMs);
  if (error) return FailWith(*error, WSA_WAIT_FAILED);
  return g_patches->wait.Original()(count, events, all, timeoutMs, alertable);
}

int WSAAPI EnumEvents(SOCKET socket, WSAEVENT event, LPWSANETWORKEVENTS found) {
  const auto error = Enter(Call::kEnumEvents);
  if (error) return FailWith(*error, SOCKET_ERROR);
  const int result = g_patches->enumEvents.Original()(socket, event, found);
  const Lock lock(g_state->mutex);
  if (std::exchange(g_state->hideNextEvents, false)) found->lNetworkEvents = 0;
  return result;
}

// The standard library's threads ask for no id; the server's do.
uintptr_t __cdecl BeginThread(void* security, unsigned stack,
                              unsigned(__stdcall* start)(void*), void* argument,
                              unsigned flags, unsigned* id) {
  const auto& begin = g_patches->begin;
  if (id == nullptr) {
    return begin.Original()(security, stack, start, argument, flags, id);
  }
  if (const auto error = Enter(Call::kBeginThread)) {
    errno = *error;
    return 0;
  }
  const uintptr_t begun =
      begin.Original()(security, stack, start, argument, flags, id);
  const auto thread = reinterpret_cast<HANDLE>(begun);
  const HANDLE self = ::GetCurrentProcess();
  HANDLE copy = nullptr;
  ::DuplicateHandle(self, thread, self, &copy, 0, FALSE, DUPLICATE_SAME_ACCESS);
  const Lock lock(g_state->mutex);
  g_state->handles.insert(thread);
  g_state->threads.push_back(copy);
  g_state->threadBegun.notify_all();
  return begun;
}

DWORD WINAPI Resume(HANDLE thread) {
  const auto error = Enter(Call::kResumeThread);
  if (error) return FailWith(*error, static_cast<DWORD>(-1));
  return g_patches->resume.Original()(thread);
}

WINBOOL WINAPI Terminate(HANDLE thread, DWORD exitCode) {
  {
    const Lock lock(g_state->mutex);
    g_state->terminations.push_back(exitCode);
  }
  return g_patches->terminate.Original()(thread, exitCode);
}

DWORD WINAPI WaitSingle(HANDLE object, DWORD timeoutMs) {
  std::optional<int> error;
  if (timeoutMs == kAnswerMs) error = Enter(Call::kAwaitAnswer, timeoutMs);
  if (timeoutMs == kEndMs) error = Enter(Call::kAwaitEnd, timeoutMs);
  if (error) return WAIT_TIMEOUT;
  return g_patches->waitSingle.Original()(object, timeoutMs);
}

void WINAPI SleepFor(DWORD timeMs) {
  if (timeMs != kLookAgainMs) return g_patches->sleep.Original()(timeMs);
  bool isHooked = false;
  {
    const Lock lock(g_state->mutex);
    isHooked = Of(Call::kLookAgain).hook != nullptr;
  }
  Enter(Call::kLookAgain, timeMs);
  if (!isHooked) WaitForThreads(timeMs);
}

HANDLE WINAPI CreateStartedEvent(LPSECURITY_ATTRIBUTES security, WINBOOL manual,
                                 WINBOOL signalled, LPCWSTR name) {
  const HANDLE event =
      g_patches->createStarted.Original()(security, manual, signalled, name);
  if (manual || !signalled) return event;
  const Lock lock(g_state->mutex);
  g_state->handles.insert(event);
  return event;
}

WINBOOL WINAPI Close(HANDLE handle) {
  {
    const Lock lock(g_state->mutex);
    g_state->handles.erase(handle);
  }
  return g_patches->close.Original()(handle);
}

}  // namespace

WindowsCalls::WindowsCalls() {
  g_state = new State;
  // In place first: a patch may be called while the next one is made.
  void* const room = ::operator new(sizeof(Patches));
  g_patches = static_cast<Patches*>(room);
  new (room) Patches;
}

WindowsCalls::~WindowsCalls() {
  delete g_patches;
  g_patches = nullptr;
  for (const HANDLE thread : g_state->threads) ::CloseHandle(thread);
  delete std::exchange(g_state, nullptr);
}

void WindowsCalls::Fail(Call call, int error, int callsBefore) {
  const Lock lock(g_state->mutex);
  Of(call).failure = Failure{callsBefore, error};
}

void WindowsCalls::Before(Call call, Hook hook) {
  const Lock lock(g_state->mutex);
  Of(call).hook.reset();
  if (hook) Of(call).hook = std::make_shared<const Hook>(std::move(hook));
}

void WindowsCalls::GrantVersion(WORD version) {
  const Lock lock(g_state->mutex);
  g_state->grantedVersion = version;
}

void WindowsCalls::HideNextEvents() {
  const Lock lock(g_state->mutex);
  g_state->hideNextEvents = true;
}

int WindowsCalls::Calls(Call call) const {
  const Lock lock(g_state->mutex);
  return Of(call).calls;
}

size_t WindowsCalls::OpenSockets() const {
  const Lock lock(g_state->mutex);
  return g_state->sockets.size();
}

size_t WindowsCalls::OpenEvents() const {
  const Lock lock(g_state->mutex);
  return g_state->events.size();
}

int WindowsCalls::OpenSessions() const {
  const Lock lock(g_state->mutex);
  return g_state->sessions;
}

size_t WindowsCalls::OpenHandles() const {
  const Lock lock(g_state->mutex);
  return g_state->handles.size();
}

size_t WindowsCalls::OpenInAll() const {
  return OpenSockets() + OpenEvents() + OpenHandles();
}

sockaddr_in WindowsCalls::ListeningAddress() const {
  const Lock lock(g_state->mutex);
  return g_state->listening;
}

uint16_t WindowsCalls::Port() const {
  return ::ntohs(ListeningAddress().sin_port);
}

size_t WindowsCalls::ThreadsBegun() const {
  const Lock lock(g_state->mutex);
  return g_state->threads.size();
}

bool WindowsCalls::ThreadEnds(size_t thread, DWORD timeoutMs) const {
  HANDLE handle = nullptr;
  {
    std::unique_lock<std::mutex> lock(g_state->mutex);
    if (!g_state->threadBegun.wait_for(lock, kBeginTime, [&] {
          return g_state->threads.size() > thread;
        })) {
      return false;
    }
    handle = g_state->threads[thread];
  }
  return g_patches->waitSingle.Original()(handle, timeoutMs) == WAIT_OBJECT_0;
}

bool WindowsCalls::AllThreadsEnd(DWORD timeoutMs) const {
  return WaitForThreads(timeoutMs);
}

DWORD WindowsCalls::ExitCode(size_t thread) const {
  const Lock lock(g_state->mutex);
  DWORD code = 0;
  ::GetExitCodeThread(g_state->threads.at(thread), &code);
  return code;
}

std::vector<DWORD> WindowsCalls::Terminations() const {
  const Lock lock(g_state->mutex);
  return g_state->terminations;
}

}  // namespace kova::test
