// What a test extension tells the test about the calls it got, and what the
// test tells the extension to do. Lies in the extension's memory; the test
// reaches it through the export "TestExtension_Record". Both sides are built by
// one compiler, so they agree on the layout.
#pragma once

#include <atomic>
#include <cstdint>

#include "base/windows_api.h"
#include "kova/extension.h"

namespace kova::test {

// Calls are letters in the order they came:
//   V versions  S restart routine handed over  I initialise
//   H handle    L length    C copy    R release
// A call with a context or a response that the extension never gave, or took
// back already, is written as '?'.
struct ExtensionRecord {
  static constexpr uint32_t kTraceBytes = 4096;
  static constexpr uint32_t kVersions = 10;
  static constexpr uint32_t kOwnVersion = 0xFFFFFFFF;

  std::atomic<uint32_t> traceLength;
  char trace[kTraceBytes]{};

  // Set by the test before the server loads the library.
  uint32_t versions[kVersions]{};
  // How many of them the extension writes; kOwnVersion: one, the one that it
  // was built with.
  uint32_t versionsWritten = kOwnVersion;
  HANDLE initializeGate{};  // if set, initialising waits for it

  // Seen at load.
  uint32_t capacity{};
  uint32_t nonZeroVersionsOnEntry{};
  KOVA_RestartRoutine* restart{};

  // Responses handed out and not yet released.
  std::atomic<int32_t> live;
  // The length the server gave at the last copy.
  std::atomic<uint32_t> copyLength;

  // For "act=wait": `entered` is set by the extension, then it waits for
  // `gate`.
  HANDLE entered{};
  HANDLE gate{};

  // Called, if set, at the start of each release, on the server's thread.
  void (*onRelease)(void* argument) = nullptr;
  void* onReleaseArgument{};
};

using TestExtension_RecordFunction = ExtensionRecord*();

}  // namespace kova::test
