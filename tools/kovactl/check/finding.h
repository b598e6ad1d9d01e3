// What a check can find wrong with an extension.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "check/extension.h"

namespace kova::ctl::check {

enum class Severity { kWarning, kFault };

enum class Flaw {
  kFileName,
  kMissingExport,
  kMissingOptionalExport,
  kMangledExports,
  kNoVersion1,
  kVersionsOverrun,
  kNullContext,
  kSlowLoad,
  kSlowInitialize,
  kNullResponse,
  kRefused,
  kZeroLength,
  kGiantLength,
  kChangingLength,
  kCopyFailed,
  kCopyOverrun,
  kCopyUnderrun,
  kCopyIncomplete,
  kRequestWritten,
  kRequestOverread,
  kAddressWritten,
  kAddressOverread,
  kArgumentKept,
  kKeepOpenOverrun,
  kKeepOpenValue,
  kKeepOpenWithoutLength,
  kConnectionDisagrees,
  kStatusLine,
  kStatusRange,
  kHeaderLine,
  kHeaderInjection,
  kLineEnd,
  kNoEmptyLine,
  kContentLengthText,
  kContentLengthWrong,
  kNoContentLength,
  kChunks,
  kContentEncoding,
  kForbiddenBody,
  kHeadBody,
  kMixedAnswers,
  kDifferingAnswers,
  kWaitsForOther,
  kSlowAnswer,
  kOutlastsStop,
  kMemoryGrowth,
  kHandleGrowth,
  kThreadGrowth,
  kGuiGrowth,
  kUnfetchedGrowth,
  kConnectionGrowth,
  kBusyThread,
  kHostState,
  kFloatingPoint,
  kHeapDamage,
  kForeignHandle,
  kCrash,
  kException,
  kHang,
  kEndedProcess,
  kEndedThread,
};

inline constexpr size_t kFlawCount =
    static_cast<size_t>(Flaw::kEndedThread) + 1;

// What all findings of one flaw have in common. The texts are ASCII sentences:
// `client` says what becomes of the server's clients, `advice` what to do.
struct FlawKind {
  const char* code;  // for machines, never changed once released
  Severity severity;
  const char* title;
  const char* client;
  const char* advice;
};
const FlawKind& KindOf(Flaw flaw);

// The flaw with this code.
std::optional<Flaw> FlawWithCode(std::string_view code);

// One flaw seen once. `detail` says what was seen, in UTF-8; may be empty.
struct Finding {
  Flaw flaw;
  Callee callee = Callee::kNone;
  std::string detail;
};
using Findings = std::vector<Finding>;

}  // namespace kova::ctl::check
