#include "http/request_progress.h"

#include <algorithm>

#include "base/byte_search.h"
#include "http/request_syntax.h"

namespace kova {

bool RequestProgress::IsComplete(std::string_view received) {
  if (m_stage == Stage::kRequestLine) FindRequestLine(received);
  if (m_stage == Stage::kHeaders) FindHeaderEnd(received);
  return m_stage == Stage::kBody && HasBody(received);
}

void RequestProgress::FindRequestLine(std::string_view received) {
  const auto found = ScanRequestLine(received, m_searched);
  if (!found) return FindNothing(received);
  const auto line = SplitRequestLine(received.substr(0, found->end));
  const bool isValid = line && HasMethodAndPath(*line);
  m_stage = isValid ? Stage::kHeaders : Stage::kNever;
  m_line = *found;
  m_searched = found->end;
}

void RequestProgress::FindHeaderEnd(std::string_view received) {
  const auto found = ScanHeaderEnd(received, m_searched);
  if (!found) return FindNothing(received);
  m_stage = Stage::kBody;
  m_headers = *found;
}

// No request goes on behind a zero byte. Up to three bytes may be the beginning
// of a terminator.
void RequestProgress::FindNothing(std::string_view received) {
  const size_t size = received.size();
  if (FindByte(received, m_searched, '\0') != size) m_stage = Stage::kNever;
  m_searched = std::max(m_searched, size - std::min<size_t>(size, 3));
}

bool RequestProgress::HasBody(std::string_view received) {
  const size_t availableBytes = received.size() - m_headers.Next();
  if (availableBytes != 0 && !m_announced) {
    m_announced = AnnouncedBodyBytes(HeaderBlock(received, m_line, m_headers));
  }
  return IsWholeBody(m_announced.value_or(0), availableBytes);
}

}  // namespace kova
