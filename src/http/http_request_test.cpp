// Unit: request line, header lines and form fields of a request.
#include "http/http_request.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using Texts = std::vector<std::string>;

bool Parse(HTTPRequest& request, const std::string& bytes,
           bool parseForm = false) {
  return request.Parse(bytes.data(), static_cast<int32_t>(bytes.size()),
                       parseForm);
}

bool IsComplete(const std::string& bytes) {
  HTTPRequest request;
  return Parse(request, bytes);
}

Texts All(const OStringArray& strings) {
  Texts texts;
  for (int32_t i = 0; i < strings.Count(); ++i) {
    texts.emplace_back(strings[i].NarrowView());
  }
  return texts;
}

// Method, path and version, with bars between.
std::string LineOf(const HTTPRequest& request) {
  return std::string(request.Method().Narrow()) + "|" +
         request.Path().Narrow() + "|" + request.Version().Narrow();
}

TEST(HTTPRequestTest, BeginsAsAGetOfTheRoot) {
  const HTTPRequest request;
  EXPECT_EQ(LineOf(request), "GET|/|HTTP/1.1");
  EXPECT_EQ(request.HeaderLines().Count(), 0);
  EXPECT_EQ(request.FormNames().Count(), 0);
  EXPECT_EQ(request.FormValues().Count(), 0);
  EXPECT_EQ(request.Body(), nullptr);
  EXPECT_EQ(request.BodyLength(), 0u);
}

TEST(HTTPRequestTest, DecodesPathAndQuery) {
  HTTPRequest request;
  EXPECT_TRUE(Parse(request, "GET  /a%20b?x=1&y=%41+B HTTP/1.1\r\n\r\n"));
  EXPECT_EQ(LineOf(request), "GET|/a b|HTTP/1.1");
  EXPECT_EQ(request.Path().CodePage(), 1208u);
  EXPECT_EQ(All(request.FormNames()), (Texts{"x", "y"}));
  EXPECT_EQ(All(request.FormValues()), (Texts{"1", "A B"}));
}

TEST(HTTPRequestTest, EndsTheHeaderBlockAtMixedTerminators) {
  for (const char* const end : {"\r\n\r\n", "\n\n", "\r\n\n", "\n\r\n"}) {
    HTTPRequest request;
    EXPECT_TRUE(Parse(request, std::string("GET /x HTTP/1.1\r\nA: 1") + end));
    EXPECT_EQ(All(request.HeaderLines()), (Texts{"A: 1"}));
    EXPECT_EQ(request.BodyLength(), 0u);
  }
}

TEST(HTTPRequestTest, RefusesWhatCannotBeARequest) {
  using namespace std::string_literals;
  EXPECT_FALSE(IsComplete(""));
  EXPECT_FALSE(IsComplete("GET / HTTP/1.1"));
  EXPECT_FALSE(IsComplete("G\0ET / HTTP/1.1\r\n\r\n"s));
  EXPECT_FALSE(IsComplete("GET / HTTP/1.1\r\nA: \0\r\n\r\n"s));
  EXPECT_FALSE(IsComplete("GET\r\n\r\n"));
  EXPECT_FALSE(IsComplete("\r\n\r\n"));
  EXPECT_FALSE(IsComplete("GET \r\n\r\n"));
  EXPECT_FALSE(IsComplete("GET ?x=1 HTTP/1.1\r\n\r\n"));
  EXPECT_FALSE(IsComplete("GET %00 HTTP/1.1\r\n\r\n"));
}

TEST(HTTPRequestTest, RefusesNegativeLengths) {
  HTTPRequest request;
  const std::string bytes = "GET / HTTP/1.1\r\n\r\n";
  EXPECT_FALSE(request.Parse(bytes.data(), 0, false));
  EXPECT_FALSE(request.Parse(bytes.data(), -1, false));
  EXPECT_FALSE(request.Parse(bytes.data(), INT32_MIN, false));
  EXPECT_FALSE(request.Parse(nullptr, 0, true));
}

TEST(HTTPRequestTest, FillsTheFieldsItReachesBeforeItFails) {
  HTTPRequest request;
  EXPECT_FALSE(Parse(request, "PUT /p?q=1 HTTP/1.1\r\nA: 1\r\n"));
  EXPECT_EQ(LineOf(request), "PUT|/p|HTTP/1.1");
  EXPECT_EQ(All(request.FormNames()), (Texts{"q"}));
  EXPECT_EQ(request.HeaderLines().Count(), 0);
}

TEST(HTTPRequestLineTest, NeedsABlankAMethodAndAPath) {
  HTTPRequest request;
  EXPECT_FALSE(request.ParseRequestLine(""));
  EXPECT_FALSE(request.ParseRequestLine(" "));
  EXPECT_FALSE(request.ParseRequestLine("GET"));
  EXPECT_EQ(LineOf(request), "GET|/|HTTP/1.1");
  EXPECT_FALSE(request.ParseRequestLine("PUT "));
  EXPECT_EQ(LineOf(request), "PUT||HTTP/1.0");
  EXPECT_FALSE(request.ParseRequestLine("PUT \r"));
  EXPECT_FALSE(request.ParseRequestLine("PUT ?a=b HTTP/1.1"));
  EXPECT_EQ(All(request.FormNames()), (Texts{"a"}));
}

TEST(HTTPRequestLineTest, CutsThePathAtTheFirstQuestionMark) {
  HTTPRequest request;
  EXPECT_TRUE(request.ParseRequestLine("GET /a%3Fb?x=1?y=2 HTTP/1.1"));
  EXPECT_EQ(LineOf(request), "GET|/a?b|HTTP/1.1");
  EXPECT_EQ(All(request.FormNames()), (Texts{"x"}));
  EXPECT_EQ(All(request.FormValues()), (Texts{"1?y=2"}));
}

TEST(HTTPRequestHeaderTest, KeepsWholeLinesTrimmed) {
  HTTPRequest request;
  EXPECT_TRUE(Parse(request,
                    "GET / HTTP/1.1\r\n Host: a\t\r\n\tfolded\r\r\nA:1\n\r\r\n"
                    "B:2\r\n\r\n"));
  EXPECT_EQ(All(request.HeaderLines()),
            (Texts{"Host: a", "folded", "A:1", "", "B:2"}));
}

TEST(HTTPRequestHeaderTest, ParsingAgainReplacesTheLines) {
  HTTPRequest request;
  EXPECT_TRUE(Parse(request, "GET / HTTP/1.1\r\nA: 1\r\nB: 2\r\n\r\n"));
  EXPECT_TRUE(Parse(request, "GET / HTTP/1.1\r\nC: 3\r\n\r\n"));
  EXPECT_EQ(All(request.HeaderLines()), (Texts{"C: 3"}));
  EXPECT_TRUE(Parse(request, "GET / HTTP/1.1\r\n\r\n"));
  EXPECT_EQ(All(request.HeaderLines()), (Texts{"C: 3"}));
}

TEST(HTTPRequestHeaderTest, KeepsBytesAboveAscii) {
  HTTPRequest request;
  EXPECT_TRUE(Parse(request, "GET / HTTP/1.1\r\nA: \xE9\xFF\r\n\r\n"));
  EXPECT_STREQ(request.GetHeader("a").Narrow(), "\xE9\xFF");
  EXPECT_EQ(request.GetHeader("a").CodePage(), 0u);
}

TEST(HTTPRequestFormTest, SplitsPairsAndSkipsWhatIsNone) {
  HTTPRequest request;
  const std::string form = "a=1&&b&c=&=d& e = f &g=h=i";
  request.ParseFormData(form.data(), static_cast<int32_t>(form.size()));
  EXPECT_EQ(All(request.FormNames()), (Texts{"a", "c", "", "e ", "g"}));
  EXPECT_EQ(All(request.FormValues()), (Texts{"1", "", "d", " f", "h=i"}));
}

TEST(HTTPRequestFormTest, EndsAtAZeroByte) {
  HTTPRequest request;
  const std::string form("a=1&b=2\0&c=3", 12);
  request.ParseFormData(form.data(), static_cast<int32_t>(form.size()));
  EXPECT_EQ(All(request.FormNames()), (Texts{"a", "b"}));
  request.ParseFormData(nullptr, 0);
  request.ParseFormData(form.data(), -1);
  EXPECT_EQ(request.FormNames().Count(), 2);
}

TEST(HTTPRequestFormTest, TrimsTabsAndLineEndsFromPieces) {
  HTTPRequest request;
  const std::string form = "\t\r\na=1\n\r\t&\tb=2\t&\r\n&\r\nc\t=\t3\r\n";
  request.ParseFormData(form.data(), static_cast<int32_t>(form.size()));
  EXPECT_EQ(All(request.FormNames()), (Texts{"a", "b", "c\t"}));
  EXPECT_EQ(All(request.FormValues()), (Texts{"1", "2", "\t3"}));
  EXPECT_EQ(request.GetFormValue(L"c\t"), L"3");
}

TEST(HTTPRequestFormTest, KeepsFieldsOfEarlierForms) {
  HTTPRequest request;
  request.ParseFormData("a=1", 3);
  EXPECT_EQ(All(request.FormNames()), (Texts{"a"}));
  request.ParseFormData("b=2&a=3", 7);
  EXPECT_EQ(All(request.FormNames()), (Texts{"a", "b", "a"}));
  EXPECT_EQ(All(request.FormValues()), (Texts{"1", "2", "3"}));
  EXPECT_EQ(request.GetFormValue(L"a"), L"1");
  EXPECT_EQ(request.GetFormValue(L"b"), L"2");
}

TEST(HTTPRequestFormTest, FindsTheFirstFieldOfAName) {
  HTTPRequest request;
  EXPECT_TRUE(Parse(request,
                    "GET /?Printer=+X%0D%0A+&printer=Y&p%E9=1&e=%20 "
                    "HTTP/1.1\r\n\r\n"));
  EXPECT_EQ(request.GetFormValue(L"PRINTER"), L"X");
  EXPECT_EQ(request.GetFormValue(L"e"), L"");
  EXPECT_EQ(request.GetFormValue(L"share"), L"");
  EXPECT_EQ(request.GetFormValue(L"Printe"), L"");
  EXPECT_EQ(request.GetFormValue(L"Printers"), L"");
  EXPECT_STREQ(request.FormValues()[0].Narrow(), " X\r\n ");
}

TEST(HTTPRequestFormTest, ReadsNamesAndValuesAsUtf8) {
  HTTPRequest request;
  EXPECT_TRUE(Parse(request, "GET /?n=%E2%82%AC&%C3%A9=1 HTTP/1.1\r\n\r\n"));
  EXPECT_EQ(request.GetFormValue(L"n"), L"\u20AC");
  EXPECT_EQ(request.GetFormValue(L"\u00E9"), L"1");
  EXPECT_EQ(request.GetFormValue(L"\u00C9"), L"");
}

// The codec does not mind a letter encoded in two bytes where one would do.
TEST(HTTPRequestFormTest, FindsANameHoweverItsLettersAreEncoded) {
  HTTPRequest request;
  EXPECT_TRUE(Parse(request, "GET /?p%C1%B2inter=1 HTTP/1.1\r\n\r\n"));
  EXPECT_EQ(request.GetFormValue(L"Printer"), L"1");
  EXPECT_EQ(request.GetFormValue(L"pinter"), L"");
}

// A blank and a zero in two bytes each; a sequence that is not all there.
TEST(HTTPRequestFormTest, TrimsAndEndsAValueAsTheTextItIs) {
  HTTPRequest request;
  EXPECT_TRUE(Parse(request,
                    "GET /?a=%C0%A0+x+y%C0%89%C0%8D%C0%8A&b=%C0%A0&c=%C0%80x&"
                    "d=x%C0%80y&e=x%C3&f=x%00y&g=%C3+ HTTP/1.1\r\n\r\n"));
  EXPECT_EQ(request.GetFormValue(L"a"), L"x y");
  EXPECT_EQ(request.GetFormValue(L"b"), L"");
  EXPECT_EQ(request.GetFormValue(L"c"), L"");
  EXPECT_EQ(request.GetFormValue(L"d"), L"x");
  EXPECT_EQ(request.GetFormValue(L"e"), L"x");
  EXPECT_EQ(request.GetFormValue(L"f"), L"x");
  EXPECT_EQ(request.GetFormValue(L"g"), L"\u00E0");
}

}  // namespace
