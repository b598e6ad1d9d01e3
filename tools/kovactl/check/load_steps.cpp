// The steps that load an extension, in the server's order.
#include <algorithm>
#include <array>
#include <chrono>
#include <cstring>

#include "check/bench.h"
#include "check/entry_call.h"
#include "check/guarded_area.h"

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
  Entry entry;
  bool found;
  // What the server does without it; null if that is no more than a warning.
  const char* without;
};

void ReportMissing(Bench& bench, const ExportRow& row) {
  const std::string decorated =
      DecoratedExport(bench.extension.module, EntryName(row.entry));
  std::string detail = row.without == nullptr ? "" : row.without;
  if (!decorated.empty()) {
    detail = "it is exported as " + decorated + "; extern \"C\" is missing";
  }
  bench.sink.Report({row.without == nullptr ? Flaw::kMissingOptionalExport
                                            : Flaw::kMissingExport,
                     row.entry, detail});
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

bool LoadLibraryStep(Bench& bench) {
  DWORD error = ERROR_SUCCESS;
  CallEntry(bench.board, 0, Entry::kLoad, [&] {
    bench.extension.module = ::LoadLibraryW(bench.board.order.library);
    if (bench.extension.module == nullptr) error = ::GetLastError();
  });
  if (bench.extension.module == nullptr) {
    bench.sink.Send({{"cannotLoad", error}});
    return false;
  }
  bench.sink.EndStep("");
  return true;
}

bool ExportsStep(Bench& bench) {
  FindEntries(bench.extension);
  const Extension& found = bench.extension;
  constexpr char kAlways400[] = "without it every client gets 400";
  const ExportRow kRows[] = {
      {Entry::kVersions, found.versions != nullptr,
       "without it the server unloads the library"},
      {Entry::kSetRestart, found.setRestart != nullptr, nullptr},
      {Entry::kInitialize, found.initialize != nullptr, nullptr},
      {Entry::kHandle, found.handle != nullptr, kAlways400},
      {Entry::kLength, found.length != nullptr, kAlways400},
      {Entry::kCopy, found.copy != nullptr, kAlways400},
      {Entry::kRelease, found.release != nullptr,
       "without it no response is ever given back"},
  };
  int count = 0;
  for (const ExportRow& row : kRows) {
    if (row.found) ++count;
    if (!row.found) ReportMissing(bench, row);
  }
  bench.sink.EndStep(std::to_string(count) + " found");
  return true;
}

bool VersionsStep(Bench& bench) {
  if (bench.extension.versions == nullptr) {
    bench.sink.SkipStep("not exported");
    return false;
  }
  GuardedArea area;
  std::array<uint32_t, kVersionsOffered> versions{};
  char* const offered = area.Place(sizeof(versions));
  std::memset(offered, 0, sizeof(versions));
  CallEntry(bench.board, 0, Entry::kVersions, [&] {
    bench.extension.versions(reinterpret_cast<uint32_t*>(offered),
                             kVersionsOffered);
  });
  std::memcpy(versions.data(), offered, sizeof(versions));
  const Breach breach = area.TakeBreach();
  if (breach.wrotePast || breach.readPast || breach.wroteFront) {
    bench.sink.Report({Flaw::kVersionsOverrun, Entry::kVersions,
                       "the capacity is 10 entries"});
  }
  bench.sink.Send({{"versions", versions}});
  const bool speaksOne =
      std::ranges::find(versions, KOVA_INTERFACE_VERSION) != versions.end();
  if (!speaksOne) {
    bench.sink.Report(
        {Flaw::kNoVersion1, Entry::kVersions, "offered: " + Listed(versions)});
  }
  bench.sink.EndStep(Listed(versions));
  return speaksOne;
}

bool RestartRoutineStep(Bench& bench) {
  if (bench.extension.setRestart == nullptr) {
    bench.sink.SkipStep("not exported");
    return true;
  }
  CallEntry(bench.board, 0, Entry::kSetRestart,
            [&] { bench.extension.setRestart(&CountRestart); });
  bench.sink.EndStep("");
  return true;
}

bool InitializeStep(Bench& bench) {
  const Extension& found = bench.extension;
  const bool usable = found.handle != nullptr && found.length != nullptr &&
                      found.copy != nullptr;
  if (found.initialize == nullptr) {
    bench.sink.SkipStep("not exported: the context is null");
    return usable;
  }
  const auto start = std::chrono::steady_clock::now();
  CallEntry(bench.board, 0, Entry::kInitialize,
            [&] { bench.extension.context = found.initialize(); });
  const double tookMs = MillisecondsSince(start);
  const std::string took = std::to_string(static_cast<int>(tookMs)) + " ms";
  if (tookMs > kSlowInitializeMs) {
    bench.sink.Report({Flaw::kSlowInitialize, Entry::kInitialize, took});
  }
  if (found.context == nullptr) {
    bench.sink.Report({Flaw::kNullContext, Entry::kInitialize, ""});
  }
  bench.sink.EndStep(took);
  return found.context != nullptr && usable;
}

}  // namespace kova::ctl::check
