#include "common/program_run.h"

#include <thread>

#include "base/handles.h"
#include "base/windows_api.h"
#include "common/file_path.h"

namespace kova::ctl::test {
namespace {

// One pipe whose writing end a child inherits, read on a thread of its own, so
// that the child never waits for a reader.
class ChildPipe {
 public:
  ChildPipe() {
    ::CreatePipe(m_read.Receive(), m_write.Receive(), nullptr, 0);
    ::SetHandleInformation(m_write.Get(), HANDLE_FLAG_INHERIT,
                           HANDLE_FLAG_INHERIT);
  }
  [[nodiscard]] HANDLE WritingEnd() const { return m_write.Get(); }

  // To be called once the child runs.
  void StartReading() {
    m_write.Reset();
    m_reader = std::thread([this] {
      char buffer[4096];
      DWORD count = 0;
      while (
          ::ReadFile(m_read.Get(), buffer, sizeof(buffer), &count, nullptr) &&
          count > 0) {
        m_text.append(buffer, count);
      }
    });
  }
  std::string Finish() {
    m_reader.join();
    return m_text;
  }

 private:
  UniqueKernelHandle m_read;
  UniqueKernelHandle m_write;
  std::string m_text;
  std::thread m_reader;
};

std::wstring CommandLine(const std::wstring& arguments) {
  return L"\"" + ProgramFolder() + L"\\..\\bin\\kovactl.exe\" " + arguments;
}

}  // namespace

ProgramResult RunKovactl(const std::wstring& arguments) {
  ChildPipe output;
  ChildPipe errors;
  STARTUPINFOW startup{};
  startup.cb = sizeof(startup);
  startup.dwFlags = STARTF_USESTDHANDLES;
  startup.hStdOutput = output.WritingEnd();
  startup.hStdError = errors.WritingEnd();
  PROCESS_INFORMATION process{};
  std::wstring commandLine = CommandLine(arguments);
  ProgramResult result;
  if (!::CreateProcessW(nullptr, commandLine.data(), nullptr, nullptr, TRUE, 0,
                        nullptr, nullptr, &startup, &process)) {
    return result;
  }
  const UniqueKernelHandle child(process.hProcess);
  const UniqueKernelHandle thread(process.hThread);
  output.StartReading();
  errors.StartReading();
  ::WaitForSingleObject(child.Get(), INFINITE);
  ::GetExitCodeProcess(child.Get(), &result.exitCode);
  result.output = output.Finish();
  result.errors = errors.Finish();
  return result;
}

}  // namespace kova::ctl::test
