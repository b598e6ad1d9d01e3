#include "logs/debug_buffer.h"

#include <sddl.h>

#include <algorithm>
#include <cstring>

namespace kova::ctl {
namespace {

constexpr DWORD kBufferBytes = 4096;
constexpr int kAttempts = 5;
constexpr DWORD kBetweenAttemptsMs = 100;
constexpr DWORD kLetGoMs = 100;

// Services and restricted processes write lines, too, whoever reads them.
constexpr wchar_t kEveryoneWrites[] =
    L"D:(A;;GA;;;SY)(A;;GA;;;BA)(A;;GRGWGX;;;WD)";

// Null if the system does not take the description; then the defaults hold.
class OpenToAll {
 public:
  OpenToAll() {
    ::ConvertStringSecurityDescriptorToSecurityDescriptorW(
        kEveryoneWrites, SDDL_REVISION_1, &m_descriptor, nullptr);
    m_attributes.nLength = sizeof(m_attributes);
    m_attributes.lpSecurityDescriptor = m_descriptor;
  }
  ~OpenToAll() { ::LocalFree(m_descriptor); }

  OpenToAll(const OpenToAll&) = delete;
  OpenToAll& operator=(const OpenToAll&) = delete;

  SECURITY_ATTRIBUTES* Get() { return &m_attributes; }

 private:
  PSECURITY_DESCRIPTOR m_descriptor = nullptr;
  SECURITY_ATTRIBUTES m_attributes{};
};

std::wstring ObjectName(DebugScope scope, const wchar_t* name) {
  return (scope == DebugScope::kServices ? L"Global\\" : L"") +
         std::wstring(name);
}

// Of the call before; someone else's object is not ours to use.
DWORD CreationError(const UniqueKernelHandle& object) {
  const DWORD error = ::GetLastError();
  if (!object.IsValid()) return error;
  return error == ERROR_ALREADY_EXISTS ? error : ERROR_SUCCESS;
}

DWORD CreateSignal(const std::wstring& name, OpenToAll& access,
                   UniqueKernelHandle& event) {
  ::SetLastError(ERROR_SUCCESS);
  event.Reset(::CreateEventW(access.Get(), FALSE, FALSE, name.c_str()));
  return CreationError(event);
}

std::wstring FromAnsi(const char* text, size_t lengthBytes) {
  const int length = static_cast<int>(lengthBytes);
  std::wstring wide(lengthBytes, L'\0');
  const int count =
      ::MultiByteToWideChar(CP_ACP, 0, text, length, wide.data(), length);
  wide.resize(static_cast<size_t>(std::max(count, 0)));
  return wide;
}

}  // namespace

DebugLine ParseDebugBuffer(const uint8_t* buffer, size_t sizeBytes) {
  DebugLine line;
  if (sizeBytes < sizeof(line.processId)) return line;
  std::memcpy(&line.processId, buffer, sizeof(line.processId));
  const auto* const text =
      reinterpret_cast<const char*>(buffer) + sizeof(line.processId);
  const size_t most = sizeBytes - sizeof(line.processId);
  const size_t length =
      static_cast<size_t>(std::find(text, text + most, '\0') - text);
  line.text = FromAnsi(text, length);
  // A writer keeps the last byte for the terminating zero.
  line.isCut = length + 1 >= most;
  return line;
}

// Without the mapping nobody takes this for a reader any more. Those who did so
// before wait for their turn, one after another.
DebugBuffer::~DebugBuffer() {
  if (!IsOpen()) return;
  CloseMapping();
  do {
    ::SetEvent(m_bufferReady.Get());
  } while (::WaitForSingleObject(m_dataReady.Get(), kLetGoMs) == WAIT_OBJECT_0);
}

void DebugBuffer::CloseMapping() {
  if (m_view != nullptr) ::UnmapViewOfFile(m_view);
  m_view = nullptr;
  m_mapping.Reset();
}

void DebugBuffer::Close() {
  CloseMapping();
  m_dataReady.Reset();
  m_bufferReady.Reset();
}

// A writer that is at work holds the objects open for a moment.
DWORD DebugBuffer::Open(DebugScope scope) {
  DWORD error = Create(scope);
  for (int i = 1; i < kAttempts && error == ERROR_ALREADY_EXISTS; ++i) {
    ::Sleep(kBetweenAttemptsMs);
    error = Create(scope);
  }
  if (error == ERROR_SUCCESS) ::SetEvent(m_bufferReady.Get());
  return error;
}

DWORD DebugBuffer::Create(DebugScope scope) {
  OpenToAll access;
  DWORD error = CreateSignal(ObjectName(scope, L"DBWIN_BUFFER_READY"), access,
                             m_bufferReady);
  if (error == ERROR_SUCCESS) {
    error = CreateSignal(ObjectName(scope, L"DBWIN_DATA_READY"), access,
                         m_dataReady);
  }
  if (error == ERROR_SUCCESS) {
    ::SetLastError(ERROR_SUCCESS);
    m_mapping.Reset(::CreateFileMappingW(
        INVALID_HANDLE_VALUE, access.Get(), PAGE_READWRITE, 0, kBufferBytes,
        ObjectName(scope, L"DBWIN_BUFFER").c_str()));
    error = CreationError(m_mapping);
  }
  if (error == ERROR_SUCCESS) {
    m_view = static_cast<const uint8_t*>(
        ::MapViewOfFile(m_mapping.Get(), FILE_MAP_READ, 0, 0, kBufferBytes));
    error = m_view == nullptr ? ::GetLastError() : ERROR_SUCCESS;
  }
  if (error != ERROR_SUCCESS) Close();
  return error;
}

DebugLine DebugBuffer::Take() {
  uint8_t copy[kBufferBytes];
  std::memcpy(copy, m_view, sizeof(copy));
  ::SetEvent(m_bufferReady.Get());
  return ParseDebugBuffer(copy, sizeof(copy));
}

}  // namespace kova::ctl
