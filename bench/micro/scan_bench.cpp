// What it costs to look for the end of headers that do not end.
#include <benchmark/benchmark.h>

#include <cstring>
#include <string>
#include <vector>

#include "http/http_request.h"
#include "http/request_progress.h"

namespace kova::bench {
namespace {

constexpr size_t kPieceBytes = 16384;
constexpr size_t kEndlessBytes = size_t{16} << 20;

// One line without an end, or lines as headers have them.
std::string EndlessHeaders(bool hasLines) {
  std::string bytes = "GET / HTTP/1.1\r\nX: ";
  bytes.reserve(kEndlessBytes + 64);
  while (hasLines && bytes.size() < kEndlessBytes) {
    bytes += "X-Example-Header: 0123456789abcdef\r\n";
  }
  bytes.resize(kEndlessBytes, 'x');
  return bytes;
}

bool IsComplete(const char* bytes, size_t length) {
  return HTTPRequest::IsComplete(bytes, static_cast<int32_t>(length));
}

void ScanOnce(benchmark::State& state, bool hasLines) {
  const std::string bytes = EndlessHeaders(hasLines);
  for (auto _ : state) {
    benchmark::DoNotOptimize(IsComplete(bytes.data(), bytes.size()));
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) *
                          static_cast<int64_t>(bytes.size()));
}
BENCHMARK_CAPTURE(ScanOnce, line, false)->Name("Scan/endless_line_16MiB");
BENCHMARK_CAPTURE(ScanOnce, lines, true)->Name("Scan/endless_lines_16MiB");

// The runtime's own search over the same bytes: what memory allows.
void RuntimeScan(benchmark::State& state) {
  const std::vector<char> bytes(kEndlessBytes, 'x');
  for (auto _ : state) {
    benchmark::DoNotOptimize(std::memchr(bytes.data(), '\n', bytes.size()));
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) *
                          static_cast<int64_t>(bytes.size()));
}
BENCHMARK(RuntimeScan)->Name("Scan/memchr_16MiB");

// All that is scanned while the headers come in piece by piece.
void ScanPieces(benchmark::State& state, bool hasLines) {
  const std::string bytes = EndlessHeaders(hasLines);
  for (auto _ : state) {
    RequestProgress progress;
    for (size_t have = kPieceBytes; have <= bytes.size(); have += kPieceBytes) {
      benchmark::DoNotOptimize(progress.IsComplete({bytes.data(), have}));
    }
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) *
                          static_cast<int64_t>(bytes.size()));
}
BENCHMARK_CAPTURE(ScanPieces, line, false)
    ->Name("Scan/endless_line_16MiB_by_16KiB")
    ->Iterations(1)
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(ScanPieces, lines, true)
    ->Name("Scan/endless_lines_16MiB_by_16KiB")
    ->Iterations(1)
    ->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace kova::bench
