// One short life of the server, in which one call of the library may fail.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "test/failing_calls/call_thunks.h"
#include "test/support/demo_printer.h"
#include "test/support/log_capture.h"
#include "test/support/server_fixture.h"
#include "test/support/test_extension.h"

namespace kova::test {

// What a client got for one request.
enum class Got {
  kAnswer,   // what it gets when nothing fails, whole
  kOwn400,   // the server's own answer in its place
  kCut,      // the beginning of the answer, then the end of the connection
  kNothing,  // no connection, or its end without a byte
  kSilence,  // a connection on which nothing more came
  kOther,    // bytes that nobody should have sent
};

struct Outcome {
  // Whether the call that was to fail came at all.
  bool failed = false;
  // The requests in their order: one that names no printer, one that the
  // extension answers, one with a large answer; then, after a restart that
  // the extension asked for, one that the extension answers.
  Got refused = Got::kNothing;
  Got routed = Got::kNothing;
  Got large = Got::kNothing;
  Got afterRestart = Got::kNothing;
  // The lines of the channels Error and Warning, in their order.
  std::vector<std::wstring> troubles;
  // From before the start until after the stop.
  uint64_t elapsedMs = 0;
  // A further start, without failures, answered; one that fails never does.
  bool servesAgain = false;
  // The library left the process when its references had been given back.
  bool unloaded = false;
  // Threads and handles of the process, above what they were before.
  int threadsLeft = 0;
  int handlesLeft = 0;
  // Responses of the extension that were never released.
  int responsesLeft = 0;
};

// Runs scenarios, each with a freshly loaded library. The printer and the
// settings are this object's for its life.
class FailureScenario {
 public:
  // Called on the thread that has an unhandled exception, in place of the
  // function that would write its dump.
  using OnDump = void();

  // Without `onDump` dumps are written.
  explicit FailureScenario(OnDump* onDump = nullptr);

  // Whether there are a library, an extension and a printer to run with.
  [[nodiscard]] bool IsReady() const;
  Outcome Run(const FailingCall& failing);
  // How often the last run called `function`, up to the end of its stop.
  [[nodiscard]] std::vector<std::pair<std::string, uint32_t>> Calls() const {
    return m_calls;
  }

 private:
  class Life;

  OnDump* const m_onDump;
  const ScopedLogMask m_mask{0xFFFFFFFF};
  TestExtension m_extension{L"scripted"};
  DemoPrinter m_printer{L"KOVA failing", L"kovaFailing"};
  std::vector<std::pair<std::string, uint32_t>> m_calls;
};

}  // namespace kova::test
