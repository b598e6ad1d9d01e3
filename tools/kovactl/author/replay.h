// Gives recorded requests to another build and tells what it answers otherwise.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "author/recording.h"
#include "check/extension.h"
#include "common/json.h"

namespace kova::ctl {

// One thing that is not as recorded. Texts are bytes as they were sent.
struct Difference {
  std::string
      what;  // "answer", "status", "connection", "body", or "header NAME"
  std::string recorded;
  std::string now;
};

// What two answers to a request differ in. `isCut`: the recording has only
// their heads, so that bodies are not compared. `ignored`: headers that are not
// compared either; letter case does not count.
std::vector<Difference> Compare(const SeenExchange& recorded,
                                const SeenExchange& now, bool isCut,
                                const std::vector<std::string>& ignored);

struct ReplayedRequest {
  std::string name;  // of its files in the recording
  std::string method;
  std::string path;
  std::vector<Difference> differences;
};

struct ReplayReport {
  size_t requests = 0;                     // that were given to the extension
  size_t skipped = 0;                      // for want of their bodies
  std::vector<ReplayedRequest> different;  // those answered otherwise
};

// Asks one request after the other, on the calling thread. If the extension
// crashes, says so on standard error and ends the process with exit code 1.
ReplayReport Replay(const std::vector<Recorded>& recording,
                    const check::Extension& extension,
                    const std::vector<std::string>& ignored);

std::wstring ReplayText(const ReplayReport& report);
Json ReplayJson(const ReplayReport& report);

}  // namespace kova::ctl
