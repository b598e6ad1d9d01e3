// Unit: large blocks that are kept for the next.
#include "base/kept_blocks.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <thread>
#include <vector>

namespace kova {
namespace {

constexpr size_t kMiB = size_t{1} << 20;

bool IsZero(const ZeroedBlock& block, size_t sizeBytes) {
  return std::all_of(block.data, block.data + sizeBytes,
                     [](char c) { return c == 0; });
}

class KeptBlocksTest : public testing::Test {
 protected:
  KeptBlocksTest() { FreeKeptBlocks(); }
  ~KeptBlocksTest() override { FreeKeptBlocks(); }

  // One that somebody has written to.
  static ZeroedBlock Used(size_t sizeBytes) {
    const ZeroedBlock block = TakeZeroedBlock(sizeBytes);
    EXPECT_TRUE(IsZero(block, sizeBytes));
    std::memset(block.data, 'x', block.capacity);
    return block;
  }
};

TEST_F(KeptBlocksTest, GivesAKeptBlockAgainAsZeros) {
  const ZeroedBlock first = Used(8 * kMiB);
  GiveBlockBack(first);
  for (const size_t size : {8 * kMiB, kLeastKeptBytes, 5 * kMiB + 3}) {
    const ZeroedBlock again = TakeZeroedBlock(size);
    EXPECT_EQ(again.data, first.data);
    EXPECT_EQ(again.capacity, 8 * kMiB);
    EXPECT_TRUE(IsZero(again, size)) << size;
    std::memset(again.data, 'x', again.capacity);
    GiveBlockBack(again);
  }
}

TEST_F(KeptBlocksTest, WhatIsTooSmallMakesRoom) {
  for (size_t i = 0; i < kKeptBlocks; ++i) GiveBlockBack(Used(2 * kMiB));
  const ZeroedBlock larger = TakeZeroedBlock(3 * kMiB);
  EXPECT_EQ(larger.capacity, 3 * kMiB);
  EXPECT_TRUE(IsZero(larger, 3 * kMiB));
  GiveBlockBack(larger);
  EXPECT_EQ(TakeZeroedBlock(3 * kMiB).data, larger.data);
  GiveBlockBack(larger);
}

// The others go back to the heap: the leak checker of the native build sees
// those that do not.
TEST_F(KeptBlocksTest, KeepsNoMoreThanItSays) {
  std::vector<ZeroedBlock> blocks;
  for (size_t i = 0; i < kKeptBlocks + 2; ++i) {
    blocks.push_back(Used(kMostKeptBytes));
  }
  for (const size_t size :
       {size_t{1}, kLeastKeptBytes - 1, kMostKeptBytes + 1}) {
    GiveBlockBack(Used(size));
  }
  for (const ZeroedBlock& block : blocks) GiveBlockBack(block);
  blocks.resize(kKeptBlocks);
  for (const ZeroedBlock& block : blocks) {
    EXPECT_EQ(TakeZeroedBlock(kMostKeptBytes).data, block.data);
  }
  for (const ZeroedBlock& block : blocks) GiveBlockBack(block);
  GiveBlockBack({nullptr, 0});
}

TEST_F(KeptBlocksTest, NoTwoThreadsHaveOneBlock) {
  std::vector<std::thread> threads;
  for (const char name : {'a', 'b', 'c', 'd'}) {
    threads.emplace_back([name] {
      for (int i = 0; i < 300; ++i) {
        const ZeroedBlock block = TakeZeroedBlock(kLeastKeptBytes);
        block.data[kMiB / 2] = name;
        std::this_thread::yield();
        EXPECT_EQ(block.data[kMiB / 2], name);
        if (i % 50 == 0) FreeKeptBlocks();
        GiveBlockBack(block);
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
}

}  // namespace
}  // namespace kova
