#include "test/support/demo_printer.h"

#include <utility>

namespace kova::test {
namespace {

wchar_t g_driverName[] = L"KOVA Demo Driver";
// Where that one's file, which Wine brings, is missing: what Windows brings.
wchar_t g_textDriver[] = L"Generic / Text Only";
wchar_t g_documentDriver[] = L"Microsoft Print To PDF";
wchar_t g_driverFile[] = L"C:\\windows\\system32\\wineps.drv";
wchar_t g_environment[] = L"Windows x64";
wchar_t g_port[] = L"LPT1:";
wchar_t g_processor[] = L"winprint";
wchar_t g_dataType[] = L"RAW";
wchar_t g_package[] = L"DriverPackage";

// Where it cannot be added, no printer can be that needs it.
void AddDriver() {
  DRIVER_INFO_3W driver = {};
  driver.cVersion = 3;
  driver.pName = g_driverName;
  driver.pEnvironment = g_environment;
  driver.pDriverPath = g_driverFile;
  driver.pDataFile = g_driverFile;
  driver.pConfigFile = g_driverFile;
  ::AddPrinterDriverW(nullptr, 3, reinterpret_cast<BYTE*>(&driver));
}

void RemovePrinter(const std::wstring& name) {
  PRINTER_DEFAULTSW defaults = {};
  defaults.DesiredAccess = PRINTER_ALL_ACCESS;
  HANDLE printer = nullptr;
  if (!::OpenPrinterW(const_cast<wchar_t*>(name.c_str()), &printer,
                      &defaults)) {
    return;
  }
  ::DeletePrinter(printer);
  ::ClosePrinter(printer);
}

}  // namespace

DemoPrinter::DemoPrinter(std::wstring name, const wchar_t* shareName)
    : m_name(std::move(name)) {
  RemovePrinter(m_name);
  AddDriver();
  std::wstring share = shareName == nullptr ? L"" : shareName;
  PRINTER_INFO_2W printer = {};
  printer.pPrinterName = const_cast<wchar_t*>(m_name.c_str());
  printer.pPortName = g_port;
  printer.pPrintProcessor = g_processor;
  printer.pDatatype = g_dataType;
  if (shareName != nullptr) {
    printer.pShareName = share.data();
    printer.Attributes = PRINTER_ATTRIBUTE_SHARED;
  }
  for (wchar_t* const driver : {g_driverName, g_textDriver, g_documentDriver}) {
    printer.pDriverName = driver;
    m_printer = ::AddPrinterW(nullptr, 2, reinterpret_cast<BYTE*>(&printer));
    if (m_printer != nullptr) return;
  }
}

DemoPrinter::~DemoPrinter() {
  if (m_isLetGo) RemovePrinter(m_name);
  if (m_printer == nullptr) return;
  ::DeletePrinter(m_printer);
  ::ClosePrinter(m_printer);
}

bool DemoPrinter::SetDriverPackage(const std::wstring& folder) {
  const size_t sizeBytes = (folder.size() + 1) * sizeof(wchar_t);
  return SetDriverPackageData(REG_SZ, folder.c_str(),
                              static_cast<DWORD>(sizeBytes));
}

bool DemoPrinter::SetDriverPackageData(DWORD type, const void* data,
                                       DWORD sizeBytes) {
  return ::SetPrinterDataW(m_printer, g_package, type,
                           static_cast<BYTE*>(const_cast<void*>(data)),
                           sizeBytes) == ERROR_SUCCESS;
}

void DemoPrinter::LetGo() {
  m_isLetGo = ::ClosePrinter(m_printer);
  if (m_isLetGo) m_printer = nullptr;
}

}  // namespace kova::test
