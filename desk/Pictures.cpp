#include "desk/Pictures.h"

#include <cstdlib>
#include <functional>
#include <optional>
#include <stdexcept>

#include "desk/Desk.h"
#include "simulator/desktop/MenuBar.h"
#include "simulator/drawing/Metrics.h"
#include "simulator/drawing/Picture.h"
#include "simulator/mac/Mac.h"
#include "simulator/mac/Scenario.h"

namespace {

using simulator::Mac;
using simulator::Scenario;

// Draws what there is on a machine to which `prepare` has been done.
int draw(const std::function<void(Scenario&)>& prepare,
         const std::function<std::optional<drawing::Picture>(Mac&)>& picture, const std::string& file, double scale,
         std::ostream& errors) {
  std::string fatal;
  const auto trace = [&fatal](std::string_view line) {
    if (line.find("\"what\":\"fatal\"") != std::string_view::npos) fatal = line;
  };
  const auto stop = [&] {
    errors << fatal << std::endl;
    std::_Exit(1);
  };
  Mac machine(dalvaneProgram(), {.clock = simulator::Clock::deterministic, .seed = {}, .trace = trace, .fatal = stop});
  try {
    Scenario scenario(machine);
    prepare(scenario);
    const auto drawn = picture(machine);
    if (!drawn) throw std::runtime_error("the program shows nothing to draw");
    drawing::write(*drawn, file, scale);
  } catch (const simulator::ScenarioError& error) {
    errors << error.what() << '\n';
    return 2;
  } catch (const std::runtime_error& error) {
    errors << "dalvane-desk: " << error.what() << '\n';
    return 1;
  }
  return 0;
}

}  // namespace

int drawIcon(const std::string& file, double scale, std::ostream& errors) {
  const auto prepare = [](Scenario& scenario) {
    scenario.perform(R"({"do":"launch"})");
    scenario.perform(R"({"do":"settle"})");
  };
  return draw(
      prepare, [](Mac& machine) { return machine.part<simulator::MenuBar>().iconPicture(); }, file, scale, errors);
}

int drawMenu(const std::string& scenario, const std::string& file, double scale, bool isDark, std::ostream& errors) {
  const auto prepare = [&scenario](Scenario& played) {
    played.addFile(scenario);
    played.play();
  };
  const auto picture = [isDark](Mac& machine) {
    const auto& appearance = isDark ? drawing::metrics::dark : drawing::metrics::light;
    auto drawn = machine.part<simulator::MenuBar>().menuPicture(appearance);
    if (drawn) return drawn;
    machine.part<simulator::MenuBar>().open();
    machine.runReady();
    return machine.part<simulator::MenuBar>().menuPicture(appearance);
  };
  return draw(prepare, picture, file, scale, errors);
}
