#include "desk/Tour.h"

#include <cstdlib>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "desk/Desk.h"
#include "desk/Narrator.h"
#include "simulator/machine/Machine.h"
#include "simulator/scenarios/Scenario.h"

namespace {

struct Stop {
  const char* title;
  const char* story;
  std::vector<std::string> lines;
};

std::vector<std::string> heldKey() {
  std::vector<std::string> lines = {R"({"do":"key","key":"brightnessDown","action":"press"})"};
  for (int i = 0; i < 5; ++i) {
    lines.emplace_back(R"({"do":"advance","seconds":0.012})");
    lines.emplace_back(R"({"do":"key","key":"brightnessDown","action":"press","repeat":true})");
  }
  lines.emplace_back(R"({"do":"key","key":"brightnessDown","action":"release"})");
  lines.emplace_back(R"({"do":"settle"})");
  return lines;
}

std::vector<Stop> brightnessStops() {
  return {
      {"A Mac with a built-in display and a monitor",
       "The monitor is number 2, to the right of the built-in display (number 1). It is at half its brightness, and\n"
       "the pointer is on it. Dalvane is started: it takes its place in front of the event stream, looks the\n"
       "monitor up in the I/O Registry and asks it over the display cable how bright it is.",
       {R"({"do":"display","id":1,"name":"Built-in","builtin":true,"frame":[0,0,1512,982]})",
        R"({"do":"display","id":2,"name":"Studio","frame":[1512,0,2560,1440],"vendor":4268,"product":41200,"serial":7001,"monitor":{"current":50,"maximum":100}})",
        R"({"do":"pointer","at":[2000,700]})", R"({"do":"launch"})", R"({"do":"settle"})"}},
      {"Brightness up",
       "One of 16 steps: the system's own pop-up appears on the monitor, and the new value goes out on the wire,\n"
       "twice, as monitors need it. The key's press and release are kept from the system.",
       {R"({"do":"key","key":"brightnessUp"})", R"({"do":"settle"})"}},
      {"A held key",
       "Keys come faster than the wire can carry values. While one value is being sent, newer ones replace each\n"
       "other: the monitor never lags behind by more than one.",
       heldKey()},
      {"The pointer on the built-in display",
       "That panel is the system's own business: the key goes on untouched.",
       {R"({"do":"pointer","at":[700,500]})", R"({"do":"key","key":"brightnessUp"})", R"({"do":"settle"})",
        R"({"do":"pointer","at":[2000,700]})"}},
      {"A monitor that misses things",
       "Its second acknowledgement is missing twice. Dalvane tries again, up to five times.",
       {R"({"do":"monitor","display":2,"fault":"second-write-fails","attempts":2})",
        R"({"do":"key","key":"brightnessUp"})", R"({"do":"settle"})"}},
      {"The Mac sleeps and wakes",
       "Someone has turned the monitor's own knob meanwhile. After a wake every monitor is asked afresh.",
       {R"({"do":"monitor","display":2,"current":90})", R"({"do":"wake"})", R"({"do":"settle"})",
        R"({"do":"key","key":"brightnessUp"})", R"({"do":"settle"})"}},
      {"The cable is pulled",
       "With the monitor gone, its keys are the system's again.",
       {R"({"do":"display","id":2,"gone":true})", R"({"do":"settle"})", R"({"do":"key","key":"brightnessUp"})",
        R"({"do":"settle"})"}},
  };
}

std::vector<Stop> lastStops() {
  return {
      {"Quit", "Dalvane leaves nothing behind.", {R"({"do":"click","item":"Quit Dalvane"})", R"({"do":"settle"})"}}};
}

}  // namespace

int tour(std::ostream& out, bool trace) {
  const auto show = [&out, trace](std::string_view line) {
    const std::string text = narrate(nlohmann::json::parse(line));
    if (!text.empty()) out << text << '\n';
    if (trace) out << "              " << line << '\n';
  };
  simulator::Machine machine(dalvaneProgram(),
                             {.clock = simulator::Clock::deterministic, .seed = 1, .trace = show, .fatal = [&out] {
                                out.flush();
                                std::_Exit(1);
                              }});
  simulator::Scenario scenario(machine);
  int number = 0;
  for (const auto& stops : {brightnessStops(), lastStops()}) {
    for (const Stop& stop : stops) {
      out << "\n" << ++number << ". " << stop.title << "\n\n" << stop.story << "\n\n";
      for (const std::string& line : stop.lines) scenario.perform(line);
    }
  }
  const bool clean = machine.shutDown();
  out << "\n"
      << (clean ? "Nothing was left alive. That was the tour." : "Something was left alive: that should not be.")
      << "\n";
  return clean ? 0 : 1;
}
