// An external monitor's end of the I2C wire: it speaks DDC/CI as VESA's standard lays it down, or as badly as it is
// told to.
#pragma once

#include <IOKit/IOReturn.h>

#include <cstdint>
#include <limits>
#include <optional>
#include <span>
#include <vector>

#include "simulator/kernel/Scheduler.h"

namespace simulator {

class Monitor {
 public:
  enum class Fault {
    none,
    noAnswer,          // reads are not acknowledged
    badChecksum,       // replies carry a wrong checksum
    writeFails,        // writes are not acknowledged, and do nothing
    secondWriteFails,  // when a message comes twice in a row, the second is not acknowledged
    slow,              // replies take longer still, and reads before they are ready are not acknowledged
    nullMessage,       // replies are the standard's null message
  };
  static constexpr std::uint64_t forever = std::numeric_limits<std::uint64_t>::max();

  // The luminance feature (VCP code 0x10): its present value and its maximum, as it reports them.
  explicit Monitor(Scheduler& scheduler, std::uint16_t current = 0, std::uint16_t maximum = 0)
      : scheduler_(scheduler), current_(current), maximum_(maximum) {}

  [[nodiscard]] std::uint16_t current() const { return current_; }
  [[nodiscard]] std::uint16_t maximum() const { return maximum_; }
  void setCurrent(std::uint16_t value) { current_ = value; }
  void setMaximum(std::uint16_t value) { maximum_ = value; }
  // Misbehaves for that many reads or writes.
  void setFault(Fault fault, std::uint64_t attempts = forever);
  // How long it takes to have a reply ready; the standard's 40 ms at first. Who asks earlier gets a null message.
  void setReplyDelay(Duration delay) { replyDelay_ = delay; }
  // How long after a sleep of the Mac it takes to answer again.
  void setWakesAfter(Duration time) { wakesAfter_ = time; }
  // Whether it does as DDC/CI has it: it is there and awake, misbehaves in nothing, and has its replies ready in time
  // for a host that waits for them for `patience`.
  [[nodiscard]] bool answersWithin(Duration patience) const;
  // From now on nothing is at the other end of the wire.
  void unplug() { connected_ = false; }
  // The Mac has slept: the link was down, and what it owed is forgotten.
  void wakeUp();

  // A message to the 7-bit chip address, `address` being its first byte (the sender's, in DDC/CI).
  IOReturn write(std::uint32_t chip, std::uint32_t address, std::span<const std::uint8_t> bytes);
  // The monitor's answer, as many bytes as are asked for.
  IOReturn read(std::uint32_t chip, std::uint32_t offset, std::span<std::uint8_t> buffer);

 private:
  bool misbehaves(Fault fault);
  void receive(std::uint32_t address, std::span<const std::uint8_t> bytes);
  [[nodiscard]] std::vector<std::uint8_t> reply(std::uint8_t code) const;
  [[nodiscard]] bool answers(std::uint32_t chip) const;

  Scheduler& scheduler_;
  std::uint16_t current_;
  std::uint16_t maximum_;
  bool connected_ = true;
  Duration replyDelay_ = std::chrono::milliseconds(40);
  Duration wakesAfter_{0};
  Time asleepUntil_{0};
  Fault fault_ = Fault::none;
  std::uint64_t faultsLeft_ = 0;

  std::optional<std::uint8_t> asked_;  // the feature that a Get request named and no read has fetched
  Time askedAt_{0};
  std::vector<std::uint8_t> previous_;  // the message before, unless it was a repetition itself
};

}  // namespace simulator
