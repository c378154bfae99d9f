#include "tests/support/Sound.h"

#include "simulator/audio/Audio.h"
#include "simulator/mac/Mac.h"

std::vector<float> Heard::left() const {
  std::vector<float> result;
  for (std::size_t i = 0; i < samples.size(); i += channels) result.push_back(samples[i]);
  return result;
}

Heard listenTo(std::int64_t output, const std::string& scenario, std::uint64_t seed, simulator::Clock clock) {
  Heard heard;
  heard.played =
      playScenario(scenario, seed, clock, {.setUp = [&](simulator::Mac& machine) {
                     machine.part<simulator::Audio>().listen(
                         output, [&heard](std::span<const float> samples, std::size_t channels, double rate) {
                           heard.samples.insert(heard.samples.end(), samples.begin(), samples.end());
                           heard.channels = channels;
                           heard.rate = rate;
                         });
                   }});
  return heard;
}
