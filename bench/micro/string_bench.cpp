// What the operations of OString cost, beside std::string where that has them.
#include <benchmark/benchmark.h>

#include <string>
#include <vector>

#include "text/o_string.h"
#include "text/string_codec.h"

namespace kova::bench {
namespace {

constexpr int kAppends = 100;

std::string TextOf(const benchmark::State& state) {
  return std::string(static_cast<size_t>(state.range(0)), 'a');
}

// A hundred of them to one text.
template <typename String>
void Append(benchmark::State& state) {
  const std::string source = TextOf(state);
  const String added(source.c_str(), source.size());
  for (auto _ : state) {
    String text("x");
    for (int i = 0; i < kAppends; ++i) {
      if constexpr (std::is_same_v<String, OString>) {
        text.Append(added);
      } else {
        text += added;
      }
    }
    benchmark::DoNotOptimize(text);
  }
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) * kAppends);
}
BENCHMARK(Append<OString>)->Name("String/append")->Arg(1)->Arg(16)->Arg(1000);
BENCHMARK(Append<std::string>)
    ->Name("StdString/append")
    ->Arg(1)
    ->Arg(16)
    ->Arg(1000);

void Compare(benchmark::State& state) {
  const OString left(TextOf(state).c_str());
  const OString right(TextOf(state).c_str());
  for (auto _ : state) benchmark::DoNotOptimize(left.Compare(right));
}
BENCHMARK(Compare)->Name("String/compare")->Arg(16)->Arg(1000);

void CompareNoCase(benchmark::State& state) {
  const OString left(TextOf(state).c_str());
  const OString right(
      std::string(static_cast<size_t>(state.range(0)), 'A').c_str());
  for (auto _ : state) benchmark::DoNotOptimize(left.CompareNoCase(right));
}
BENCHMARK(CompareNoCase)->Name("String/compare_no_case")->Arg(16)->Arg(1000);

// The system's code pages are a stand-in here: only UTF-8 and bytes are the
// product's own.
void Widen(benchmark::State& state, uint32_t codePage) {
  const std::string text = TextOf(state);
  std::vector<wchar_t> out(text.size() + 1);
  for (auto _ : state) {
    benchmark::DoNotOptimize(ConvertToWide(codePage, text.data(), text.size(),
                                           out.data(), out.size()));
  }
}
BENCHMARK_CAPTURE(Widen, utf8, kCodePageUtf8)
    ->Name("String/widen_utf8")
    ->Arg(16)
    ->Arg(1000);
BENCHMARK_CAPTURE(Widen, bytes, kCodePageBytes)
    ->Name("String/widen_bytes")
    ->Arg(1000);

void Narrow(benchmark::State& state, uint32_t codePage) {
  const std::wstring text(static_cast<size_t>(state.range(0)), L'a');
  std::vector<char> out(text.size() * 4 + 1);
  for (auto _ : state) {
    benchmark::DoNotOptimize(ConvertToNarrow(codePage, text.data(), text.size(),
                                             out.data(), out.size()));
  }
}
BENCHMARK_CAPTURE(Narrow, utf8, kCodePageUtf8)
    ->Name("String/narrow_utf8")
    ->Arg(16)
    ->Arg(1000);
BENCHMARK_CAPTURE(Narrow, bytes, kCodePageBytes)
    ->Name("String/narrow_bytes")
    ->Arg(1000);

}  // namespace
}  // namespace kova::bench
