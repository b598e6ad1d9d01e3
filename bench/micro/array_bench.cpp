// What it costs to grow the arrays, and the block that a request is gathered
// in.
#include <benchmark/benchmark.h>

#include <cstring>
#include <string>
#include <vector>

#include "base/o_array.h"
#include "text/o_string_array.h"

namespace kova::bench {
namespace {

// One element at a time: linear in their number.
void GrowPointers(benchmark::State& state) {
  for (auto _ : state) {
    OPointerArray<int*> pointers;
    for (int32_t i = 1; i <= state.range(0); ++i) pointers.SetSize(i);
    benchmark::DoNotOptimize(pointers.Data());
  }
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) *
                          state.range(0));
  state.SetComplexityN(state.range(0));
}
BENCHMARK(GrowPointers)
    ->Name("Array/grow_pointers")
    ->RangeMultiplier(10)
    ->Range(1, 100000)
    ->Complexity(benchmark::oN);

void GrowStrings(benchmark::State& state) {
  const OString text("text");
  for (auto _ : state) {
    OStringArray strings;
    for (int32_t i = 0; i < state.range(0); ++i) strings.Append(text);
    benchmark::DoNotOptimize(strings.Data());
  }
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) *
                          state.range(0));
  state.SetComplexityN(state.range(0));
}
BENCHMARK(GrowStrings)
    ->Name("Array/grow_strings")
    ->RangeMultiplier(10)
    ->Range(1, 100000)
    ->Complexity(benchmark::oN);

constexpr int32_t kPieceBytes = 16384;
constexpr int32_t kPieces = 4096;

void Gathered(benchmark::State& state) {
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) *
                          kPieceBytes * kPieces);
}

// 64 MiB in pieces of 16 KiB, as a connection gathers them.
void GatherInArray(benchmark::State& state) {
  const std::string piece(kPieceBytes, 'x');
  for (auto _ : state) {
    OTypedArray<char> bytes;
    for (int32_t i = 0; i < kPieces; ++i) {
      const int32_t old = bytes.Count();
      bytes.SetSize(old + kPieceBytes);
      std::memcpy(bytes.Data() + old, piece.data(), piece.size());
    }
    benchmark::DoNotOptimize(bytes.Data());
  }
  Gathered(state);
}
BENCHMARK(GatherInArray)
    ->Name("Gather/array_64MiB")
    ->Unit(benchmark::kMillisecond);

template <bool kReserved>
void GatherInVector(benchmark::State& state) {
  const std::string piece(kPieceBytes, 'x');
  for (auto _ : state) {
    std::vector<char> bytes;
    if (kReserved) bytes.reserve(size_t{kPieceBytes} * kPieces);
    for (int32_t i = 0; i < kPieces; ++i) {
      bytes.insert(bytes.end(), piece.begin(), piece.end());
    }
    benchmark::DoNotOptimize(bytes.data());
  }
  Gathered(state);
}
BENCHMARK(GatherInVector<false>)
    ->Name("Gather/doubling_vector_64MiB")
    ->Unit(benchmark::kMillisecond);
BENCHMARK(GatherInVector<true>)
    ->Name("Gather/reserved_vector_64MiB")
    ->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace kova::bench
