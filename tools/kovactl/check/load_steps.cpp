// The steps that load an extension, in the server's order.
#include <algorithm>
#include <array>
#include <chrono>
#include <cstring>

#include "check/guarded_area.h"
#include "check/harness.h"
#include "check/host_state.h"

namespace kova::ctl::check {
namespace {

constexpr uint32_t kVersionsOffered = 10;
constexpr double kSlowInitializeMs = 1000;

std::atomic<uint32_t> g_restartCalls{0};

// The server's own only sets an event, too, and may be called anywhere.
void CountRestart() { ++g_restartCalls; }

double MillisecondsSince(std::chrono::steady_clock::time_point start) {
  return std::chrono::duration<double, std::milli>(
             std::chrono::steady_clock::now() - start)
      .count();
}

struct ExportRow {
  Callee callee;
  bool found;
  // What the server does without it; null if that is no more than a warning.
  const char* without;
};

// One cause, one finding: what is decorated is reported with its first name.
void ReportMissing(Harness& harness, const ExportRow& row) {
  const std::string decorated =
      DecoratedExport(harness.extension.module, CalleeName(row.callee));
  if (!decorated.empty()) {
    harness.reporter.Report(
        {Flaw::kMangledExports, Callee::kNone, "the first is " + decorated});
    return;
  }
  harness.reporter.Report({row.without == nullptr ? Flaw::kMissingOptionalExport
                                                  : Flaw::kMissingExport,
                           row.callee,
                           row.without == nullptr ? "" : row.without});
}

std::string Listed(const std::array<uint32_t, kVersionsOffered>& versions) {
  std::string text;
  for (const uint32_t version : versions) {
    text += (text.empty() ? "" : " ") + std::to_string(version);
  }
  return text;
}

}  // namespace

uint32_t RestartCalls() { return g_restartCalls; }

bool LoadLibraryStep(Harness& harness) {
  DWORD error = ERROR_SUCCESS;
  const auto start = std::chrono::steady_clock::now();
  CallWatched(harness.state, 0, harness.reporter, Callee::kLoad, [&] {
    harness.extension.module = ::LoadLibraryW(harness.state.task.library);
    if (harness.extension.module == nullptr) error = ::GetLastError();
  });
  if (harness.extension.module == nullptr) {
    harness.reporter.Send({{"cannotLoad", error}});
    return false;
  }
  const double tookMs = MillisecondsSince(start);
  if (tookMs > kSlowInitializeMs) {
    harness.reporter.Report({Flaw::kSlowLoad, Callee::kLoad,
                             std::to_string(static_cast<int>(tookMs)) + " ms"});
  }
  harness.reporter.EndStep("");
  return true;
}

bool ExportsStep(Harness& harness) {
  FindFunctions(harness.extension);
  const Extension& found = harness.extension;
  constexpr char kAlways400[] = "without it every client gets 400";
  const ExportRow kRows[] = {
      {Callee::kVersions, found.versions != nullptr,
       "without it the server unloads the library"},
      {Callee::kSetRestart, found.setRestart != nullptr, nullptr},
      {Callee::kInitialize, found.initialize != nullptr, nullptr},
      {Callee::kHandle, found.handle != nullptr, kAlways400},
      {Callee::kLength, found.length != nullptr, kAlways400},
      {Callee::kCopy, found.copy != nullptr, kAlways400},
      {Callee::kRelease, found.release != nullptr,
       "without it no response is ever given back"},
  };
  int count = 0;
  for (const ExportRow& row : kRows) {
    if (row.found) ++count;
    if (!row.found) ReportMissing(harness, row);
  }
  harness.reporter.EndStep(std::to_string(count) + " found");
  return true;
}

bool VersionsStep(Harness& harness) {
  if (harness.extension.versions == nullptr) {
    harness.reporter.SkipStep("not exported");
    return false;
  }
  GuardedArea area;
  std::array<uint32_t, kVersionsOffered> versions{};
  char* const offered = area.Place(sizeof(versions));
  std::memset(offered, 0, sizeof(versions));
  CallWatched(harness.state, 0, harness.reporter, Callee::kVersions, [&] {
    harness.extension.versions(reinterpret_cast<uint32_t*>(offered),
                               kVersionsOffered);
  });
  std::memcpy(versions.data(), offered, sizeof(versions));
  const Breach breach = area.TakeBreach();
  if (breach.wrotePast || breach.readPast || breach.wroteFront) {
    harness.reporter.Report({Flaw::kVersionsOverrun, Callee::kVersions,
                             "the capacity is 10 entries"});
  }
  harness.reporter.Send({{"versions", versions}});
  const bool speaksOne =
      std::ranges::find(versions, KOVA_INTERFACE_VERSION) != versions.end();
  if (!speaksOne) {
    harness.reporter.Report(
        {Flaw::kNoVersion1, Callee::kVersions, "offered: " + Listed(versions)});
  }
  harness.reporter.EndStep(Listed(versions));
  return speaksOne;
}

bool RestartRoutineStep(Harness& harness) {
  if (harness.extension.setRestart == nullptr) {
    harness.reporter.SkipStep("not exported");
    return true;
  }
  CallWatched(harness.state, 0, harness.reporter, Callee::kSetRestart,
              [&] { harness.extension.setRestart(&CountRestart); });
  harness.reporter.EndStep("");
  return true;
}

bool InitializeStep(Harness& harness) {
  const Extension& found = harness.extension;
  const bool usable = found.handle != nullptr && found.length != nullptr &&
                      found.copy != nullptr;
  if (found.initialize == nullptr) {
    harness.reporter.SkipStep("not exported: the context is null");
    return usable;
  }
  const auto start = std::chrono::steady_clock::now();
  CallWatched(harness.state, 0, harness.reporter, Callee::kInitialize,
              [&] { harness.extension.context = found.initialize(); });
  const double tookMs = MillisecondsSince(start);
  const std::string took = std::to_string(static_cast<int>(tookMs)) + " ms";
  if (tookMs > kSlowInitializeMs) {
    harness.reporter.Report({Flaw::kSlowInitialize, Callee::kInitialize, took});
  }
  if (found.context == nullptr) {
    harness.reporter.Report({Flaw::kNullContext, Callee::kInitialize, ""});
  }
  harness.reporter.EndStep(took);
  return found.context != nullptr && usable;
}

}  // namespace kova::ctl::check
