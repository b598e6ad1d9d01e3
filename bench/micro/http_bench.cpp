// What it costs to parse a request, beside the distribution's HTTP parser, and
// to build a response.
#include <benchmark/benchmark.h>
#include <http_parser.h>

#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "base/byte_buffer.h"
#include "http/http_request.h"
#include "http/http_response.h"
#include "http/url_decode.h"

namespace kova::bench {
namespace {

// Requests as clients send them: two kinds of browser asking for a page, about
// 700 bytes each, and a print client that posts a form.
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

struct SampleRequest {
  const char* name;
  std::string bytes;
};

const std::vector<SampleRequest>& SampleRequests() {
  static const std::vector<SampleRequest> requests = {
      {"hinting_browser", kHintingBrowser},
      {"plain_browser", kPlainBrowser},
      {"print_client_form", FormRequest()},
  };
  return requests;
}

// What `Text` keeps of a request: std::string copies what it is given, as
// HTTPRequest does; std::string_view refers to the parsed bytes.
template <typename Text>
struct PeerRequest {
  Text method;
  Text url;
  std::vector<std::pair<Text, Text>> headers;
  Text body;
  bool isComplete = false;
  uint16_t major = 0;
  uint16_t minor = 0;
};

// The bytes come in one piece, so that every callback has a whole field.
template <typename Text>
struct Callbacks {
  static PeerRequest<Text>& Of(http_parser* parser) {
    return *static_cast<PeerRequest<Text>*>(parser->data);
  }
  static int OnUrl(http_parser* parser, const char* at, size_t length) {
    Of(parser).url = Text(at, length);
    return 0;
  }
  static int OnField(http_parser* parser, const char* at, size_t length) {
    Of(parser).headers.emplace_back(Text(at, length), Text());
    return 0;
  }
  static int OnValue(http_parser* parser, const char* at, size_t length) {
    Of(parser).headers.back().second = Text(at, length);
    return 0;
  }
  static int OnBody(http_parser* parser, const char* at, size_t length) {
    Of(parser).body = Text(at, length);
    return 0;
  }
  static int OnComplete(http_parser* parser) {
    Of(parser).isComplete = true;
    return 0;
  }

  static http_parser_settings Settings() {
    http_parser_settings settings;
    http_parser_settings_init(&settings);
    settings.on_url = &OnUrl;
    settings.on_header_field = &OnField;
    settings.on_header_value = &OnValue;
    settings.on_body = &OnBody;
    settings.on_message_complete = &OnComplete;
    return settings;
  }
};

// Parses `bytes`, which hold one whole request.
template <typename Text>
PeerRequest<Text> ParseWithPeer(std::string_view bytes) {
  static const http_parser_settings settings = Callbacks<Text>::Settings();
  PeerRequest<Text> request;
  http_parser parser;
  http_parser_init(&parser, HTTP_REQUEST);
  parser.data = &request;
  http_parser_execute(&parser, &settings, bytes.data(), bytes.size());
  request.method = http_method_str(static_cast<http_method>(parser.method));
  request.major = parser.http_major;
  request.minor = parser.http_minor;
  return request;
}

const SampleRequest& Sample(const benchmark::State& state) {
  return SampleRequests()[static_cast<size_t>(state.range(0))];
}

void Finish(benchmark::State& state, bool isGood) {
  const SampleRequest& sample = Sample(state);
  state.SetLabel(sample.name);
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) *
                          static_cast<int64_t>(sample.bytes.size()));
  if (!isGood) state.SkipWithError("the request was not parsed");
}

// As dispatch parses and routes: nothing is kept but what is asked for.
void RequestForDispatch(benchmark::State& state) {
  const std::string& bytes = Sample(state).bytes;
  bool isGood = true;
  for (auto _ : state) {
    HTTPRequest request;
    isGood = request.ParseInPlace(bytes.data(),
                                  static_cast<int32_t>(bytes.size()), true) &&
             isGood;
    benchmark::DoNotOptimize(request.GetFormValue(L"printer").data());
    benchmark::DoNotOptimize(request.Body());
  }
  Finish(state, isGood);
}
BENCHMARK(RequestForDispatch)->Name("Request/dispatch")->DenseRange(0, 2);

// Every field is kept in a text of its own.
void RequestAllFields(benchmark::State& state) {
  const std::string& bytes = Sample(state).bytes;
  bool isGood = true;
  for (auto _ : state) {
    HTTPRequest request;
    isGood = request.Parse(bytes.data(), static_cast<int32_t>(bytes.size()),
                           false) &&
             isGood;
    benchmark::DoNotOptimize(request.Method().Narrow());
    benchmark::DoNotOptimize(request.Path().Narrow());
    benchmark::DoNotOptimize(request.Version().Narrow());
    benchmark::DoNotOptimize(request.FormNames().Data());
    benchmark::DoNotOptimize(request.HeaderLines().Data());
  }
  Finish(state, isGood);
}
BENCHMARK(RequestAllFields)->Name("Request/all_fields")->DenseRange(0, 2);

// As every receive asks.
void RequestIsComplete(benchmark::State& state) {
  const std::string& bytes = Sample(state).bytes;
  bool isGood = true;
  for (auto _ : state) {
    isGood = HTTPRequest::IsComplete(bytes.data(),
                                     static_cast<int32_t>(bytes.size())) &&
             isGood;
  }
  Finish(state, isGood);
}
BENCHMARK(RequestIsComplete)->Name("Request/is_complete")->DenseRange(0, 2);

template <typename Text>
void Peer(benchmark::State& state) {
  const std::string& bytes = Sample(state).bytes;
  bool isGood = true;
  for (auto _ : state) {
    PeerRequest<Text> request = ParseWithPeer<Text>(bytes);
    isGood = request.isComplete && isGood;
    benchmark::DoNotOptimize(request.headers.data());
  }
  Finish(state, isGood);
}
BENCHMARK(Peer<std::string>)->Name("Peer/all_fields")->DenseRange(0, 2);
BENCHMARK(Peer<std::string_view>)->Name("Peer/views")->DenseRange(0, 2);

void Decode(benchmark::State& state, std::string_view bytes) {
  for (auto _ : state) {
    benchmark::DoNotOptimize(UrlDecodeBytes(bytes).Narrow());
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) *
                          static_cast<int64_t>(bytes.size()));
}
BENCHMARK_CAPTURE(Decode, path, "/status/index.html")
    ->Name("UrlDecode/plain_path");
BENCHMARK_CAPTURE(Decode, value, "Office+Printer+%28second+floor%29")
    ->Name("UrlDecode/form_value");
BENCHMARK_CAPTURE(Decode, plain, std::string(1000, 'a'))
    ->Name("UrlDecode/plain_1000");

// The computer's name comes from a stand-in.
void Build(benchmark::State& state) {
  const std::string body(static_cast<size_t>(state.range(0)), 'x');
  ByteBuffer out;
  for (auto _ : state) {
    HTTPResponse response;
    response.SetHeader("Connection", "close");
    response.SetBody(body.data(), static_cast<uint32_t>(body.size()));
    response.Serialize(out);
    benchmark::DoNotOptimize(out.Data());
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) *
                          state.range(0));
}
BENCHMARK(Build)->Name("Response/build")->Arg(0)->Arg(1024)->Arg(8 << 20);

}  // namespace
}  // namespace kova::bench
