// Unit: the requests of a check are ones that the server would hand over.
#include "check/request_set.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "http/http_request.h"

namespace kova::ctl::check {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;

bool IsWhole(const std::string& bytes, HTTPRequest& parsed) {
  return parsed.Parse(bytes.data(), static_cast<int32_t>(bytes.size()), true);
}

TEST(RequestSetTest, ServerWouldRouteEachToThePrinter) {
  using Maker = Requests(const std::string&);
  Maker* const kMakers[] = {
      &SmallRequests,      &BareRequests,     &HeadRequests,
      &FormRequests,       &BinaryRequests,   &LargeRequests,
      &LongTargetRequests, &BodilessRequests, &MalformedRequests,
      &AddressRequests,    &KeepOpenRequests};
  for (Maker* const make : kMakers) {
    for (const Request& request : make("B\xC3\xBCro & Co #1")) {
      HTTPRequest parsed;
      EXPECT_TRUE(IsWhole(request.bytes, parsed)) << request.bytes;
      EXPECT_EQ(parsed.GetFormValue(L"printer"), L"B\u00FCro & Co #1")
          << request.bytes;
    }
  }
}

TEST(RequestSetTest, EscapesThePrinterName) {
  EXPECT_EQ(PrinterQuery("Demo Printer"), "printer=Demo+Printer");
  EXPECT_EQ(PrinterQuery("a&b=c+d%\xFF"), "printer=a%26b%3Dc%2Bd%25%FF");
  EXPECT_EQ(PrinterQuery(""), "printer=");
}

TEST(RequestSetTest, OnlyAPlainRequestIsOwedAnAnswer) {
  EXPECT_EQ(SmallRequests("P").front().owes, Owes::kAnswer);
  EXPECT_EQ(BinaryRequests("P").front().owes, Owes::kReason);
  for (const Request& request : MalformedRequests("P")) {
    EXPECT_EQ(request.owes, Owes::kNothing);
  }
  EXPECT_TRUE(HeadRequests("P").front().isHead);
  EXPECT_TRUE(AddressRequests("P").front().bareAddress);
}

TEST(RequestSetTest, HoldsBinaryZerosAndMuchOrNoBody) {
  const std::string binary = BinaryRequests("P").front().bytes;
  EXPECT_NE(binary.find(std::string(3, '\0')), std::string::npos);
  EXPECT_GT(LargeRequests("P").front().bytes.size(), 1024u * 1024);
  HTTPRequest bodiless;
  EXPECT_TRUE(IsWhole(BodilessRequests("P").front().bytes, bodiless));
  EXPECT_EQ(bodiless.BodyLength(), 0u);
  EXPECT_STREQ(bodiless.GetHeader("Content-Length").Narrow(), "100");
}

TEST(RequestSetTest, TellsThreadsApart) {
  EXPECT_EQ(ThreadMark(3), "kovacheck03");
  EXPECT_EQ(ThreadMark(63), "kovacheck63");
  const std::string one = ThreadRequests("P", 1)[1].bytes;
  EXPECT_THAT(one, HasSubstr("kovacheck01.kovacheck01."));
  EXPECT_THAT(one, Not(HasSubstr("kovacheck00")));
  EXPECT_NE(one.size(), ThreadRequests("P", 2)[1].bytes.size());
  EXPECT_FALSE(HoldsOtherMark(one, one));
  EXPECT_TRUE(HoldsOtherMark(one, "kovacheck02"));
  EXPECT_TRUE(HoldsOtherMark("kovacheck02 kovacheck01", "kovacheck02"));
  EXPECT_FALSE(HoldsOtherMark("", "kovacheck02"));
  EXPECT_FALSE(HoldsOtherMark("kovacheck0", ""));
  EXPECT_FALSE(HoldsOtherMark("kovacheck0x", ""));
}

}  // namespace
}  // namespace kova::ctl::check
