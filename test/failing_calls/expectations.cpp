#include "test/failing_calls/expectations.h"

#include <cerrno>

namespace kova::test {
namespace {

constexpr uint64_t kFalse = 0;
constexpr uint64_t kNull = 0;
constexpr uint64_t kSocketError = 0xFFFFFFFF;
constexpr uint64_t kWaitFailed = 0xFFFFFFFF;
constexpr uint64_t kInvalidHandle = ~uint64_t{0};

constexpr wchar_t kNoStart[] =
    L"WebServerBase::Run: Run: Unable to get response from Accept Thread "
    L"within specified Timeout. Timeout:30000";
constexpr wchar_t kErrant[] =
    L"NetworkMonitor::_RestartServerThread: errant event triggered";
constexpr wchar_t kNoPath[] =
    L"WebServerInterface::GetV3WebServerInterface: "
    L"GetV3PrintMonitorDllFullPath failed for printer \"KOVA failing\"";
constexpr wchar_t kNoInterface[] =
    L"Network_ClientThread::ParseRequest: GetV3WebServerInterface failed for: "
    L"\"KOVA failing\"";
constexpr wchar_t kNoHandle[] =
    L"Network_ClientThread::ParseRequest: WSIHandleServerRequest failed for: "
    L"\"KOVA failing\"";

}  // namespace

const std::vector<FailingFunction>& FailingFunctions() {
  static const std::vector<FailingFunction> kRows = {
      // Registry. A setting that cannot be read has its default, the port
      // among them; the client of the test finds nobody then.
      {"RegCloseKey", ERROR_INVALID_HANDLE, 0, "", {}, 1},
      {"RegCreateKeyExW", ERROR_ACCESS_DENIED, 0, "", {}},
      {"RegDeleteKeyW", ERROR_ACCESS_DENIED, 0, "", {}},
      {"RegEnumValueW", ERROR_NO_SYSTEM_RESOURCES, 0, "", {}},
      {"RegOpenKeyExW", ERROR_ACCESS_DENIED, 0, "", {}},
      {"RegQueryValueExW", ERROR_NO_SYSTEM_RESOURCES, 0, "N", {}},
      {"RegSetValueExW", ERROR_ACCESS_DENIED, 0, "", {}},
      // The computer's name chooses the settings and is in the server's answer.
      {"GetComputerNameW", kFalse, ERROR_NO_SYSTEM_RESOURCES, "NO", {}},

      // Log.
      {"CreateDirectoryW", kFalse, ERROR_ACCESS_DENIED, "", {}},
      {"CreateFileW", kInvalidHandle, ERROR_ACCESS_DENIED, "", {}},
      {"CreateMutexW", kNull, ERROR_NO_SYSTEM_RESOURCES, "", {}},
      {"FlsSetValue", kFalse, ERROR_NOT_ENOUGH_MEMORY, "", {}},
      {"GetEnvironmentVariableW", 0, ERROR_ENVVAR_NOT_FOUND, "", {}},
      {"GetFileAttributesW", 0xFFFFFFFF, ERROR_FILE_NOT_FOUND, "", {}},
      {"GetTimeZoneInformation",
       TIME_ZONE_ID_INVALID,
       ERROR_NO_SYSTEM_RESOURCES,
       "",
       {}},
      {"GetSystemDirectoryW", 0, ERROR_NO_SYSTEM_RESOURCES, "", {}},
      {"QueryPerformanceCounter", kFalse, ERROR_INVALID_FUNCTION, "", {}},
      {"RegisterEventSourceW", kNull, RPC_S_SERVER_UNAVAILABLE, "", {}},
      {"ReportEventW", kFalse, ERROR_LOG_FILE_FULL, "", {}},
      {"WaitForSingleObjectEx", kWaitFailed, ERROR_INVALID_HANDLE, "", {}},
      {"WriteFile", kFalse, ERROR_DISK_FULL, "", {}},
      {"wcsftime", 0, 0, "", {}},

      // Text. What cannot be converted is empty: a form field then names no
      // printer, a header line of the server's answer is missing.
      {"MultiByteToWideChar", 0, ERROR_NO_UNICODE_TRANSLATION, "4O", {}},
      {"WideCharToMultiByte", 0, ERROR_NO_UNICODE_TRANSLATION, "O", {}},

      // Threads and events.
      {"CloseHandle", kFalse, ERROR_INVALID_HANDLE, "", {}, 1},
      {"CreateEventW",
       kNull,
       ERROR_NO_SYSTEM_RESOURCES,
       "N",
       {kErrant, kNoStart}},
      {"GetModuleHandleExW", kFalse, ERROR_MOD_NOT_FOUND, "", {}},
      {"ResetEvent", kFalse, ERROR_INVALID_HANDLE, "N", {}},
      {"ResumeThread", 0xFFFFFFFF, ERROR_INVALID_HANDLE, "N", {}},
      {"SetEvent", kFalse, ERROR_INVALID_HANDLE, "", {kNoStart}, 1},
      {"SetHandleInformation", kFalse, ERROR_INVALID_HANDLE, "", {}},
      {"SetThreadStackGuarantee", kFalse, ERROR_INVALID_PARAMETER, "", {}},
      {"WaitForMultipleObjects",
       kWaitFailed,
       ERROR_INVALID_HANDLE,
       "",
       {kErrant}},
      // A start that does not wait may be over before the listener listens.
      {"WaitForSingleObject",
       kWaitFailed,
       ERROR_INVALID_HANDLE,
       "N",
       {kNoStart},
       1},
      {"_beginthreadex",
       0,
       ERROR_NOT_ENOUGH_MEMORY,
       "N",
       {L"WebServerBase::Run: _beginthreadex(...) failure, for Launch "
        L"Thread[Run] errno:"}},

      // Routing.
      {"_localtime64_s", EINVAL, 0, "", {}},
      {"ClosePrinter", kFalse, ERROR_INVALID_HANDLE, "", {}},
      {"EnumPrintersW", kFalse, RPC_S_SERVER_UNAVAILABLE, "4", {}},
      {"GetPrinterDataW",
       RPC_S_SERVER_UNAVAILABLE,
       0,
       "4",
       {kNoPath, kNoInterface}},
      {"GetProcAddress",
       kNull,
       ERROR_PROC_NOT_FOUND,
       "4",
       {L"WebServerInterface::GetProcAddressWithLogging: GetProcAddress failed "
        L"on \"WSIE_",
        L"WebServerInterface::WebServerInterface: Driver doesn't have a "
        L"compatible Interface",
        kNoHandle,
        L"Network_ClientThread::ParseRequest: WSIGetResponseLength failed for: "
        L"\"KOVA failing\"",
        L"Network_ClientThread::ParseRequest: WSIGetResponse failed for: "
        L"\"KOVA failing\""}},
      {"LoadLibraryW",
       kNull,
       ERROR_MOD_NOT_FOUND,
       "4",
       {L"WebServerInterface::WebServerInterface: LoadLibrary failed on \"",
        kNoHandle}},
      {"OpenPrinterW",
       kFalse,
       ERROR_INVALID_PRINTER_NAME,
       "4",
       {kNoPath, kNoInterface}},

      // Sockets. An accept or a receive that was not made does not ask to be
      // woken again; the client hears nothing until it goes.
      {"WSAAccept",
       kInvalidHandle,
       WSAENOBUFS,
       "S",
       {L"WebServerBase::_AcceptThread: WSAAccept(...) failure. Failure "
        L"ignored. WSAGetLastError:10055"}},
      {"WSAAddressToStringW", kSocketError, WSAEINVAL, "", {}},
      {"WSACleanup", kSocketError, WSAENETDOWN, "", {}},
      {"WSACloseEvent", kFalse, ERROR_INVALID_HANDLE, "", {}, 1},
      {"WSACreateEvent",
       kNull,
       ERROR_NOT_ENOUGH_MEMORY,
       "N",
       {L"WebServerBase::_AcceptThread: WSACreateEvent(...) failure for "
        L"ShutdownEvent. WSAGetLastError:8",
        L"WebServerBase::_AcceptThread: WSACreateEvent(...) failure for "
        L"networkEvent. WSAGetLastError:8"}},
      {"WSAEnumNetworkEvents",
       kSocketError,
       WSAENOBUFS,
       "N",
       {L"WebServerBase::_AcceptThread: WSAEnumNetworkEvents(...) failure. "
        L"WSAGetLastError:10055"}},
      {"WSAEventSelect",
       kSocketError,
       WSAENOBUFS,
       "N",
       {L"WebServerBase::_AcceptThread: WSAEventSelect(...) failure. "
        L"WSAGetLastError:10055"}},
      {"WSARecv",
       kSocketError,
       WSAENOBUFS,
       "S",
       {L"Network_ClientThread::Run: WSARecv(...) failure. "
        L"WSAGetLastError:10055"}},
      {"WSASend",
       kSocketError,
       WSAENOBUFS,
       "CN",
       {L"Network_ClientThread::Run: WSASend(...) failure. Primary Send. "
        L"WSAGetLastError:10055",
        L"Network_ClientThread::Run: SendFailure. Resend. "
        L"WSAGetLastError:10055"}},
      {"WSASetEvent", kFalse, ERROR_INVALID_HANDLE, "", {}, 1},
      {"WSASocketW",
       kInvalidHandle,
       WSAEMFILE,
       "N",
       {L"WebServerBase::_AcceptThread: AcceptThread: WSASocket(...) failure. "
        L"WSAGetLastError:10024"}},
      {"WSAStartup",
       WSASYSNOTREADY,
       0,
       "N",
       {L"WebServerBase::_AcceptThread: WSAStartup(...) failure. "
        L"result:10091"}},
      {"WSAWaitForMultipleEvents",
       kWaitFailed,
       ERROR_NOT_ENOUGH_MEMORY,
       "N",
       {L"WebServerBase::_AcceptThread: WSAWaitForMultipleObjects(...) "
        L"failure. WSAGetLastError:8"}},
      {"bind",
       kSocketError,
       WSAEADDRINUSE,
       "N",
       {L"WebServerBase::_AcceptThread: AcceptThread: bind(...) failure. "
        L"GetLastError:10048"}},
      {"closesocket",
       kSocketError,
       WSAENETDOWN,
       "SN",
       {L"WebServerBase::_AcceptThread: AcceptThread: bind(...) failure. "
        L"GetLastError:10048"},
       1},
      {"getpeername", kSocketError, WSAENOTCONN, "", {}},
      {"getsockname", kSocketError, WSAEINVAL, "", {}},
      {"listen",
       kSocketError,
       WSAENOBUFS,
       "N",
       {L"WebServerBase::_AcceptThread: listen(...) failure. "
        L"WSAGetLastError:10055"}},
  };
  return kRows;
}

const std::vector<SoundFunctions>& FunctionsThatDoNotFail() {
  static const std::vector<SoundFunctions> kGroups = {
      {"reports no failure",
       {"AcquireSRWLockExclusive",
        "AcquireSRWLockShared",
        "DeleteCriticalSection",
        "EnterCriticalSection",
        "FlsGetValue",
        "FreeLibraryAndExitThread",
        "GetACP",
        "GetCurrentProcessId",
        "GetCurrentThreadId",
        "GetLastError",
        "GetSystemTimeAsFileTime",
        "GetTickCount",
        "GetTickCount64",
        "InitializeCriticalSection",
        "LeaveCriticalSection",
        "ReleaseSRWLockExclusive",
        "ReleaseSRWLockShared",
        "SetLastError",
        "TlsGetValue",
        "WSAGetLastError",
        "WSASetLastError",
        "___lc_codepage_func",
        "_endthreadex",
        "_errno",
        "free"}},
      {"its failure is an exception, or the heap's",
       {"calloc", "malloc", "realloc"}},
      {"computes",
       {"htonl", "htons", "memchr", "memcmp", "memcpy", "memmove", "memset",
        "ntohs", "strcmp", "strlen", "wcslen", "wcstol"}},
      {"the C runtime asks for itself", {"GetModuleHandleW"}},
      {"fails only for a thread that does not hold it", {"ReleaseMutex"}},
      // Its failure is an exception.
      {"the C++ library's own, for a mutex that threads wait for",
       {"CreateEventA"}},
  };
  return kGroups;
}

char Letter(Got got) {
  switch (got) {
    case Got::kAnswer:
      return 'A';
    case Got::kOwn400:
      return '4';
    case Got::kCut:
      return 'C';
    case Got::kNothing:
      return 'N';
    case Got::kSilence:
      return 'S';
    default:
      return 'O';
  }
}

}  // namespace kova::test
