// Patched: a block of bytes when memory runs out.
#include <gtest/gtest.h>

#include <cstddef>

#include "base/byte_buffer.h"
#include "test/support/import_patch.h"

namespace {

using kova::ByteBuffer;
using kova::test::ImportPatch;

size_t g_calls = 0;
bool g_isRefusing = false;
void* (*g_realCalloc)(size_t, size_t) = nullptr;

void* CountedCalloc(size_t count, size_t size) {
  ++g_calls;
  return g_isRefusing ? nullptr : g_realCalloc(count, size);
}

class ByteBufferMemoryTest : public testing::Test {
 protected:
  ByteBufferMemoryTest() {
    g_realCalloc = m_calloc.Original();
    g_calls = 0;
    g_isRefusing = false;
  }

 private:
  ImportPatch<void*(size_t, size_t)> m_calloc{nullptr, "calloc",
                                              &CountedCalloc};
};

TEST_F(ByteBufferMemoryTest, ARefusedClaimKeepsTheOldBlock) {
  ByteBuffer buffer;
  ASSERT_TRUE(buffer.TryResizeDiscarding(2));
  buffer.Data()[0] = 'x';
  const char* const before = buffer.Data();
  g_isRefusing = true;
  EXPECT_FALSE(buffer.TryResizeDiscarding(100));
  EXPECT_EQ(buffer.Data(), before);
  EXPECT_EQ(buffer.Size(), 2u);
  EXPECT_EQ(buffer.Data()[0], 'x');
  EXPECT_TRUE(buffer.TryResizeDiscarding(0));
}

// Blocks that are large come zero from the system and are not touched here: a
// claim of gigabytes costs what it takes to look for them.
TEST_F(ByteBufferMemoryTest, AsksTheRuntimeForZerosWhateverTheSize) {
  size_t asked = 0;
  for (const uint64_t size :
       {uint64_t{1}, uint64_t{4} << 20, uint64_t{1} << 30}) {
    ByteBuffer buffer;
    EXPECT_TRUE(buffer.TryResizeDiscarding(size));
    EXPECT_EQ(g_calls, ++asked) << size;
    EXPECT_EQ(buffer.Data()[size - 1], 0);
  }
}

// Small ones are cleared where they are.
TEST_F(ByteBufferMemoryTest, TakesLargeBlocksAnewWhereTheSizeIsTheSame) {
  for (const uint64_t size : {uint64_t{1}, uint64_t{1} << 20}) {
    ByteBuffer buffer;
    ASSERT_TRUE(buffer.TryResizeDiscarding(size));
    const size_t asked = g_calls;
    const char* const before = buffer.Data();
    EXPECT_TRUE(buffer.TryResizeDiscarding(size));
    EXPECT_EQ(buffer.Data(), before);
    EXPECT_EQ(g_calls, asked);
  }
  ByteBuffer buffer;
  ASSERT_TRUE(buffer.TryResizeDiscarding((uint64_t{1} << 20) + 1));
  const size_t asked = g_calls;
  EXPECT_TRUE(buffer.TryResizeDiscarding((uint64_t{1} << 20) + 1));
  EXPECT_EQ(g_calls, asked + 1);
}

}  // namespace
