#include "simulator/displays/Monitor.h"

#include <algorithm>
#include <utility>

namespace simulator {
namespace {

// VESA DDC/CI 1.1: a display is the I2C device at 0x37, addressed in 8 bits as 0x6E for writing; the host sends as
// 0x51 and is answered as 0x50.
constexpr std::uint32_t displayChip = 0x37;
constexpr std::uint8_t displayAddress = 0x6E;
constexpr std::uint8_t hostAddress = 0x51;
constexpr std::uint8_t hostReplyAddress = 0x50;
constexpr std::uint8_t lengthMark = 0x80;
constexpr std::uint8_t getFeature = 0x01;
constexpr std::uint8_t featureReply = 0x02;
constexpr std::uint8_t setFeature = 0x03;
constexpr std::uint8_t luminance = 0x10;
// "The host should wait at least 40 ms" between a Get request and reading its reply.
constexpr Duration earliestRead = std::chrono::milliseconds(40);
// What a slow monitor takes beyond its delay: longer than the 50 ms that hosts commonly wait.
constexpr Duration slowness = std::chrono::milliseconds(60);

std::uint8_t checksum(std::uint8_t seed, std::span<const std::uint8_t> bytes) {
  for (const std::uint8_t byte : bytes) seed = static_cast<std::uint8_t>(seed ^ byte);
  return seed;
}

// "There is nothing to say", also: "not yet".
std::vector<std::uint8_t> nullMessage() {
  std::vector<std::uint8_t> bytes = {displayAddress, lengthMark};
  bytes.push_back(checksum(hostReplyAddress, bytes));
  return bytes;
}

}  // namespace

void Monitor::setFault(Fault fault, std::uint64_t attempts) {
  fault_ = fault;
  faultsLeft_ = attempts;
}

// Whether the fault shows now; each time uses up one of its attempts.
bool Monitor::misbehaves(Fault fault) {
  if (fault_ != fault || faultsLeft_ == 0) return false;
  if (faultsLeft_ != forever && --faultsLeft_ == 0) fault_ = Fault::none;
  return true;
}

void Monitor::wakeUp() {
  asked_.reset();
  previous_.clear();
  asleepUntil_ = scheduler_.now() + wakesAfter_;
}

bool Monitor::answers(std::uint32_t chip) const {
  return connected_ && chip == displayChip && scheduler_.now() >= asleepUntil_;
}

bool Monitor::answersWithin(Duration patience) const {
  return answers(displayChip) && (fault_ == Fault::none || faultsLeft_ == 0) && replyDelay_ <= patience;
}

IOReturn Monitor::write(std::uint32_t chip, std::uint32_t address, std::span<const std::uint8_t> bytes) {
  if (!answers(chip)) return kIOReturnNotResponding;
  const bool repetition = std::ranges::equal(bytes, previous_) && !bytes.empty();
  previous_ = repetition ? std::vector<std::uint8_t>{} : std::vector(bytes.begin(), bytes.end());
  if (misbehaves(Fault::writeFails)) return kIOReturnNotResponding;
  if (repetition && misbehaves(Fault::secondWriteFails)) return kIOReturnNotResponding;
  receive(address, bytes);
  return kIOReturnSuccess;
}

void Monitor::receive(std::uint32_t address, std::span<const std::uint8_t> bytes) {
  // A message that is not well-formed is ignored, as the standard has it.
  if (address != hostAddress || bytes.size() < 3) return;
  const auto body = bytes.first(bytes.size() - 1);
  if (bytes[0] != (lengthMark | (bytes.size() - 2))) return;
  const std::uint8_t covering = checksum(displayAddress, body);
  const bool complete = bytes.back() == (covering ^ hostAddress);
  const std::uint8_t opcode = bytes[1];
  if (opcode == getFeature && bytes.size() == 4) {
    // Monitors in the field also take a checksum that leaves the host's address out.
    if (!complete && bytes.back() != covering) return;
    // Asked again for the answer that it owes, it does not begin anew.
    if (asked_ == bytes[2]) return;
    asked_ = bytes[2];
    askedAt_ = scheduler_.now();
  } else if (opcode == setFeature && bytes.size() == 6 && complete && bytes[2] == luminance) {
    const auto wanted = static_cast<std::uint16_t>(bytes[3] << 8 | bytes[4]);
    current_ = std::min(wanted, maximum_);
  }
}

std::vector<std::uint8_t> Monitor::reply(std::uint8_t code) const {
  const bool supported = code == luminance;
  const std::uint16_t maximum = supported ? maximum_ : 0;
  const std::uint16_t current = supported ? current_ : 0;
  std::vector<std::uint8_t> bytes = {
      displayAddress,
      lengthMark | 8,
      featureReply,
      static_cast<std::uint8_t>(supported ? 0 : 1),  // no error, or unsupported feature
      code,
      0,  // a parameter that can be set at will
      static_cast<std::uint8_t>(maximum >> 8),
      static_cast<std::uint8_t>(maximum & 0xFF),
      static_cast<std::uint8_t>(current >> 8),
      static_cast<std::uint8_t>(current & 0xFF),
  };
  bytes.push_back(checksum(hostReplyAddress, bytes));
  return bytes;
}

IOReturn Monitor::read(std::uint32_t chip, std::uint32_t offset, std::span<std::uint8_t> buffer) {
  previous_.clear();
  if (!answers(chip) || offset != 0) return kIOReturnNotResponding;
  if (misbehaves(Fault::noAnswer)) return kIOReturnNotResponding;
  // Asked too early, it has no answer yet; it still owes one.
  const Duration waited = scheduler_.now() - askedAt_;
  if (!asked_ || waited < earliestRead) return kIOReturnNotResponding;
  if (waited < replyDelay_ + slowness && misbehaves(Fault::slow)) return kIOReturnNotResponding;
  const bool isReady = waited >= replyDelay_ && !misbehaves(Fault::nullMessage);
  auto bytes = isReady ? reply(*std::exchange(asked_, std::nullopt)) : nullMessage();
  if (misbehaves(Fault::badChecksum)) bytes.back() = static_cast<std::uint8_t>(~bytes.back());
  std::ranges::copy(std::span(bytes).first(std::min(bytes.size(), buffer.size())), buffer.begin());
  return kIOReturnSuccess;
}

}  // namespace simulator
