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
#include <type_traits>
#include <utility>

#include "test/support/import_patch.h"

namespace kova::test {
namespace {

constexpr DWORD kAnswerMs = 30000;
constexpr DWORD kEndMs = 1000;
constexpr DWORD kLookAgainMs = 100;
constexpr std::chrono::seconds kBeginTime{10};

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

struct Patches;

State* g_state;
const Patches* g_patches;

OneCall& Of(Call call) { return g_state->calls[static_cast<size_t>(call)]; }

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

// Enters the call, then makes it, unless it is to fail with `failure`.
template <typename Function, typename... Arguments>
auto Make(Call call, const ImportPatch<Function>& real,
          std::invoke_result_t<Function, Arguments...> failure,
          Arguments... arguments) {
  const auto error = Enter(call);
  return error ? FailWith(*error, failure) : real.Original()(arguments...);
}

template <typename Value>
Value Opened(std::set<Value>& open, Value value, Value none) {
  const Lock lock(g_state->mutex);
  if (value != none) open.insert(value);
  return value;
}

// Before it is closed: the next one may get the same value.
template <typename Value>
void Closing(std::set<Value>& open, Value value) {
  const Lock lock(g_state->mutex);
  open.erase(value);
}

bool WaitForThreads(DWORD timeoutMs);

template <typename Function>
using Patch = ImportPatch<Function>;

// What the server's calls go to, under the names of the calls.
struct Patches {
  Patch<decltype(::WSAStartup)> startup{
      nullptr, "WSAStartup", [](WORD version, LPWSADATA data) -> int {
        if (const auto error = Enter(Call::kStartup)) return *error;
        const int result = g_patches->startup.Original()(version, data);
        const Lock lock(g_state->mutex);
        if (result == 0) ++g_state->sessions;
        const WORD granted = g_state->grantedVersion;
        if (granted != 0) data->wVersion = granted;
        return result;
      }};
  Patch<decltype(::WSACleanup)> cleanup{
      nullptr, "WSACleanup", [] {
        Enter(Call::kCleanup);
        {
          const Lock lock(g_state->mutex);
          --g_state->sessions;
        }
        return g_patches->cleanup.Original()();
      }};
  Patch<decltype(::WSASocketW)> socket{
      nullptr, "WSASocketW",
      [](int family, int type, int protocol, LPWSAPROTOCOL_INFOW info,
         GROUP group, DWORD flags) {
        return Opened(g_state->sockets,
                      Make(Call::kSocket, g_patches->socket, INVALID_SOCKET,
                           family, type, protocol, info, group, flags),
                      INVALID_SOCKET);
      }};
  Patch<decltype(::bind)> bind{
      nullptr, "bind", [](SOCKET socket, const sockaddr* name, int bytes) {
        return Make(Call::kBind, g_patches->bind, SOCKET_ERROR, socket, name,
                    bytes);
      }};
  Patch<decltype(::listen)> listen{
      nullptr, "listen", [](SOCKET socket, int backlog) {
        sockaddr_in local = {};
        int bytes = sizeof(local);
        ::getsockname(socket, reinterpret_cast<sockaddr*>(&local), &bytes);
        {
          const Lock lock(g_state->mutex);
          g_state->listening = local;
        }
        return Make(Call::kListen, g_patches->listen, SOCKET_ERROR, socket,
                    backlog);
      }};
  // A failed call takes the connection all the same: otherwise the system would
  // not announce the next one.
  Patch<decltype(::WSAAccept)> accept{
      nullptr, "WSAAccept",
      [](SOCKET socket, sockaddr* peer, LPINT bytes, LPCONDITIONPROC condition,
         DWORD_PTR data) -> SOCKET {
        const auto error = Enter(Call::kAccept);
        const SOCKET accepted =
            g_patches->accept.Original()(socket, peer, bytes, condition, data);
        if (!error) return Opened(g_state->sockets, accepted, INVALID_SOCKET);
        g_patches->closeSocket.Original()(accepted);
        return FailWith(*error, INVALID_SOCKET);
      }};
  Patch<decltype(::closesocket)> closeSocket{
      nullptr, "closesocket", [](SOCKET socket) {
        Closing(g_state->sockets, socket);
        return g_patches->closeSocket.Original()(socket);
      }};
  Patch<decltype(::WSACreateEvent)> createEvent{
      nullptr, "WSACreateEvent", [] {
        return Opened(
            g_state->events,
            Make(Call::kCreateEvent, g_patches->createEvent, WSA_INVALID_EVENT),
            WSA_INVALID_EVENT);
      }};
  Patch<decltype(::WSACloseEvent)> closeEvent{
      nullptr, "WSACloseEvent", [](WSAEVENT event) {
        Closing(g_state->events, event);
        return g_patches->closeEvent.Original()(event);
      }};
  Patch<decltype(::WSAEventSelect)> select{
      nullptr, "WSAEventSelect", [](SOCKET socket, WSAEVENT event, long bits) {
        return Make(Call::kEventSelect, g_patches->select, SOCKET_ERROR, socket,
                    event, bits);
      }};
  Patch<decltype(::WSAWaitForMultipleEvents)> wait{
      nullptr, "WSAWaitForMultipleEvents",
      [](DWORD count, const WSAEVENT* events, WINBOOL all, DWORD timeoutMs,
         WINBOOL alertable) -> DWORD {
        const auto error = Enter(Call::kWait, timeoutMs);
        if (error) return FailWith(*error, WSA_WAIT_FAILED);
        return g_patches->wait.Original()(count, events, all, timeoutMs,
                                          alertable);
      }};
  Patch<decltype(::WSAEnumNetworkEvents)> enumEvents{
      nullptr, "WSAEnumNetworkEvents",
      [](SOCKET socket, WSAEVENT event, LPWSANETWORKEVENTS found) {
        const int result = Make(Call::kEnumEvents, g_patches->enumEvents,
                                SOCKET_ERROR, socket, event, found);
        const Lock lock(g_state->mutex);
        if (result == 0 && std::exchange(g_state->hideNextEvents, false)) {
          found->lNetworkEvents = 0;
        }
        return result;
      }};
  // The standard library's threads ask for no id; the server's do.
  Patch<decltype(::_beginthreadex)> begin{
      nullptr, "_beginthreadex",
      [](void* security, unsigned stack, _beginthreadex_proc_type start,
         void* argument, unsigned flags, unsigned* id) -> uintptr_t {
        const auto& real = g_patches->begin;
        if (id != nullptr) {
          if (const auto error = Enter(Call::kBeginThread)) {
            errno = *error;
            return 0;
          }
        }
        const uintptr_t begun =
            real.Original()(security, stack, start, argument, flags, id);
        if (id == nullptr) return begun;
        const auto thread = reinterpret_cast<HANDLE>(begun);
        const HANDLE self = ::GetCurrentProcess();
        HANDLE copy = nullptr;
        ::DuplicateHandle(self, thread, self, &copy, 0, FALSE,
                          DUPLICATE_SAME_ACCESS);
        const Lock lock(g_state->mutex);
        g_state->handles.insert(thread);
        g_state->threads.push_back(copy);
        g_state->threadBegun.notify_all();
        return begun;
      }};
  Patch<decltype(::ResumeThread)> resume{
      nullptr, "ResumeThread", [](HANDLE thread) {
        return Make(Call::kResumeThread, g_patches->resume,
                    static_cast<DWORD>(-1), thread);
      }};
  Patch<decltype(::TerminateThread)> terminate{
      nullptr, "TerminateThread", [](HANDLE thread, DWORD exitCode) {
        {
          const Lock lock(g_state->mutex);
          g_state->terminations.push_back(exitCode);
        }
        return g_patches->terminate.Original()(thread, exitCode);
      }};
  Patch<decltype(::WaitForSingleObject)> waitSingle{
      nullptr, "WaitForSingleObject",
      [](HANDLE object, DWORD timeoutMs) -> DWORD {
        std::optional<int> error;
        if (timeoutMs == kAnswerMs) error = Enter(Call::kAwaitAnswer);
        if (timeoutMs == kEndMs) error = Enter(Call::kAwaitEnd);
        if (error) return WAIT_TIMEOUT;
        return g_patches->waitSingle.Original()(object, timeoutMs);
      }};
  Patch<decltype(::Sleep)> sleep{nullptr, "Sleep", [](DWORD timeMs) {
                                   if (timeMs != kLookAgainMs)
                                     return g_patches->sleep.Original()(timeMs);
                                   bool isHooked = false;
                                   {
                                     const Lock lock(g_state->mutex);
                                     isHooked =
                                         Of(Call::kLookAgain).hook != nullptr;
                                   }
                                   Enter(Call::kLookAgain);
                                   if (!isHooked) WaitForThreads(timeMs);
                                 }};
  // The started event alone is made signalled.
  Patch<decltype(::CreateEventW)> createStarted{
      nullptr, "CreateEventW",
      [](LPSECURITY_ATTRIBUTES security, WINBOOL manual, WINBOOL signalled,
         LPCWSTR name) {
        const HANDLE event = g_patches->createStarted.Original()(
            security, manual, signalled, name);
        if (manual || !signalled) return event;
        return Opened<HANDLE>(g_state->handles, event, nullptr);
      }};
  Patch<decltype(::CloseHandle)> close{
      nullptr, "CloseHandle", [](HANDLE handle) {
        Closing(g_state->handles, handle);
        return g_patches->close.Original()(handle);
      }};
};

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
