// Patched: which extension a request reaches, and what it is given.
#include "dispatch/request_dispatch.h"

#include <gmock/gmock.h>

#include "test/support/dispatch_fixture.h"

namespace {

using kova::test::BadRequest;
using kova::test::DispatchFixture;
using kova::test::ExtensionPrinter;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr wchar_t kBothEmpty[] =
    L"DetailInfo Network_ClientThread::ParseRequest: Error: Both the printer "
    L"name and share name are empty. Unable to route the request to a driver. "
    L"\nClient Address: 192.0.2.7:50123";

std::wstring ShareNotFound(const std::wstring& share) {
  return L"DetailInfo Network_ClientThread::ParseRequest: Error: The share "
         L"name: " +
         share +
         L" could not be found. Unable to route the request to a driver. "
         L"\nClient Address: 192.0.2.7:50123";
}

class RequestRoutingTest : public DispatchFixture {
 protected:
  std::string Trace() { return m_printer.Extension().Trace(); }
  void ExpectEcho(const std::string& request) {
    EXPECT_EQ(Dispatch(request), Echo(request));
  }
  void ExpectBadRequest(const std::string& request) {
    EXPECT_EQ(Dispatch(request), BadRequest()) << request;
  }
  void DispatchFrom(const OString& address, const std::string& request) {
    kova::DispatchRequest(request.data(), static_cast<uint32_t>(request.size()),
                          m_response, &m_keepOpen, address);
  }

  ExtensionPrinter m_printer{L"scripted", L"KOVA X", L"kovaShare"};
};

TEST_F(RequestRoutingTest, AnyPathAndMethodReachesThePrinterOfItsQuery) {
  ExpectEcho(Get("/?printer=KOVA+X"));
  ExpectEcho(Get("/kova?printer=KOVA%20X"));
  ExpectEcho(Get("/info/a/b%20c?x=1&printer=KOVA+X&y=2"));
  ExpectEcho("DELETE *?printer=KOVA+X HTTP/1.0\n\n");
  EXPECT_EQ(Trace(), "VSIHLCRHLCRHLCRHLCR");
}

TEST_F(RequestRoutingTest, LogsOnlyTheLookUpWhenAllGoesWell) {
  ExpectEcho(Get("/?printer=KOVA+X"));
  EXPECT_THAT(
      m_capture.Lines(),
      ElementsAre(Found(L"KOVA X", m_printer.Extension().LibraryPath())));
}

TEST_F(RequestRoutingTest, AFormBodyNamesThePrinterToo) {
  ExpectEcho(Post("/kova/", "a=b&printer=KOVA+X"));
  EXPECT_EQ(Trace(), "VSIHLCR");
}

TEST_F(RequestRoutingTest, ABodyOfAnotherTypeIsNoForm) {
  ExpectBadRequest(
      "POST / HTTP/1.1\r\nContent-Type: application/x-www-form-urlencoded; "
      "charset=utf-8\r\n\r\nprinter=KOVA+X");
  EXPECT_THAT(m_capture.Lines(), ElementsAre(kBothEmpty, Responding()));
}

TEST_F(RequestRoutingTest, AQueryFieldComesBeforeABodyField) {
  ExpectEcho(Post("/?printer=KOVA+X", "printer=nobody"));
  EXPECT_EQ(m_capture.Take().size(), 1u);
  ExpectBadRequest(Post("/?printer=nobody", "printer=KOVA+X"));
  EXPECT_THAT(
      m_capture.Lines(),
      ElementsAre(L"Error WebServerInterface::GetV3WebServerInterface: "
                  L"GetV3PrintMonitorDllFullPath failed for printer \"nobody\"",
                  Failed(L"GetV3WebServerInterface", L"nobody"), Responding()));
}

TEST_F(RequestRoutingTest, TheFirstOfTwoFieldsOfANameCounts) {
  ExpectEcho(Get("/?printer=KOVA+X&printer=nobody"));
  ExpectBadRequest(Get("/?printer=nobody&printer=KOVA+X"));
  // An empty one hides a later one.
  ExpectBadRequest(Get("/?printer=&printer=KOVA+X"));
}

TEST_F(RequestRoutingTest, FieldNamesIgnoreCase) {
  ExpectEcho(Get("/?PRINTER=KOVA+X"));
  ExpectEcho(Post("/", "Printer=KOVA+X"));
  ExpectEcho(Get("/?SHARE=kovaShare"));
  ExpectBadRequest(Get("/?printers=KOVA+X&sprinter=KOVA+X"));
}

TEST_F(RequestRoutingTest, AShareNameIgnoresCase) {
  ExpectEcho(Get("/?share=kovaShare"));
  ExpectEcho(Get("/?share=KOVASHARE"));
  ExpectEcho(Post("/", "share=kovashare"));
  const std::wstring found =
      Found(L"KOVA X", m_printer.Extension().LibraryPath());
  EXPECT_THAT(m_capture.Lines(), ElementsAre(found, found, found));
}

TEST_F(RequestRoutingTest, AShareIsNotLookedAtBesideAPrinter) {
  ExpectEcho(Get("/?share=nothing&printer=KOVA+X"));
  m_capture.Take();
  ExpectBadRequest(Get("/?share=kovaShare&printer=nobody"));
  EXPECT_THAT(m_capture.Lines(),
              testing::Contains(Failed(L"GetV3WebServerInterface", L"nobody")));
}

TEST_F(RequestRoutingTest, AnEmptyPrinterLeavesTheShare) {
  ExpectEcho(Get("/?printer=&share=kovaShare"));
  ExpectEcho(Get("/?printer=+%20%09&share=+kovaShare+"));
  ExpectEcho(Get("/?printer=%00KOVA&share=kovaShare"));
}

// A zero and a blank that UTF-8 would write in one byte.
TEST_F(RequestRoutingTest, WhatIsEmptyAsTextIsNoName) {
  const kova::test::DemoPrinter unshared(L"KOVA A unshared");
  ExpectEcho(Get("/?printer=%C0%80&share=kovaShare"));
  ExpectEcho(Get("/?printer=%C0%A0%C0%89&share=%C0%A0kovaShare%C0%8A"));
  ExpectEcho(Get("/?printer=%C0%A0KOVA+X%C0%80nothing"));
  m_capture.Take();
  for (const char* const share : {"%C0%80", "%C0%A0", "%C0%80kovaShare"}) {
    ExpectBadRequest(Get(std::string("/?share=") + share));
    EXPECT_THAT(m_capture.Take(), ElementsAre(kBothEmpty, Responding()));
  }
}

TEST_F(RequestRoutingTest, AnUnknownShareIsABadRequest) {
  ExpectBadRequest(Get("/?share=Nothing"));
  EXPECT_THAT(m_capture.Take(),
              ElementsAre(ShareNotFound(L"Nothing"), Responding()));
  // The name of a printer is no share name, nor is a part of one.
  ExpectBadRequest(Get("/?share=KOVA+X"));
  ExpectBadRequest(Get("/?share=kovaShar"));
  ExpectBadRequest(Get("/?share=kovaShare2"));
  EXPECT_EQ(Trace(), "");
}

TEST_F(RequestRoutingTest, RequestsWithoutFieldsAreBadRequests) {
  const char* const kRequests[] = {
      "GET / HTTP/1.1\r\n\r\n",
      "GET /?printer HTTP/1.1\r\n\r\n",
      "GET /?printer= HTTP/1.1\r\n\r\n",
      "GET /?&&&=&printer=%00 HTTP/1.1\r\n\r\n",
      "GET /%3Fprinter=KOVA+X HTTP/1.1\r\n\r\n",
      "GET\r\n\r\n",
      "\n",
      "",
      "\xFF\xFE\x01 \x80\x81\n\n",
  };
  for (const char* const request : kRequests) {
    ExpectBadRequest(request);
    EXPECT_THAT(m_capture.Take(), ElementsAre(kBothEmpty, Responding()))
        << request;
  }
}

TEST_F(RequestRoutingTest, AZeroByteBeforeTheLineEndHidesTheFields) {
  ExpectBadRequest(std::string("GET /?printer=KOVA+X\0 HTTP/1.1\r\n\r\n", 34));
  EXPECT_THAT(m_capture.Lines(), ElementsAre(kBothEmpty, Responding()));
}

TEST_F(RequestRoutingTest, FieldsDecideEvenIfTheParseFails) {
  ExpectEcho("GET /?printer=KOVA+X HTTP/1.1\n");
  ExpectEcho("GET /?printer=KOVA+X HTTP/1.1\r\nContent-Length: 9\r\n\r\nabc");
}

TEST_F(RequestRoutingTest, HandsOverTheBytesAsTheyCame) {
  std::string request = "GET   /?printer=KOVA+X   HTTP/1.1 \r\n:\r\n\r\n";
  request += std::string("\0\xFF\r\n%00", 7);
  ExpectEcho(request);
}

TEST_F(RequestRoutingTest, PassesTheKeepOpenFlagThrough) {
  m_keepOpen = 7;
  const std::string plain = Get("/?printer=KOVA+X");
  EXPECT_EQ(Dispatch(plain), Echo(plain, 7));
  EXPECT_EQ(m_keepOpen, 7u);
  Dispatch(Get("/?printer=KOVA+X&act=close"));
  EXPECT_EQ(m_keepOpen, 0u);
  Dispatch(Get("/?printer=KOVA+X&act=keep"));
  EXPECT_EQ(m_keepOpen, 1u);
  ExpectBadRequest(Get("/"));
  EXPECT_EQ(m_keepOpen, 1u);
}

TEST_F(RequestRoutingTest, TheBufferIsExactlyAsLongAsTheAnswer) {
  for (const uint64_t before : {0, 1, 9, 10, 11, 5000}) {
    m_response.ResizeDiscarding(before);
    EXPECT_EQ(Dispatch(Get("/?printer=KOVA+X&act=bytes-10")), "abcdefghij");
    EXPECT_EQ(m_response.Size(), 10u);
    EXPECT_EQ(m_printer.Extension().Record().copyLength, 10u);
  }
}

TEST_F(RequestRoutingTest, PrinterNamesMayHoldAnyCharacters) {
  const ExtensionPrinter other(L"scripted", L"KOVA \x00E9\x4E2D&=%+");
  ExpectEcho(Get("/?printer=KOVA+%C3%A9%E4%B8%AD%26%3D%25%2B"));
}

TEST_F(RequestRoutingTest, TheBadRequestCopiesTheConnectionHeader) {
  EXPECT_EQ(Dispatch("GET / HTTP/1.1\r\nConnection: keep-alive\r\n\r\n"),
            BadRequest("keep-alive"));
  EXPECT_EQ(Dispatch("GET / HTTP/1.1\r\ncONNECTION:\t Upgrade, x \r\n"
                     "Connection: close\r\n\r\n"),
            BadRequest("Upgrade, x"));
  EXPECT_EQ(Dispatch("GET / HTTP/1.1\r\nConnection:\r\n\r\n"), BadRequest(""));
  EXPECT_EQ(Dispatch("GET / HTTP/1.1\r\nConnection : close\r\n\r\n"),
            BadRequest(""));
}

TEST_F(RequestRoutingTest, EveryPathGetsTheSameBadRequest) {
  for (const char* const path : {"/kova", "/info", "/KOVA", "/", "/kova/x"}) {
    ExpectBadRequest(Get(path));
  }
}

TEST_F(RequestRoutingTest, SaysNothingOfRoutingUnderTheDefaultMask) {
  const kova::test::ScopedLogMask quiet(0xE0000000);
  m_clock.Advance(5001);
  ExpectBadRequest(Get("/"));
  ExpectBadRequest(Get("/?share=Nothing"));
  EXPECT_THAT(m_capture.Lines(), IsEmpty());
}

// Both reasons for a refusal, with their channel on and off.
TEST_F(RequestRoutingTest, OnlyALogLineWidensTheAddressOfARefusedRequest) {
  const OString logged(kova::test::kNarrowClientAddress);
  const OString unlogged(kova::test::kNarrowClientAddress);
  const std::string requests[] = {Get("/"), Get("/?share=nobody")};
  for (const std::string& request : requests) {
    DispatchFrom(logged, request);
  }
  EXPECT_TRUE(logged.HasWide());
  const kova::test::ScopedLogMask quiet(0xE0000000);
  m_clock.Advance(10000);
  for (const std::string& request : requests) {
    DispatchFrom(unlogged, request);
  }
  EXPECT_FALSE(unlogged.HasWide());
}

}  // namespace
