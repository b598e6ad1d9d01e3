#include "test/schedules/system_model.h"

#include <cstring>
#include <cwchar>

#include "test/schedules/extension.h"
#include "test/schedules/machine.h"

namespace kova::test {
namespace {

constexpr wchar_t kLoggerName[] = L"Corvane KOVA Server";
constexpr wchar_t kPackage[] = L"C:\\schedules";

// Removes what is open, or complains that it is not.
void Remove(std::set<uintptr_t>& open, void* number) {
  if (open.erase(reinterpret_cast<uintptr_t>(number)) == 0) {
    TheMachine().Complain("something closed is closed");
  }
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

HMODULE WINAPI Load(LPCWSTR path) {
  if (std::wcsstr(path, KOVA_EXTENSION_FILE_NAME) == nullptr) {
    return ::LoadLibraryW(path);
  }
  TheMachine().scheduler.Point("LoadLibraryW");
  return ExtensionModule();
}

FARPROC WINAPI FindFunction(HMODULE module, LPCSTR name) {
  return module == ExtensionModule() ? ExtensionFunction(name)
                                     : ::GetProcAddress(module, name);
}

}  // namespace

LSTATUS SystemModel::OpenKey(HKEY, LPCWSTR, DWORD, REGSAM, PHKEY key) {
  m_keys.insert(++m_next);
  *key = reinterpret_cast<HKEY>(m_next);
  return ERROR_SUCCESS;
}

LSTATUS SystemModel::CreateKey(HKEY, LPCWSTR, DWORD, LPWSTR, DWORD, REGSAM,
                               LPSECURITY_ATTRIBUTES, PHKEY key,
                               LPDWORD disposition) {
  if (disposition != nullptr) *disposition = REG_OPENED_EXISTING_KEY;
  return OpenKey(nullptr, nullptr, 0, 0, key);
}

LSTATUS SystemModel::CloseKey(HKEY key) {
  Remove(m_keys, key);
  return ERROR_SUCCESS;
}

LSTATUS SystemModel::QueryValue(HKEY, LPCWSTR name, LPDWORD, LPDWORD type,
                                LPBYTE data, LPDWORD bytes) {
  if (name == nullptr || std::wcscmp(name, kLoggerName) != 0) {
    return ERROR_FILE_NOT_FOUND;
  }
  TheMachine().scheduler.Point("RegQueryValueExW");
  if (type != nullptr) *type = REG_DWORD;
  if (data != nullptr) std::memcpy(data, &m_mask, sizeof(m_mask));
  if (bytes != nullptr) *bytes = sizeof(m_mask);
  return ERROR_SUCCESS;
}

BOOL SystemModel::OpenPrinter(LPWSTR, LPHANDLE printer, LPPRINTER_DEFAULTSW) {
  m_printers.insert(++m_next);
  *printer = reinterpret_cast<HANDLE>(m_next);
  return TRUE;
}

BOOL SystemModel::ClosePrinter(HANDLE printer) {
  Remove(m_printers, printer);
  return TRUE;
}

BOOL SystemModel::GetModule(DWORD flags, LPCWSTR name, HMODULE* module) {
  if ((flags & GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT) == 0) {
    TheMachine().scheduler.Point("GetModuleHandleExW");
    // One that is pinned for good stays so in the model alone.
    const bool forGood = (flags & GET_MODULE_HANDLE_EX_FLAG_PIN) != 0;
    if (!forGood) ++m_references;
    flags &= ~static_cast<DWORD>(GET_MODULE_HANDLE_EX_FLAG_PIN);
    flags |= GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT;
  }
  return ::GetModuleHandleExW(flags, name, module);
}

BOOL SystemModel::DropLibrary(HMODULE module) {
  if (module == nullptr) return FALSE;
  TheMachine().scheduler.Point("FreeLibrary");
  DropModule(module);
  return TRUE;
}

void SystemModel::DropModule(HMODULE module) {
  if (module == nullptr || module == ExtensionModule()) return;
  if (m_references == 0) {
    TheMachine().Complain(
        "the library gives back a reference that is not its own");
  } else {
    --m_references;
  }
}

std::span<const Thunk> SystemThunks() {
  using Model = SystemModel;
  static const Thunk thunks[] = {
      Silently<"RegCreateKeyExW", &Model::CreateKey>(),
      Silently<"RegOpenKeyExW", &Model::OpenKey>(),
      Silently<"RegCloseKey", &Model::CloseKey>(),
      Silently<"RegQueryValueExW", &Model::QueryValue>(),
      By("RegSetValueExW",
         [](HKEY, LPCWSTR, DWORD, DWORD, const BYTE*, DWORD) -> LSTATUS {
           return ERROR_SUCCESS;
         }),
      By("RegEnumValueW",
         [](HKEY, DWORD, LPWSTR, LPDWORD, LPDWORD, LPDWORD, LPBYTE,
            LPDWORD) -> LSTATUS { return ERROR_NO_MORE_ITEMS; }),
      By("RegDeleteKeyW",
         [](HKEY, LPCWSTR) -> LSTATUS { return ERROR_SUCCESS; }),
      By("RegisterEventSourceW",
         [](LPCWSTR, LPCWSTR) {
           return reinterpret_cast<HANDLE>(Model::kFirstNumber);
         }),
      By("ReportEventW",
         [](HANDLE, WORD, WORD, DWORD, PSID, WORD, DWORD, LPCWSTR*, LPVOID) {
           TheMachine().scheduler.Point("ReportEventW");
           return TRUE;
         }),
      At<"OutputDebugStringW", &Model::TellDebugger>(),
      At<"OpenPrinterW", &Model::OpenPrinter>(),
      Silently<"ClosePrinter", &Model::ClosePrinter>(),
      By("GetPrinterDataW", &GetPrinterValue),
      By("EnumPrintersW", &ListPrinters),
      By("CreateFileW", &CreateFileNever),
      By("GetFileAttributesW",
         [](LPCWSTR) -> DWORD { return FILE_ATTRIBUTE_DIRECTORY; }),
      By("MiniDumpWriteDump",
         [](HANDLE, DWORD, HANDLE, int, void*, void*, void*) { return FALSE; }),
      By("LoadLibraryW", &Load),
      By("GetProcAddress", &FindFunction),
      Silently<"FreeLibrary", &Model::DropLibrary>(),
      Silently<"GetModuleHandleExW", &Model::GetModule>(),
  };
  return thunks;
}

}  // namespace kova::test
