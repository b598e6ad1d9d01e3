// Whole: requests of real clients reach the extension of their printer.
#include <gmock/gmock.h>

#include <algorithm>
#include <cwchar>
#include <vector>

#include "test/support/import_patch.h"
#include "test/whole/routing_fixture.h"

namespace {

using kova::test::ImportPatch;
using kova::test::RoutingFixture;
using kova::test::TestClient;
using testing::ElementsAre;

class RoutingTest : public RoutingFixture {
 protected:
  // The lines so far but those of the connection itself.
  std::vector<std::wstring> DispatchLines() {
    std::vector<std::wstring> lines = m_capture.Take();
    std::erase_if(lines, [](const std::wstring& line) {
      return line.starts_with(L"DetailInfoE ");
    });
    return lines;
  }
};

TEST_F(RoutingTest, AQueryReachesThePrinterOnAnyPath) {
  ExpectEcho("GET /?printer=KOVA+whole HTTP/1.1\r\n\r\n");
  ExpectEcho(
      "GET /kova/status?a=b&PRINTER=KOVA%20whole HTTP/1.1\r\nHost: x\r\n\r\n");
  ExpectEcho("PUT /info?printer=KOVA+whole HTTP/1.0\n\n");
  EXPECT_EQ(m_extension.Trace(), "VSIHLCRHLCRHLCR");
}

TEST_F(RoutingTest, AFormBodyReachesThePrinter) {
  ExpectEcho(
      "POST / HTTP/1.1\r\nContent-Type: application/x-www-form-urlencoded\r\n"
      "Content-Length: 18\r\n\r\nprinter=KOVA+whole");
  ExpectEcho(
      "POST /?printer=KOVA+whole HTTP/1.1\r\nContent-Type: "
      "application/x-www-form-urlencoded\r\n\r\nprinter=nobody");
}

TEST_F(RoutingTest, AShareReachesItsPrinter) {
  ExpectEcho("GET /?share=KOVAWHOLE HTTP/1.1\r\n\r\n");
  EXPECT_THAT(DispatchLines(),
              ElementsAre(L"DetailInfoI WebServerInterface::"
                          L"GetV3WebServerInterface: Getting Network Monitor "
                          L"Interface for printer: \"KOVA whole\" from: \"" +
                          m_extension.LibraryPath() + L"\""));
}

TEST_F(RoutingTest, AnUnknownShareIsLoggedWithTheClient) {
  TestClient client(Port());
  const std::string address = client.Address();
  ASSERT_TRUE(client.Send("GET /?share=Nothing HTTP/1.1\r\n\r\n"));
  EXPECT_EQ(kova::test::MaskDate(client.ReceiveAll()),
            kova::test::BadRequest());
  EXPECT_THAT(
      DispatchLines(),
      ElementsAre(
          L"DetailInfo Network_ClientThread::ParseRequest: Error: The share "
          L"name: Nothing could not be found. Unable to route the request to "
          L"a driver. \nClient Address: " +
              std::wstring(address.begin(), address.end()),
          L"DetailInfo Network_ClientThread::ParseRequest: Responding with "
          L"HTTP_BAD_REQUEST"));
}

TEST_F(RoutingTest, WhatCannotBeRoutedIsABadRequest) {
  ExpectBadRequest("GET / HTTP/1.1\r\n\r\n");
  ExpectBadRequest("GET /?printer=nobody HTTP/1.1\r\n\r\n");
  ExpectBadRequest("GET / HTTP/1.1\r\nConnection: keep-alive\r\n\r\n",
                   "keep-alive");
  ExpectBadRequest("GET /kova HTTP/1.1\r\nConnection: close\r\n\r\n", "close");
  EXPECT_EQ(m_extension.Trace(), "");
}

BOOL WINAPI OpenNoPrinter(LPWSTR name, HANDLE*, PRINTER_DEFAULTSW*) {
  ADD_FAILURE() << "opened a name of " << std::wcslen(name) << " characters";
  return FALSE;
}

// A machine that a client names must not decide what is loaded here.
TEST_F(RoutingTest, APrinterOfAMachineNobodyConnectedToIsNeverOpened) {
  const ImportPatch<decltype(::OpenPrinterW)> patch(
      m_server.Module(), "OpenPrinterW", &OpenNoPrinter);
  ExpectBadRequest("GET /?printer=%5C%5Cevil%5Cqueue HTTP/1.1\r\n\r\n");
  EXPECT_THAT(
      DispatchLines(),
      ElementsAre(
          L"Error WebServerInterface::GetV3WebServerInterface: "
          L"GetV3PrintMonitorDllFullPath failed for printer "
          L"\"\\\\evil\\queue\"",
          L"Error Network_ClientThread::ParseRequest: GetV3WebServerInterface "
          L"failed for: \"\\\\evil\\queue\"",
          L"DetailInfo Network_ClientThread::ParseRequest: Responding with "
          L"HTTP_BAD_REQUEST"));
}

TEST_F(RoutingTest, FailingAnswersAreBadRequestsAndReleased) {
  ExpectBadRequest(Get("null"));
  ExpectBadRequest(Get("length0"));
  ExpectBadRequest(Get("nocopy"));
  ExpectBadRequest(Get("huge"));
  ExpectEcho(Get());
  EXPECT_EQ(m_extension.Record().live, 0);
  EXPECT_EQ(m_extension.Count('?'), 0);
  EXPECT_EQ(m_extension.Count('R'), 4);
}

TEST_F(RoutingTest, HeadersAloneAreACompleteRequest) {
  ExpectEcho(
      "POST /?printer=KOVA+whole HTTP/1.1\r\nContent-Length: 10\r\n\r\n");
  ExpectBadRequest(
      "POST / HTTP/1.1\r\nContent-Type: application/x-www-form-urlencoded\r\n"
      "Content-Length: 18\r\n\r\n");
}

TEST_F(RoutingTest, AnExtensionStaysReadyWhenTheServerStartsAnew) {
  ExpectEcho(Get());
  m_server.Stop();
  EXPECT_FALSE(m_server.IsListening());
  m_server.Start();
  ExpectEcho(Get());
  EXPECT_EQ(m_extension.Trace(), "VSIHLCRHLCR");
}

}  // namespace
