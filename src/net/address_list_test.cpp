// Unit: the addresses that have connected.
#include "net/address_list.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <string>

namespace {

using kova::AddressList;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

std::string Text(int number) { return ":" + std::to_string(number); }

void Fill(AddressList& list, int count) {
  for (int i = 0; i < count; ++i) list.Add(Text(i));
}

// The shortest of three times for the same number of look-ups, spread over the
// first `count` texts.
std::chrono::nanoseconds LookUpTime(AddressList& list, int count) {
  constexpr int kLookUps = 20000;
  auto shortest = std::chrono::nanoseconds::max();
  for (int pass = 0; pass < 3; ++pass) {
    const auto start = std::chrono::steady_clock::now();
    for (int i = 0; i < kLookUps; ++i) list.Add(Text(i * 7 % count));
    shortest = std::min<std::chrono::nanoseconds>(
        shortest, std::chrono::steady_clock::now() - start);
  }
  return shortest;
}

TEST(AddressListTest, StartsEmpty) {
  EXPECT_THAT(AddressList().Texts(), IsEmpty());
}

TEST(AddressListTest, KeepsTheOrderOfFirstArrival) {
  AddressList list;
  EXPECT_TRUE(list.Add("9.9.9.9:1"));
  EXPECT_TRUE(list.Add("1.1.1.1:2"));
  EXPECT_TRUE(list.Add("5.5.5.5:3"));
  EXPECT_FALSE(list.Add("1.1.1.1:2"));
  EXPECT_THAT(list.Texts(), ElementsAre("9.9.9.9:1", "1.1.1.1:2", "5.5.5.5:3"));
}

TEST(AddressListTest, StoresTheSameTextOnce) {
  AddressList list;
  EXPECT_TRUE(list.Add("127.0.0.1:50000"));
  EXPECT_FALSE(list.Add("127.0.0.1:50000"));
  EXPECT_FALSE(list.Add(std::string("127.0.0.1:") + "50000"));
  EXPECT_THAT(list.Texts(), SizeIs(1));
}

TEST(AddressListTest, CountsThePortAsPartOfTheAddress) {
  AddressList list;
  EXPECT_TRUE(list.Add("127.0.0.1:50000"));
  EXPECT_TRUE(list.Add("127.0.0.1:50001"));
  EXPECT_TRUE(list.Add("127.0.0.1:5000"));
  EXPECT_THAT(list.Texts(), SizeIs(3));
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
  EXPECT_THAT(list.Texts(), SizeIs(kMany));
  EXPECT_EQ(list.Texts().front(), ":0");
  EXPECT_EQ(list.Texts().back(), ":99999");
}

// A hundred times the addresses: a look-up that searched them all would take a
// hundred times as long.
TEST(AddressListTest, LooksUpAtConstantCost) {
  AddressList few;
  AddressList many;
  Fill(few, 1000);
  Fill(many, 100000);
  EXPECT_LT(LookUpTime(many, 100000), 25 * LookUpTime(few, 1000));
}

}  // namespace
