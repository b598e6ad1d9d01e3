// The buffer through which OutputDebugString reaches another process, as the
// system's documentation of its three shared objects has it: DBWIN_BUFFER,
// DBWIN_BUFFER_READY and DBWIN_DATA_READY.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "base/handles.h"

namespace kova::ctl {

struct DebugLine {
  uint32_t processId = 0;
  std::wstring text;
  // Whether the buffer was too small for the line.
  bool isCut = false;
};

// Which processes write into it: those of this logon session, or those of the
// services' session, for which rights are needed.
enum class DebugScope { kSession, kServices };

// One end of the buffer, for reading. There can be only one reader. While it is
// open, whoever writes a line waits until the line before has been taken, so
// take lines fast. Used by one thread.
class DebugBuffer {
 public:
  DebugBuffer() = default;
  // Lets go of all who wait to write, for 100 ms after the last of them.
  ~DebugBuffer();

  DebugBuffer(const DebugBuffer&) = delete;
  DebugBuffer& operator=(const DebugBuffer&) = delete;

  // To be called once. Returns the error code; ERROR_ALREADY_EXISTS if another
  // program reads the buffer.
  [[nodiscard]] DWORD Open(DebugScope scope);

  [[nodiscard]] bool IsOpen() const { return m_view != nullptr; }
  // Signalled when there is a line. Null while the buffer is not open.
  [[nodiscard]] HANDLE LineReady() const { return m_dataReady.Get(); }

  // After LineReady() was signalled: the line, and room for the next one.
  [[nodiscard]] DebugLine Take();

 private:
  DWORD Create(DebugScope scope);
  void CloseMapping();
  void Close();

  UniqueKernelHandle m_bufferReady;
  UniqueKernelHandle m_dataReady;
  UniqueKernelHandle m_mapping;
  const uint8_t* m_view = nullptr;
};

// The line in a buffer of `sizeBytes`: a process id of four bytes, then text in
// the ANSI code page that ends with a zero or with the buffer.
DebugLine ParseDebugBuffer(const uint8_t* buffer, size_t sizeBytes);

}  // namespace kova::ctl
