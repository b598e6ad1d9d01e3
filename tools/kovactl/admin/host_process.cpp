#include "admin/host_process.h"

#include <algorithm>
#include <iterator>

#include "base/handles.h"
#include "common/file_path.h"
#include "common/plain_text.h"
// After the rest of Windows.
#include <iphlpapi.h>
#include <psapi.h>
#include <tlhelp32.h>

namespace kova::ctl {
namespace {

constexpr wchar_t kLibrary[] = L"KOVAServer.dll";
constexpr size_t kPathCharacters = 32768;

// By the numbers of MIB_TCP_STATE.
constexpr const wchar_t* kStates[] = {
    L"unknown",      L"closed",      L"listening",  L"syn-sent",
    L"syn-received", L"established", L"fin-wait-1", L"fin-wait-2",
    L"close-wait",   L"closing",     L"last-ack",   L"time-wait",
    L"delete-tcb"};

std::vector<MIB_TCPROW_OWNER_PID> TcpTable() {
  std::vector<BYTE> buffer;
  DWORD size = 0;
  DWORD result = ERROR_INSUFFICIENT_BUFFER;
  // The table may grow between asking for its size and reading it.
  while (result == ERROR_INSUFFICIENT_BUFFER) {
    buffer.resize(size);
    result =
        ::GetExtendedTcpTable(buffer.empty() ? nullptr : buffer.data(), &size,
                              FALSE, AF_INET, TCP_TABLE_OWNER_PID_ALL, 0);
  }
  if (result != NO_ERROR || buffer.empty()) return {};
  const auto* const table =
      reinterpret_cast<const MIB_TCPTABLE_OWNER_PID*>(buffer.data());
  return {table->table, table->table + table->dwNumEntries};
}

// The port's 16 bits are in network order, in the low half.
uint16_t LocalPort(const MIB_TCPROW_OWNER_PID& row) {
  return ::ntohs(static_cast<u_short>(row.dwLocalPort));
}

std::vector<Listener> ListenersOf(
    uint32_t processId, const std::vector<MIB_TCPROW_OWNER_PID>& table) {
  std::vector<Listener> listeners;
  for (const MIB_TCPROW_OWNER_PID& row : table) {
    if (row.dwState != MIB_TCP_STATE_LISTEN || row.dwOwningPid != processId) {
      continue;
    }
    const Listener listener{LocalPort(row),
                            row.dwLocalAddr == ::htonl(INADDR_LOOPBACK)};
    if (std::ranges::find(listeners, listener) == listeners.end()) {
      listeners.push_back(listener);
    }
  }
  return listeners;
}

std::wstring ModulePath(HANDLE process, HMODULE module) {
  std::wstring path(kPathCharacters, L'\0');
  path.resize(::GetModuleFileNameExW(process, module, path.data(),
                                     static_cast<DWORD>(path.size())));
  return path;
}

// The path of the server's library in the process; empty if it is not there.
// False if the process does not show its modules.
bool FindLibrary(HANDLE process, std::wstring& library) {
  std::vector<HMODULE> modules(256);
  DWORD needed = 0;
  while (true) {
    const auto size = static_cast<DWORD>(modules.size() * sizeof(HMODULE));
    if (!::EnumProcessModulesEx(process, modules.data(), size, &needed,
                                LIST_MODULES_64BIT)) {
      return false;
    }
    if (needed <= size) break;
    modules.resize(needed / sizeof(HMODULE));
  }
  modules.resize(needed / sizeof(HMODULE));
  for (const HMODULE module : modules) {
    const std::wstring path = ModulePath(process, module);
    if (!SameName(FileName(path), kLibrary)) continue;
    library = path;
    return true;
  }
  return true;
}

std::wstring UserOf(HANDLE process) {
  UniqueKernelHandle token;
  alignas(TOKEN_USER) BYTE buffer[1024];
  DWORD size = 0;
  wchar_t name[256] = {};
  wchar_t domain[256] = {};
  DWORD nameSize = static_cast<DWORD>(std::size(name));
  DWORD domainSize = static_cast<DWORD>(std::size(domain));
  SID_NAME_USE use{};
  if (!::OpenProcessToken(process, TOKEN_QUERY, token.Receive()) ||
      !::GetTokenInformation(token.Get(), TokenUser, buffer, sizeof(buffer),
                             &size) ||
      !::LookupAccountSidW(nullptr,
                           reinterpret_cast<TOKEN_USER*>(buffer)->User.Sid,
                           name, &nameSize, domain, &domainSize, &use)) {
    return {};
  }
  return std::wstring(domain) + L"\\" + name;
}

void MeasureProcess(HANDLE process, HostProcess& host) {
  FILETIME start{};
  FILETIME end{};
  FILETIME kernel{};
  FILETIME user{};
  if (::GetProcessTimes(process, &start, &end, &kernel, &user)) {
    host.startFileTime =
        (uint64_t{start.dwHighDateTime} << 32) | start.dwLowDateTime;
  }
  // No process is without handles: Wine does not count them.
  if (DWORD handles = 0;
      ::GetProcessHandleCount(process, &handles) && handles > 0) {
    host.handles = handles;
  }
  PROCESS_MEMORY_COUNTERS_EX memory{};
  if (::GetProcessMemoryInfo(
          process, reinterpret_cast<PROCESS_MEMORY_COUNTERS*>(&memory),
          sizeof(memory))) {
    // Wine fills in one of the two, which mean the same.
    host.privateBytes = std::max(memory.PrivateUsage, memory.PagefileUsage);
  }
}

// The process of this row, if it is a host.
void LookInto(const PROCESSENTRY32W& entry, HostSearch& search) {
  const UniqueKernelHandle process(::OpenProcess(
      PROCESS_QUERY_INFORMATION | PROCESS_VM_READ, FALSE, entry.th32ProcessID));
  HostProcess host;
  if (!process.IsValid() || !FindLibrary(process.Get(), host.library)) {
    ++search.unreadable;
    return;
  }
  if (host.library.empty()) return;
  host.processId = entry.th32ProcessID;
  host.threads = entry.cntThreads;
  host.program = ModulePath(process.Get(), nullptr);
  host.version = FileVersion(host.library);
  host.user = UserOf(process.Get());
  MeasureProcess(process.Get(), host);
  search.hosts.push_back(std::move(host));
}

}  // namespace

HostSearch FindHosts() {
  HostSearch search;
  const UniqueFile snapshot(::CreateToolhelp32Snapshot(TH32CS_SNAPPROCESS, 0));
  PROCESSENTRY32W entry{};
  entry.dwSize = sizeof(entry);
  if (snapshot.IsValid() && ::Process32FirstW(snapshot.Get(), &entry)) {
    do {
      // 0 is the idle process, 4 the system's own.
      if (entry.th32ProcessID > 4) LookInto(entry, search);
    } while (::Process32NextW(snapshot.Get(), &entry));
  }
  if (search.hosts.empty()) return search;
  const std::vector<MIB_TCPROW_OWNER_PID> table = TcpTable();
  for (HostProcess& host : search.hosts) {
    host.listeners = ListenersOf(host.processId, table);
  }
  return search;
}

std::vector<ConnectionCount> CountConnections(uint16_t port) {
  size_t counts[std::size(kStates)] = {};
  for (const MIB_TCPROW_OWNER_PID& row : TcpTable()) {
    if (LocalPort(row) != port || row.dwState == MIB_TCP_STATE_LISTEN) continue;
    ++counts[row.dwState < std::size(kStates) ? row.dwState : 0];
  }
  std::vector<ConnectionCount> result;
  for (size_t state = 0; state < std::size(kStates); ++state) {
    if (counts[state] > 0) result.push_back({kStates[state], counts[state]});
  }
  return result;
}

std::wstring FileVersion(const std::wstring& path) {
  const DWORD size = ::GetFileVersionInfoSizeW(path.c_str(), nullptr);
  std::vector<BYTE> data(size);
  void* found = nullptr;
  UINT length = 0;
  if (size == 0 || !::GetFileVersionInfoW(path.c_str(), 0, size, data.data()) ||
      !::VerQueryValueW(data.data(), L"\\", &found, &length) ||
      length < sizeof(VS_FIXEDFILEINFO)) {
    return {};
  }
  const auto* const info = static_cast<const VS_FIXEDFILEINFO*>(found);
  return std::to_wstring(HIWORD(info->dwFileVersionMS)) + L"." +
         std::to_wstring(LOWORD(info->dwFileVersionMS)) + L"." +
         std::to_wstring(HIWORD(info->dwFileVersionLS)) + L"." +
         std::to_wstring(LOWORD(info->dwFileVersionLS));
}

}  // namespace kova::ctl
