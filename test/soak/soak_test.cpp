// Whole: some thousand requests of all kinds leave nothing behind.
#include <gtest/gtest.h>

#include <algorithm>

#include "test/soak/soak.h"

namespace kova::test {
namespace {

constexpr uint64_t kMiB = uint64_t{1} << 20;

// Ten rows; `grow` changes each of those after the fifth.
std::vector<SoakRow> Rows(void (*grow)(SoakRow& row, size_t number)) {
  std::vector<SoakRow> rows;
  for (size_t i = 0; i < 10; ++i) {
    SoakRow row;
    row.requests = (i + 1) * 100;
    row.privateBytes = 20 * kMiB;
    row.handles = 50;
    row.threads = 10;
    if (i > 5) grow(row, i);
    rows.push_back(row);
  }
  return rows;
}

TEST(SoakReportTest, RowsThatStayAsTheyAreAreFlat) {
  const SoakVerdict verdict = Judge(Rows([](SoakRow&, size_t) {}));
  EXPECT_TRUE(verdict.isFlat);
  EXPECT_EQ(verdict.privateGrowth, 0);
  EXPECT_EQ(verdict.handleGrowth, 0);
  EXPECT_EQ(verdict.threadGrowth, 0);
  EXPECT_FALSE(Judge({}).isFlat);
}

TEST(SoakReportTest, GrowthBeyondTheSlackIsSeen) {
  EXPECT_FALSE(Judge(Rows([](SoakRow& row, size_t) {
                 row.privateBytes += 4 * kMiB + 1;
               })).isFlat);
  EXPECT_TRUE(Judge(Rows([](SoakRow& row, size_t) {
                row.privateBytes += 4 * kMiB;
              })).isFlat);
  EXPECT_FALSE(Judge(Rows([](SoakRow& row, size_t) {
                 row.workingSetBytes += 12 * kMiB + 1;
               })).isFlat);
  EXPECT_FALSE(
      Judge(Rows([](SoakRow& row, size_t) { row.handles += 5; })).isFlat);
  EXPECT_TRUE(
      Judge(Rows([](SoakRow& row, size_t) { row.handles += 4; })).isFlat);
  EXPECT_FALSE(
      Judge(Rows([](SoakRow& row, size_t) { row.threads += 2; })).isFlat);
}

TEST(SoakReportTest, TheAddressListMayGrow) {
  const SoakVerdict verdict = Judge(Rows([](SoakRow& row, size_t) {
    row.peers = 65536;
    row.privateBytes += 4 * kMiB + AddressListBytes(65536);
  }));
  EXPECT_TRUE(verdict.isFlat);
  EXPECT_EQ(verdict.addressListGrowth, 65536 * 40);
}

TEST(SoakReportTest, PercentilesAreValuesThatOccurred) {
  EXPECT_EQ(Percentile({}, 50), 0u);
  EXPECT_EQ(Percentile({7}, 99), 7u);
  EXPECT_EQ(Percentile({3, 1, 2}, 50), 2u);
  std::vector<uint32_t> many(101);
  for (uint32_t i = 0; i <= 100; ++i) many[i] = 100 - i;
  EXPECT_EQ(Percentile(many, 99), 99u);
}

TEST(SoakReportTest, LinesFitTheScreen) {
  SoakRow row;
  row.requests = 1000000000;
  row.wrongAnswers = 999999;
  row.requestsPerSecond = 99999;
  row.privateBytes = row.workingSetBytes = 99999 * kMiB;
  row.handles = row.threads = 99999;
  row.medianUs = row.percentile99Us = 9999999;
  const std::string text = SoakHeading() + "\n" + SoakLine(row);
  size_t begin = 0;
  for (size_t end = 0; end != std::string::npos; begin = end + 1) {
    end = text.find('\n', begin);
    EXPECT_LE(std::min(end, text.size()) - begin, 80u);
  }
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
