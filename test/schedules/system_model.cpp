#include "test/schedules/system_model.h"

#include <cstring>
#include <cwchar>
#include <utility>

#include "test/schedules/extension.h"
#include "test/schedules/machine.h"

namespace kova::test {
namespace {

constexpr uintptr_t kFirstNumber = 0x6A000000;
constexpr wchar_t kLoggerName[] = L"Corvane KOVA Server";
constexpr wchar_t kPackage[] = L"C:\\schedules";

SystemModel& System() { return TheMachine().system; }
void Point(const char* call) { TheMachine().scheduler.Point(call); }

}  // namespace

SystemModel::SystemModel(Complain complain) : m_complain(std::move(complain)) {
  Reset();
}

void SystemModel::Reset() {
  m_mask = kUsualMask;
  m_lines.clear();
  m_keys.clear();
  m_printers.clear();
  m_next = kFirstNumber;
  m_references = 0;
}

LSTATUS SystemModel::OpenKey(PHKEY key) {
  m_keys.insert(++m_next);
  *key = reinterpret_cast<HKEY>(m_next);
  return ERROR_SUCCESS;
}

LSTATUS SystemModel::CloseKey(HKEY key) {
  if (m_keys.erase(reinterpret_cast<uintptr_t>(key)) == 0) {
    m_complain("RegCloseKey got a key that is closed");
  }
  return ERROR_SUCCESS;
}

HANDLE SystemModel::OpenPrinter() {
  m_printers.insert(++m_next);
  return reinterpret_cast<HANDLE>(m_next);
}

BOOL SystemModel::ClosePrinter(HANDLE printer) {
  if (m_printers.erase(reinterpret_cast<uintptr_t>(printer)) == 0) {
    m_complain("ClosePrinter got a printer that is closed");
  }
  return TRUE;
}

void SystemModel::PinModule() { ++m_references; }

void SystemModel::DropModule(HMODULE module) {
  if (module == nullptr || module == ExtensionModule()) return;
  if (--m_references < 0) {
    m_complain("the library gives back a reference that is not its own");
  }
}

namespace {

LSTATUS WINAPI CreateKey(HKEY, LPCWSTR, DWORD, LPWSTR, DWORD, REGSAM,
                         const LPSECURITY_ATTRIBUTES, PHKEY key,
                         LPDWORD disposition) {
  if (disposition != nullptr) *disposition = REG_OPENED_EXISTING_KEY;
  return System().OpenKey(key);
}

LSTATUS WINAPI OpenKey(HKEY, LPCWSTR, DWORD, REGSAM, PHKEY key) {
  return System().OpenKey(key);
}

LSTATUS WINAPI CloseKey(HKEY key) { return System().CloseKey(key); }

LSTATUS WINAPI QueryValue(HKEY, LPCWSTR name, LPDWORD, LPDWORD type,
                          LPBYTE data, LPDWORD bytes) {
  if (name == nullptr || std::wcscmp(name, kLoggerName) != 0) {
    return ERROR_FILE_NOT_FOUND;
  }
  Point("RegQueryValueExW");
  const uint32_t mask = System().Mask();
  if (type != nullptr) *type = REG_DWORD;
  if (data != nullptr) std::memcpy(data, &mask, sizeof(mask));
  if (bytes != nullptr) *bytes = sizeof(mask);
  return ERROR_SUCCESS;
}

LSTATUS WINAPI SetValue(HKEY, LPCWSTR, DWORD, DWORD, const BYTE*, DWORD) {
  return ERROR_SUCCESS;
}

LSTATUS WINAPI EnumValue(HKEY, DWORD, LPWSTR, LPDWORD, LPDWORD, LPDWORD, LPBYTE,
                         LPDWORD) {
  return ERROR_NO_MORE_ITEMS;
}

LSTATUS WINAPI DeleteKey(HKEY, LPCWSTR) { return ERROR_SUCCESS; }

HANDLE WINAPI RegisterSource(LPCWSTR, LPCWSTR) {
  return reinterpret_cast<HANDLE>(kFirstNumber);
}

BOOL WINAPI Report(HANDLE, WORD, WORD, DWORD, PSID, WORD, DWORD, LPCWSTR*,
                   LPVOID) {
  Point("ReportEventW");
  return TRUE;
}

void WINAPI TellDebugger(LPCWSTR text) {
  Point("OutputDebugStringW");
  System().AddLine(text);
}

BOOL WINAPI OpenPrinter(LPWSTR, LPHANDLE printer, LPPRINTER_DEFAULTSW) {
  Point("OpenPrinterW");
  *printer = System().OpenPrinter();
  return TRUE;
}

BOOL WINAPI ClosePrinter(HANDLE printer) {
  return System().ClosePrinter(printer);
}

DWORD WINAPI GetPrinterValue(HANDLE, LPWSTR, LPDWORD type, LPBYTE data,
                             DWORD bytes, LPDWORD needed) {
  *needed = sizeof(kPackage);
  if (type != nullptr) *type = REG_SZ;
  if (bytes < sizeof(kPackage)) return ERROR_MORE_DATA;
  std::memcpy(data, kPackage, sizeof(kPackage));
  return ERROR_SUCCESS;
}

BOOL WINAPI ListPrinters(DWORD, LPWSTR, DWORD, LPBYTE, DWORD, LPDWORD needed,
                         LPDWORD count) {
  *needed = 0;
  *count = 0;
  return TRUE;
}

HANDLE WINAPI CreateFileNever(LPCWSTR, DWORD, DWORD, LPSECURITY_ATTRIBUTES,
                              DWORD, DWORD, HANDLE) {
  ::SetLastError(ERROR_FILE_EXISTS);
  return INVALID_HANDLE_VALUE;
}

DWORD WINAPI GetAttributes(LPCWSTR) { return FILE_ATTRIBUTE_DIRECTORY; }

// As MiniDumpWriteDump.
BOOL WINAPI WriteNoDump(HANDLE, DWORD, HANDLE, int, void*, void*, void*) {
  return FALSE;
}

bool IsExtension(LPCWSTR path) {
  return std::wcsstr(path, KOVA_EXTENSION_FILE_NAME) != nullptr;
}

HMODULE WINAPI Load(LPCWSTR path) {
  if (!IsExtension(path)) return ::LoadLibraryW(path);
  Point("LoadLibraryW");
  return ExtensionModule();
}

HMODULE WINAPI LoadExtended(LPCWSTR path, HANDLE file, DWORD flags) {
  return IsExtension(path) ? Load(path) : ::LoadLibraryExW(path, file, flags);
}

FARPROC WINAPI FindFunction(HMODULE module, LPCSTR name) {
  return module == ExtensionModule() ? ExtensionFunction(name)
                                     : ::GetProcAddress(module, name);
}

BOOL WINAPI DropLibrary(HMODULE module) {
  if (module == nullptr) return FALSE;
  Point("FreeLibrary");
  System().DropModule(module);
  return TRUE;
}

BOOL WINAPI GetModule(DWORD flags, LPCWSTR name, HMODULE* module) {
  if ((flags & GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT) != 0) {
    return ::GetModuleHandleExW(flags, name, module);
  }
  Point("GetModuleHandleExW");
  // One that is pinned for good stays so in the model alone.
  const bool forGood = (flags & GET_MODULE_HANDLE_EX_FLAG_PIN) != 0;
  if (!forGood) System().PinModule();
  flags &= ~static_cast<DWORD>(GET_MODULE_HANDLE_EX_FLAG_PIN);
  return ::GetModuleHandleExW(
      flags | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT, name, module);
}

}  // namespace

std::span<const Thunk> SystemThunks() {
  static const Thunk thunks[] = {
      MakeThunk("RegCreateKeyExW", &CreateKey),
      MakeThunk("RegOpenKeyExW", &OpenKey),
      MakeThunk("RegCloseKey", &CloseKey),
      MakeThunk("RegQueryValueExW", &QueryValue),
      MakeThunk("RegSetValueExW", &SetValue),
      MakeThunk("RegEnumValueW", &EnumValue),
      MakeThunk("RegDeleteKeyW", &DeleteKey),
      MakeThunk("RegisterEventSourceW", &RegisterSource),
      MakeThunk("ReportEventW", &Report),
      MakeThunk("OutputDebugStringW", &TellDebugger),
      MakeThunk("OpenPrinterW", &OpenPrinter),
      MakeThunk("ClosePrinter", &ClosePrinter),
      MakeThunk("GetPrinterDataW", &GetPrinterValue),
      MakeThunk("EnumPrintersW", &ListPrinters),
      MakeThunk("CreateFileW", &CreateFileNever),
      MakeThunk("GetFileAttributesW", &GetAttributes),
      MakeThunk("MiniDumpWriteDump", &WriteNoDump),
      MakeThunk("LoadLibraryW", &Load),
      MakeThunk("LoadLibraryExW", &LoadExtended),
      MakeThunk("GetProcAddress", &FindFunction),
      MakeThunk("FreeLibrary", &DropLibrary),
      MakeThunk("GetModuleHandleExW", &GetModule),
  };
  return thunks;
}

}  // namespace kova::test
