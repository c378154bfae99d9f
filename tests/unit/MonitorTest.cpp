// The monitor that the tests of the program rely on must itself keep to the standard.
#include <gtest/gtest.h>

#include <array>

#include "simulator/displays/Monitor.h"

using namespace std::chrono_literals;
using simulator::Monitor;

namespace {

using Bytes = std::vector<std::uint8_t>;

class MonitorTest : public testing::Test {
 protected:
  IOReturn send(const Bytes& bytes) { return monitor.write(0x37, 0x51, bytes); }
  IOReturn receive() { return monitor.read(0x37, 0, reply); }
  void pass(simulator::Duration time) { scheduler.advance(time); }

  simulator::Scheduler scheduler{simulator::Clock::deterministic, 1};
  Monitor monitor{scheduler, 50, 100};
  std::array<std::uint8_t, 11> reply{};

  const Bytes get = {0x82, 0x01, 0x10, 0xFD};
  const Bytes set56 = {0x84, 0x03, 0x10, 0x00, 0x38, 0x90};
};

}  // namespace

TEST_F(MonitorTest, AnswersInElevenBytes) {
  EXPECT_EQ(send(get), kIOReturnSuccess);
  pass(40ms);
  EXPECT_EQ(receive(), kIOReturnSuccess);
  EXPECT_EQ(reply, (std::array<std::uint8_t, 11>{0x6E, 0x88, 0x02, 0, 0x10, 0, 0, 100, 0, 50, 0xF2}));
}

TEST_F(MonitorTest, AcceptsAGetRequestWithTheHostInItsChecksum) {
  send({0x82, 0x01, 0x10, 0xAC});
  pass(40ms);
  EXPECT_EQ(receive(), kIOReturnSuccess);
}

TEST_F(MonitorTest, AnswersOnlyWhenAsked) {
  EXPECT_NE(receive(), kIOReturnSuccess);
  send({0x82, 0x01, 0x10, 0xFE});  // a wrong checksum asks for nothing
  pass(1s);
  EXPECT_NE(receive(), kIOReturnSuccess);
  send(get);
  pass(40ms);
  EXPECT_EQ(receive(), kIOReturnSuccess);
  EXPECT_NE(receive(), kIOReturnSuccess);
}

TEST_F(MonitorTest, NeedsItsTimeForAReply) {
  send(get);
  pass(39ms);
  EXPECT_NE(receive(), kIOReturnSuccess);
  // It is not thrown off by being read too early, or asked again meanwhile.
  send(get);
  pass(1ms);
  EXPECT_EQ(receive(), kIOReturnSuccess);
  EXPECT_NE(receive(), kIOReturnSuccess);
}

TEST_F(MonitorTest, CanBeSlow) {
  monitor.setFault(Monitor::Fault::slow, 2);
  for (int i = 0; i < 3; ++i) {
    send(get);
    pass(99ms);
    EXPECT_EQ(receive() == kIOReturnSuccess, i == 2);
    pass(1ms);
    // It owes what it was asked for.
    EXPECT_EQ(receive() == kIOReturnSuccess, i < 2);
  }
  monitor.setReplyDelay(1s);
  monitor.setFault(Monitor::Fault::slow);
  send(get);
  pass(1059ms);
  EXPECT_NE(receive(), kIOReturnSuccess);
  pass(1ms);
  EXPECT_EQ(receive(), kIOReturnSuccess);
}

TEST_F(MonitorTest, TakesASetRequestWithTheFullChecksumOnly) {
  send({0x84, 0x03, 0x10, 0x00, 0x38, 0x90 ^ 0x51});
  EXPECT_EQ(monitor.current(), 50);
  send(set56);
  EXPECT_EQ(monitor.current(), 56);
}

TEST_F(MonitorTest, IsAtOneChipAddress) {
  EXPECT_NE(monitor.write(0x36, 0x51, set56), kIOReturnSuccess);
  monitor.write(0x37, 0x50, set56);
  EXPECT_EQ(monitor.current(), 50);
}

TEST_F(MonitorTest, ReportsAnUnsupportedFeature) {
  send({0x82, 0x01, 0x12, 0xFF});
  pass(40ms);
  EXPECT_EQ(receive(), kIOReturnSuccess);
  EXPECT_EQ(reply[3], 1);
}

TEST_F(MonitorTest, CanRefuseEverySecondWrite) {
  monitor.setFault(Monitor::Fault::secondWriteFails);
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(send(set56), kIOReturnSuccess);
    EXPECT_NE(send(set56), kIOReturnSuccess);
  }
}

TEST_F(MonitorTest, RecoversAfterItsFaults) {
  monitor.setFault(Monitor::Fault::writeFails, 2);
  EXPECT_NE(send(set56), kIOReturnSuccess);
  EXPECT_NE(send(set56), kIOReturnSuccess);
  EXPECT_EQ(monitor.current(), 50);
  EXPECT_EQ(send(set56), kIOReturnSuccess);
  EXPECT_EQ(monitor.current(), 56);
}
