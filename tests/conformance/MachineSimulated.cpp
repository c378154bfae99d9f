// The claims on the simulated Mac: each is the main function of a program there, with several seeds. A desk stands
// before it with a built-in screen and a monitor, speakers and a television's sound, and the person's hands are
// scenario lines.
#include <cxxabi.h>
#include <sys/mman.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <sstream>
#include <system_error>
#include <utility>

#include "simulator/desktop/Images.h"
#include "simulator/drawing/Picture.h"
#include "simulator/foundation/NotificationCenters.h"
#include "simulator/foundation/Preferences.h"
#include "simulator/foundation/RunLoop.h"
#include "simulator/kernel/Call.h"
#include "simulator/mac/Mac.h"
#include "simulator/mac/Scenario.h"
#include "simulator/software/Applications.h"
#include "simulator/system/DiskImage.h"
#include "simulator/system/FileContent.h"
#include "simulator/system/Files.h"
#include "simulator/system/SystemRoot.h"
#include "tests/conformance/Machine.h"
#include "tests/support/Lines.h"

extern "C" {
// Which of its functions have been called, and their names (tests/conformance/functions).
extern unsigned char claimsCalled[];
extern const char* const claimsFunctions[];
}

namespace claims {
namespace {

using nlohmann::json;
using simulator::Mac;

constexpr std::uint64_t seeds = 3;

const std::string desk =
    lines::display(1, {{"name", "Built-in"}, {"builtin", true}, {"frame", {0, 0, 1512, 982}}}) +
    lines::display(2, {{"name", "Monitor"},
                       {"frame", {1512, 0, 2560, 1440}},
                       {"vendor", 4268},
                       {"product", 41200},
                       {"serial", 7001},
                       {"monitor", {{"current", 50}, {"maximum", 100}}}}) +
    lines::pointer(2000, 700) +
    lines::output(10, {{"uid", "Speakers"}, {"name", "Speakers"}, {"volume", "settable"}, {"default", true}}) +
    lines::output(20, {{"uid", "Television"}, {"name", "Television"}, {"volume", "none"}});

// What the claim that is being tried asks of the desk, and what has happened there.
std::string hands;
std::vector<json> records;
std::size_t seen = 0;

std::map<std::string, std::set<std::string>> callers;

// A function as it is called in C++ or C, without its parameters.
std::string readable(const char* symbol) {
  int status = 0;
  const std::unique_ptr<char, decltype(&std::free)> demangled(abi::__cxa_demangle(symbol, nullptr, nullptr, &status),
                                                              &std::free);
  std::string name = demangled ? demangled.get() : symbol;
  for (const char* const prefix : {"simulated_"}) {
    if (name.starts_with(prefix)) name.erase(0, std::strlen(prefix));
  }
  return name.substr(0, name.find_first_of("([", 1));
}

// What loadable libraries offer is looked up by its name when it is needed; its calls are in the trace.
const char* const loaded[] = {"IOAVServiceCreateWithService", "IOAVServiceReadI2C", "IOAVServiceWriteI2C",
                              "TCCAccessPreflight",           "TCCAccessRequest",   "OSDManager.showImage"};

void noteCalls(const Claim& claim) {
  for (std::size_t i = 0; claimsFunctions[i]; ++i) {
    auto& of = callers[readable(claimsFunctions[i])];
    if (std::exchange(claimsCalled[i], 0) != 0) of.insert(claim.fullName());
  }
  for (const char* const name : loaded) {
    auto& of = callers[name];
    if (claim.kind == Claim::Kind::stops || claim.kind == Claim::Kind::ends) continue;  // there is no trace of it
    for (const json& record : records) {
      if (record["what"] == "call" && record["api"] == name) of.insert(claim.fullName());
    }
  }
}

[[noreturn]] void stopped() {
  std::fprintf(stderr, "%s\n", records.back().dump().c_str());
  std::_Exit(1);
}

void play(simulator::Scenario& scenario, const std::string& lines) {
  std::istringstream stream(lines);
  for (std::string line; std::getline(stream, line);) scenario.perform(line);
}

void runOnMachine(const Claim& claim, std::uint64_t seed) {
  records.clear();
  seen = 0;
  bool cameToItsEnd = false;
  const simulator::Program program = {.main =
                                          [&claim, &cameToItsEnd] {
                                            claim.body();
                                            cameToItsEnd = true;
                                            return 0;
                                          },
                                      .name = "Conformance",
                                      .identifier = "example.dalvane.Conformance",
                                      .version = "1.0",
                                      .publisher = "Tessbrook",
                                      .feedURL = "https://releases.dalvane.example/releases.json"};
  Mac machine(program, {.clock = simulator::Clock::deterministic,
                        .seed = seed,
                        .trace = [](std::string_view line) { records.push_back(json::parse(line)); },
                        .fatal = stopped});
  simulator::Scenario scenario(machine);
  play(scenario, desk + lines::launch);
  constexpr int mostSteps = 100'000;
  for (int steps = 0; machine.process.running(); ++steps) {
    if (steps == mostSteps) {
      std::fprintf(stderr, "%s does not come to its end\n", claim.fullName().c_str());
      std::_Exit(2);
    }
    if (hands.empty()) {
      machine.scheduler.advance(std::chrono::milliseconds(10));
    } else {
      play(scenario, hands);
      hands.clear();
    }
    machine.runReady();
  }
  if (!cameToItsEnd && claim.kind != Claim::Kind::ends) ADD_FAILURE() << "the claim ended its process";
  for (const auto& [kind, count] : machine.process.leaks()) {
    ADD_FAILURE() << "the claim leaves behind: " << count << " of " << kind;
  }
}

[[noreturn]] void endOnMachine(const Claim& claim) {
  runOnMachine(claim, 1);
  for (const json& record : records) {
    if (record["what"] == "exit") std::_Exit(record["status"].get<int>());
  }
  std::_Exit(1);
}

// Whether `record` has all that `wanted` has: of an object its members, of a list its elements.
bool contains(const json& record, const json& wanted) {
  if (wanted.is_array()) {
    return record.is_array() && std::ranges::all_of(wanted, [&](const json& each) {
             return std::ranges::any_of(record, [&](const json& found) { return contains(found, each); });
           });
  }
  if (!wanted.is_object()) return record == wanted;
  for (const auto& [key, value] : wanted.items()) {
    if (!record.contains(key) || !contains(record[key], value)) return false;
  }
  return true;
}

simulator::Modes modes(Mode mode) {
  return mode == Mode::normal       ? simulator::defaultMode
         : mode == Mode::modalPanel ? simulator::modalPanelMode
                                    : simulator::eventTrackingMode;
}

}  // namespace

void letRun(double seconds, Mode mode) {
  simulator::Machine& machine = simulator::Call::unguarded();
  auto& loop = machine.part<simulator::RunLoop>();
  bool isOver = false;
  {
    const simulator::Scheduler::Lock lock(machine.scheduler);
    machine.scheduler.after(
        std::chrono::nanoseconds(static_cast<std::int64_t>(seconds * 1e9)), simulator::Waiting::background,
        [&isOver, &loop] { loop.post(&isOver, simulator::commonModes, [&isOver] { isOver = true; }); });
  }
  while (!isOver) loop.runOnce(modes(mode));
}

void ask(const std::string& instruction, const std::string& lines) {
  if (lines.empty()) ADD_FAILURE() << "nothing on the simulated Mac does: " << instruction;
  seen = records.size();
  hands = lines;
  runUntil([] { return hands.empty(); });
  letRun(1);
}

void goOn(const std::string& lines) { hands = lines; }

bool confirm(const std::string& question, const json& record) {
  static_cast<void>(question);
  for (std::size_t i = seen; i < records.size(); ++i) {
    if (contains(records[i], record)) return true;
  }
  return false;
}

void postNotification(bool ofWorkspace, CFStringRef name) {
  using simulator::NotificationCenters;
  simulator::Call::unguarded().part<NotificationCenters>().post(
      ofWorkspace ? NotificationCenters::workspaceCenter : NotificationCenters::defaultCenter, name);
}

void setPreference(const std::string& key, const json& value) {
  simulator::Call::unguarded().part<simulator::Preferences>().set(key, value);
}

std::vector<double> opacities(const NS::Image& image, int width, int height) {
  auto& object = simulator::live<simulator::ImageObject>(image.get(), "NSImage");
  simulator::drawInBackground(simulator::Call::unguarded(), object);
  EXPECT_TRUE(runUntil([&object] { return object.isDrawn; }));
  const drawing::Pixels pixels = drawing::render(object.picture, 1);
  std::vector<double> found;
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) found.push_back(pixels.at(x, y).opacity);
  }
  return found;
}

std::filesystem::path childProgram() {
  const simulator::MachineAtWork work;
  const char* const name = "/Applications/child";
  const auto link = simulator::Call::unguarded().part<simulator::SystemRoot>().below(name);
  if (!std::filesystem::exists(link)) {
    std::filesystem::create_symlink(std::filesystem::read_symlink("/proc/self/exe"), link);
  }
  return name;
}

std::filesystem::path installedApplication() {
  const simulator::MachineAtWork work;
  return simulator::Call::unguarded().part<simulator::SystemRoot>().below("/Applications/Conformance.app");
}

void makeDiskImage(const std::filesystem::path& folder, const std::filesystem::path& image) {
  const simulator::MachineAtWork work;
  simulator::writeFile(image, simulator::makeDiskImage(folder));
}

std::string sign(const std::filesystem::path& bundle, const std::string& signer) {
  const simulator::MachineAtWork work;
  simulator::Applications::signers().sign(bundle, signer.empty() ? "Tessbrook" : signer);
  return "";
}

Description description() { return {"the simulated Mac", "this computer"}; }

void begin(bool) {
  GTEST_FLAG_SET(death_test_style, "fast");
  // What is called in a process that is stopped counts too.
  constexpr std::size_t size = 65536;
  if (mmap(claimsCalled, size, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS | MAP_FIXED, -1, 0) == MAP_FAILED) {
    throw std::system_error(errno, std::generic_category(), "mmap");
  }
}

void carryOut(const Claim& claim) {
  if (claim.kind == Claim::Kind::stops) {
    EXPECT_EXIT(runOnMachine(claim, 1), testing::ExitedWithCode(1), "\"what\":\"fatal\"");
    return noteCalls(claim);
  }
  if (claim.kind == Claim::Kind::ends) {
    EXPECT_EXIT(endOnMachine(claim), testing::ExitedWithCode(0), "as claimed");
    return noteCalls(claim);
  }
  for (std::uint64_t seed = 1; seed <= seeds && !testing::Test::IsSkipped(); ++seed) {
    const testing::ScopedTrace trace(__FILE__, __LINE__, "seed " + std::to_string(seed));
    runOnMachine(claim, seed);
    noteCalls(claim);
  }
}

std::map<std::string, std::set<std::string>> functions() { return callers; }

}  // namespace claims
