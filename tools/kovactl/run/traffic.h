// What a run does with the requests that it sees.
#pragma once

#include <atomic>
#include <optional>
#include <string>

#include "author/recording.h"
#include "run/access_log.h"
#include "run/forwarding.h"
#include "run/line_pump.h"

namespace kova::ctl {

struct TrafficOptions {
  std::wstring accessLog;     // file of the combined lines; empty: none
  std::wstring recordFolder;  // empty: nothing is recorded
  bool withBodies = true;     // in the recording
};

// Shows a line for each exchange, adds it to the access log, and records it.
class Traffic : public ExchangeSink {
 public:
  // `pump` must outlive this.
  Traffic(LinePump& pump, bool color) : m_pump(pump), m_color(color) {}

  // Opens what the options name. Once, before the first exchange.
  std::optional<Failure> Open(const TrafficOptions& options);

  void OnExchange(const SeenExchange& exchange) override;

 private:
  LinePump& m_pump;
  const bool m_color;
  bool m_isRecording = false;
  AccessLogFile m_log;
  Recorder m_recorder;
  std::atomic<bool> m_hasFailed{false};
};

}  // namespace kova::ctl
