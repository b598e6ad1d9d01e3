#include "logs/mask_change.h"

#include "common/plain_text.h"
#include "log/server_logger.h"
#include "logs/log_mask.h"

namespace kova::ctl {
namespace {

Failure UnknownWord(const std::wstring& word) {
  return {ExitCode::kNotFound, L"there is no channel \"" + HarmlessLine(word) +
                                   L"\"; did you mean " +
                                   NearestMaskWord(word) +
                                   L"? (kovactl log --help lists all)"};
}

bool IsNone(const std::wstring& word) {
  return word.size() == 4 && WordDistance(word, L"none") == 0;
}

}  // namespace

MaskWords ReadMaskWords(MaskAction action,
                        const std::vector<std::wstring>& words) {
  MaskWords result;
  for (const std::wstring& word : words) {
    const std::optional<uint32_t> bits = ParseMaskWord(word);
    if (!bits) return {0, UnknownWord(word)};
    if (IsNone(word) && (action != MaskAction::kSet || words.size() > 1)) {
      return {0, Failure{ExitCode::kWrongUsage,
                         L"\"none\" stands alone, as in kovactl log set none; "
                         L"leave it out here"}};
    }
    result.bits |= *bits;
  }
  return result;
}

uint32_t ChangedMask(MaskAction action, uint32_t mask, uint32_t bits) {
  if (action == MaskAction::kSet) return bits;
  return action == MaskAction::kAdd ? mask | bits : mask & ~bits;
}

std::wstring SetCommand(const std::wstring& logger, uint32_t mask) {
  return LogCommand(L"set", HexMask(mask), logger);
}

std::wstring LogCommand(const std::wstring& verb, const std::wstring& word,
                        const std::wstring& logger) {
  std::wstring command = L"kovactl log " + verb + L" " + word;
  if (logger == kServerLoggerName) return command;
  return command + L" --logger \"" + HarmlessLine(logger) + L"\"";
}

}  // namespace kova::ctl
