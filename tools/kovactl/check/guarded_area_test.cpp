// Unit: memory that notices misuse, and lets it pass.
#include "check/guarded_area.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

namespace kova::ctl::check {
namespace {

class GuardedAreaTest : public ::testing::Test {
 protected:
  static void SetUpTestSuite() { GuardedArea::StartWatching(); }

  static volatile char* Volatile(const char* bytes) {
    return const_cast<char*>(bytes);
  }

  GuardedArea m_area;
};

TEST_F(GuardedAreaTest, HoldsACopyAndFindsNothingInItsReading) {
  const std::string bytes("a\0b", 3);
  const char* const placed = m_area.PlaceReadOnly(bytes);
  EXPECT_EQ(std::string(placed, 3), bytes);
  const Breach breach = m_area.TakeBreach();
  EXPECT_FALSE(breach.wrote || breach.readPast || breach.wrotePast ||
               breach.wroteFront);
}

TEST_F(GuardedAreaTest, NoticesAWriteIntoWhatIsReadOnly) {
  volatile char* const placed = Volatile(m_area.PlaceReadOnly("abc"));
  placed[2] = 'x';
  EXPECT_EQ(placed[2], 'x');
  const Breach breach = m_area.TakeBreach();
  EXPECT_TRUE(breach.wrote);
  EXPECT_EQ(breach.offset, 2u);
  EXPECT_FALSE(breach.wrotePast);
  (void)m_area.PlaceReadOnly("abc");
  EXPECT_FALSE(m_area.TakeBreach().wrote);
}

TEST_F(GuardedAreaTest, NoticesReadsAndWritesPastTheEnd) {
  volatile char* placed = Volatile(m_area.PlaceReadOnly("abc"));
  (void)placed[2];
  (void)placed[3];
  Breach breach = m_area.TakeBreach();
  EXPECT_TRUE(breach.readPast);
  EXPECT_FALSE(breach.wrotePast);
  EXPECT_EQ(breach.offset, 3u);
  placed = m_area.Place(5);
  placed[4] = 'x';
  placed[5] = 'x';
  breach = m_area.TakeBreach();
  EXPECT_TRUE(breach.wrotePast);
  EXPECT_FALSE(breach.readPast);
}

TEST_F(GuardedAreaTest, NoticesAWriteAfterAReadPastTheEnd) {
  volatile char* const placed = m_area.Place(1);
  (void)placed[1];
  placed[1] = 'x';
  const Breach breach = m_area.TakeBreach();
  EXPECT_TRUE(breach.readPast);
  EXPECT_TRUE(breach.wrotePast);
}

TEST_F(GuardedAreaTest, GuardsAgainAfterEachPlacing) {
  for (int round = 0; round < 3; ++round) {
    volatile char* const placed = m_area.Place(8);
    EXPECT_FALSE(m_area.TakeBreach().wrotePast);
    placed[8] = 'x';
    EXPECT_TRUE(m_area.TakeBreach().wrotePast) << round;
  }
}

TEST_F(GuardedAreaTest, NoticesAWriteInFront) {
  volatile char* const placed = m_area.Place(8);
  placed[-1] = 'x';
  EXPECT_TRUE(m_area.TakeBreach().wroteFront);
  (void)m_area.Place(8);
  EXPECT_FALSE(m_area.TakeBreach().wroteFront);
}

TEST_F(GuardedAreaTest, GrowsAndFillsWhatItPlaces) {
  for (const size_t length :
       {size_t{1}, size_t{4096}, size_t{4097}, size_t{100000}, size_t{2}}) {
    char* const placed = m_area.Place(length);
    ASSERT_NE(placed, nullptr);
    EXPECT_EQ(std::string(placed, length),
              std::string(length, GuardedArea::kUnwritten));
    std::memset(placed, 'x', length);
    const Breach breach = m_area.TakeBreach();
    EXPECT_FALSE(breach.wrotePast || breach.wroteFront) << length;
  }
}

TEST_F(GuardedAreaTest, NoticesWhatIsTouchedAfterItsTime) {
  volatile char* const placed = Volatile(m_area.PlaceReadOnly("abc", "a text"));
  (void)m_area.TakeBreach();
  m_area.Seal();
  EXPECT_TRUE(GuardedArea::TakeLateAccesses().empty());
  EXPECT_EQ(placed[1], 'b');
  placed[1] = 'x';
  const std::vector<LateAccess> late = GuardedArea::TakeLateAccesses();
  ASSERT_EQ(late.size(), 1u);
  EXPECT_STREQ(late[0].what, "a text");
  EXPECT_FALSE(late[0].isWrite);
  EXPECT_EQ(late[0].callee, Callee::kOwnThread);
  EXPECT_TRUE(GuardedArea::TakeLateAccesses().empty());
  (void)m_area.PlaceReadOnly("abc");
  (void)placed[3];
  EXPECT_TRUE(m_area.TakeBreach().readPast);
}

TEST_F(GuardedAreaTest, LendsAnAreaAgainOnlyAfterManyOthers) {
  const char* first = nullptr;
  {
    const LentArea area;
    first = area->PlaceReadOnly("abc");
  }
  for (int i = 0; i < 100; ++i) {
    const LentArea area;
    EXPECT_NE(area->PlaceReadOnly("abc"), first);
  }
}

}  // namespace
}  // namespace kova::ctl::check
