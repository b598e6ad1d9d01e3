// One HTTP request to this machine, timed.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "base/windows_api.h"
#include "common/json.h"

namespace kova::ctl {

enum class ExchangeEnd {
  kAnswered,  // a whole HTTP answer came
  kRefused,   // nothing listens
  kTimedOut,  // no whole answer in time
  kNoHttp,    // what came is no HTTP answer
  kBroken,    // the connection ended before, or another error
};

// The words for programs.
NLOHMANN_JSON_SERIALIZE_ENUM(ExchangeEnd,
                             {{ExchangeEnd::kAnswered, "answered"},
                              {ExchangeEnd::kRefused, "refused"},
                              {ExchangeEnd::kTimedOut, "timed-out"},
                              {ExchangeEnd::kNoHttp, "no-http"},
                              {ExchangeEnd::kBroken, "broken"}})

struct Exchange {
  ExchangeEnd end = ExchangeEnd::kBroken;
  DWORD error = ERROR_SUCCESS;  // why there is no answer
  // Of an answer; the headers as they came, status line first.
  uint32_t status = 0;
  std::wstring headers;
  uint64_t bodyBytes = 0;
  // From the beginning to: the connection, the answer's first bytes, the end.
  std::optional<double> connectMs;
  std::optional<double> firstByteMs;
  double totalMs = 0;
};

// Sends GET `target` to 127.0.0.1:`port` on a connection of its own and reads
// the answer to its end, without proxy, redirection, cookies or a second try.
// Takes no longer than about `timeoutMs` in all, however slowly bytes come.
Exchange SendGet(uint16_t port, const std::wstring& target, uint32_t timeoutMs);

// Whether that is the answer which the server makes by itself, always of status
// 400, and not one of an extension or of another program.
bool IsServersOwnAnswer(const Exchange& exchange);

// Why there was no answer, as half a sentence.
std::wstring EndText(const Exchange& exchange, uint16_t port,
                     uint32_t timeoutMs);

// `text` as a part of a request target: UTF-8, everything but letters, digits
// and "-._~" as %XX.
std::wstring PercentEncoded(const std::wstring& text);

}  // namespace kova::ctl
