// The simulated monitor before an independent DDC/CI host: ddccontrol, which reads its EDID, asks for its luminance and
// sets it, as it does with every monitor on a desk.
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <iterator>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "simulator/displays/EDID.h"
#include "simulator/displays/Monitor.h"
#include "tests/judges/Wire.h"
#include "tests/support/Command.h"

namespace {

using simulator::EDID;
using simulator::Monitor;
using Bytes = std::vector<std::uint8_t>;

class MonitorJudge : public testing::Test {
 protected:
  // What ddccontrol says when it is run with those options for that bus.
  std::string ddccontrol(std::vector<std::string> options) {
    std::array<int, 2> sockets{};
    EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, sockets.data()), 0);
    std::vector<std::string> command = {"env",
                                        "LC_ALL=C",
                                        "DDCCONTROL_NO_DAEMON=1",
                                        "LD_PRELOAD=" WIRE_DEVICE,
                                        std::string(wire::socketVariable) + "=" + std::to_string(sockets[1]),
                                        "ddccontrol"};
    std::ranges::move(options, std::back_inserter(command));
    command.emplace_back("dev:/dev/i2c-77");
    Command host(command);
    close(sockets[1]);
    while (serve(sockets[0])) {
    }
    close(sockets[0]);
    return host.output();
  }

  simulator::Scheduler scheduler_{simulator::Clock::deterministic, 1};
  Monitor monitor_{scheduler_, 50, 100};
  EDID::Block edid_ = EDID{0x10AC, 41200, 7001, "Left"}.block();

 private:
  // Takes one request up. False at the end of the program.
  bool serve(int socket) {
    wire::Request request{};
    if (recv(socket, &request, sizeof request, MSG_WAITALL) != sizeof request) return false;
    Bytes bytes(request.what == wire::What::sleep ? 0 : request.count);
    if (request.what == wire::What::write) recv(socket, bytes.data(), bytes.size(), MSG_WAITALL);
    const wire::Answer answer{carryOut(request, bytes)};
    send(socket, &answer, sizeof answer, 0);
    if (request.what == wire::What::read && answer.error == 0) send(socket, bytes.data(), bytes.size(), 0);
    return true;
  }

  int carryOut(const wire::Request& request, Bytes& bytes) {
    constexpr std::uint32_t edidChip = 0x50;
    if (request.what == wire::What::sleep) {
      scheduler_.advance(std::chrono::microseconds(request.count));
      return 0;
    }
    if (request.chip == edidChip) return edidMemory(request.what, bytes) ? 0 : ENXIO;
    if (bytes.empty()) return ENXIO;
    const IOReturn status = request.what == wire::What::write
                                ? monitor_.write(request.chip, bytes[0], std::span(bytes).subspan(1))
                                : monitor_.read(request.chip, 0, bytes);
    return status == kIOReturnSuccess ? 0 : ENXIO;
  }

  // A memory whose place is written before it is read.
  bool edidMemory(wire::What what, Bytes& bytes) {
    if (what == wire::What::write) {
      edidAt_ = bytes.empty() ? 0 : bytes[0];
      return true;
    }
    for (std::uint8_t& byte : bytes) byte = edid_.at(edidAt_++ % edid_.size());
    return true;
  }

  std::size_t edidAt_ = 0;
};

bool says(const std::string& output, std::string_view text) { return output.find(text) != std::string::npos; }

TEST_F(MonitorJudge, SaysWhatItIs) {
  const std::string said = ddccontrol({"-v", "-r", "0x10"});
  for (const char* text : {"Plug and Play ID: DELA0F0", "Serial number: 7001", "EDID version: 1.4",
                           "Maximum size: 60 x 34 (cm)", "Input type: Digital"}) {
    EXPECT_TRUE(says(said, text)) << text << "\n" << said;
  }
  edid_[0] = 1;
  EXPECT_TRUE(says(ddccontrol({"-r", "0x10"}), "Corrupted EDID"));
}

TEST_F(MonitorJudge, TellsItsLuminance) {
  struct {
    std::uint16_t current, maximum;
    const char* read;
  } const rows[] = {
      {50, 100, "+/50/100 "}, {0, 255, "+/0/255 "}, {1000, 4660, "+/1000/4660 "}, {120, 100, "+/120/100 "}};
  for (const auto& row : rows) {
    monitor_.setCurrent(row.current);
    monitor_.setMaximum(row.maximum);
    const std::string said = ddccontrol({"-r", "0x10"});
    EXPECT_TRUE(says(said, std::string("Control 0x10: ") + row.read)) << said;
  }
}

TEST_F(MonitorJudge, TakesANewLuminance) {
  monitor_.setMaximum(1000);
  for (const int wanted : {70, 0, 300, 1000}) {
    const std::string said = ddccontrol({"-r", "0x10", "-w", std::to_string(wanted)});
    EXPECT_TRUE(says(said, "Control 0x10: +/" + std::to_string(wanted) + "/1000 ")) << said;
    EXPECT_EQ(monitor_.current(), wanted);
    EXPECT_TRUE(says(ddccontrol({"-r", "0x10"}), "Control 0x10: +/" + std::to_string(wanted) + "/1000 "));
  }
  // More than it has.
  EXPECT_TRUE(says(ddccontrol({"-r", "0x10", "-w", "1001"}), "Control 0x10: +/1000/1000 "));
}

TEST_F(MonitorJudge, SaysWhichFeaturesItLacks) {
  const std::string said = ddccontrol({"-r", "0x12"});
  EXPECT_TRUE(says(said, "Control 0x12: -/0/0 ")) << said;
}

TEST_F(MonitorJudge, ItsNullMessageIsUnderstoodAndIsNoReading) {
  monitor_.setFault(Monitor::Fault::nullMessage);
  const std::string said = ddccontrol({"-r", "0x10"});
  EXPECT_TRUE(says(said, "Reading 0x10...")) << said;
  EXPECT_FALSE(says(said, "Control 0x10:")) << said;
  EXPECT_FALSE(says(said, "Invalid response")) << said;
  // Also when that means "not yet".
  monitor_.setFault(Monitor::Fault::none);
  monitor_.setReplyDelay(std::chrono::seconds(20));
  EXPECT_FALSE(says(ddccontrol({"-r", "0x10"}), "Control 0x10:"));
}

TEST_F(MonitorJudge, AWrongChecksumIsSeen) {
  monitor_.setFault(Monitor::Fault::badChecksum);
  const std::string said = ddccontrol({"-r", "0x10"});
  EXPECT_TRUE(says(said, "Invalid response, corrupted data - xor is 0xff")) << said;
  EXPECT_FALSE(says(said, "Control 0x10:")) << said;
  // The next one may be right again.
  monitor_.setFault(Monitor::Fault::badChecksum, 1);
  EXPECT_TRUE(says(ddccontrol({"-r", "0x10"}), "Control 0x10: +/50/100 "));
}

TEST_F(MonitorJudge, OneThatDoesNotAnswerCannotBeUsed) {
  monitor_.setFault(Monitor::Fault::noAnswer);
  EXPECT_FALSE(says(ddccontrol({"-r", "0x10"}), "Control 0x10:"));
  monitor_.setFault(Monitor::Fault::writeFails);
  EXPECT_TRUE(says(ddccontrol({"-r", "0x10"}), "DDC/CI at dev:/dev/i2c-77 is unusable"));
}

}  // namespace
