#include "crash/crash_utility.h"

#include <atomic>
#include <memory>
#include <new>

#include "base/handles.h"
#include "crash/dump.h"
#include "log/log_line.h"
#include "log/server_logger.h"
#include "text/text_append.h"

namespace {

constinit std::atomic<HANDLE> g_dumpMutex = nullptr;

// GetTickCount64() at the last attempt that the quiet period allowed, 0 before
// the first. Read and written only by the thread that holds the dump mutex.
uint64_t g_lastDumpTick = 0;

// Null where there is no memory left to make one from: a dump that nobody logs
// is better than none.
std::shared_ptr<tk::Logger> LoggerIfAny() {
  try {
    return GetServerLogger();
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}

// One crash: what is known about it and where it is logged.
struct Crash {
  EXCEPTION_POINTERS* const pointers;
  const std::shared_ptr<tk::Logger> logger = LoggerIfAny();
  const std::wstring description = kova::DescribeCrash(pointers);

  [[nodiscard]] kova::LogLine Line(tk::LogChannel channel) const {
    return kova::LogLine(logger, channel, "CrashUtility::RecordSEH");
  }
  // A line that begins with the description.
  void Say(const std::wstring& text) const {
    Line(tk::LogChannel::Error) << description << text;
  }
};

// True if the calling thread holds the mutex afterwards.
bool TryToHold(HANDLE mutex, const Crash& crash) {
  const DWORD result = ::WaitForSingleObject(mutex, 0);
  const DWORD error = ::GetLastError();
  switch (result) {
    case WAIT_OBJECT_0:
    case WAIT_ABANDONED:
      return true;
    case WAIT_TIMEOUT:
      // Deliberate: not waited for, although this thread may end the process
      // before the other one's dump is complete.
      crash.Say(
          L"Not creating dump file on this thread.  "
          L"Another thread is already creating it.");
      return false;
    default:
      crash.Line(tk::LogChannel::Error)
          << crash.description << L"WaitForSingleObject Encountered error "
          << error << L", Not creating dump file.";
      return false;
  }
}

// One run of the filter. What it holds is given back even where a fault cuts
// the recording short.
struct Recording {
  EXCEPTION_POINTERS* const pointers;
  const HANDLE mutex;
  bool holdsMutex = false;
  kova::UniqueFile file = {};
};

void LeaveDump(const std::wstring& path, const Crash& crash,
               kova::UniqueFile& file) {
  file.Reset(::CreateFileW(path.c_str(), GENERIC_READ | GENERIC_WRITE,
                           FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                           CREATE_ALWAYS, 0, nullptr));
  if (!file.IsValid()) {
    // Deliberate: the text begins with a comma.
    crash.Say(L", Unable to create dump file.");
    return;
  }
  if (!kova::WriteDump(file.Get(), crash.pointers)) {
    const DWORD error = ::GetLastError();
    crash.Line(tk::LogChannel::Warning)
        << L"MiniDumpWriteDump failed with GetLastError code " << error;
  }
  file.Reset();
  // Deliberate: said of a dump that failed, too, after the warning about it.
  crash.Say(L"Successfully created dump file:\n    " + path);
}

// The calling thread must hold the dump mutex.
void DumpIfDue(const Crash& crash, kova::UniqueFile& file) {
  const uint64_t now = ::GetTickCount64();
  if (!kova::MayWriteDump(now, g_lastDumpTick)) {
    crash.Say(L"Not creating dump file due to time proximity to prior dump.");
    return;
  }
  g_lastDumpTick = now;
  const std::wstring path = kova::ChooseDumpFile();
  crash.Say(L"Attempting to create dump file:\n    " + path);
  LeaveDump(path, crash, file);
}

// Not inlined, for RecordContained's sake.
__declspec(noinline) void Record(Recording& recording) {
  try {
    const Crash crash{recording.pointers};
    recording.holdsMutex = TryToHold(recording.mutex, crash);
    if (recording.holdsMutex) DumpIfDue(crash, recording.file);
  } catch (...) {
    // Deliberate: what is thrown out of a filter is shown to the same filter
    // again, until the stack is used up.
  }
}

// What broke the process may break the recording of it, too. A machine fault,
// or what another C++ runtime throws, ends the recording and is forgotten;
// destructors that are due in between do not run. No object with one may live
// in this function, and nothing may stand in the block but a call.
void RecordContained(Recording& recording) {
  __try {
    Record(recording);
  } __except (EXCEPTION_EXECUTE_HANDLER) {
  }
}

}  // namespace

std::wstring CrashUtility::DumpMutexName(uint32_t processId) {
  std::wstring name = L"Corvane_MiniDump_Mutex_";
  kova::AppendDecimal(name, uint64_t{processId});
  return name;
}

void CrashUtility::CreateDumpMutex() {
  if (g_dumpMutex != nullptr) return;
  const std::wstring name = DumpMutexName(::GetCurrentProcessId());
  g_dumpMutex = ::CreateMutexW(nullptr, FALSE, name.c_str());
}

void CrashUtility::CloseDumpMutex() {
  const HANDLE mutex = g_dumpMutex.exchange(nullptr);
  if (mutex != nullptr) ::CloseHandle(mutex);
}

int32_t CrashUtility::RecordSEH(EXCEPTION_POINTERS* pointers) {
  const kova::LastErrorKeeper keeper;
  Recording recording{pointers, g_dumpMutex};
  RecordContained(recording);
  if (recording.holdsMutex) ::ReleaseMutex(recording.mutex);
  return EXCEPTION_CONTINUE_SEARCH;
}
