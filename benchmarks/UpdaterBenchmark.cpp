// Feed documents and versions.
#include <benchmark/benchmark.h>

#include <cstdint>
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

void isNewer(benchmark::State& state) {
  for (auto _ : state) benchmark::DoNotOptimize(ReleaseFeed::isNewer("1.3.0-beta.5", "1.3.0-beta.4"));
}
BENCHMARK(isNewer);

}  // namespace
