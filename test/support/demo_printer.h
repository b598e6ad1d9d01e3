// Printers of the real spooler, for tests.
#pragma once

#include <string>

#include "base/windows_api.h"

namespace kova::test {

// A printer that exists for its scope, with a driver that stays installed. Its
// name and its share name must be free; a leftover of that name is removed
// first.
class DemoPrinter {
 public:
  // Shared under `shareName`, or not shared if that is null.
  explicit DemoPrinter(std::wstring name, const wchar_t* shareName = nullptr);
  ~DemoPrinter();

  DemoPrinter(const DemoPrinter&) = delete;
  DemoPrinter& operator=(const DemoPrinter&) = delete;

  // Whether the printer could be added. Each of the others needs it.
  [[nodiscard]] bool IsInstalled() const { return m_printer != nullptr; }
  [[nodiscard]] const std::wstring& Name() const { return m_name; }

  // Records `folder` as the driver's package folder, where the network
  // extension library is looked for.
  bool SetDriverPackage(const std::wstring& folder);
  // Records any data of any type under the name "DriverPackage".
  bool SetDriverPackageData(DWORD type, const void* data, DWORD sizeBytes);

  // Closes the handle that this object holds; the printer stays until the end
  // of the scope. The last call. Wine opens a printer for less while its
  // process holds it open, which a measurement must not have.
  void LetGo();

 private:
  const std::wstring m_name;
  HANDLE m_printer = nullptr;
  bool m_isLetGo = false;
};

}  // namespace kova::test
