// An hour of sound that Dalvane turns down, on the deterministic clock.
#include <benchmark/benchmark.h>

#include <sstream>
#include <string>

#include "desk/Desk.h"
#include "simulator/mac/Mac.h"
#include "simulator/mac/Scenario.h"

namespace {

using simulator::Mac;
using simulator::Scenario;

// One player on an output without a volume, the level at 15 of 16; the argument is its tone in Hz, 0 for a constant
// signal.
void hourOfSound(benchmark::State& state) {
  const std::string lines = R"({"do":"output","id":10,"uid":"HDMI-1","name":"Screen","default":true}
{"do":"play","process":"music","output":10,"tone":)" +
                            std::to_string(state.range(0)) + R"(}
{"do":"launch"}
{"do":"settle"}
{"do":"key","key":"volumeDown"}
{"do":"advance","seconds":3600}
{"do":"snapshot","name":"an hour later"}
)";
  for (auto _ : state) {
    std::string trace;
    Mac machine(dalvaneProgram(), {.trace = [&trace](std::string_view line) { trace += line; }, .fatal = {}});
    Scenario scenario(machine);
    std::istringstream text(lines);
    scenario.add(text, "hour");
    scenario.play();
    machine.shutDown();
    if (trace.find(R"("direct":false)") == std::string::npos)
      state.SkipWithError("the sound does not go through Dalvane");
    benchmark::DoNotOptimize(trace.data());
  }
}
BENCHMARK(hourOfSound)->Arg(440)->Arg(0)->Unit(benchmark::kMillisecond);

}  // namespace
