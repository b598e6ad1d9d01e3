// Unit: the body of a request.
#include <gtest/gtest.h>

#include <string>

#include "http/http_request.h"

namespace {

const char kFormType[] = "application/x-www-form-urlencoded";

std::string PostOf(const std::string& headers, const std::string& body) {
  return "POST /p?q=0 HTTP/1.1\r\n" + headers + "\r\n" + body;
}

bool Parse(HTTPRequest& request, const std::string& bytes,
           bool parseForm = false) {
  return request.Parse(bytes.data(), static_cast<int32_t>(bytes.size()),
                       parseForm);
}

std::string BodyOf(const HTTPRequest& request) {
  return std::string(request.Body(), request.BodyLength());
}

TEST(HTTPRequestBodyTest, IsNotWaitedForWhereNoneHasCome) {
  HTTPRequest request;
  EXPECT_TRUE(Parse(request, PostOf("Content-Length: 10\r\n", "")));
  EXPECT_EQ(request.BodyLength(), 0u);
  EXPECT_EQ(request.Body(), nullptr);
}

TEST(HTTPRequestBodyTest, IsAllThatCame) {
  HTTPRequest request;
  EXPECT_TRUE(Parse(request, PostOf("Content-Length: 10\r\n", "123456789012")));
  EXPECT_EQ(BodyOf(request), "123456789012");
  HTTPRequest without;
  EXPECT_TRUE(Parse(without, PostOf("", "xyz")));
  EXPECT_EQ(BodyOf(without), "xyz");
}

TEST(HTTPRequestBodyTest, MayHoldAnyByte) {
  std::string body;
  for (int value = 0; value < 256; ++value) body += static_cast<char>(value);
  HTTPRequest request;
  EXPECT_TRUE(Parse(request, PostOf("Content-Length: 256\r\n", body)));
  EXPECT_EQ(BodyOf(request), body);
}

TEST(HTTPRequestBodyTest, StaysWithTheBytesWhereItIsLeftThere) {
  const std::string bytes = PostOf("Content-Length: 2\r\n", "123");
  HTTPRequest request;
  EXPECT_TRUE(request.ParseInPlace(bytes.data(),
                                   static_cast<int32_t>(bytes.size()), false));
  EXPECT_EQ(request.Body(), bytes.data() + bytes.size() - 3);
  EXPECT_EQ(request.BodyLength(), 3u);
  HTTPRequest copying;
  EXPECT_TRUE(Parse(copying, bytes));
  EXPECT_NE(copying.Body(), bytes.data() + bytes.size() - 3);
}

TEST(HTTPRequestBodyTest, OutlivesTheBytesItWasParsedFrom) {
  HTTPRequest request;
  {
    std::string bytes = PostOf("", "xyz");
    EXPECT_TRUE(Parse(request, bytes));
    bytes.assign(bytes.size(), '?');
  }
  EXPECT_EQ(BodyOf(request), "xyz");
  // A request without a body leaves the last one's in place.
  EXPECT_TRUE(Parse(request, "GET / HTTP/1.1\r\n\r\n"));
  EXPECT_EQ(BodyOf(request), "xyz");
}

TEST(HTTPRequestBodyTest, IsLeftOutWhileTheRequestIsIncomplete) {
  HTTPRequest request;
  EXPECT_FALSE(Parse(request, PostOf("Content-Length: 10\r\n", "1234"), true));
  EXPECT_EQ(request.BodyLength(), 0u);
  EXPECT_EQ(request.HeaderLines().Count(), 1);
}

TEST(HTTPRequestBodyTest, GivesFormFieldsAfterThoseOfTheQuery) {
  HTTPRequest request;
  const std::string type = std::string("content-type:\t") + kFormType;
  EXPECT_TRUE(Parse(request, PostOf(type + " \r\n", "q=1&r=%41+B"), true));
  ASSERT_EQ(request.FormNames().Count(), 3);
  EXPECT_STREQ(request.FormNames()[0].Narrow(), "q");
  EXPECT_STREQ(request.FormValues()[0].Narrow(), "0");
  EXPECT_STREQ(request.FormValues()[1].Narrow(), "1");
  EXPECT_STREQ(request.FormValues()[2].Narrow(), "A B");
  EXPECT_EQ(request.GetFormValue(L"q"), L"0");
  EXPECT_EQ(request.GetFormValue(L"r"), L"A B");
}

TEST(HTTPRequestBodyTest, GivesFormFieldsWhereAskedForOnly) {
  HTTPRequest request;
  const std::string type = std::string("Content-Type: ") + kFormType;
  EXPECT_TRUE(Parse(request, PostOf(type + "\r\n", "r=1"), false));
  EXPECT_EQ(request.FormNames().Count(), 1);
  EXPECT_EQ(BodyOf(request), "r=1");
}

TEST(HTTPRequestBodyTest, GivesFormFieldsForTheExactTypeOnly) {
  const std::string type(kFormType);
  for (const std::string& other :
       {type + "; charset=utf-8", type + ";", std::string("text/plain"),
        "A" + type.substr(1), std::string()}) {
    HTTPRequest request;
    EXPECT_TRUE(
        Parse(request, PostOf("Content-Type: " + other + "\r\n", "r=1"), true));
    EXPECT_EQ(request.FormNames().Count(), 1) << other;
  }
}

TEST(HTTPRequestBodyTest, GivesNoFormFieldsWhileIncomplete) {
  HTTPRequest request;
  const std::string headers =
      "Content-Length: 9\r\nContent-Type: " + std::string(kFormType) + "\r\n";
  EXPECT_FALSE(Parse(request, PostOf(headers, "r=1"), true));
  EXPECT_EQ(request.FormNames().Count(), 1);
}

}  // namespace
