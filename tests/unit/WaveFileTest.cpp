#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <vector>

#include "simulator/audio/WaveFile.h"

namespace {

std::uint32_t number(const std::string& bytes, std::size_t at, std::size_t size) {
  std::uint32_t value = 0;
  for (std::size_t i = 0; i < size; ++i) value |= std::uint32_t{static_cast<unsigned char>(bytes[at + i])} << (8 * i);
  return value;
}

}  // namespace

TEST(WaveFile, HoldsWhatWasPlayed) {
  const std::string path = (std::filesystem::temp_directory_path() / "WaveFileTest.wav").string();
  {
    simulator::WaveFile wave(path);
    wave.append(std::vector<float>{0, 0.5F, -1, 2}, 2, 44100);
    wave.append(std::vector<float>{0.25F, 0}, 2, 44100);
    wave.append(std::vector<float>{1}, 1, 44100);  // another format: left out
  }
  std::ifstream file(path, std::ios::binary);
  const std::string bytes((std::istreambuf_iterator<char>(file)), {});
  std::filesystem::remove(path);
  ASSERT_EQ(bytes.size(), 44U + 12U);
  EXPECT_EQ(bytes.substr(0, 4), "RIFF");
  EXPECT_EQ(number(bytes, 4, 4), bytes.size() - 8);
  EXPECT_EQ(bytes.substr(8, 8), "WAVEfmt ");
  EXPECT_EQ(number(bytes, 20, 2), 1U);          // integer samples
  EXPECT_EQ(number(bytes, 22, 2), 2U);          // channels
  EXPECT_EQ(number(bytes, 24, 4), 44100U);      // frames a second
  EXPECT_EQ(number(bytes, 28, 4), 44100U * 4);  // bytes a second
  EXPECT_EQ(number(bytes, 32, 2), 4U);          // bytes a frame
  EXPECT_EQ(number(bytes, 34, 2), 16U);         // bits a sample
  EXPECT_EQ(bytes.substr(36, 4), "data");
  EXPECT_EQ(number(bytes, 40, 4), 12U);
  std::vector<int> samples;
  for (std::size_t at = 44; at < bytes.size(); at += 2) {
    samples.push_back(static_cast<std::int16_t>(number(bytes, at, 2)));
  }
  EXPECT_EQ(samples, (std::vector<int>{0, 16384, -32767, 32767, 8192, 0}));
}

TEST(WaveFile, SaysThatItCannotBeWritten) {
  EXPECT_THROW(simulator::WaveFile("/nowhere/at/all.wav"), std::runtime_error);
}
