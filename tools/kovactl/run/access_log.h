// A line for each request: on the screen, and in a file for other programs.
#pragma once

#include <optional>
#include <string>

#include "author/recording.h"
#include "base/handles.h"
#include "common/exit_code.h"

namespace kova::ctl {

// What was asked and answered, for people: local time, client, method, target,
// status, bytes, milliseconds, printer; ends with a line end.
std::wstring AccessLine(const SeenExchange& exchange, bool color);

// The same in the combined format of web servers' logs, in UTC; what is not
// known is "-". Ends with a line end.
std::string CombinedLine(const SeenExchange& exchange);

// A file that such lines are added to.
class AccessLogFile {
 public:
  // Makes the file, or goes on behind what it holds.
  std::optional<Failure> Open(const std::wstring& path);
  // Any thread. Nothing if no file is open.
  void Add(const SeenExchange& exchange) const;

 private:
  UniqueFile m_file;
};

}  // namespace kova::ctl
