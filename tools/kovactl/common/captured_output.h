// For tests: what is written to standard output, as bytes.
#pragma once

#include <string>
#include <thread>

#include "base/handles.h"
#include "base/windows_api.h"

namespace kova::ctl::test {

// A pipe that is read on a thread of its own, so that whoever writes into it
// never waits for a reader.
class ReadPipe {
 public:
  ReadPipe() {
    ::CreatePipe(m_read.Receive(), m_write.Receive(), nullptr, 0);
    m_reader = std::thread([this] { ReadAll(); });
  }
  ~ReadPipe() {
    if (m_reader.joinable()) static_cast<void>(Finish());
  }

  ReadPipe(const ReadPipe&) = delete;
  ReadPipe& operator=(const ReadPipe&) = delete;

  [[nodiscard]] HANDLE WritingEnd() const { return m_write.Get(); }

  // Everything that was written, once all other writing ends are closed. Once.
  [[nodiscard]] std::string Finish() {
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

  UniqueKernelHandle m_read;
  UniqueKernelHandle m_write;
  std::string m_text;
  std::thread m_reader;
};

// Puts such a pipe in the place of standard output for its scope. An Output
// made inside the scope writes into it.
class CapturedOutput {
 public:
  CapturedOutput() : m_before(::GetStdHandle(STD_OUTPUT_HANDLE)) {
    ::SetStdHandle(STD_OUTPUT_HANDLE, m_pipe.WritingEnd());
  }
  ~CapturedOutput() { ::SetStdHandle(STD_OUTPUT_HANDLE, m_before); }

  CapturedOutput(const CapturedOutput&) = delete;
  CapturedOutput& operator=(const CapturedOutput&) = delete;

  // Ends the capture; everything that was written. Once.
  [[nodiscard]] std::string Finish() {
    ::SetStdHandle(STD_OUTPUT_HANDLE, m_before);
    return m_pipe.Finish();
  }

 private:
  const HANDLE m_before;  // weak
  ReadPipe m_pipe;
};

}  // namespace kova::ctl::test
