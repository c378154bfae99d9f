// A process that plays, or could: what Core Audio knows of one of its clients, and the sound that it makes.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string>
#include <vector>

#include "simulator/audio/AudioObject.h"

namespace simulator {

// A sine of that frequency in Hz, or a constant signal when it is 0.
struct Sound {
  double level = 0;
  double tone = 0;
};

// A client process. The program is one too, though it plays only through its I/O procs.
class Player : public AudioObject {
 public:
  Player(AudioObjectID id, pid_t process) : AudioObject(id), pid(process) {}

  const pid_t pid;

  // Plays to the output with that number in the scenario, from its beginning.
  void play(std::int64_t output, const Sound& sound);
  [[nodiscard]] bool plays(std::int64_t output) const { return output == output_; }
  [[nodiscard]] double level() const { return sound_.level; }
  [[nodiscard]] bool isAudible() const { return sound_.level != 0; }

  // The next `frames` samples of its sound, which is the same in all channels.
  const std::vector<float>& next(std::size_t frames, double rate);
  // The same without the samples, for so many blocks.
  void skip(std::uint64_t blocks, std::size_t frames, double rate);

  [[nodiscard]] PropertyValue property(const AudioObjectPropertyAddress& address,
                                       std::span<const std::byte> qualifier) const override;

 private:
  static constexpr std::int64_t nowhere = -1;

  void turnBy(std::size_t frames, double rate);

  std::int64_t output_ = nowhere;
  Sound sound_;
  double phase_ = 0;  // in turns
  std::vector<float> block_;
};

}  // namespace simulator
