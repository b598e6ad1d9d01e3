// Unit: the growable arrays of bytes and pointers, and the rule of growth.
#include "base/o_array.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <set>

namespace {

bool AreZero(const OTypedArray<char>& bytes, int32_t from, int32_t to) {
  return std::all_of(bytes.Data() + from, bytes.Data() + to,
                     [](char byte) { return byte == 0; });
}

TEST(NextCapacityTest, AddsAnEighthOfTheCountWithinLimits) {
  EXPECT_EQ(kova::NextCapacity(1, 1, 0, 2), 5);
  EXPECT_EQ(kova::NextCapacity(39, 39, 0, 40), 43);
  EXPECT_EQ(kova::NextCapacity(40, 40, 0, 41), 45);
  EXPECT_EQ(kova::NextCapacity(800, 800, 0, 801), 900);
  EXPECT_EQ(kova::NextCapacity(8184, 8184, 0, 8185), 8184 + 1023);
  EXPECT_EQ(kova::NextCapacity(8192, 8192, 0, 8193), 8192 + 1024);
  EXPECT_EQ(kova::NextCapacity(16000, 16000, 0, 16001), 17024);
}

TEST(NextCapacityTest, TakesTheStepThatWasSet) {
  EXPECT_EQ(kova::NextCapacity(800, 800, 1, 801), 801);
  EXPECT_EQ(kova::NextCapacity(800, 800, 7, 801), 807);
  EXPECT_EQ(kova::NextCapacity(800, 800, -3, 801), 801);
}

TEST(NextCapacityTest, GivesWhatIsAskedWhereThatIsMore) {
  EXPECT_EQ(kova::NextCapacity(1, 1, 0, 100), 100);
  EXPECT_EQ(kova::NextCapacity(0, 5, 0, 9), 9);
  EXPECT_EQ(kova::NextCapacity(0, 5, 0, 10), 10);
}

TEST(NextCapacityTest, DoesNotOverflow) {
  EXPECT_EQ(kova::NextCapacity(INT32_MAX - 1, INT32_MAX - 1, 0, INT32_MAX),
            INT32_MAX);
  EXPECT_EQ(kova::NextCapacity(10, 10, INT32_MAX, 11), INT32_MAX);
}

TEST(NextRoomTest, IsAtLeastHalfAsMuchAgain) {
  EXPECT_EQ(kova::NextRoom(0, 5), 5u);
  EXPECT_EQ(kova::NextRoom(1, 2), 2u);
  EXPECT_EQ(kova::NextRoom(6, 7), 9u);
  EXPECT_EQ(kova::NextRoom(6, 9), 9u);
  EXPECT_EQ(kova::NextRoom(6, 10), 10u);
}

TEST(OTypedArrayTest, StartsWithoutStorage) {
  OTypedArray<char> bytes;
  EXPECT_EQ(bytes.Data(), nullptr);
  EXPECT_EQ(bytes.Count(), 0);
  EXPECT_EQ(bytes.Capacity(), 0);
  bytes.SetSize(0);
  EXPECT_EQ(bytes.Data(), nullptr);
}

TEST(OTypedArrayTest, AllocatesExactlyAtFirstAndThenByTheStep) {
  OTypedArray<char> bytes;
  bytes.SetSize(1);
  EXPECT_EQ(bytes.Count(), 1);
  EXPECT_EQ(bytes.Capacity(), 1);
  bytes.SetSize(2);
  EXPECT_EQ(bytes.Count(), 2);
  EXPECT_EQ(bytes.Capacity(), 5);
  bytes.SetSize(5);
  EXPECT_EQ(bytes.Capacity(), 5);
  bytes.SetSize(6);
  EXPECT_EQ(bytes.Capacity(), 9);
}

TEST(OTypedArrayTest, GrowsByTheStepThatWasSet) {
  OTypedArray<char> bytes;
  bytes.SetGrowBy(100);
  bytes.SetSize(1);
  EXPECT_EQ(bytes.Capacity(), 1);
  bytes.SetSize(2);
  EXPECT_EQ(bytes.Capacity(), 101);
  bytes.SetSize(500);
  EXPECT_EQ(bytes.Capacity(), 500);
}

TEST(OTypedArrayTest, ZeroesWhatIsNewAndKeepsWhatIsThere) {
  OTypedArray<char> bytes;
  bytes.SetSize(3);
  EXPECT_TRUE(AreZero(bytes, 0, 3));
  std::memset(bytes.Data(), 'x', 3);
  bytes.SetSize(4000);
  EXPECT_EQ(bytes[2], 'x');
  EXPECT_TRUE(AreZero(bytes, 3, 4000));
}

TEST(OTypedArrayTest, ZeroesElementsThatReturnWithinTheCapacity) {
  OTypedArray<char> bytes;
  bytes.SetSize(10);
  std::memset(bytes.Data(), 'x', 10);
  const char* const before = bytes.Data();
  bytes.SetSize(4);
  EXPECT_EQ(bytes.Count(), 4);
  EXPECT_EQ(bytes.Capacity(), 10);
  bytes.SetSize(9);
  EXPECT_EQ(bytes.Data(), before);
  EXPECT_EQ(bytes[3], 'x');
  EXPECT_TRUE(AreZero(bytes, 4, 9));
}

TEST(OTypedArrayTest, ZeroesWholeElementsWhateverTheirSize) {
  int target = 0;
  OTypedArray<void*> pointers;
  pointers.SetSize(10);
  std::fill_n(pointers.Data(), 10, &target);
  pointers.SetSize(4);
  pointers.SetSize(9);
  EXPECT_EQ(pointers[3], &target);
  EXPECT_EQ(std::count(pointers.Data() + 4, pointers.Data() + 9, nullptr), 5);
  std::fill_n(pointers.Data(), 9, &target);
  pointers.SetSize(4);
  // Beyond the capacity: the block takes the old elements with it.
  pointers.SetSize(100);
  EXPECT_EQ(pointers[3], &target);
  EXPECT_EQ(std::count(pointers.Data() + 4, pointers.Data() + 100, nullptr),
            96);
}

TEST(OTypedArrayTest, FreesItsStorageAtSizeZero) {
  OTypedArray<char> bytes;
  bytes.SetSize(10);
  bytes.SetSize(0);
  EXPECT_EQ(bytes.Data(), nullptr);
  EXPECT_EQ(bytes.Count(), 0);
  EXPECT_EQ(bytes.Capacity(), 0);
  bytes.SetSize(7);
  EXPECT_EQ(bytes.Capacity(), 7);
  EXPECT_TRUE(AreZero(bytes, 0, 7));
}

TEST(OTypedArrayTest, IgnoresANegativeSize) {
  OTypedArray<char> bytes;
  bytes.SetSize(3);
  bytes.SetSize(-1);
  EXPECT_EQ(bytes.Count(), 3);
  bytes.SetSize(INT32_MIN);
  EXPECT_EQ(bytes.Count(), 3);
}

// 64 MiB in pieces of 16 KiB are 4096 growths; a block that moved at each of
// them would have been moved as often. One that grows by half, from one piece
// on, moves 22 times at most.
TEST(OTypedArrayTest, MovesItsBlockRarelyWhileReceivingInSmallPieces) {
  constexpr int32_t kPiece = 16384;
  OTypedArray<char> bytes;
  size_t moves = 0;
  const char* last = nullptr;
  for (int32_t size = kPiece; size <= 4096 * kPiece; size += kPiece) {
    bytes.SetSize(size);
    if (bytes.Data() != last) ++moves;
    last = bytes.Data();
    bytes[size - 1] = 'x';
  }
  EXPECT_LE(moves, 22u);
  EXPECT_EQ(bytes.Count(), 4096 * kPiece);
  EXPECT_EQ(bytes[kPiece - 1], 'x');
  EXPECT_EQ(bytes.Capacity(), 4096 * kPiece);
}

TEST(OPointerArrayTest, HoldsPointersInTheirOwnType) {
  int first = 1;
  int second = 2;
  OPointerArray<int*> pointers;
  pointers.SetSize(1);
  EXPECT_EQ(pointers[0], nullptr);
  pointers[0] = &first;
  pointers.SetSize(2);
  pointers[1] = &second;
  EXPECT_EQ(*pointers[0] + *pointers[1], 3);
  EXPECT_EQ(pointers.Capacity(), 5);
  EXPECT_EQ(pointers.Data()[1], &second);
}

}  // namespace
