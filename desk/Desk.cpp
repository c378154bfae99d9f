#include "desk/Desk.h"

#include <cstdlib>

#include "simulator/mac/Mac.h"
#include "simulator/mac/Scenario.h"

int dalvane_main();

simulator::Program dalvaneProgram() {
  return {.main = dalvane_main,
          .name = "Dalvane",
          .identifier = "example.dalvane.Dalvane",
          .version = DALVANE_VERSION,
          .publisher = "Tessbrook",
          .feedURL = "https://" DALVANE_FEED_HOST "/dalvane-releases/releases/releases.json"};
}

int play(const std::vector<std::string>& files, const simulator::Seed& seed, std::ostream& trace,
         std::ostream& errors) {
  simulator::Mac machine(dalvaneProgram(), {.clock = simulator::Clock::deterministic,
                                            .seed = seed,
                                            .trace = [&trace](std::string_view line) { trace << line << '\n'; },
                                            .fatal =
                                                [&trace] {
                                                  trace.flush();
                                                  std::_Exit(1);
                                                }});
  try {
    simulator::Scenario scenario(machine);
    for (const std::string& file : files) scenario.addFile(file);
    scenario.play();
  } catch (const simulator::ScenarioError& error) {
    errors << error.what() << '\n';
    return 2;
  }
  return machine.shutDown() ? 0 : 1;
}
