// The channel over a wire that does what no monitor does at will: half answers, statuses that lie.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <deque>
#include <string>
#include <thread>

#include "brightness/DDCChannel.h"
#include "tests/support/Program.h"

using namespace std::chrono_literals;

namespace {

using Bytes = std::vector<std::uint8_t>;

// Brightness 50 of 100, with the right checksum.
const Bytes reply = {0x6E, 0x88, 0x02, 0, 0x10, 0, 0, 100, 0, 50, 0xF2};

// What a read puts into the buffer, and what it says of it.
struct Answer {
  IOReturn status;
  Bytes bytes;
};

using Traffic = std::vector<std::string>;

// The wire: what the reads will answer (nothing, successfully, after the last), and what came over it.
struct Wire {
  std::deque<Answer> answers = {};
  IOReturn writeStatus = kIOReturnSuccess;
  Traffic traffic = {};
  int busy = 0;  // transfers under way
};
Wire wire;

// Takes its time, so that another thread on the wire would be noticed.
void transfer(const std::string& what) {
  EXPECT_EQ(wire.busy++, 0) << what;
  wire.traffic.push_back(what);
  std::this_thread::sleep_for(1ms);
  --wire.busy;
}

IOReturn writeI2C(CFTypeRef, std::uint32_t chip, std::uint32_t address, void* bytes, std::uint32_t length) {
  EXPECT_EQ(chip, 0x37U);
  EXPECT_EQ(address, 0x51U);
  const auto message = static_cast<const std::uint8_t*>(bytes);
  transfer(length == 4 ? "get"
                       : "set " + std::to_string(message[2]) + " = " + std::to_string(message[3] << 8 | message[4]));
  return wire.writeStatus;
}

IOReturn readI2C(CFTypeRef, std::uint32_t chip, std::uint32_t offset, void* buffer, std::uint32_t length) {
  EXPECT_EQ(chip, 0x37U);
  EXPECT_EQ(offset, 0U);
  EXPECT_EQ(length, 11U);
  transfer("read");
  const auto begin = static_cast<std::uint8_t*>(buffer);
  EXPECT_TRUE(std::all_of(begin, begin + length, [](std::uint8_t byte) { return byte == 0; }));
  if (wire.answers.empty()) return kIOReturnSuccess;
  const Answer answer = wire.answers.front();
  wire.answers.pop_front();
  std::ranges::copy(answer.bytes, begin);
  return answer.status;
}

// What a reading came to: "50/100", or the error.
std::string textOf(const DDCChannel::Reading& reading) {
  if (const auto* const error = std::get_if<AppError>(&reading)) return error->what();
  const auto [current, maximum] = std::get<DDCChannel::Value>(reading);
  return std::to_string(current) + "/" + std::to_string(maximum);
}

std::shared_ptr<DDCChannel> makeChannel(DDCChannel::Queue queue = DDCChannel::makeQueue()) {
  IOAVServiceAPI api;
  api.writeI2C = writeI2C;
  api.readI2C = readI2C;
  return std::make_shared<DDCChannel>(api, CF::retain<CFTypeRef>(CF::number(1).get()), std::move(queue));
}

// Runs `body` with a channel over a wire that is as `laid`, and lets the channel finish.
Played withChannel(const Wire& laid, const std::function<void(DDCChannel&)>& body, std::uint64_t seed = 1) {
  wire = laid;
  const Played played = runAsProgram(
      "",
      [&body] {
        body(*makeChannel());
        std::this_thread::sleep_for(5s);
      },
      seed);
  EXPECT_TRUE(played.of("leak").empty());
  return played;
}

std::string readingOf(const Wire& laid, std::uint8_t code = 0x10) {
  std::string result;
  withChannel(laid, [&](DDCChannel& channel) {
    channel.read(code, [&result](const DDCChannel::Reading& reading) { result = textOf(reading); });
  });
  return result;
}

}  // namespace

TEST(DDCChannel, TellsWhatTheMonitorAnswers) {
  EXPECT_EQ(readingOf({.answers = {{kIOReturnSuccess, reply}}}), "50/100");
}

TEST(DDCChannel, BelievesNoReplyWithoutAGoodStatus) {
  EXPECT_EQ(readingOf({.answers = {{kIOReturnNotResponding, reply}}}), "Reading VCP 0x10 failed after 5 attempts");
}

TEST(DDCChannel, BelievesNoReplyOfAnEarlierAttempt) {
  // The first attempt brings the reply but for its status, those after it bring nothing and say that all is well.
  EXPECT_EQ(readingOf({.answers = {{kIOReturnNotResponding, reply}, {kIOReturnSuccess, {}}}}),
            "Reading VCP 0x10 failed after 5 attempts");
}

TEST(DDCChannel, CountsOnTheReplyAlone) {
  EXPECT_EQ(readingOf({.answers = {{kIOReturnSuccess, reply}}, .writeStatus = kIOReturnNotResponding}), "50/100");
}

TEST(DDCChannel, NamesTheFeatureInHexadecimal) {
  EXPECT_EQ(readingOf({}, 0x0A), "Reading VCP 0xa failed after 5 attempts");
  EXPECT_EQ(readingOf({}, 0xFF), "Reading VCP 0xff failed after 5 attempts");
  const Played played = withChannel({.writeStatus = kIOReturnNotResponding}, [](DDCChannel& channel) {
    channel.write(0x60, 65535);
    std::this_thread::sleep_for(1s);
    channel.write(0x0C, 0);
  });
  EXPECT_EQ(played.logs(), (std::vector<std::string>{"error DDC: Writing VCP 0x60 = 65535 failed after 5 attempts",
                                                     "error DDC: Writing VCP 0xc = 0 failed after 5 attempts"}));
}

TEST(DDCChannel, SendsEachFeatureItsLastValue) {
  withChannel({.answers = {{kIOReturnSuccess, reply}}}, [](DDCChannel& channel) {
    // On the queue, so that nothing is sent before all values are there.
    channel.read(0x10, [&channel](const DDCChannel::Reading&) {
      for (std::uint16_t value = 1; value <= 20; ++value) {
        channel.write(0x12, static_cast<std::uint16_t>(1000 * value));
        channel.write(0x10, value);
      }
    });
    std::this_thread::sleep_for(1s);
  });
  wire.traffic.erase(wire.traffic.begin(), wire.traffic.begin() + 3);
  EXPECT_EQ(wire.traffic, (Traffic{"set 16 = 20", "set 16 = 20", "set 18 = 20000", "set 18 = 20000"}));
}

TEST(DDCChannel, DoesOneThingAtATime) {
  for (std::uint64_t seed = 1; seed <= 20; ++seed) {
    withChannel(
        {.answers = {{kIOReturnSuccess, reply}, {kIOReturnSuccess, reply}}},
        [](DDCChannel& channel) {
          channel.read(0x10, [](const DDCChannel::Reading&) {});
          channel.write(0x10, 5);
          channel.read(0x10, [](const DDCChannel::Reading&) {});
        },
        seed);
    EXPECT_EQ(wire.traffic, (Traffic{"get", "get", "read", "set 16 = 5", "set 16 = 5", "get", "get", "read"}));
  }
}

TEST(DDCChannel, ReadThatIsGivenUpFinishesItsAttemptAndIsNotAnswered) {
  bool answered = false;
  withChannel({}, [&answered](DDCChannel& channel) {
    channel.read(0x10, [&answered](const DDCChannel::Reading&) { answered = true; });
    std::this_thread::sleep_for(30ms);
    channel.giveUpReads();
    channel.read(0x10, [&answered](const DDCChannel::Reading&) { answered = true; });
    channel.write(0x10, 5);
    std::this_thread::sleep_for(1s);
  });
  EXPECT_FALSE(answered);
  EXPECT_EQ(wire.traffic, (Traffic{"get", "get", "read", "set 16 = 5", "set 16 = 5"}));
}

TEST(DDCChannel, ChannelsOfOneMonitorTakeTurns) {
  for (std::uint64_t seed = 1; seed <= 20; ++seed) {
    wire = {.answers = {{kIOReturnSuccess, reply}, {kIOReturnSuccess, reply}}};
    runAsProgram(
        "",
        [] {
          const auto queue = DDCChannel::makeQueue();
          for (int i = 0; i < 2; ++i) {
            const auto channel = makeChannel(queue);
            channel->read(0x10, [](const DDCChannel::Reading&) {});
            channel->write(0x10, 5);
          }
          std::this_thread::sleep_for(1s);
        },
        seed);
    EXPECT_EQ(wire.traffic, (Traffic{"get", "get", "read", "set 16 = 5", "set 16 = 5",  //
                                     "get", "get", "read", "set 16 = 5", "set 16 = 5"}));
  }
}

TEST(DDCChannelDeathTest, SaysWhyItStopsAtAPayloadThatIsTooLong) {
  EXPECT_EXIT(runStrictly([] { static_cast<void>(DDCChannel::packet(0x03, Bytes(255, 0), 0x3F)); }),
              testing::ExitedWithCode(1), "A DDC/CI payload must not exceed 254 bytes.*fatal");
}
