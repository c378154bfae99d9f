// Render against a plain copy of the same bytes and against SDL's mixer, side by side.
//
// The sides take turns many times over in one benchmark, so that what the computer does besides meets them alike; what
// is reported are percentiles over the turns, of each side's time for one cycle and of what they come to turn by turn.
#include <SDL2/SDL_audio.h>
#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <vector>

#include "volume/Render.h"

namespace {

// One I/O cycle of interleaved 32-bit floats.
//
// A processor takes a load for one of what a store before it wrote when their addresses agree in the lower 12 bits. So
// the input begins with a page and the output in the middle of one, both at a cache line's boundary; what else is read
// and written lies where the input of the smaller cycles does not reach and no output does.
class Cycle {
 public:
  Cycle(std::int64_t frames, std::int64_t channels) {
    const auto samples = static_cast<std::size_t>(frames * channels);
    const auto bytes = static_cast<UInt32>(samples * sizeof(float));
    std::byte* const in = pages_.get() + page;
    std::byte* const out = in + (bytes + page - 1) / page * page + page / 2;
    std::fill_n(reinterpret_cast<float*>(in), samples, 0.25F);
    input = new (pages_.get() + page / 2 - 3 * line) AudioBufferList{1, {{static_cast<UInt32>(channels), bytes, in}}};
    output = new (pages_.get() + page / 2 - 2 * line) AudioBufferList{1, {{static_cast<UInt32>(channels), bytes, out}}};
    shared = new (pages_.get() + page / 2 - line) RenderState(0.125F, 0);
  }
  [[nodiscard]] const AudioBuffer& in() const { return input->mBuffers[0]; }
  [[nodiscard]] const AudioBuffer& out() const { return output->mBuffers[0]; }

  AudioBufferList* input;
  AudioBufferList* output;
  RenderState* shared;

 private:
  static constexpr std::size_t page = 4096;
  static constexpr std::size_t line = 64;
  struct Free {
    void operator()(std::byte* pages) const { std::free(pages); }
  };
  static constexpr std::size_t size = 100 * page;  // for cycles of 4096 frames of 8 channels, twice

  std::unique_ptr<std::byte, Free> pages_{
      static_cast<std::byte*>(std::memset(std::aligned_alloc(page, size), 0, size))};
};

// The time of one of `calls` calls, in nanoseconds.
template <typename Call>
double timeOf(std::size_t calls, Call call) {
  using Clock = std::chrono::steady_clock;
  const Clock::time_point begin = Clock::now();
  for (std::size_t i = 0; i < calls; ++i) {
    call();
    benchmark::ClobberMemory();
  }
  return std::chrono::duration<double, std::nano>(Clock::now() - begin).count() / static_cast<double>(calls);
}

double percentile(std::vector<double> values, double percent) {
  const auto nth = values.begin() + static_cast<std::ptrdiff_t>(percent / 100 * static_cast<double>(values.size() - 1));
  std::ranges::nth_element(values, nth);
  return *nth;
}

// An unchanged gain, a copy, and SDL's mixer, which mixes into silence to apply a volume.
void unchanged(benchmark::State& state) {
  const Cycle cycle(state.range(0), state.range(1));
  const UInt32 bytes = cycle.in().mDataByteSize;
  const std::size_t calls = 2'000'000 / (bytes + 400);  // a turn takes about 50 µs
  const auto byRender = [&] { return timeOf(calls, [&] { render(*cycle.shared, *cycle.input, *cycle.output); }); };
  const auto byCopy = [&] {
    return timeOf(calls, [&] { std::memcpy(cycle.out().mData, cycle.in().mData, cycle.in().mDataByteSize); });
  };
  const auto bySDL = [&] {
    return timeOf(calls / 50 + 1, [&] {
      std::memset(cycle.out().mData, 0, bytes);
      SDL_MixAudioFormat(static_cast<Uint8*>(cycle.out().mData), static_cast<const Uint8*>(cycle.in().mData),
                         AUDIO_F32SYS, bytes, SDL_MIX_MAXVOLUME / 8);
    });
  };

  std::vector<double> rendered, copied, ratio, more, sdl;
  for (auto _ : state) {
    // Each goes first in every other turn.
    const bool copyFirst = rendered.size() % 2 == 0;
    const double early = copyFirst ? byCopy() : byRender();
    const double late = copyFirst ? byRender() : byCopy();
    rendered.push_back(copyFirst ? late : early);
    copied.push_back(copyFirst ? early : late);
    ratio.push_back(rendered.back() / copied.back());
    more.push_back(rendered.back() - copied.back());
    sdl.push_back(bySDL() / rendered.back());
    state.SetIterationTime(rendered.back() * 1e-9);
  }
  state.counters["render"] = percentile(rendered, 50);
  state.counters["copy"] = percentile(copied, 50);
  state.counters["ratio_p10"] = percentile(ratio, 10);
  state.counters["ratio_p50"] = percentile(ratio, 50);
  state.counters["ratio_p90"] = percentile(ratio, 90);
  state.counters["more_p50"] = percentile(more, 50);
  state.counters["more_p90"] = percentile(more, 90);
  state.counters["sdl_p50"] = percentile(sdl, 50);
}

// Hides the value from the optimizer without a trip to memory.
void keepInRegister(float& value) {
#if defined(__x86_64__)
  asm volatile("" : "+x"(value));
#else
  asm volatile("" : "+w"(value));
#endif
}

// A gain that changes in every cycle, and the least that a ramp can take: its additions, each of which waits for the
// one before. In nanoseconds a frame.
void ramping(benchmark::State& state) {
  const Cycle cycle(state.range(0), state.range(1));
  const std::size_t calls = 20'000 / static_cast<std::size_t>(state.range(0)) + 1;
  float target = 0.5F;
  std::vector<double> ramp, additions;
  for (auto _ : state) {
    ramp.push_back(timeOf(calls, [&] {
      cycle.shared->targetGain.store(target, std::memory_order_relaxed);
      target = 0.625F - target;
      render(*cycle.shared, *cycle.input, *cycle.output);
    }));
    additions.push_back(timeOf(calls, [&] {
      float gain = 0.125F;
      const float step = 0.001F;
      for (std::int64_t frame = 0; frame < state.range(0); ++frame) {
        gain += step;
        keepInRegister(gain);
      }
    }));
    state.SetIterationTime(ramp.back() * 1e-9);
  }
  const auto frames = static_cast<double>(state.range(0));
  state.counters["ramp_p10"] = percentile(ramp, 10) / frames;
  state.counters["ramp_p50"] = percentile(ramp, 50) / frames;
  state.counters["ramp_p90"] = percentile(ramp, 90) / frames;
  state.counters["additions_p50"] = percentile(additions, 50) / frames;
}

void eachSize(benchmark::internal::Benchmark* benchmark) {
  benchmark->ArgNames({"frames", "channels"})
      ->ArgsProduct({{16, 64, 128, 256, 512, 1024, 2048, 4096}, {1, 2, 8}})
      ->UseManualTime()
      ->Iterations(300);
}
void eachLayout(benchmark::internal::Benchmark* benchmark) {
  benchmark->ArgNames({"frames", "channels"})
      ->ArgsProduct({{512}, {1, 2, 3, 4, 5, 6, 7, 8, 16}})
      ->UseManualTime()
      ->Iterations(300);
}

BENCHMARK(unchanged)->Apply(eachSize);
BENCHMARK(ramping)->Apply(eachLayout);

}  // namespace

BENCHMARK_MAIN();
