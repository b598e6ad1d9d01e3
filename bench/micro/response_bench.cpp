// What it costs to build a response.
#include <benchmark/benchmark.h>

#include <string>

#include "base/byte_buffer.h"
#include "http/http_response.h"

namespace kova::bench {
namespace {

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
