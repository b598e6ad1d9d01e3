// Patched: the byte array when memory runs out.
#include <gtest/gtest.h>

#include <cstdlib>

#include "base/o_array.h"
#include "test/support/import_patch.h"

namespace {

using kova::test::ImportPatch;

// Larger blocks are refused.
size_t most = 0;

void* (*realCalloc)(size_t, size_t) = nullptr;
void* (*realRealloc)(void*, size_t) = nullptr;

void* LimitedCalloc(size_t count, size_t size) {
  return count * size > most ? nullptr : realCalloc(count, size);
}

void* LimitedRealloc(void* block, size_t size) {
  return size > most ? nullptr : realRealloc(block, size);
}

class OArrayMemoryTest : public testing::Test {
 protected:
  OArrayMemoryTest() {
    realCalloc = m_calloc.Original();
    realRealloc = m_realloc.Original();
    most = SIZE_MAX;
  }

 private:
  ImportPatch<void*(size_t, size_t)> m_calloc{nullptr, "calloc",
                                              &LimitedCalloc};
  ImportPatch<void*(void*, size_t)> m_realloc{nullptr, "realloc",
                                              &LimitedRealloc};
};

TEST_F(OArrayMemoryTest, AFailedFirstAllocationLeavesTheArrayEmpty) {
  OTypedArray<char> bytes;
  most = 99;
  bytes.SetSize(100);
  EXPECT_EQ(bytes.Data(), nullptr);
  EXPECT_EQ(bytes.Count(), 0);
  EXPECT_EQ(bytes.Capacity(), 0);
}

TEST_F(OArrayMemoryTest, AFailedGrowthChangesNothing) {
  OTypedArray<char> bytes;
  bytes.SetSize(100);
  bytes[99] = 'x';
  const char* const before = bytes.Data();
  most = 199;
  bytes.SetSize(200);
  EXPECT_EQ(bytes.Data(), before);
  EXPECT_EQ(bytes.Count(), 100);
  EXPECT_EQ(bytes.Capacity(), 100);
  EXPECT_EQ(bytes[99], 'x');
}

TEST_F(OArrayMemoryTest, TakesTheExactBlockWhereALargerOneIsRefused) {
  OTypedArray<char> bytes;
  bytes.SetSize(100);
  most = 112;
  bytes.SetSize(101);
  EXPECT_EQ(bytes.Count(), 101);
  EXPECT_EQ(bytes.Capacity(), 112);
  bytes.SetSize(113);
  EXPECT_EQ(bytes.Count(), 101);
}

}  // namespace
