#include "bench/micro/sample_requests.h"

namespace kova::bench {
namespace {

constexpr char kHintingBrowser[] =
    "GET /status/index.html?printer=Office%20Printer&page=1 HTTP/1.1\r\n"
    "Host: 192.168.10.20:9312\r\n"
    "Connection: keep-alive\r\n"
    "Cache-Control: max-age=0\r\n"
    "sec-ch-ua: \"Not_A Brand\";v=\"8\", \"Example\";v=\"120\"\r\n"
    "sec-ch-ua-mobile: ?0\r\n"
    "sec-ch-ua-platform: \"Example\"\r\n"
    "Upgrade-Insecure-Requests: 1\r\n"
    "User-Agent: Mozilla/5.0 (X11; x86_64) Example/537.36 (like Example) "
    "Example/120.0.0.0\r\n"
    "Accept: text/html,application/xhtml+xml,application/xml;q=0.9,"
    "image/avif,image/webp,*/*;q=0.8\r\n"
    "Sec-Fetch-Site: none\r\n"
    "Sec-Fetch-Mode: navigate\r\n"
    "Sec-Fetch-User: ?1\r\n"
    "Sec-Fetch-Dest: document\r\n"
    "Accept-Encoding: gzip, deflate, br\r\n"
    "Accept-Language: en-GB,en;q=0.9,de;q=0.8\r\n"
    "Cookie: session=0123456789abcdef0123456789abcdef; theme=light\r\n"
    "\r\n";

constexpr char kPlainBrowser[] =
    "GET /status/index.html?printer=Office%20Printer&page=1 HTTP/1.1\r\n"
    "Host: 192.168.10.20:9312\r\n"
    "User-Agent: Mozilla/5.0 (X11; x86_64; rv:115.0) Example/20100101 "
    "Example/115.0\r\n"
    "Accept: text/html,application/xhtml+xml,application/xml;q=0.9,"
    "image/avif,image/webp,*/*;q=0.8\r\n"
    "Accept-Language: en-GB,en;q=0.5\r\n"
    "Accept-Encoding: gzip, deflate\r\n"
    "Referer: http://192.168.10.20:9312/status/overview.html?printer="
    "Office%20Printer\r\n"
    "Connection: keep-alive\r\n"
    "Cookie: session=0123456789abcdef0123456789abcdef; theme=light\r\n"
    "Upgrade-Insecure-Requests: 1\r\n"
    "Sec-Fetch-Dest: document\r\n"
    "Sec-Fetch-Mode: navigate\r\n"
    "Sec-Fetch-Site: same-origin\r\n"
    "If-Modified-Since: Sun, 06 Nov 1994 08:49:37 GMT\r\n"
    "If-None-Match: \"0123456789abcdef\"\r\n"
    "\r\n";

std::string FormRequest() {
  const std::string body =
      "printer=Office+Printer+%28second+floor%29&user=example&"
      "job=Quarterly%20report&copies=2&duplex=long-edge&media=A4&"
      "pin=0000&comment=please+staple";
  return "POST /jobs HTTP/1.1\r\n"
         "Host: 192.168.10.20:9312\r\n"
         "User-Agent: ExamplePrintClient/1.0\r\n"
         "Accept: */*\r\n"
         "Connection: close\r\n"
         "Content-Type: application/x-www-form-urlencoded\r\n"
         "Content-Length: " +
         std::to_string(body.size()) + "\r\n\r\n" + body;
}

}  // namespace

const std::vector<SampleRequest>& SampleRequests() {
  static const std::vector<SampleRequest> requests = {
      {"hinting_browser", kHintingBrowser},
      {"plain_browser", kPlainBrowser},
      {"print_client_form", FormRequest()},
  };
  return requests;
}

}  // namespace kova::bench
