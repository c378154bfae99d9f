// Plays a scenario and listens to what comes out of one output's speaker, sample by sample.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "tests/support/Play.h"

struct Heard {
  Played played;
  std::size_t channels = 0;    // of the last cycle
  double rate = 0;             // the same
  std::vector<float> samples;  // interleaved, from the first cycle on
  // The first channel alone.
  [[nodiscard]] std::vector<float> left() const;
};

Heard listenTo(std::int64_t output, const std::string& scenario, std::uint64_t seed = 1,
               simulator::Clock clock = simulator::Clock::deterministic);
