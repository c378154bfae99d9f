// A WAV file of what a speaker plays: 16-bit samples, which every player takes.
#pragma once

#include <cstdint>
#include <fstream>
#include <span>
#include <string>

namespace simulator {

class WaveFile {
 public:
  // Throws std::runtime_error when the file cannot be written.
  explicit WaveFile(const std::string& path);
  // Fills in the lengths that were not known before.
  ~WaveFile();
  WaveFile(const WaveFile&) = delete;
  WaveFile& operator=(const WaveFile&) = delete;

  // Samples from -1 to 1, interleaved. The first call decides the format; sound in another one is left out.
  void append(std::span<const float> samples, std::size_t channels, double rate);

 private:
  void writeHeader();

  std::ofstream file_;
  std::uint16_t channels_ = 0;
  std::uint32_t rate_ = 0;
  std::uint32_t bytes_ = 0;
};

}  // namespace simulator
