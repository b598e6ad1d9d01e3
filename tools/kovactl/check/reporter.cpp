#include "check/reporter.h"

#include <string>

namespace kova::ctl::check {
namespace {

using Json = nlohmann::ordered_json;

constexpr ULONGLONG kProgressEveryMs = 250;

void WriteLine(HANDLE pipe, const Json& message) {
  const std::string line =
      message.dump(-1, ' ', false, Json::error_handler_t::replace) + "\n";
  DWORD written = 0;
  ::WriteFile(pipe, line.data(), static_cast<DWORD>(line.size()), &written,
              nullptr);
}

}  // namespace

void Reporter::Send(const Json& message) {
  const std::lock_guard lock(m_mutex);
  WriteLine(m_pipe, message);
}

void Reporter::Report(const Finding& finding) {
  const std::lock_guard lock(m_mutex);
  if (!m_seen.emplace(finding.flaw, finding.callee).second) return;
  WriteLine(m_pipe, {{"finding", KindOf(finding.flaw).code},
                     {"entry", static_cast<uint32_t>(finding.callee)},
                     {"detail", finding.detail}});
}

void Reporter::BeginStep(size_t step) {
  const std::lock_guard lock(m_mutex);
  m_seen.clear();
  m_requests = 0;
  m_note.clear();
  m_skipped = false;
  WriteLine(m_pipe, {{"begin", step}});
}

void Reporter::CountRequest() {
  const std::lock_guard lock(m_mutex);
  ++m_requests;
  const ULONGLONG now = ::GetTickCount64();
  if (now - m_progressMs < kProgressEveryMs) return;
  m_progressMs = now;
  WriteLine(m_pipe, {{"progress", m_requests}});
}

void Reporter::SendEnd() {
  const std::lock_guard lock(m_mutex);
  WriteLine(m_pipe,
            {{m_skipped ? "skip" : "end", m_note}, {"requests", m_requests}});
}

}  // namespace kova::ctl::check
