#include "test/support/test_extension.h"

#include <algorithm>

#include "test/support/exported_function.h"
#include "test/support/server_fixture.h"

namespace kova::test {
namespace {

constexpr DWORD kPatienceMs = 10000;

}  // namespace

std::wstring ExtensionFolder(const wchar_t* name) {
  return TestProgramFolder() + L"\\extensions\\" + name;
}

TestExtension::TestExtension(const wchar_t* name)
    : m_folder(ExtensionFolder(name)),
      m_module(::LoadLibraryW(LibraryPath().c_str())) {
  if (!m_module.IsValid()) return;
  auto* const record = ExportedFunction<TestExtension_RecordFunction>(
      m_module.Get(), "TestExtension_Record");
  if (record == nullptr) return;
  m_record = record();
  Forget();
}

std::wstring TestExtension::LibraryPath() const {
  return m_folder + L"\\" + KOVA_EXTENSION_FILE_NAME;
}

std::string TestExtension::Trace() const {
  const uint32_t length = m_record->traceLength;
  return std::string(m_record->trace,
                     std::min(length, ExtensionRecord::kTraceBytes));
}

int TestExtension::Count(char call) const {
  const std::string trace = Trace();
  return static_cast<int>(std::count(trace.begin(), trace.end(), call));
}

bool TestExtension::WaitForCount(char call, int count) const {
  const uint64_t deadlineMs = ::GetTickCount64() + kPatienceMs;
  while (Count(call) < count) {
    if (::GetTickCount64() > deadlineMs) return false;
    ::Sleep(1);
  }
  return true;
}

void TestExtension::Forget() {
  m_record->traceLength = 0;
  m_record->versionsWritten = ExtensionRecord::kOwnVersion;
  m_record->initializeGate = nullptr;
  m_record->capacity = 0;
  m_record->nonZeroVersionsOnEntry = 0;
  m_record->copyLength = 0;
  m_record->onRelease = nullptr;
}

ExtensionGate::ExtensionGate(TestExtension& extension)
    : m_entered(::CreateEventW(nullptr, FALSE, FALSE, nullptr)),
      m_gate(::CreateEventW(nullptr, TRUE, FALSE, nullptr)) {
  extension.Record().entered = m_entered.Get();
  extension.Record().gate = m_gate.Get();
}

ExtensionGate::~ExtensionGate() { Open(); }

bool ExtensionGate::WaitForArrival() {
  return ::WaitForSingleObject(m_entered.Get(), kPatienceMs) == WAIT_OBJECT_0;
}

void ExtensionGate::Open() { ::SetEvent(m_gate.Get()); }

}  // namespace kova::test
