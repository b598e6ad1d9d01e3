// Whole: some thousand requests of all kinds leave nothing behind.
#include <gtest/gtest.h>

#include "test/soak/soak.h"

namespace kova::test {
namespace {

constexpr uint64_t kMiB = uint64_t{1} << 20;

// The verdict on ten rows; `grow` changes each of those after the fifth.
bool IsFlat(void (*grow)(SoakRow& row)) {
  std::vector<SoakRow> rows;
  for (size_t i = 0; i < 10; ++i) {
    SoakRow row;
    row.privateBytes = row.workingSetBytes = 20 * kMiB;
    row.handles = 50;
    row.threads = 10;
    if (i > 5) grow(row);
    rows.push_back(row);
  }
  return Judge(rows).isFlat;
}

// Of each measure, one more than the slack.
TEST(SoakReportTest, GrowthBeyondTheSlackIsSeen) {
  EXPECT_TRUE(IsFlat([](SoakRow& row) { row.privateBytes += 4 * kMiB; }));
  EXPECT_FALSE(
      IsFlat([](SoakRow& row) { row.privateBytes += 4 * kMiB + 1024; }));
  EXPECT_FALSE(
      IsFlat([](SoakRow& row) { row.workingSetBytes += 12 * kMiB + 1024; }));
  EXPECT_FALSE(IsFlat([](SoakRow& row) { row.handles += 5; }));
  EXPECT_FALSE(IsFlat([](SoakRow& row) { row.threads += 2; }));
  EXPECT_FALSE(Judge({}).isFlat);
}

TEST(SoakReportTest, TheAddressListMayGrow) {
  EXPECT_EQ(AddressListBytes(65536), 65536u * 40);
  EXPECT_TRUE(IsFlat([](SoakRow& row) {
    row.peers = 65536;
    row.privateBytes += 4 * kMiB + AddressListBytes(row.peers);
  }));
}

TEST(SoakTest, ThousandsOfRequestsLeaveNothingBehind) {
  Soak soak(8);
  ASSERT_TRUE(soak.IsReady());
  std::vector<SoakRow> rows;
  for (int i = 0; i < 10; ++i) {
    rows.push_back(soak.RunRound(200, [](uint64_t) {}));
  }
  const SoakVerdict verdict = Judge(rows);
  std::string table = SoakHeading();
  for (const SoakRow& row : rows) table += "\n" + SoakLine(row);
  EXPECT_TRUE(verdict.isFlat) << table << "\n" << VerdictText(verdict);
  EXPECT_EQ(verdict.wrongAnswers, 0u) << table;
  EXPECT_GE(rows.back().requests, 2000u);
}

}  // namespace
}  // namespace kova::test
