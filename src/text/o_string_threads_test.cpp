// Unit: handles of one text that are copied and released on many threads.
#include <gtest/gtest.h>

#include <thread>
#include <vector>

#include "text/o_string.h"
#include "text/o_string_array.h"

namespace {

template <typename Body>
void OnThreads(int count, const Body& body) {
  std::vector<std::thread> threads;
  for (int i = 0; i < count; ++i) threads.emplace_back(body);
  for (std::thread& thread : threads) thread.join();
}

TEST(OStringThreadsTest, CountReferencesExactly) {
  OString shared("shared by all");
  const char* const before = shared.Narrow();
  OnThreads(4, [&shared] {
    for (int i = 0; i < 20000; ++i) {
      OString copy(shared);
      OString second;
      second = copy;
    }
  });
  // Were a reference left over, the change would move the text elsewhere; were
  // one missing, the record would be gone.
  shared.Delete(0, 1);
  EXPECT_EQ(shared.Narrow(), before);
  EXPECT_STREQ(shared.Narrow(), "hared by all");
}

TEST(OStringThreadsTest, FreeTheRecordWithTheLastHandleWhereverItIs) {
  for (int round = 0; round < 200; ++round) {
    OStringArray handles;
    handles.SetSize(4);
    for (int i = 0; i < 4; ++i) {
      handles.SetAt(i, i == 0 ? OString("text") : handles[0]);
    }
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
      threads.emplace_back([mine = &handles[i]] { *mine = OString(); });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_TRUE(handles[3].IsEmpty());
  }
}

}  // namespace
