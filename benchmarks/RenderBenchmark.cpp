// Render against a plain copy of the same bytes and against SDL's mixer, in one run.
#include <SDL2/SDL_audio.h>
#include <benchmark/benchmark.h>

#include <cstring>
#include <vector>

#include "volume/Render.h"

namespace {

// One I/O cycle of interleaved 32-bit floats.
struct Cycle {
  Cycle(std::int64_t frameCount, std::int64_t channels)
      : in(static_cast<std::size_t>(frameCount * channels), 0.25F), out(in.size()) {
    const auto bytes = static_cast<UInt32>(in.size() * sizeof(float));
    input = {1, {{static_cast<UInt32>(channels), bytes, in.data()}}};
    output = {1, {{static_cast<UInt32>(channels), bytes, out.data()}}};
  }
  [[nodiscard]] std::size_t bytes() const { return in.size() * sizeof(float); }

  std::vector<float> in;
  std::vector<float> out;
  AudioBufferList input;
  AudioBufferList output;
};

void finish(benchmark::State& state, const Cycle& cycle) {
  state.SetBytesProcessed(static_cast<std::int64_t>(cycle.bytes()) * state.iterations());
  state.counters["per_frame"] = benchmark::Counter(
      static_cast<double>(state.range(0)), benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

void renderUnchanged(benchmark::State& state) {
  Cycle cycle(state.range(0), state.range(1));
  RenderState shared(0.125F, 0);
  for (auto _ : state) {
    render(shared, cycle.input, cycle.output);
    benchmark::ClobberMemory();
  }
  finish(state, cycle);
}

void renderRamping(benchmark::State& state) {
  Cycle cycle(state.range(0), state.range(1));
  RenderState shared(0.125F, 0);
  float target = 0.5F;
  for (auto _ : state) {
    shared.targetGain.store(target, std::memory_order_relaxed);
    target = 0.625F - target;
    render(shared, cycle.input, cycle.output);
    benchmark::ClobberMemory();
  }
  finish(state, cycle);
}

void copy(benchmark::State& state) {
  Cycle cycle(state.range(0), state.range(1));
  for (auto _ : state) {
    std::memcpy(cycle.out.data(), cycle.in.data(), cycle.bytes());
    benchmark::ClobberMemory();
  }
  finish(state, cycle);
}

// Mixing into silence is SDL's way to apply a volume.
void sdlMix(benchmark::State& state) {
  Cycle cycle(state.range(0), state.range(1));
  for (auto _ : state) {
    std::memset(cycle.out.data(), 0, cycle.bytes());
    SDL_MixAudioFormat(reinterpret_cast<Uint8*>(cycle.out.data()), reinterpret_cast<const Uint8*>(cycle.in.data()),
                       AUDIO_F32SYS, static_cast<Uint32>(cycle.bytes()), SDL_MIX_MAXVOLUME / 8);
    benchmark::ClobberMemory();
  }
  finish(state, cycle);
}

// Hides the value from the optimizer without a trip to memory.
void keepInRegister(float& value) {
#if defined(__x86_64__)
  asm volatile("" : "+x"(value));
#else
  asm volatile("" : "+w"(value));
#endif
}

// The least that a ramp can take: its additions, each of which waits for the one before.
void additionChain(benchmark::State& state) {
  for (auto _ : state) {
    float gain = 0.125F;
    const float step = 0.001F;
    for (std::int64_t frame = 0; frame < state.range(0); ++frame) {
      gain += step;
      keepInRegister(gain);
    }
  }
  state.counters["per_frame"] = benchmark::Counter(
      static_cast<double>(state.range(0)), benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

void sizes(benchmark::internal::Benchmark* benchmark) {
  benchmark->ArgNames({"frames", "channels"})->ArgsProduct({{64, 128, 256, 512, 1024, 2048, 4096}, {1, 2, 8}});
}

BENCHMARK(renderUnchanged)->Apply(sizes);
BENCHMARK(copy)->Apply(sizes);
BENCHMARK(sdlMix)->Apply(sizes);
BENCHMARK(renderRamping)->Apply(sizes);
BENCHMARK(additionChain)->ArgName("frames")->Arg(512);

}  // namespace

BENCHMARK_MAIN();
