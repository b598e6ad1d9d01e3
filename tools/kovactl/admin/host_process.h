// The processes of this machine that have the server's library loaded: its
// hosts, whatever the settings say by now.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "base/windows_api.h"

namespace kova::ctl {

// A TCP socket that a process listens with on IPv4.
struct Listener {
  uint16_t port = 0;
  bool isLocalOnly = false;  // on 127.0.0.1, not on all addresses

  bool operator==(const Listener&) const = default;
};

// What cannot be learnt, mostly for want of rights, is left empty.
struct HostProcess {
  uint32_t processId = 0;
  std::wstring program;  // its file's path
  std::wstring library;  // the path that the server was loaded from
  std::wstring version;  // of that file as it is now, "1.2.3.4"
  std::wstring user;     // "DOMAIN\name"
  // When it began: units of 100 ns since 1601, UTC.
  std::optional<uint64_t> startFileTime;
  std::optional<uint32_t> threads;
  std::optional<uint32_t> handles;
  std::optional<uint64_t> privateBytes;
  std::vector<Listener> listeners;
};

struct HostSearch {
  std::vector<HostProcess> hosts;
  // Processes that could not be looked into: one of them may be a host, too.
  size_t unreadable = 0;
};

// Looks through all processes and the table of TCP sockets.
HostSearch FindHosts();

// How many connections to `port` of this machine are in a state: a word such as
// "established" or "time-wait", as RFC 793 has them.
struct ConnectionCount {
  const wchar_t* state;
  size_t count;
};
std::vector<ConnectionCount> CountConnections(uint16_t port);

// The version that the resources of the file at `path` name; empty if none.
std::wstring FileVersion(const std::wstring& path);

}  // namespace kova::ctl
