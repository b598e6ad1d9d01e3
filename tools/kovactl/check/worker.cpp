#include "check/worker.h"

#include <algorithm>
#include <iterator>
#include <mutex>
#include <thread>

#include "check/connection_thread.h"
#include "check/extension_call.h"
#include "check/guarded_area.h"
#include "check/harness.h"
#include "check/holdings.h"
#include "check/input_file.h"
#include "check/step_list.h"
#include "common/utf8.h"

namespace kova::ctl::check {
namespace {

constexpr DWORD kPollMs = 50;
constexpr UINT kEndedByUs = 0x4B4F;
// A step that has begun may go on for so long after the deadline.
constexpr uint64_t kGraceMs = 2000;

// Reads lines from a pipe on a thread of its own, so that the worker never
// waits for a reader.
class LineReader {
 public:
  LineReader() {
    ::CreatePipe(m_read.Receive(), m_write.Receive(), nullptr, 0);
    ::SetHandleInformation(m_write.Get(), HANDLE_FLAG_INHERIT,
                           HANDLE_FLAG_INHERIT);
  }
  ~LineReader() { Finish(); }

  LineReader(const LineReader&) = delete;
  LineReader& operator=(const LineReader&) = delete;

  [[nodiscard]] HANDLE WritingEnd() const { return m_write.Get(); }

  // To be called once the worker has inherited its end.
  void Start() {
    m_write.Reset();
    m_thread = std::thread([this] { ReadAll(); });
  }

  // Waits for the end of the pipe, which is the worker's end.
  void Finish() {
    m_write.Reset();
    if (m_thread.joinable()) m_thread.join();
  }

  // The whole lines that came since the last call.
  std::vector<std::string> TakeLines() {
    const std::lock_guard lock(m_mutex);
    std::vector<std::string> lines;
    for (size_t end = m_text.find('\n'); end != std::string::npos;
         end = m_text.find('\n')) {
      lines.push_back(m_text.substr(0, end));
      m_text.erase(0, end + 1);
    }
    return lines;
  }

 private:
  void ReadAll() {
    char buffer[4096];
    DWORD count = 0;
    while (::ReadFile(m_read.Get(), buffer, sizeof(buffer), &count, nullptr) &&
           count > 0) {
      const std::lock_guard lock(m_mutex);
      m_text.append(buffer, count);
    }
  }

  UniqueKernelHandle m_read;
  UniqueKernelHandle m_write;
  std::mutex m_mutex;
  std::string m_text;
  std::thread m_thread;
};

// Ends what runs in it when this process ends, Ctrl-C included.
UniqueKernelHandle MakeJob() {
  UniqueKernelHandle job(::CreateJobObjectW(nullptr, nullptr));
  JOBOBJECT_EXTENDED_LIMIT_INFORMATION limits{};
  limits.BasicLimitInformation.LimitFlags = JOB_OBJECT_LIMIT_KILL_ON_JOB_CLOSE;
  ::SetInformationJobObject(job.Get(), JobObjectExtendedLimitInformation,
                            &limits, sizeof(limits));
  return job;
}

// What the extension prints must not mix with the report.
UniqueFile OpenNothing() {
  SECURITY_ATTRIBUTES inheritable{sizeof(inheritable), nullptr, TRUE};
  return UniqueFile(::CreateFileW(L"NUL", GENERIC_READ | GENERIC_WRITE,
                                  FILE_SHARE_READ | FILE_SHARE_WRITE,
                                  &inheritable, OPEN_EXISTING, 0, nullptr));
}

template <size_t Size, typename Character>
void Put(Character (&place)[Size], const std::basic_string<Character>& text) {
  text.copy(place, Size - 1);
}

void WriteTask(Task& task, const CheckOptions& options, size_t firstStep,
               HANDLE messages) {
  Put(task.library, options.library);
  Put(task.printer, options.printer);
  for (size_t i = 0; i < options.requestFiles.size(); ++i) {
    Put(task.requestFiles[i], options.requestFiles[i]);
  }
  task.requests = options.requests;
  task.threads = options.threads;
  task.firstStep = static_cast<uint32_t>(firstStep);
  task.only = options.only;
  task.timeoutMs = options.timeoutSeconds * 1000;
  task.budgetMs = options.budgetSeconds * 1000;
  task.messages = messages;
}

UniqueKernelHandle StartProcess(const CheckOptions& options, HANDLE state) {
  const UniqueFile nothing = OpenNothing();
  STARTUPINFOW startup{};
  startup.cb = sizeof(startup);
  startup.dwFlags = STARTF_USESTDHANDLES;
  startup.hStdInput = nothing.Get();
  startup.hStdOutput = nothing.Get();
  startup.hStdError = nothing.Get();
  std::wstring commandLine =
      L"\"" + options.program + L"\" check-extension-worker " +
      std::to_wstring(reinterpret_cast<ULONG_PTR>(state));
  PROCESS_INFORMATION process{};
  if (!::CreateProcessW(options.program.c_str(), commandLine.data(), nullptr,
                        nullptr, TRUE, 0, nullptr, nullptr, &startup,
                        &process)) {
    return {};
  }
  const UniqueKernelHandle thread(process.hThread);
  return UniqueKernelHandle(process.hProcess);
}

// The first place in the extension that a thread has been in for too long.
std::optional<Callee> FindHang(const WorkerState& state, uint64_t limitMs) {
  const uint64_t now = ::GetTickCount64();
  for (const CallInProgress& call : state.calls) {
    const Callee callee = call.callee;
    if (callee == Callee::kNone) continue;
    const uint64_t since = call.sinceMs;
    if (now > since && now - since > limitMs) return callee;
  }
  return std::nullopt;
}

Callee FindPlace(const WorkerState& state) {
  for (const CallInProgress& call : state.calls) {
    if (call.callee != Callee::kNone) return call.callee;
  }
  return Callee::kNone;
}

WorkerEnd Judge(const WorkerState& state, std::optional<Callee> hang,
                DWORD code) {
  using Kind = WorkerEnd::Kind;
  if (state.crashed) {
    return {Kind::kCrashed, state.crash.callee, state.crash, code};
  }
  if (state.endedThread != Callee::kNone) {
    return {Kind::kEndedThread, state.endedThread, {}, code};
  }
  if (hang) return {Kind::kHung, *hang, {}, code};
  const Callee place = FindPlace(state);
  const bool finished =
      code == 0 && (place == Callee::kNone || place == Callee::kEnd);
  return {finished ? Kind::kFinished : Kind::kEndedItself, place, {}, code};
}

// In the order of kSteps; the end of the process is the last step.
constexpr StepBody* kBodies[] = {
    &LoadLibraryStep,
    &ExportsStep,
    &VersionsStep,
    &RestartRoutineStep,
    &InitializeStep,
    &SmallStep,
    &SendStep<BareRequests>,
    &SendStep<HeadRequests>,
    &SendStep<FormRequests>,
    &SendStep<BinaryRequests>,
    &SendStep<LargeRequests>,
    &SendStep<LongTargetRequests>,
    &SendStep<BodilessRequests>,
    &KeepOpenStep,
    &SendStep<MalformedRequests>,
    &MeasuredTwiceStep,
    &SendStep<AddressRequests>,
    &OwnStep,
    &InterleaveStep,
    &ThreadsStep,
    &MemoryStep,
    &UnfetchedStep,
    &ConnectionsStep,
    &IdleStep,
};
static_assert(std::size(kBodies) == kEndStep);

// Handles of the host's, from before the library is loaded. Those that the
// check itself needs cannot be closed.
class HostHandles {
 public:
  explicit HostHandles(HANDLE messages) {
    ::SetHandleInformation(messages, HANDLE_FLAG_PROTECT_FROM_CLOSE,
                           HANDLE_FLAG_PROTECT_FROM_CLOSE);
    for (HANDLE& handle : m_handles) handle = Make();
  }

  // Whether some were closed since; they are made again.
  bool TakeClosed() {
    bool closed = false;
    for (HANDLE& handle : m_handles) {
      DWORD flags = 0;
      if (::GetHandleInformation(handle, &flags)) continue;
      handle = Make();
      closed = true;
    }
    return closed;
  }

 private:
  static HANDLE Make() { return ::CreateEventW(nullptr, TRUE, FALSE, nullptr); }

  HANDLE m_handles[32];  // open until the process ends
};

// On a thread like a connection's: what the extension keeps for one of them is
// not there for the next.
bool DoStep(Harness& harness, StepBody* body, HostHandles& handles) {
  bool goOn = false;
  {
    const ConnectionThread thread(harness.state, 0,
                                  [&] { goOn = body(harness); });
  }
  for (const HANDLE heap : ProcessHeaps()) {
    if (::HeapValidate(heap, 0, nullptr)) continue;
    harness.reporter.Report({Flaw::kHeapDamage, Callee::kNone, ""});
  }
  if (handles.TakeClosed()) {
    harness.reporter.Report({Flaw::kForeignHandle, Callee::kNone, ""});
  }
  return goOn;
}

// A worker that takes over from one that ended loads the library again, and
// goes on where the other one did not.
void RunSteps(Harness& harness) {
  const size_t first = harness.state.task.firstStep;
  HostHandles handles(harness.state.task.messages);
  for (size_t step = 0; step < kEndStep; ++step) {
    const bool isWanted =
        step >= first && (harness.state.task.only & StepBit(step)) != 0;
    if (step >= kFirstRequestStep && !isWanted) continue;
    harness.reporter.BeginStep(step);
    bool goOn = true;
    if (harness.HasTime()) {
      goOn = DoStep(harness, kBodies[step], handles);
    } else {
      harness.reporter.SkipStep("no time left; give it more with --budget");
    }
    harness.reporter.Send({{"restartCalls", RestartCalls()}});
    harness.reporter.SendEnd();
    if (!goOn) return;
  }
  harness.reporter.BeginStep(kEndStep);
}

}  // namespace

WorkerEnd RunWorkerProcess(const CheckOptions& options, size_t firstStep,
                           uint64_t deadlineMs,
                           const WorkerMessages& onMessages) {
  SharedWorkerState shared;
  if (!shared.Create()) {
    return {WorkerEnd::Kind::kNotStarted, {}, {}, ::GetLastError()};
  }
  WorkerState& state = shared.Get();
  LineReader reader;
  WriteTask(state.task, options, firstStep, reader.WritingEnd());
  state.task.deadlineMs = deadlineMs;
  const UniqueKernelHandle job = MakeJob();
  const UniqueKernelHandle process = StartProcess(options, shared.Section());
  if (!process.IsValid()) {
    return {WorkerEnd::Kind::kNotStarted, {}, {}, ::GetLastError()};
  }
  ::AssignProcessToJobObject(job.Get(), process.Get());
  reader.Start();
  std::optional<Callee> hang;
  bool outOfTime = false;
  while (::WaitForSingleObject(process.Get(), kPollMs) == WAIT_TIMEOUT) {
    onMessages(reader.TakeLines());
    if (!hang) hang = FindHang(state, options.timeoutSeconds * uint64_t{1000});
    outOfTime = !hang && ::GetTickCount64() > deadlineMs + kGraceMs;
    if (hang || outOfTime) ::TerminateProcess(process.Get(), kEndedByUs);
  }
  reader.Finish();
  onMessages(reader.TakeLines());
  DWORD code = 0;
  ::GetExitCodeProcess(process.Get(), &code);
  if (outOfTime && code == kEndedByUs) {
    return {WorkerEnd::Kind::kOutOfTime, FindPlace(state), {}, code};
  }
  return Judge(state, hang, code);
}

bool RunWorker(uint64_t stateHandle) {
  // Never destroyed: the memory is read and written until the process ends.
  static auto* const shared = new SharedWorkerState;
  if (!shared->Open(reinterpret_cast<HANDLE>(stateHandle))) return false;
  WorkerState& state = shared->Get();
  RecordUnhandled(state);
  GuardedArea::StartWatching();
  // The extension's own children must not keep the pipe open.
  ::SetHandleInformation(state.task.messages, HANDLE_FLAG_INHERIT, 0);
  Reporter reporter(state.task.messages);
  Harness harness{state, reporter, {}, {}};
  for (const auto& file : state.task.requestFiles) {
    if (file[0] == L'\0') break;
    const std::string bytes = ReadWholeFile(file);
    harness.ownRequests.push_back(
        {bytes, Owes::kReason, bytes.starts_with("HEAD ")});
  }
  RunSteps(harness);
  state.calls[0].sinceMs = ::GetTickCount64();
  state.calls[0].callee = Callee::kEnd;
  return true;
}

}  // namespace kova::ctl::check
