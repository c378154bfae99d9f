// Feed documents and versions.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <exception>
#include <iterator>
#include <string>

#include "tests/support/FeedText.h"
#include "updater/Release.h"
#include "updater/ReleaseFeed.h"

namespace {

void decodeFeed(benchmark::State& state) {
  const std::string document = feedText(static_cast<std::size_t>(state.range(0)));
  for (auto _ : state) benchmark::DoNotOptimize(decodeNewestRelease(document));
  state.SetItemsProcessed(state.iterations() * state.range(0));
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(document.size()));
}
BENCHMARK(decodeFeed)->RangeMultiplier(10)->Range(1, 100000)->Unit(benchmark::kMicrosecond);

// Each kind of nonsense at three sizes: the time is linear when the bytes a second are the same.
void decodeNonsense(benchmark::State& state) {
  const Nonsense& kind = nonsense[state.range(0)];
  const std::string document = feedWithNonsense(kind, static_cast<std::size_t>(state.range(1)));
  for (auto _ : state) {
    try {
      benchmark::DoNotOptimize(decodeNewestRelease(document));
    } catch (const std::exception&) {
      if (!kind.refused) state.SkipWithError("was refused");
    }
  }
  state.SetLabel(kind.name);
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(document.size()));
}
BENCHMARK(decodeNonsense)
    ->ArgsProduct({benchmark::CreateDenseRange(0, std::size(nonsense) - 1, 1), {100'000, 1'000'000, 10'000'000}})
    ->Unit(benchmark::kMicrosecond);

void isNewer(benchmark::State& state) {
  for (auto _ : state) benchmark::DoNotOptimize(ReleaseFeed::isNewer("1.3.0-beta.5", "1.3.0-beta.4"));
}
BENCHMARK(isNewer);

}  // namespace
