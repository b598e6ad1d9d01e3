// The answers that every contestant of a comparison gives.
#pragma once

#include <string>

namespace kova::bench {

// kRefusal: what the product answers by itself. kSmall: a body of 1 KiB.
// kLarge: a body of 8 MiB.
enum class AnswerKind { kRefusal, kSmall, kLarge };

// The complete response. `keepOpen` tells the client whether the connection
// stays open after it, except that a refusal always has the product's bytes:
// those for a request without a Connection header. Its date is that of the
// call.
[[nodiscard]] std::string MakeAnswer(AnswerKind kind, bool keepOpen);

// The bodies alone; empty for a refusal.
[[nodiscard]] std::string MakeBody(AnswerKind kind);

}  // namespace kova::bench
