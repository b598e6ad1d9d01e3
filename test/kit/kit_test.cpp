// Unit: how the test kit counts, compares and makes anonymous.
#include <gtest/gtest.h>

#include "test/kit/inventory.h"
#include "test/kit/test_run.h"

namespace {

using kova::test::Anonymous;
using kova::test::Counts;
using kova::test::CountTests;
using kova::test::Inventory;
using kova::test::Load;
using kova::test::Save;
using kova::test::Without;

TEST(CountTestsTest, ReadsTheSummaryAlone) {
  constexpr char kSaid[] =
      "[  FAILED  ] A.B (3 ms)\r\n"
      "[  PASSED  ] 12 tests.\r\n"
      "[  SKIPPED ] 2 tests, listed below:\r\n"
      "[  SKIPPED ] A.C\r\n"
      "[  FAILED  ] 1 test, listed below:\r\n"
      "[  FAILED  ] A.B\r\n\r\n 1 FAILED TEST\r\n";
  EXPECT_EQ(CountTests(kSaid, 1), (Counts{12, 1, 2}));
}

TEST(CountTestsTest, TakesAProgramThatEndsBadlyForAFailure) {
  EXPECT_EQ(CountTests("", 0), (Counts{0, 1, 0}));
  EXPECT_EQ(CountTests("[  PASSED  ] 2 tests.\n", 3), (Counts{2, 1, 0}));
  EXPECT_EQ(CountTests("[  PASSED  ] 2 tests.\n", 0), (Counts{2, 0, 0}));
}

TEST(AnonymousTest, ReplacesNamesWhateverTheirCase) {
  EXPECT_EQ(Anonymous("C:\\Users\\ann\\x @ANN-PC ann",
                      {{"Ann-PC", "COMPUTER"}, {"ANN", "USER"}, {"x", "y"}}),
            "C:\\Users\\USER\\x @COMPUTER USER");
}

TEST(InventoryTest, TellsWhatIsNew) {
  EXPECT_EQ(Without({L"a", L"b", L"c"}, {L"a", L"c", L"d"}),
            std::vector<std::wstring>{L"b"});
}

TEST(InventoryTest, ComesBackAsItWasSaved) {
  const Inventory inventory = {L"file | C:\\Log Files\\\u00fc\u4e00.txt",
                               L"printer | A | B"};
  const auto file = std::filesystem::temp_directory_path() / "kova-kit.txt";
  ASSERT_TRUE(Save(inventory, file));
  EXPECT_EQ(Load(file), inventory);
  std::filesystem::remove(file);
}

}  // namespace
