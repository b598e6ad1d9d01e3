// Patched: what is asked of a server, and the addresses that have connected.
#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <string>

#include "net/web_server_base.h"
#include "test/support/import_patch.h"
#include "test/support/virtual_slot.h"

namespace {

using kova::AddressList;

TEST(WebServerBaseTest, HasItsDestructorThenWhatItAsksOfAServerInThisOrder) {
  constexpr size_t kNext = kova::test::kDestructorSlots;
  EXPECT_EQ(kova::test::SlotOf(&WebServerBase::OnClientConnected), kNext);
  EXPECT_EQ(kova::test::SlotOf(&WebServerBase::OnResponseSent), kNext + 1);
  EXPECT_EQ(kova::test::SlotOf(&WebServerBase::IsRequestComplete), kNext + 2);
}

std::string Text(int number) { return ":" + std::to_string(number); }

void Fill(AddressList& list, int count) {
  for (int i = 0; i < count; ++i) list.Add(Text(i));
}

TEST(AddressListTest, StoresTheSameTextOnce) {
  AddressList list;
  EXPECT_TRUE(list.Add("127.0.0.1:50000"));
  EXPECT_TRUE(list.Add("127.0.0.2:50000"));
  EXPECT_FALSE(list.Add("127.0.0.1:50000"));
  EXPECT_FALSE(list.Add(std::string("127.0.0.1:") + "50000"));
  EXPECT_FALSE(list.Add("127.0.0.2:50000"));
}

TEST(AddressListTest, CountsThePortAsPartOfTheAddress) {
  AddressList list;
  EXPECT_TRUE(list.Add("127.0.0.1:50000"));
  EXPECT_TRUE(list.Add("127.0.0.1:50001"));
  EXPECT_TRUE(list.Add("127.0.0.1:5000"));
}

TEST(AddressListTest, ComparesLengthAndEveryByte) {
  AddressList list;
  EXPECT_TRUE(list.Add(std::string_view("a\0b", 3)));
  EXPECT_TRUE(list.Add(std::string_view("a\0c", 3)));
  EXPECT_TRUE(list.Add("a"));
  EXPECT_TRUE(list.Add("A"));
  EXPECT_TRUE(list.Add(""));
  EXPECT_FALSE(list.Add(""));
  EXPECT_FALSE(list.Add(std::string_view("a\0b", 3)));
}

// Short texts live inside the strings, which move when the vector grows: the
// index must not point into them.
TEST(AddressListTest, FindsAnyOfManyAddresses) {
  constexpr int kMany = 100000;
  AddressList list;
  Fill(list, kMany);
  int added = 0;
  for (int i = 0; i < kMany; ++i) added += list.Add(Text(i));
  EXPECT_EQ(added, 0);
}

// Every block of the C++ library comes from the C runtime's malloc.
decltype(&std::malloc) g_malloc = nullptr;
std::atomic<size_t> g_blocks;
void* __cdecl CountedMalloc(size_t bytes) {
  ++g_blocks;
  return g_malloc(bytes);
}

// Small blocks that stay keep the heap from using their surroundings again.
TEST(AddressListTest, TakesNoBlockForASingleAddress) {
  AddressList list;
  const kova::test::ImportPatch<decltype(std::malloc)> patch(nullptr, "malloc",
                                                             &CountedMalloc);
  g_malloc = patch.Original();
  g_blocks = 0;
  Fill(list, 10000);
  EXPECT_GE(g_blocks, 2u);
  EXPECT_LE(g_blocks, 100u);
}

// Every comparison of two texts ends in the C runtime's memcmp.
std::atomic<size_t> g_comparisons;
int __cdecl CountedCompare(const void* left, const void* right, size_t bytes) {
  ++g_comparisons;
  const auto* a = static_cast<const volatile unsigned char*>(left);
  const auto* b = static_cast<const volatile unsigned char*>(right);
  for (size_t i = 0; i < bytes; ++i) {
    if (a[i] != b[i]) return a[i] < b[i] ? -1 : 1;
  }
  return 0;
}

// The most comparisons that 1000 connections may take: one where the address
// is known, and now and then one with another text in the same place of the
// index.
constexpr int kConnections = 1000;
constexpr size_t kMostComparisons = 4000;

size_t ComparisonsOf(AddressList& list, int firstAddress) {
  const kova::test::ImportPatch<decltype(std::memcmp)> patch(nullptr, "memcmp",
                                                             &CountedCompare);
  g_comparisons = 0;
  for (int i = 0; i < kConnections; ++i) list.Add(Text(firstAddress + i));
  return g_comparisons;
}

TEST(AddressListTest, LooksUpWithAboutOneComparisonHoweverMany) {
  for (const int addresses : {1000, 10000, 100000}) {
    AddressList list;
    Fill(list, addresses);
    const size_t comparisons = ComparisonsOf(list, 0);
    EXPECT_GE(comparisons, size_t{kConnections}) << addresses;
    EXPECT_LE(comparisons, kMostComparisons) << addresses;
  }
}

TEST(AddressListTest, TakesNewcomersWithFewComparisonsHoweverMany) {
  for (const int addresses : {1000, 10000, 100000}) {
    AddressList list;
    Fill(list, addresses);
    EXPECT_LE(ComparisonsOf(list, addresses), kMostComparisons) << addresses;
  }
}

}  // namespace
