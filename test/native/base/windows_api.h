// Stands in for the product's header of this name where the portable rooms
// and the loggers are built on another system, to be run under sanitizers: the
// Windows names they use. Test-only; wchar_t has four bytes here.
#pragma once

#include <cstdint>
#include <ctime>

#define WINAPI

using BOOL = int;
using UINT = unsigned int;
using WORD = uint16_t;
using DWORD = uint32_t;
using ULONG = uint32_t;
using LSTATUS = int32_t;
using BYTE = unsigned char;
using HANDLE = void*;
using HMODULE = void*;
using HKEY = void*;
using LPCWSTR = const wchar_t*;

inline constexpr DWORD ERROR_INVALID_PARAMETER = 87;
inline constexpr DWORD ERROR_BUFFER_OVERFLOW = 111;
inline constexpr DWORD ERROR_INSUFFICIENT_BUFFER = 122;
inline constexpr UINT CP_ACP = 0;

// Recursive for the thread that holds it, as the real one is.
struct CRITICAL_SECTION {
  void* implementation;
};

void InitializeCriticalSection(CRITICAL_SECTION* section);
void EnterCriticalSection(CRITICAL_SECTION* section);
void LeaveCriticalSection(CRITICAL_SECTION* section);
void DeleteCriticalSection(CRITICAL_SECTION* section);

DWORD GetLastError();
void SetLastError(DWORD error);

// 1252 unless a test replaces it.
UINT GetACP();

// `length` units, or up to and with the zero for -1; flags and default
// characters are not looked at. The system's own tables of the code page of
// that number are used; what does not convert becomes a question mark, as on
// Windows, and 1252's unassigned bytes keep their values. No room at all asks
// for the length. An unknown code page and a result that does not fit give 0
// and a last error.
int MultiByteToWideChar(UINT codePage, DWORD flags, const char* text,
                        int length, wchar_t* out, int outUnits);
int WideCharToMultiByte(UINT codePage, DWORD flags, const wchar_t* text,
                        int length, char* out, int outBytes,
                        const char* defaultCharacter, BOOL* usedDefault);

// "KOVATEST" unless a test replaces it. `*size` counts the terminator on the
// way in and not on the way out.
BOOL GetComputerNameW(wchar_t* name, DWORD* size);

// What the loggers call. A registry that holds one mask; an event log, a file
// and a debugger that count what they are given.
#define FALSE 0
#define TRUE 1
#define MAX_PATH 260

using SOCKET = uintptr_t;
using WSAEVENT = void*;
inline const HANDLE INVALID_HANDLE_VALUE = reinterpret_cast<HANDLE>(-1);
inline const WSAEVENT WSA_INVALID_EVENT = nullptr;
inline constexpr SOCKET INVALID_SOCKET = ~SOCKET{0};
inline const HKEY HKEY_LOCAL_MACHINE = reinterpret_cast<HKEY>(2);

inline constexpr LSTATUS ERROR_SUCCESS = 0;
inline constexpr LSTATUS ERROR_FILE_NOT_FOUND = 2;
inline constexpr LSTATUS ERROR_NO_MORE_ITEMS = 259;
inline constexpr DWORD REG_SZ = 1;
inline constexpr DWORD REG_DWORD = 4;
inline constexpr DWORD REG_OPTION_NON_VOLATILE = 0;
inline constexpr DWORD REG_CREATED_NEW_KEY = 1;
inline constexpr DWORD KEY_ALL_ACCESS = 0xF003F;
inline constexpr DWORD KEY_READ = 0x20019;
inline constexpr DWORD KEY_WRITE = 0x20006;
inline constexpr DWORD KEY_QUERY_VALUE = 1;
inline constexpr WORD EVENTLOG_ERROR_TYPE = 1;
inline constexpr WORD EVENTLOG_WARNING_TYPE = 2;
inline constexpr WORD EVENTLOG_INFORMATION_TYPE = 4;
inline constexpr DWORD INVALID_FILE_ATTRIBUTES = 0xFFFFFFFF;
inline constexpr DWORD FILE_ATTRIBUTE_DIRECTORY = 0x10;
inline constexpr DWORD FILE_ATTRIBUTE_NORMAL = 0x80;
inline constexpr DWORD GENERIC_WRITE = 0x40000000;
inline constexpr DWORD FILE_SHARE_READ = 1;
inline constexpr DWORD FILE_SHARE_WRITE = 2;
inline constexpr DWORD FILE_SHARE_DELETE = 4;
inline constexpr DWORD CREATE_NEW = 1;
inline constexpr DWORD FLS_OUT_OF_INDEXES = 0xFFFFFFFF;

struct FILETIME {
  DWORD dwLowDateTime;
  DWORD dwHighDateTime;
};
struct LARGE_INTEGER {
  int64_t QuadPart;
};

BOOL CloseHandle(HANDLE);
BOOL WSACloseEvent(WSAEVENT);
int closesocket(SOCKET);
BOOL FreeLibrary(HMODULE);
BOOL ClosePrinter(HANDLE);

LSTATUS RegCloseKey(HKEY);
LSTATUS RegCreateKeyExW(HKEY, LPCWSTR, DWORD, wchar_t*, DWORD, DWORD, void*,
                        HKEY* key, DWORD* disposition);
LSTATUS RegOpenKeyExW(HKEY, LPCWSTR, DWORD, DWORD, HKEY* key);
LSTATUS RegQueryValueExW(HKEY, LPCWSTR, DWORD*, DWORD*, BYTE* data,
                         DWORD* size);
LSTATUS RegSetValueExW(HKEY, LPCWSTR, DWORD, DWORD type, const BYTE* data,
                       DWORD size);
LSTATUS RegDeleteKeyW(HKEY, LPCWSTR);
LSTATUS RegEnumValueW(HKEY, DWORD, wchar_t*, DWORD*, DWORD*, DWORD*, BYTE*,
                      DWORD*);
HANDLE RegisterEventSourceW(LPCWSTR, LPCWSTR);
BOOL ReportEventW(HANDLE, WORD, WORD, DWORD, void*, WORD, DWORD,
                  LPCWSTR* strings, void*);
void OutputDebugStringW(LPCWSTR);
int wsprintfW(wchar_t*, LPCWSTR format, ...);
UINT GetSystemDirectoryW(wchar_t*, UINT);

DWORD GetFileAttributesW(LPCWSTR);
BOOL CreateDirectoryW(LPCWSTR, void*);
HANDLE CreateFileW(LPCWSTR, DWORD, DWORD, void*, DWORD, DWORD, HANDLE);
BOOL WriteFile(HANDLE, const void* bytes, DWORD size, DWORD* written, void*);

uint64_t GetTickCount64();
DWORD GetTickCount();
BOOL QueryPerformanceCounter(LARGE_INTEGER*);
void GetSystemTimeAsFileTime(FILETIME*);
DWORD GetCurrentThreadId();
DWORD GetCurrentProcessId();
int localtime_s(std::tm*, const std::time_t*);
// No variable, and no zone of the system's own: the C library names it.
inline constexpr DWORD TIME_ZONE_ID_INVALID = 0xFFFFFFFF;
struct TIME_ZONE_INFORMATION {
  wchar_t StandardName[32];
  wchar_t DaylightName[32];
};
DWORD GetEnvironmentVariableW(LPCWSTR, wchar_t*, DWORD);
DWORD GetTimeZoneInformation(TIME_ZONE_INFORMATION*);

// Knows no function by name.
HMODULE GetModuleHandleW(LPCWSTR);
void (*GetProcAddress(HMODULE, const char* name))();

using FlsCallback = void(void*);
DWORD FlsAlloc(FlsCallback*);
BOOL FlsFree(DWORD);
void* FlsGetValue(DWORD);
BOOL FlsSetValue(DWORD, void*);
