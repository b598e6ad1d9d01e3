// A test extension's package folder, and its record of calls.
#pragma once

#include <string>

#include "base/handles.h"
#include "base/windows_api.h"
#include "test/extensions/extension_record.h"

namespace kova::test {

// The package folder of the test extension of that name, which lies beside the
// test program; the library in it is called KOVA_EXTENSION_FILE_NAME.
[[nodiscard]] std::wstring ExtensionFolder(const wchar_t* name);

// Holds a reference to a test extension, so that its record can be read and
// written. The library is the one the server loads from the same folder. Its
// record is fresh at construction unless something still keeps it loaded.
class TestExtension {
 public:
  explicit TestExtension(const wchar_t* name);

  [[nodiscard]] bool IsLoaded() const { return m_record != nullptr; }
  [[nodiscard]] const std::wstring& Folder() const { return m_folder; }
  [[nodiscard]] std::wstring LibraryPath() const;
  [[nodiscard]] ExtensionRecord& Record() { return *m_record; }

  // The letters of all calls since the last Forget().
  [[nodiscard]] std::string Trace() const;
  // How often a letter is among them.
  [[nodiscard]] int Count(char call) const;
  // Waits until it is `count` times among them; false after a while.
  [[nodiscard]] bool WaitForCount(char call, int count) const;
  // Forgets the calls and undoes what a test has set.
  void Forget();

 private:
  const std::wstring m_folder;
  UniqueModule m_module;
  ExtensionRecord* m_record = nullptr;  // weak: in the module
};

// Holds requests of "act=wait" inside the extension from construction until
// Open() or destruction.
class ExtensionGate {
 public:
  explicit ExtensionGate(TestExtension& extension);
  ~ExtensionGate();

  ExtensionGate(const ExtensionGate&) = delete;
  ExtensionGate& operator=(const ExtensionGate&) = delete;

  // Waits until a request has come to the gate; false after a while.
  [[nodiscard]] bool WaitForArrival();
  void Open();

 private:
  UniqueKernelHandle m_entered;  // auto-reset
  UniqueKernelHandle m_gate;     // manual-reset
};

}  // namespace kova::test
