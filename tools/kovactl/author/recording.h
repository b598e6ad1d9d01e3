// Requests and their answers, kept in a folder.
#pragma once

#include <atomic>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "base/handles.h"
#include "common/exit_code.h"

namespace kova::ctl {

// One request and what became of it. Bytes that nobody wanted are left out at
// the end of `request` and `response`; their numbers tell.
struct SeenExchange {
  uint64_t startTime = 0;  // a file's time: 100 ns since 1601, UTC
  uint64_t microseconds = 0;
  std::wstring client;   // its address
  std::string request;   // empty if only the server saw it
  std::string response;  // empty if the extension gave none
  uint64_t requestBytes = 0;
  uint64_t responseBytes = 0;
  uint32_t keepOpenBefore = 0;  // the connection's flag
  uint32_t keepOpenAfter = 0;
};

// Where the headers of a message end, behind the empty line; its size if they
// do not.
size_t HeadBytes(std::string_view message);

// The status of a response's bytes; 0 if they are none.
uint32_t StatusOf(std::string_view response);

// Writes a recording: for the N-th exchange N.request and N.response, with six
// digits, and a line of JSON in exchanges.jsonl.
class Recorder {
 public:
  // Begins a recording in `folder`, which is made if it is not there. One that
  // holds a recording is refused. Once, before the others.
  std::optional<Failure> Open(const std::wstring& folder, bool withBodies);

  // Any thread. False if something could not be written.
  bool Add(const SeenExchange& exchange);

 private:
  std::wstring m_folder;
  bool m_withBodies = true;
  UniqueFile m_index;
  std::atomic<uint32_t> m_count{0};
};

// One exchange as it was recorded.
struct Recorded {
  std::string name;  // of its files, without ".request" and ".response"
  SeenExchange exchange;
};

// Reads the recording in `folder`, in the order in which the answers came.
std::optional<Failure> ReadRecording(const std::wstring& folder,
                                     std::vector<Recorded>& recording);

}  // namespace kova::ctl
