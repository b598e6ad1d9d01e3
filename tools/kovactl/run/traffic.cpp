#include "run/traffic.h"

namespace kova::ctl {

std::optional<Failure> Traffic::Open(const TrafficOptions& options) {
  if (!options.accessLog.empty()) {
    if (auto failure = m_log.Open(options.accessLog)) return failure;
  }
  m_isRecording = !options.recordFolder.empty();
  if (!m_isRecording) return std::nullopt;
  return m_recorder.Open(options.recordFolder, options.withBodies);
}

void Traffic::OnExchange(const SeenExchange& exchange) {
  m_pump.PushText(AccessLine(exchange, m_color));
  m_log.Add(exchange);
  // Nothing is known of what only the server saw.
  if (!m_isRecording || exchange.request.empty()) return;
  if (m_recorder.Add(exchange) || m_hasFailed.exchange(true)) return;
  m_pump.PushNotice(L"Not every request can be recorded; is the disk full?");
}

}  // namespace kova::ctl
