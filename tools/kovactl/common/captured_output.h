// For tests: what is written to standard output, as bytes.
#pragma once

#include <string>
#include <thread>

#include "base/handles.h"
#include "base/windows_api.h"

namespace kova::ctl::test {

// Puts a pipe in the place of standard output for its scope. An Output made
// inside the scope writes into it.
class CapturedOutput {
 public:
  CapturedOutput() : m_before(::GetStdHandle(STD_OUTPUT_HANDLE)) {
    ::CreatePipe(m_read.Receive(), m_write.Receive(), nullptr, 0);
    ::SetStdHandle(STD_OUTPUT_HANDLE, m_write.Get());
    m_reader = std::thread([this] { ReadAll(); });
  }
  ~CapturedOutput() {
    if (m_reader.joinable()) static_cast<void>(Finish());
  }

  CapturedOutput(const CapturedOutput&) = delete;
  CapturedOutput& operator=(const CapturedOutput&) = delete;

  // Ends the capture; everything that was written. Once.
  [[nodiscard]] std::string Finish() {
    ::SetStdHandle(STD_OUTPUT_HANDLE, m_before);
    m_write.Reset();
    m_reader.join();
    return m_text;
  }

 private:
  void ReadAll() {
    char buffer[4096];
    DWORD count = 0;
    while (::ReadFile(m_read.Get(), buffer, sizeof(buffer), &count, nullptr) &&
           count > 0) {
      m_text.append(buffer, count);
    }
  }

  const HANDLE m_before;  // weak
  UniqueKernelHandle m_read;
  UniqueKernelHandle m_write;
  std::string m_text;
  std::thread m_reader;
};

}  // namespace kova::ctl::test
