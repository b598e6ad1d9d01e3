// Whole: each allocation of the library fails once, each in a host of its own.
#include "test/failing_calls/failing_allocation.h"

#include <gtest/gtest.h>

#include <cstdlib>

#include "test/crash/crash_run.h"
#include "test/support/log_capture.h"
#include "test/support/server_settings_scope.h"

namespace kova::test {
namespace {

constexpr wchar_t kHost[] = L"failing_allocation_host.exe";
constexpr uint32_t kMost = 5000;

// A process for each of about a thousand calls takes long: every so many are
// tried unless the environment asks for all.
uint32_t Step() {
  return std::getenv("KOVA_EVERY_ALLOCATION") != nullptr ? 1 : 101;
}

class FailingAllocationTest : public testing::TestWithParam<const char*> {
 protected:
  static std::wstring Arguments(uint32_t nth) {
    const std::string name = GetParam();
    return std::wstring(name.begin(), name.end()) + L" " + std::to_wstring(nth);
  }

  // A host that ends at its filter puts nothing back.
  const ServerSettingsScope m_settings;
  const ScopedLogMask m_mask{0xFFFFFFFF};
  const DumpWatch m_dumps;
};

TEST_P(FailingAllocationTest, GoesOnOrReachesTheFilter) {
  int through = 0;
  int filtered = 0;
  for (uint32_t nth = 1; nth < kMost; nth += Step()) {
    const DWORD code = RunToEnd(kHost, Arguments(nth));
    if (code == kNeverCalled) break;
    through += code == kCameThrough;
    filtered += code == kReachedTheFilter;
    EXPECT_TRUE(code == kCameThrough || code == kReachedTheFilter)
        << "call " << nth << " ended with " << code;
  }
  EXPECT_GT(through + filtered, 0);
  RecordProperty("came through", through);
  RecordProperty("reached the filter", filtered);
}

INSTANTIATE_TEST_SUITE_P(Functions, FailingAllocationTest,
                         testing::Values("malloc", "calloc"),
                         [](const auto& name) {
                           return std::string(name.param);
                         });

}  // namespace
}  // namespace kova::test
