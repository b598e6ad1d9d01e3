// Unit: what extensions read requests and make responses with.
#include "kova/extension_http.h"

#include <gtest/gtest.h>

#include <string>
#include <string_view>
#include <vector>

#include "http/http_request.h"

extern "C" uint32_t AnswerInC(const void* request, uint32_t lengthBytes,
                              uint32_t* keepOpen, void* buffer,
                              uint32_t bufferBytes);

namespace {

using kova::FormField;
using kova::FormFieldWide;
using kova::ResponseBytes;
using kova::View;

// `bytes` must outlive what is returned.
KOVA_HttpRequest Read(std::string_view bytes) {
  KOVA_HttpRequest request;
  KOVA_ReadRequest(&request, bytes.data(), static_cast<uint32_t>(bytes.size()));
  return request;
}

bool IsRequest(std::string_view bytes) {
  KOVA_HttpRequest request;
  return KOVA_ReadRequest(&request, bytes.data(),
                          static_cast<uint32_t>(bytes.size())) != 0;
}

constexpr std::string_view kPost =
    "POST /a/b?x=1&y=%41 HTTP/1.1\r\n"
    "Host: h\r\n"
    "content-TYPE:  text/plain \r\n"
    "Content-Length: 4\r\n"
    "\r\n"
    "body";

TEST(ExtensionRequestTest, IsTakenApart) {
  const KOVA_HttpRequest request = Read(kPost);
  EXPECT_EQ(View(request.method), "POST");
  EXPECT_EQ(View(request.path), "/a/b");
  EXPECT_EQ(View(request.query), "x=1&y=%41");
  EXPECT_EQ(View(request.version), "HTTP/1.1");
  EXPECT_EQ(View(request.body), "body");
  EXPECT_EQ(request.announcedBodyBytes, 4u);
  EXPECT_EQ(View(KOVA_Header(&request, "Content-Type")), "text/plain");
  EXPECT_EQ(View(KOVA_Header(&request, "HOST")), "h");
  EXPECT_EQ(View(KOVA_Header(&request, "Hos")), "");
}

TEST(ExtensionRequestTest, MayEndItsLinesWithLineFeeds) {
  const KOVA_HttpRequest request = Read("GET /p\nA: b\n\nrest");
  EXPECT_EQ(View(request.path), "/p");
  EXPECT_EQ(View(request.version), "HTTP/1.0");
  EXPECT_EQ(View(request.headers), "A: b");
  EXPECT_EQ(View(request.body), "rest");
}

TEST(ExtensionRequestTest, IsNoneWhenCutShort) {
  const size_t headers = kPost.find("\r\n\r\n") + 4;
  for (size_t length = 0; length < headers; ++length) {
    EXPECT_FALSE(IsRequest(kPost.substr(0, length))) << length;
  }
  EXPECT_TRUE(IsRequest(kPost.substr(0, headers)));
  EXPECT_FALSE(IsRequest(std::string_view("GET /\0 HTTP/1.1\r\n\r\n", 19)));
  EXPECT_FALSE(IsRequest("GET %00 HTTP/1.1\r\n\r\n"));
}

TEST(ExtensionRequestTest, TellsHowMuchOfItsBodyIsThere) {
  const auto state = [](std::string_view bytes) {
    const KOVA_HttpRequest request = Read(bytes);
    return KOVA_GetBodyState(&request);
  };
  const size_t headers = kPost.find("\r\n\r\n") + 4;
  EXPECT_EQ(state(kPost), KOVA_BODY_COMPLETE);
  EXPECT_EQ(state("GET / HTTP/1.1\r\n\r\n"), KOVA_BODY_COMPLETE);
  EXPECT_EQ(state(kPost.substr(0, headers)), KOVA_BODY_MISSING);
  EXPECT_EQ(state(kPost.substr(0, headers + 3)), KOVA_BODY_MISSING);
  EXPECT_EQ(state(std::string(kPost) + "G"), KOVA_BODY_LEFT_OVER);
  EXPECT_EQ(state("GET / HTTP/1.1\r\n\r\nG"), KOVA_BODY_LEFT_OVER);
}

TEST(ExtensionRequestTest, AnnouncesWhatTheServerReadsThere) {
  const struct {
    const char* text;
    uint32_t bytes;
  } rows[] = {{"12", 12},
              {"+7x", 7},
              {"-5", 0},
              {"", 0},
              {"x", 0},
              {"2147483647", 2147483647},
              {"2147483648", 2147483647},
              {"99999999999999999999", 2147483647}};
  for (const auto& row : rows) {
    const std::string bytes =
        std::string("POST / HTTP/1.1\r\nContent-Length: ") + row.text +
        "\r\n\r\n";
    EXPECT_EQ(Read(bytes).announcedBodyBytes, row.bytes) << row.text;
  }
}

TEST(ExtensionFormTest, GivesTheFirstFieldOfAName) {
  const KOVA_HttpRequest request =
      Read("GET /?A=1&a=2&b=+x%20y+&c&d=&e=%E2%82%AC HTTP/1.1\r\n\r\n");
  EXPECT_EQ(FormField(request, "a"), "1");
  EXPECT_EQ(FormField(request, "b"), "x y");
  EXPECT_EQ(FormField(request, "c"), "");
  EXPECT_EQ(FormField(request, "d"), "");
  EXPECT_EQ(FormField(request, "e"), "\xE2\x82\xAC");
  EXPECT_EQ(FormFieldWide(request, "e"), L"\x20AC");
  EXPECT_EQ(FormField(request, "missing"), "");
}

TEST(ExtensionFormTest, LooksIntoAFormBehindTheQuery) {
  const std::string head =
      "POST /?a=query HTTP/1.1\r\nContent-Length: 13\r\nContent-Type: ";
  const std::string body = "\r\n\r\na=body&b=body";
  const std::string form = "application/x-www-form-urlencoded";
  const std::string whole = head + form + body;
  EXPECT_EQ(FormField(Read(whole), "a"), "query");
  EXPECT_EQ(FormField(Read(whole), "b"), "body");
  const std::string withParameter = head + form + "; charset=utf-8" + body;
  EXPECT_EQ(FormField(Read(withParameter), "b"), "");
  const std::string_view cut(whole.data(), whole.size() - 1);
  EXPECT_EQ(FormField(Read(cut), "b"), "");
}

TEST(ExtensionFormTest, CutsWhatDoesNotFitAndTellsItsLength) {
  const KOVA_HttpRequest request = Read("GET /?a=abc++&b=x HTTP/1.1\r\n\r\n");
  char narrow[5] = "####";
  wchar_t wide[5] = L"####";
  EXPECT_EQ(KOVA_FormField(&request, "a", nullptr, 0), 3u);
  EXPECT_EQ(KOVA_FormField(&request, "a", narrow, 3), 3u);
  EXPECT_EQ(std::string_view(narrow, 4), std::string_view("ab\0#", 4));
  EXPECT_EQ(KOVA_FormFieldWide(&request, "a", wide, 3), 3u);
  EXPECT_EQ(std::wstring_view(wide, 4), std::wstring_view(L"ab\0#", 4));
  EXPECT_EQ(KOVA_FormField(&request, "a", narrow, sizeof(narrow)), 3u);
  EXPECT_STREQ(narrow, "abc");
  EXPECT_EQ(KOVA_FormField(&request, "none", narrow, sizeof(narrow)), 0u);
  EXPECT_STREQ(narrow, "");
}

// Texts that careless, malicious and unusual clients send. Whatever the server
// takes for a printer's name, so does an extension.
TEST(ExtensionFormTest, GivesWhatTheServerRoutesBy) {
  const std::vector<std::string> values = {"Lobby",
                                           "++A%20B%09",
                                           "%E2%82%AC",
                                           "%F0%9F%98%80",
                                           "%",
                                           "%4",
                                           "%zz%4G",
                                           "a%00b",
                                           "%C3",
                                           "%C3+",
                                           "%C0%80x",
                                           "%C0%A0x%C0%A0",
                                           "%80%80%80+",
                                           "%FF",
                                           "a=b",
                                           "\t\r x",
                                           std::string("a\0b", 3),
                                           "%E2%82",
                                           "%ED%A0%80",
                                           "\xC3\xA9"};
  const std::vector<std::string> names = {
      "printer",      "PRINTER",    "%70rinter", "+printer",
      "p%C1%B2inter", "printer%00", "printe",    "printer "};
  for (const std::string& name : names) {
    for (const std::string& value : values) {
      std::string bytes = "GET /?x&";
      bytes.append(name).append("=").append(value);
      bytes += "&printer=second HTTP/1.1\r\n\r\n";
      HTTPRequest server;
      (void)server.ParseInPlace(bytes.data(),
                                static_cast<int32_t>(bytes.size()), true);
      EXPECT_EQ(FormFieldWide(Read(bytes), "printer"),
                server.GetFormValue(L"printer"))
          << bytes;
    }
  }
}

TEST(ExtensionConnectionTest, StaysOpenIfTheClientMaySendMore) {
  const struct {
    const char* bytes;
    bool may;
  } rows[] = {
      {"GET / HTTP/1.1\r\n\r\n", true},
      {"GET / HTTP/1.1\r\nConnection: close\r\n\r\n", false},
      {"GET / HTTP/1.1\r\nConnection: x\r\nConnection: y, Close\r\n\r\n",
       false},
      {"GET / HTTP/1.0\r\n\r\n", false},
      {"GET / HTTP/1.0\r\nConnection: Keep-Alive\r\n\r\n", true},
      {"GET / HTTP/1.0\r\nConnection: keep-alive, close\r\n\r\n", false},
      {"GET /\r\n\r\n", false},
      {"POST / HTTP/1.1\r\nContent-Length: 1\r\n\r\n", false},
      {"GET / HTTP/1.1\r\n\r\nGET", false},
  };
  for (const auto& row : rows) {
    const KOVA_HttpRequest request = Read(row.bytes);
    EXPECT_EQ(KOVA_MayStayOpen(&request) != 0, row.may) << row.bytes;
    for (const int wants : {0, 1}) {
      uint32_t flag = 7;
      const KOVA_HttpResponse response =
          KOVA_StartResponse(&request, wants, &flag);
      EXPECT_EQ(flag, row.may && wants == 1 ? 1u : 0u) << row.bytes;
      EXPECT_EQ(ResponseBytes(response),
                std::string("HTTP/1.1 200 OK\r\nContent-Length: 0\r\n") +
                    "Connection: " + (flag == 1 ? "keep-alive" : "close") +
                    "\r\n\r\n");
    }
  }
}

class ExtensionResponseTest : public ::testing::Test {
 protected:
  explicit ExtensionResponseTest(const char* request = "GET / HTTP/1.1\n\n") {
    uint32_t flag = 0;
    const KOVA_HttpRequest read = Read(request);
    m_response = KOVA_StartResponse(&read, 0, &flag);
    m_response.contentType = "text/plain";
    m_response.headers = "A: 1\r\nB: 2\r\n";
    m_response.body = "hello";
    m_response.bodyBytes = 5;
  }

  KOVA_HttpResponse m_response{};
};

TEST_F(ExtensionResponseTest, HasHeadersLengthAndBody) {
  m_response.status = 404;
  EXPECT_EQ(ResponseBytes(m_response),
            "HTTP/1.1 404 Not Found\r\nContent-Type: text/plain\r\n"
            "Content-Length: 5\r\nConnection: close\r\nA: 1\r\nB: 2\r\n\r\n"
            "hello");
  m_response.status = 599;
  EXPECT_TRUE(ResponseBytes(m_response).starts_with("HTTP/1.1 599 \r\n"));
}

TEST_F(ExtensionResponseTest, ToHeadHasTheLengthAlone) {
  m_response.isForHead = 1;
  EXPECT_EQ(ResponseBytes(m_response),
            "HTTP/1.1 200 OK\r\nContent-Type: text/plain\r\n"
            "Content-Length: 5\r\nConnection: close\r\nA: 1\r\nB: 2\r\n\r\n");
  uint32_t flag = 0;
  const KOVA_HttpRequest head = Read("HEAD / HTTP/1.1\r\n\r\n");
  EXPECT_TRUE(KOVA_StartResponse(&head, 0, &flag).isForHead);
  EXPECT_FALSE(KOVA_StartResponse(
                   &(const KOVA_HttpRequest&)Read("head / x\n\n"), 0, &flag)
                   .isForHead);
}

TEST_F(ExtensionResponseTest, WithoutContentHasNeitherLengthNorType) {
  for (const uint32_t status : {204u, 304u}) {
    m_response.status = status;
    const std::string bytes = ResponseBytes(m_response);
    EXPECT_EQ(bytes.substr(bytes.find('\n') + 1),
              "Connection: close\r\nA: 1\r\nB: 2\r\n\r\n");
  }
}

TEST_F(ExtensionResponseTest, IsNotSentIfItIsNone) {
  const auto cannot = [](KOVA_HttpResponse response) {
    char buffer[4] = "###";
    return KOVA_ResponseLength(&response) == 0 &&
           KOVA_WriteResponse(&response, buffer, 4) == 0 &&
           std::string(buffer) == "###";
  };
  for (const uint32_t status : {0u, 100u, 199u, 600u}) {
    KOVA_HttpResponse response = m_response;
    response.status = status;
    EXPECT_TRUE(cannot(response)) << status;
  }
  for (const char* const headers :
       {"A: 1", "A: 1\n", "\r\n", "A: 1\r\n\r\n", "A: 1\r\nB: 2"}) {
    KOVA_HttpResponse response = m_response;
    response.headers = headers;
    EXPECT_TRUE(cannot(response)) << headers;
  }
  KOVA_HttpResponse split = m_response;
  split.contentType = "text/plain\r\nX: y";
  EXPECT_TRUE(cannot(split));
  KOVA_HttpResponse large = m_response;
  large.bodyBytes = UINT32_MAX;
  EXPECT_TRUE(cannot(large));
}

TEST_F(ExtensionResponseTest, FillsItsBufferAndNoMore) {
  const std::string whole = ResponseBytes(m_response);
  std::string buffer(whole.size() + 1, '#');
  const auto length = static_cast<uint32_t>(whole.size());
  EXPECT_EQ(KOVA_WriteResponse(&m_response, buffer.data(), length - 1), 0);
  EXPECT_EQ(buffer, std::string(whole.size() + 1, '#'));
  EXPECT_EQ(KOVA_WriteResponse(&m_response, buffer.data(), length), 1);
  EXPECT_EQ(buffer, whole + "#");
}

TEST(ExtensionHttpInCTest, Answers) {
  const std::string_view request =
      "GET /?printer=Lobby HTTP/1.1\r\nHost: h\r\n\r\n";
  char buffer[200];
  uint32_t keepOpen = 0;
  const uint32_t length =
      AnswerInC(request.data(), static_cast<uint32_t>(request.size()),
                &keepOpen, buffer, sizeof(buffer));
  EXPECT_EQ(std::string(buffer, length),
            "HTTP/1.1 200 OK\r\nContent-Type: text/plain\r\n"
            "Content-Length: 5\r\nConnection: keep-alive\r\n\r\nLobby");
  EXPECT_EQ(keepOpen, 1u);
}

}  // namespace
