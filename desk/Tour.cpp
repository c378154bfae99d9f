#include "desk/Tour.h"

#include <cstdlib>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "desk/Desk.h"
#include "desk/Narrator.h"
#include "simulator/audio/Audio.h"
#include "simulator/audio/WaveFile.h"
#include "simulator/mac/Mac.h"
#include "simulator/mac/Scenario.h"

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
        R"({"do":"output","id":9,"uid":"BUILT-IN","name":"Built-in speakers","volume":"settable","default":true})",
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

// Presses of a key, half a second apart, so that what is recorded can be followed by ear.
std::vector<std::string> presses(const std::string& key, int count, const std::string& snapshot) {
  std::vector<std::string> lines;
  for (int i = 0; i < count; ++i) {
    lines.push_back(R"({"do":"key","key":")" + key + "\"}");
    lines.emplace_back(R"({"do":"advance","seconds":0.5})");
  }
  lines.push_back(R"({"do":"snapshot","name":")" + snapshot + "\"}");
  return lines;
}

std::vector<Stop> volumeStops() {
  return {
      {"A television without a volume of its own",
       "It is connected by HDMI and becomes the default output; a program plays a tone of 440 Hz at half the full "
       "scale.\n"
       "At full volume Dalvane stays out of the way: the sound is direct.",
       {R"({"do":"output","id":10,"uid":"HDMI-TV","name":"Television","default":true})",
        R"({"do":"play","process":"Music","output":10})", R"({"do":"advance","seconds":0.5})",
        R"({"do":"snapshot","name":"full"})"}},
      {"Volume down",
       "Dalvane taps what all other programs play to the television, which mutes it there, and plays it back through "
       "a\n"
       "private device of its own, times a gain: the cube of the level, 15/16 to begin with. The level is kept for\n"
       "this device.",
       presses("volumeDown", 1, "15")},
      {"Further down", "The gain moves to each new level by a ramp over one cycle, so that nothing clicks.",
       presses("volumeDown", 5, "10")},
      {"Mute, and back", "The mute flag is kept apart from the level.",
       [] {
         auto lines = presses("mute", 1, "muted");
         for (auto& line : presses("mute", 1, "unmuted")) lines.push_back(std::move(line));
         return lines;
       }()},
      {"The headset is plugged in",
       "It has a volume of its own: the keys are the system's, and the television sounds as it is.",
       {R"({"do":"output","id":11,"uid":"USB-HEADSET","name":"Headset","volume":"settable","default":true})",
        R"({"do":"advance","seconds":0.5})", R"({"do":"key","key":"volumeUp"})",
        R"({"do":"snapshot","name":"headset"})"}},
      {"And unplugged",
       "The television is the default again, at the level that it had.",
       {R"({"do":"output","id":11,"gone":true})", R"({"do":"default-output","id":10})",
        R"({"do":"advance","seconds":0.5})", R"({"do":"snapshot","name":"television"})"}},
      {"Up to full volume", "The router stops and nothing of it is left: the sound is direct again.",
       presses("volumeUp", 6, "full again")},
  };
}

std::vector<Stop> updateStops() {
  return {
      {"A newer release is published",
       "Dalvane asks the release host ten seconds after its start and every six hours, and whenever the user does. "
       "This\n"
       "time the user asks, and says yes: the disk image is downloaded and attached, the application in it is "
       "accepted\n"
       "because it is signed as the running one is, and takes its place. Then Dalvane relaunches itself.",
       {R"({"do":"feed","releases":[{"version":"9.0.0","date":"2026-11-21","dmg_url":"https://releases.dalvane.example/Dalvane-9.0.0.dmg","size_bytes":4812345,"notes":"Fixes volume keys after sleep."}]})",
        R"({"do":"image","url":"https://releases.dalvane.example/Dalvane-9.0.0.dmg","version":"9.0.0"})",
        R"({"do":"click","item":"Check for Updates…"})", R"({"do":"settle"})", R"({"do":"advance","seconds":5})"}},
      {"An image from somebody else",
       "Another release follows, but its image is signed by a stranger. What is installed stays as it is.",
       {R"({"do":"feed","releases":[{"version":"9.1.0","date":"2026-11-21","dmg_url":"https://releases.dalvane.example/Dalvane-9.1.0.dmg","size_bytes":4812345,"notes":""}]})",
        R"({"do":"image","url":"https://releases.dalvane.example/Dalvane-9.1.0.dmg","version":"9.1.0","signer":"Mallory"})",
        R"({"do":"click","item":"Check for Updates…"})", R"({"do":"settle"})", R"({"do":"advance","seconds":5})"}},
  };
}

std::vector<Stop> lastStops() {
  return {
      {"Quit", "Dalvane leaves nothing behind.", {R"({"do":"click","item":"Quit Dalvane"})", R"({"do":"settle"})"}}};
}

}  // namespace

int tour(std::ostream& out, const TourOptions& options) {
  std::unique_ptr<simulator::WaveFile> wave;
  if (!options.waveFile.empty()) wave = std::make_unique<simulator::WaveFile>(options.waveFile);
  const auto show = [&out, trace = options.trace](std::string_view line) {
    const std::string text = narrate(nlohmann::json::parse(line));
    if (!text.empty()) out << text << '\n';
    if (trace) out << "              " << line << '\n';
  };
  simulator::Mac machine(dalvaneProgram(),
                         {.clock = simulator::Clock::deterministic, .seed = 1, .trace = show, .fatal = [&out] {
                            out.flush();
                            std::_Exit(1);
                          }});
  if (wave) {
    machine.part<simulator::Audio>().listen(10, [&wave](std::span<const float> samples, std::size_t channels,
                                                        double rate) { wave->append(samples, channels, rate); });
  }
  simulator::Scenario scenario(machine);
  int number = 0;
  for (const auto& stops : {brightnessStops(), volumeStops(), updateStops(), lastStops()}) {
    for (const Stop& stop : stops) {
      out << "\n" << ++number << ". " << stop.title << "\n\n" << stop.story << "\n\n";
      for (const std::string& line : stop.lines) scenario.perform(line);
    }
  }
  const bool clean = machine.shutDown();
  if (wave) out << "\nWhat the television played is in " << options.waveFile << ".\n";
  out << "\n"
      << (clean ? "Nothing was left alive. That was the tour." : "Something was left alive: that should not be.")
      << "\n";
  return clean ? 0 : 1;
}
