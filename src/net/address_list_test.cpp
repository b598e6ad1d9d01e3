// Unit: the addresses that have connected.
#include "net/address_list.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

namespace {

using kova::AddressList;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

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
// index must not point into them. So many look-ups would also take minutes if
// each cost more than a constant.
TEST(AddressListTest, FindsAnyOfManyAddressesAtConstantCost) {
  constexpr int kMany = 100000;
  AddressList list;
  for (int i = 0; i < kMany; ++i) list.Add(":" + std::to_string(i));
  int added = 0;
  for (int i = 0; i < kMany; ++i) added += list.Add(":" + std::to_string(i));
  EXPECT_EQ(added, 0);
  EXPECT_THAT(list.Texts(), SizeIs(kMany));
  EXPECT_EQ(list.Texts().front(), ":0");
  EXPECT_EQ(list.Texts().back(), ":99999");
}

}  // namespace
