// The key path, the walk of the I/O Registry, and a day on the deterministic clock.
#include <benchmark/benchmark.h>

#include <memory>
#include <sstream>
#include <string>

#include "brightness/DDCChannel.h"
#include "desk/Desk.h"
#include "simulator/desktop/EventStream.h"
#include "simulator/displays/Registry.h"
#include "simulator/mac/Mac.h"
#include "simulator/mac/Scenario.h"

namespace {

using simulator::Clock;
using simulator::Mac;
using simulator::RegistryEntry;
using simulator::Scenario;

// A machine without a trace, with that many monitors and the pointer on the last, Dalvane running.
struct Desk {
  explicit Desk(int monitors) : machine(dalvaneProgram(), {}), scenario(machine) {
    for (int id = 1; id <= monitors; ++id) {
      const std::string number = std::to_string(id);
      scenario.perform(R"({"do":"display","id":)" + number + R"(,"name":"M","frame":[)" + number +
                       R"(000,0,1000,1000],"vendor":1,"product":2,"serial":)" + number +
                       R"(,"monitor":{"current":50,"maximum":100}})");
    }
    scenario.perform(R"({"do":"pointer","at":[)" + std::to_string(monitors) + "500,500]}");
    scenario.perform(R"({"do":"launch"})");
    scenario.perform(R"({"do":"settle"})");
  }

  Mac machine;
  Scenario scenario;
};

// From the event's arrival at the tap to the return of its callback. The drain that the first press schedules stays
// where it is: time stands still.
void keyPress(benchmark::State& state) {
  Desk desk(static_cast<int>(state.range(0)));
  const simulator::InputEvent up{.type = 14, .subtype = 8, .data1 = 2 << 16 | 0x0A00};
  const simulator::InputEvent down{.type = 14, .subtype = 8, .data1 = 3 << 16 | 0x0A00};
  bool isUp = false;
  for (auto _ : state) {
    isUp = !isUp;
    desk.machine.part<simulator::EventStream>().send(isUp ? up : down);
    desk.machine.runReady();
  }
}
BENCHMARK(keyPress)->Arg(1)->Arg(4)->Arg(16);

// A wake: the whole registry is walked, and channels are made for four external monitors among its entries.
void registryWalk(benchmark::State& state) {
  Desk desk(4);
  std::vector<std::shared_ptr<const RegistryEntry>> entries;
  const auto add = [&entries](const std::string& name, nlohmann::json properties) {
    entries.push_back(std::make_shared<RegistryEntry>(RegistryEntry{
        .name = name, .properties = std::move(properties), .children = {}, .display = {}, .reaches = {}}));
  };
  for (std::int64_t i = 0; i < state.range(0); ++i) {
    const std::int64_t place = i % (state.range(0) / 4);
    const std::int64_t serial = i / (state.range(0) / 4) + 1;
    if (place == 0) {
      add("AppleCLCD2",
          {{"DisplayAttributes",
            {{"ProductAttributes", {{"LegacyManufacturerID", 1}, {"ProductID", 2}, {"SerialNumber", serial}}}}}});
    } else if (place == 1) {
      add("DCPAVServiceProxy", {{"Location", "External"}});
    } else {
      add("AppleARMIODevice", nlohmann::json::object());
    }
  }
  desk.machine.part<simulator::Registry>().replaceAll(std::move(entries));
  for (auto _ : state) {
    desk.scenario.perform(R"({"do":"wake"})");
    state.PauseTiming();
    (void)desk.machine.scheduler.settle();
    state.ResumeTiming();
  }
  state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(registryWalk)->RangeMultiplier(10)->Range(100, 100000)->Unit(benchmark::kMicrosecond);

void packet(benchmark::State& state) {
  for (auto _ : state) benchmark::DoNotOptimize(DDCChannel::packet(0x03, {0x10, 0x00, 0x38}, 0x3F));
}
BENCHMARK(packet);

// A day with a key press every minute, with its trace, as `dalvane-desk play` runs it.
void day(benchmark::State& state) {
  std::string lines = R"({"do":"display","id":2,"name":"M","frame":[0,0,1000,1000],"vendor":1,"product":2,"serial":3,)"
                      R"("monitor":{"current":50,"maximum":100}})"
                      "\n"
                      R"({"do":"pointer","at":[500,500]})"
                      "\n"
                      R"({"do":"launch"})"
                      "\n";
  for (int minute = 0; minute < 24 * 60; ++minute) {
    lines += minute % 9 < 5 ? R"({"do":"key","key":"brightnessUp"})" : R"({"do":"key","key":"brightnessDown"})";
    lines += "\n{\"do\":\"advance\",\"seconds\":60}\n";
  }
  for (auto _ : state) {
    std::string trace;
    Mac machine(dalvaneProgram(), {.clock = Clock::deterministic,
                                   .seed = 1,
                                   .trace = [&trace](std::string_view line) { trace += line; },
                                   .fatal = {}});
    Scenario scenario(machine);
    std::istringstream text(lines);
    scenario.add(text, "day");
    scenario.play();
    machine.shutDown();
    benchmark::DoNotOptimize(trace.data());
  }
}
BENCHMARK(day)->Unit(benchmark::kMillisecond);

// What trying a scenario under one more seed costs beside the scenario: a new machine, Dalvane launched and quit.
void freshSeed(benchmark::State& state) {
  std::uint64_t seed = 0;
  for (auto _ : state) {
    std::size_t size = 0;
    Mac machine(dalvaneProgram(), {.clock = Clock::deterministic,
                                   .seed = ++seed,
                                   .trace = [&size](std::string_view line) { size += line.size(); },
                                   .fatal = {}});
    Scenario scenario(machine);
    scenario.perform(R"({"do":"launch"})");
    scenario.perform(R"({"do":"settle"})");
    machine.shutDown();
    benchmark::DoNotOptimize(size);
  }
}
BENCHMARK(freshSeed)->Unit(benchmark::kMillisecond);

}  // namespace
