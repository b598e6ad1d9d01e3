#include "logs/log_command.h"

#include "common/plain_text.h"
#include "common/verb.h"
#include "log/server_logger.h"
#include "logs/log_mask.h"
#include "logs/mask_report.h"

namespace kova::ctl {
namespace {

std::optional<Failure> Read(std::vector<LoggerMask>& loggers) {
  const LSTATUS status = ReadLoggerMasks(loggers);
  if (status == ERROR_SUCCESS) return std::nullopt;
  return SystemFailure(ExitCode::kInternalError,
                       L"cannot read the log masks from the registry",
                       static_cast<unsigned long>(status));
}

Failure UnknownLogger(const std::vector<LoggerMask>& loggers,
                      const std::wstring& name) {
  std::wstring nearest = kServerLoggerName;
  for (const LoggerMask& logger : loggers) {
    if (WordDistance(name, logger.name) < WordDistance(name, nearest)) {
      nearest = logger.name;
    }
  }
  return {ExitCode::kNotFound, L"there is no logger \"" + HarmlessLine(name) +
                                   L"\"; did you mean \"" +
                                   HarmlessLine(nearest) +
                                   L"\"? (kovactl log show lists all)"};
}

// The row to work on: the registry's, or a fresh one of the server's logger.
std::optional<Failure> Find(const std::wstring& name, LoggerMask& found) {
  std::vector<LoggerMask> loggers;
  if (auto failure = Read(loggers)) return failure;
  if (const LoggerMask* logger = FindLogger(loggers, name)) {
    found = *logger;
    return std::nullopt;
  }
  found = {kServerLoggerName, {}};
  if (FindLogger({found}, name) != nullptr) return std::nullopt;
  return UnknownLogger(loggers, name);
}

std::optional<Failure> NewMask(MaskAction action, const LoggerMask& logger,
                               uint32_t bits, uint32_t& mask) {
  std::optional<uint32_t> before = logger.Mask();
  const bool isNew = !logger.value.present;
  if (!before && isNew) before = kServerLoggerDefaultMask;
  if (!before && action != MaskAction::kSet) {
    return Failure{ExitCode::kInternalError,
                   L"the registry holds no readable mask of \"" +
                       HarmlessLine(logger.name) +
                       L"\"; give it one with kovactl log set"};
  }
  mask = ChangedMask(action, before.value_or(0), bits);
  return std::nullopt;
}

std::optional<Failure> Write(const MaskUpdate& update) {
  const LSTATUS status = WriteLoggerMask(update.before.name, update.now);
  if (status == ERROR_SUCCESS) return std::nullopt;
  return SystemFailure(ExitCode::kInternalError,
                       L"cannot write the log mask to the registry",
                       static_cast<unsigned long>(status));
}

}  // namespace

std::optional<Failure> ShowLog(const std::wstring& name, bool json) {
  std::vector<LoggerMask> loggers;
  if (auto failure = Read(loggers)) return failure;
  if (!name.empty()) {
    const LoggerMask* const logger = FindLogger(loggers, name);
    if (logger == nullptr) return UnknownLogger(loggers, name);
    loggers = std::vector<LoggerMask>{*logger};
  }
  if (json) {
    ShowJson(LoggersJson(loggers));
  } else {
    ShowText(LoggersText(loggers));
  }
  return std::nullopt;
}

std::optional<Failure> ChangeLog(MaskAction action,
                                 const std::vector<std::wstring>& words,
                                 const std::wstring& name, bool json) {
  const MaskWords read = ReadMaskWords(action, words);
  if (read.failure) return read.failure;
  MaskUpdate update;
  if (auto failure = Find(name, update.before)) return failure;
  if (auto failure = NewMask(action, update.before, read.bits, update.now)) {
    return failure;
  }
  if (auto failure = Write(update)) return failure;
  if (json) {
    ShowJson(UpdateJson(update));
  } else {
    ShowText(UpdateText(update));
  }
  return std::nullopt;
}

}  // namespace kova::ctl
