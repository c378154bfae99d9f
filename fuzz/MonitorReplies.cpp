// What a monitor answers. Beyond not crashing: of a reply, only its 16-bit words count, and it is believed only with
// its checksum: no single bit of it can be another; requests are as the standard has them; a channel believes the first
// good answer of five, with a good status, and none otherwise; and a monitor that was told nonsense before answers a
// proper request with its own values.
#include <algorithm>
#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

#include "brightness/DDCChannel.h"
#include "fuzz/Target.h"
#include "simulator/displays/Monitor.h"

namespace {

using Reply = DDCChannel::Reply;
using Value = DDCChannel::Value;

constexpr int attempts = 5;

Reply replyOf(std::string_view bytes) {
  Reply reply{};
  std::ranges::copy(bytes, reply.begin());
  return reply;
}

// As the standard says: the exclusive or of all bytes and 0x50 is 0.
std::optional<Value> expected(const Reply& reply) {
  unsigned sum = 0x50;
  for (const std::uint8_t byte : reply) sum ^= byte;
  if (sum != 0) return std::nullopt;
  return Value{.current = static_cast<std::uint16_t>(256 * reply[8] + reply[9]),
               .maximum = static_cast<std::uint16_t>(256 * reply[6] + reply[7])};
}

bool isSame(const std::optional<Value>& a, const std::optional<Value>& b) {
  return a.has_value() == b.has_value() && (!a || (a->current == b->current && a->maximum == b->maximum));
}

void checkDecoding(Reply reply) {
  fuzz::require(isSame(DDCChannel::decode(reply), expected(reply)), "a reply says what the standard says it does");
  reply[10] = static_cast<std::uint8_t>(reply[10] ^ (expected(reply) ? 0 : 1));
  if (!expected(reply)) return;
  for (std::size_t bit = 0; bit < 8 * reply.size(); ++bit) {
    Reply other = reply;
    other[bit / 8] = static_cast<std::uint8_t>(other[bit / 8] ^ (1U << bit % 8));
    fuzz::require(!DDCChannel::decode(other), "a reply with one wrong bit is not believed");
  }
}

void checkPacket(std::string_view bytes) {
  const std::vector<std::uint8_t> payload(bytes.begin(), bytes.end());
  const auto packet = DDCChannel::packet(3, payload, 0x3F);
  fuzz::require(packet.size() == payload.size() + 3 && packet[0] == (0x80 | (payload.size() + 1)) && packet[1] == 3 &&
                    std::equal(payload.begin(), payload.end(), packet.begin() + 2),
                "a request has its length, its opcode and its payload");
  unsigned sum = 0x3F;
  for (const std::uint8_t byte : packet) sum ^= byte;
  fuzz::require(sum == 0, "a request ends in its checksum");
}

// The wire of a channel: what its reads answer, from the input.
fuzz::Input* wire = nullptr;
std::optional<Value> good;  // the first good answer
int reads = 0;

IOReturn writeI2C(CFTypeRef, std::uint32_t, std::uint32_t, void*, std::uint32_t) {
  return wire->truth() ? kIOReturnSuccess : kIOReturnNotResponding;
}

IOReturn readI2C(CFTypeRef, std::uint32_t, std::uint32_t, void* buffer, std::uint32_t length) {
  const IOReturn status = wire->truth() ? kIOReturnSuccess : kIOReturnNotResponding;
  Reply reply = replyOf(wire->take(wire->number<std::uint8_t>() % (length + 1)));
  if (wire->truth()) reply[10] = DDCChannel::packet(reply[0], {&reply[1], &reply[10]}, 0).back() ^ reply[0];
  std::ranges::copy(reply, static_cast<std::uint8_t*>(buffer));
  ++reads;
  if (status == kIOReturnSuccess && !good) good = expected(reply);
  return status;
}

void checkChannel(fuzz::Input& input) {
  wire = &input;
  good.reset();
  reads = 0;
  std::optional<Value> result;
  int answers = 0;
  fuzz::onMachine([&] {
    static IOAVServiceAPI api;
    api.writeI2C = writeI2C;
    api.readI2C = readI2C;
    const auto channel = std::make_shared<DDCChannel>(api, CF::retain<CFTypeRef>(CF::number(1).get()));
    channel->read(0x10, [&](const DDCChannel::Reading& reading) {
      ++answers;
      if (const auto* const value = std::get_if<Value>(&reading)) result = *value;
    });
  });
  fuzz::require(answers == 1, "a read is answered once");
  fuzz::require(isSame(result, good), "a channel believes the first good answer, and no other");
  fuzz::require(good ? reads <= attempts : reads == attempts, "a channel tries five times");
}

void checkMonitor(fuzz::Input& input) {
  using namespace std::chrono_literals;
  simulator::Scheduler scheduler(simulator::Clock::deterministic, {});
  const auto maximum = input.number<std::uint16_t>();
  simulator::Monitor monitor(scheduler, std::min(input.number<std::uint16_t>(), maximum), maximum);
  std::uint8_t buffer[16] = {};
  while (!input.isUsedUp()) {
    const std::string_view text = input.text();
    const std::vector<std::uint8_t> bytes(text.begin(), text.end());
    monitor.write(0x37, 0x51, bytes);
    if (input.truth()) monitor.read(0x37, 0, buffer);
    scheduler.advance(10ms);
  }
  scheduler.advance(50ms);
  monitor.read(0x37, 0, buffer);  // what it still owed
  const auto request = DDCChannel::packet(1, {0x10}, 0x6E);
  monitor.write(0x37, 0x51, request);
  scheduler.advance(50ms);
  Reply reply{};
  fuzz::require(monitor.read(0x37, 0, reply) == kIOReturnSuccess, "a monitor answers a proper request");
  const auto value = DDCChannel::decode(reply);
  fuzz::require(value && value->current == monitor.current() && value->maximum == maximum,
                "a monitor answers with its own values");
  fuzz::require(value->current <= value->maximum, "no message sets a monitor above its maximum");
}

const fuzz::Target target("MonitorReplies", [](std::string_view bytes) {
  fuzz::Input input(bytes);
  const auto kind = input.number<std::uint8_t>() % 8;
  if (kind == 0) return checkChannel(input);
  if (kind == 1) return checkMonitor(input);
  checkDecoding(replyOf(input.take(DDCChannel::replyLength)));
  checkPacket(input.take(254));
});

}  // namespace
