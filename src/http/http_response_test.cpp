// Patched: the bytes of a response, with the computer's name replaced.
#include "http/http_response.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cwchar>
#include <map>
#include <string>
#include <vector>

#include "base/this_computer.h"
#include "test/support/import_patch.h"
#include "text/date_text.h"

namespace {

using Texts = std::vector<std::string>;

const wchar_t* computerName = nullptr;
DWORD nameRoom = 0;

BOOL WINAPI FakeComputerName(wchar_t* name, DWORD* size) {
  nameRoom = *size;
  if (computerName == nullptr) return 0;
  std::wcscpy(name, computerName);
  *size = static_cast<DWORD>(std::wcslen(computerName));
  return 1;
}

class HTTPResponseTest : public testing::Test {
 protected:
  HTTPResponseTest() { Name(L"PRINTHOST"); }

  // Null: the system tells none.
  static void Name(const wchar_t* name) {
    computerName = name;
    (void)kova::ComputerName();
  }

  Texts Lines() const {
    Texts lines;
    for (int32_t i = 0; i < m_response.HeaderLines().Count(); ++i) {
      lines.push_back(m_response.HeaderLines()[i].Narrow());
    }
    return lines;
  }

  // The serialised bytes with the time of the Date line, whose form is
  // checked, replaced by "now".
  std::string Bytes() {
    EXPECT_TRUE(m_response.Serialize(m_out));
    std::string bytes(m_out.Data(), m_out.Size());
    const size_t date = bytes.find("\r\nDate: ") + 8;
    const size_t end = bytes.find("\r\n", date);
    EXPECT_EQ(end - date, std::string("Sun, 06 Nov 1994 08:49:37 GMT").size());
    return bytes.replace(date, end - date, "now");
  }

  HTTPResponse m_response;

 private:
  const kova::test::ImportPatch<decltype(GetComputerNameW)> m_name{
      nullptr, "GetComputerNameW", &FakeComputerName};
  kova::ByteBuffer m_out;
};

TEST_F(HTTPResponseTest, BeginsWithTwoHeaderLines) {
  EXPECT_EQ(m_response.Status(), 200u);
  EXPECT_STREQ(m_response.StatusText().Narrow(), "200 OK");
  EXPECT_EQ(Lines(), (Texts{"Content-Type: application/octet-stream",
                            "Cache-Control: no-cache"}));
}

const std::map<uint32_t, std::string> kPhrases = {
    {100, "Continue"},
    {101, "Switching Protocols"},
    {201, "Created"},
    {202, "Accepted"},
    {203, "Non-Authoritative Information"},
    {204, "No Content"},
    {205, "Reset Content"},
    {206, "Partial Content"},
    {300, "Multiple Choices"},
    {301, "Moved Permanently"},
    {302, "Found"},
    {303, "See Other"},
    {304, "Not Modified"},
    {305, "Use Proxy"},
    {307, "Temporary Redirect"},
    {400, "Bad Request"},
    {401, "Unauthorized"},
    {402, "Payment Required"},
    {403, "Forbidden"},
    {404, "Not Found"},
    {405, "Method Not Allowed"},
    {406, "Not Acceptable"},
    {407, "Proxy Authentication Required"},
    {408, "Request Time-out"},
    {409, "Conflict"},
    {410, "Gone"},
    {411, "Length Required"},
    {412, "Precondition Failed"},
    {413, "Request Entity Too Large"},
    {414, "Request-URI Too Large"},
    {415, "Unsupported Media Type"},
    {416, "Requested range not satisfiable"},
    {417, "Expectation Failed"},
    {500, "Internal Server Error"},
    {501, "Not Implemented"},
    {502, "Bad Gateway"},
    {503, "Service Unavailable"},
    {504, "Gateway Time-out"},
    {505, "HTTP Version not supported"},
};

TEST_F(HTTPResponseTest, KnowsThePhrasesAndSaysOkForAllOtherCodes) {
  for (uint32_t code = 0; code < 1000; ++code) {
    m_response.SetStatus(code);
    EXPECT_EQ(m_response.Status(), code);
    const auto known = kPhrases.find(code);
    EXPECT_EQ(m_response.StatusText().NarrowView(),
              std::to_string(code) + " " +
                  (known == kPhrases.end() ? "OK" : known->second));
  }
  m_response.SetStatus(UINT32_MAX);
  EXPECT_STREQ(m_response.StatusText().Narrow(), "4294967295 OK");
}

TEST_F(HTTPResponseTest, ReplacesALineInPlaceWhateverItsCase) {
  m_response.SetHeader("X", "1");
  m_response.SetHeader("content-type", "text/xml");
  m_response.SetHeader("x", "");
  EXPECT_EQ(Lines(), (Texts{"content-type: text/xml", "Cache-Control: no-cache",
                            "x: "}));
}

TEST_F(HTTPResponseTest, ComparesWholeNamesUpToTheFirstColon) {
  m_response.SetHeader("Content", "a");
  m_response.SetHeader("Cache-Control ", "b");
  m_response.SetHeader("a:b", "1");
  m_response.SetHeader("a:b", "2");
  m_response.SetHeader("A", "3");
  EXPECT_EQ(Lines(), (Texts{"Content-Type: application/octet-stream",
                            "Cache-Control: no-cache", "Content: a",
                            "Cache-Control : b", "A: 3", "a:b: 2"}));
}

TEST_F(HTTPResponseTest, FoldsNoLettersButAsciiOnes) {
  m_response.SetHeader(L"\u00C9", "1");
  m_response.SetHeader(L"\u00E9", "2");
  m_response.SetHeader("\xE9", "3");
  EXPECT_EQ(Lines().size(), 4u);
  EXPECT_STREQ(m_response.HeaderLines()[3].Wide(), L"\u00E9: 3");
}

TEST_F(HTTPResponseTest, SerializesTheBadRequestWithoutBody) {
  m_response.SetHeader("Connection", "");
  m_response.SetStatus(400);
  EXPECT_EQ(Bytes(),
            "HTTP/1.1 400 Bad Request\r\n"
            "Content-Type: application/octet-stream\r\n"
            "Cache-Control: no-cache\r\n"
            "Connection: \r\n"
            "Date: now\r\n"
            "Server: PRINTHOST\r\n"
            "Accept-Ranges: None\r\n"
            "\r\n");
  EXPECT_EQ(nameRoom, 260u);
}

TEST_F(HTTPResponseTest, SerializesABodyWithItsLength) {
  m_response.SetBody("ab\0\r\n", 5);
  const std::string expected(
      "HTTP/1.1 200 OK\r\n"
      "Content-Type: application/octet-stream\r\n"
      "Cache-Control: no-cache\r\n"
      "Date: now\r\n"
      "Server: PRINTHOST\r\n"
      "Accept-Ranges: None\r\n"
      "Content-Length: 5\r\n"
      "\r\n");
  EXPECT_EQ(Bytes(), expected + std::string("ab\0\r\n", 5));
}

TEST_F(HTTPResponseTest, HasNoLengthLineWithoutBody) {
  m_response.SetBody("x", 1);
  m_response.SetBody(nullptr, 0);
  EXPECT_EQ(Bytes().find("Content-Length"), std::string::npos);
}

TEST_F(HTTPResponseTest, LosesTheLengthLineWithTheBody) {
  m_response.SetBody("x", 1);
  EXPECT_NE(Bytes().find("\r\nContent-Length: 1\r\n"), std::string::npos);
  m_response.SetHeader("X", "1");
  m_response.SetBody(nullptr, 0);
  EXPECT_EQ(Bytes(),
            "HTTP/1.1 200 OK\r\n"
            "Content-Type: application/octet-stream\r\n"
            "Cache-Control: no-cache\r\n"
            "Date: now\r\n"
            "Server: PRINTHOST\r\n"
            "Accept-Ranges: None\r\n"
            "X: 1\r\n"
            "\r\n");
}

// A client would wait for bytes that never come.
TEST_F(HTTPResponseTest, HasNoLengthLineOfTheCallersWithoutBody) {
  m_response.SetHeader("content-length", "5");
  EXPECT_EQ(Bytes().find("content-length"), std::string::npos);
  m_response.SetHeader("content-length", "5");
  m_response.SetBody("abc", 3);
  EXPECT_NE(Bytes().find("\r\nContent-Length: 3\r\n"), std::string::npos);
}

TEST_F(HTTPResponseTest, SaysTheTimeOfTheClock) {
  const int64_t before = kova::CurrentTimeSeconds();
  m_response.AddStandardHeaders();
  const int64_t after = kova::CurrentTimeSeconds();
  Texts expected;
  for (int64_t time = before; time <= after; ++time) {
    expected.push_back(std::string("Date: ") + kova::HttpDate(time).Narrow());
  }
  EXPECT_EQ(std::count(expected.begin(), expected.end(), Lines().at(2)), 1);
}

TEST_F(HTTPResponseTest, SerializesTwiceInTheSameOrder) {
  m_response.SetBody("12345", 5);
  const std::string first = Bytes();
  EXPECT_EQ(Bytes(), first);
  EXPECT_EQ(m_response.HeaderLines().Count(), 6);
}

TEST_F(HTTPResponseTest, GivesStandardHeadersTheCallersPlace) {
  m_response.SetHeader("SERVER", "mine");
  m_response.SetHeader("X", "1");
  m_response.AddStandardHeaders();
  const Texts lines = Lines();
  ASSERT_EQ(lines.size(), 6u);
  EXPECT_EQ(lines[2], "Server: PRINTHOST");
  EXPECT_EQ(lines[3], "X: 1");
  EXPECT_EQ(lines[5], "Accept-Ranges: None");
}

TEST_F(HTTPResponseTest, NarrowsNamesAndValuesByTheAnsiCodePage) {
  Name(L"DRUCK\u00C4\u20AC");
  m_response.SetHeader("X", OString::FromUtf8("\xC3\xA9"));
  OString tagged = OString::FromUtf8("Y");
  m_response.SetHeader(tagged, L"\u00E9");
  const std::string bytes = Bytes();
  EXPECT_NE(bytes.find("\r\nServer: DRUCK\xC4\x80\r\n"), std::string::npos);
  EXPECT_NE(bytes.find("\r\nX: \xE9\r\n"), std::string::npos);
  EXPECT_NE(bytes.find("\r\nY: \xE9\r\n"), std::string::npos);
}

TEST_F(HTTPResponseTest, HasAnEmptyServerValueWhereTheNameIsUnknown) {
  Name(nullptr);
  EXPECT_NE(Bytes().find("\r\nServer: \r\n"), std::string::npos);
}

TEST_F(HTTPResponseTest, SendsLineEndsInValuesAsTheyAre) {
  m_response.SetHeader("X", "a\r\nY: b");
  EXPECT_NE(Bytes().find("\r\nX: a\r\nY: b\r\n"), std::string::npos);
}

}  // namespace
