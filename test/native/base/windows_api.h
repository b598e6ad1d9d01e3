// Stands in for the product's header of this name where the portable rooms
// are built on another system, to be run under sanitizers: the few Windows
// names they use. Test-only; wchar_t has four bytes here.
#pragma once

#include <cstdint>

#define WINAPI

using BOOL = int;
using UINT = unsigned int;
using DWORD = uint32_t;
using HMODULE = void*;

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
