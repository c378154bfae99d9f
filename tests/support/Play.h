// Plays a scenario on a machine in this process, and looks things up in its trace.
#pragma once

#include <cstdint>
#include <functional>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>
#include <vector>

#include "simulator/kernel/Scheduler.h"

namespace simulator {
class Mac;
}

struct Played {
  int status = 0;
  std::string error;  // of a scenario that cannot be understood
  std::string bytes;  // the trace as `dalvane-desk play` prints it
  std::vector<nlohmann::json> records;

  // The records of one kind.
  [[nodiscard]] std::vector<nlohmann::json> of(std::string_view what) const;
  // The recorded calls of one function.
  [[nodiscard]] std::vector<nlohmann::json> calls(std::string_view api) const;
  // The texts that were logged, as "level category: text"; those of category `without` are left out.
  [[nodiscard]] std::vector<std::string> logs(std::string_view without = {}) const;
  // The messages written to a display's monitor, in hex, with the time in front: "0.08 84 03 …".
  [[nodiscard]] std::vector<std::string> writes(int display) const;
  // The brightness values that a monitor showed one after the other.
  [[nodiscard]] std::vector<int> lights(int display) const;
  // Of each event that was offered to the program: whether it was swallowed.
  [[nodiscard]] std::vector<bool> swallowed() const;
};

// What a test adds to the machine before the scenario begins.
struct Preparation {
  std::function<void(simulator::Mac&)> setUp = {};
  std::function<int()> program = {};  // instead of Dalvane's main
};

Played playScenario(const std::string& scenario, std::uint64_t seed = 1,
                    simulator::Clock clock = simulator::Clock::deterministic, const Preparation& preparation = {});

// Lines that many scenarios begin with: a built-in display (1) and an external one (2) with a monitor at 50 of 100,
// the pointer on the external one.
inline const std::string twoDisplays = R"(
{"do":"display","id":1,"name":"Built-in","builtin":true,"frame":[0,0,1512,982]}
{"do":"display","id":2,"name":"Left","frame":[1512,0,2560,1440],"vendor":4268,"product":41200,"serial":7001,"monitor":{"current":50,"maximum":100}}
{"do":"pointer","at":[2000,700]}
)";
// The same, launched and settled.
inline const std::string launched = twoDisplays + R"(
{"do":"launch"}
{"do":"settle"}
)";

// How an expectation shows a value.
namespace nlohmann {
inline void PrintTo(const json& value, std::ostream* out) { *out << value; }
}  // namespace nlohmann

// How many seeds, of many, there is time for: each takes far longer with a sanitizer, which sees its share in few.
constexpr std::uint64_t seedsInTime(std::uint64_t many) {
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
  return many / 4;
#else
  return many;
#endif
}

// Plays with several seeds; what does not hold for one of them is reported with its seed.
#define WITH_SEEDS(seed, count)                         \
  for (std::uint64_t seed = 1; seed <= (count); ++seed) \
    if (const ::testing::ScopedTrace trace_(__FILE__, __LINE__, "seed " + std::to_string(seed)); true)
