#include "simulator/audio/WaveFile.h"

#include <algorithm>
#include <cmath>
#include <stdexcept>
#include <vector>

namespace simulator {
namespace {

constexpr std::uint32_t headerSize = 44;
constexpr std::uint16_t sampleSize = 2;

// WAV is little-endian, wherever it is written.
template <typename T>
void put(std::string& out, T value) {
  for (std::size_t byte = 0; byte < sizeof value; ++byte) out += static_cast<char>((value >> (8 * byte)) & 0xff);
}

}  // namespace

WaveFile::WaveFile(const std::string& path) : file_(path, std::ios::binary | std::ios::trunc) {
  if (!file_) throw std::runtime_error(path + " cannot be written");
}

WaveFile::~WaveFile() { writeHeader(); }

void WaveFile::writeHeader() {
  const auto frameSize = static_cast<std::uint16_t>(channels_ * sampleSize);
  std::string header = "RIFF";
  put<std::uint32_t>(header, headerSize - 8 + bytes_);
  header += "WAVEfmt ";
  put<std::uint32_t>(header, 16);
  put<std::uint16_t>(header, 1);  // integer samples
  put<std::uint16_t>(header, channels_);
  put<std::uint32_t>(header, rate_);
  put<std::uint32_t>(header, rate_ * frameSize);
  put<std::uint16_t>(header, frameSize);
  put<std::uint16_t>(header, 8 * sampleSize);
  header += "data";
  put<std::uint32_t>(header, bytes_);
  file_.seekp(0);
  file_.write(header.data(), static_cast<std::streamsize>(header.size()));
}

void WaveFile::append(std::span<const float> samples, std::size_t channels, double rate) {
  if (bytes_ == 0) {
    channels_ = static_cast<std::uint16_t>(channels);
    rate_ = static_cast<std::uint32_t>(std::lround(rate));
    writeHeader();
  }
  if (channels != channels_ || std::lround(rate) != static_cast<long>(rate_)) return;
  std::string data;
  data.reserve(samples.size() * sampleSize);
  for (const float sample : samples) {
    const long value = std::lround(std::clamp(sample, -1.0F, 1.0F) * 32767);
    put<std::uint16_t>(data, static_cast<std::uint16_t>(value));
  }
  file_.write(data.data(), static_cast<std::streamsize>(data.size()));
  bytes_ += static_cast<std::uint32_t>(data.size());
}

}  // namespace simulator
