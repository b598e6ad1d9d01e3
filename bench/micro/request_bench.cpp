// What it costs to parse a request, beside the distribution's HTTP parser.
#include <benchmark/benchmark.h>

#include <string>

#include "bench/micro/peer_request.h"
#include "bench/micro/sample_requests.h"
#include "http/http_request.h"
#include "http/url_decode.h"

namespace kova::bench {
namespace {

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

}  // namespace
}  // namespace kova::bench
