#include "desk/campaign/Life.h"

#include <algorithm>
#include <array>
#include <iterator>
#include <numeric>
#include <utility>

namespace campaign {

namespace {

// A display that this desk may have. Two look the same to whoever asks them.
struct MonitorModel {
  int id;
  const char* name;
  int product;
  int serial;
  int maximum;
};
constexpr MonitorModel monitors[] = {{2, "Left", 41200, 7001, 100}, {3, "Right", 41200, 7002, 100},
                                     {4, "Wide", 900, 1, 255},      {5, "Twin", 77, 0, 100},
                                     {6, "Other Twin", 77, 0, 100}, {7, "Old", 12, 5, 65535}};
constexpr int displayWidth = 2000;

// An output that this desk may have.
struct OutputModel {
  int id;
  const char* name;
  const char* volume;
  int channels;
  int inputs;
};
constexpr OutputModel outputModels[] = {{10, "Speakers", "settable", 2, 0},
                                        {11, "Television", "none", 2, 0},
                                        {12, "Receiver", "none", 8, 0},
                                        {13, "Headset", "none", 2, 1},
                                        {14, "Projector", "fixed", 2, 0}};

const std::string imageURL = "https://releases.dalvane.example/Dalvane.dmg";

}  // namespace

Life::Life(std::uint64_t seed) : random_(seed) {}

std::vector<std::string> Life::day() {
  lines_.clear();
  if (!std::exchange(isFurnished_, true)) furnish();
  const std::uint64_t episodes = 6 + upTo(8);
  for (std::uint64_t i = 0; i < episodes; ++i) {
    episode();
    if (oneIn(2)) settle();
    wait(oneIn(3) ? 3000 : 10);
  }
  recover();
  night();
  return lines_;
}

// ---- Lines ----

void Life::say(const char* what, Json members) {
  members["do"] = what;
  lines_.push_back(members.dump());
}

void Life::mayRace(const char* what, Json members) {
  if (oneIn(3)) members["race"] = true;
  say(what, std::move(members));
}

// In milliseconds, as a person would count.
void Life::wait(double atMost) {
  const auto milliseconds = static_cast<double>(upTo(static_cast<std::uint64_t>(atMost * 1000)));
  say("advance", {{"seconds", milliseconds / 1000}});
}

// ---- What is on the desk ----

void Life::furnish() {
  say("display", {{"id", 1}, {"name", "Built-in"}, {"builtin", true}, {"frame", {0, 0, 1512, 982}}});
  for (const auto& model : monitors) {
    if (oneIn(2)) connect(model.id);
  }
  for (const auto& model : outputModels) {
    if (model.id <= 11 || oneIn(2)) addOutput(model.id);
  }
  // An installation was cut short.
  if (oneIn(4)) say("bundle", {{"backup", true}});
  say("default-output", {{"id", oneIn(4) ? 10 : 11}});
  say("play", {{"process", "Music"}, {"output", 11}, {"tone", 0}, {"level", 0.25}});
  say("launch");
  settle();
  wait(20);
}

void Life::connect(int display) {
  const auto& model = *std::ranges::find(monitors, display, &MonitorModel::id);
  connected_.insert(display);
  Json monitor = {{"current", upTo(static_cast<std::uint64_t>(model.maximum))}, {"maximum", model.maximum}};
  if (oneIn(8)) monitor["maximum"] = 0;
  if (monitor["maximum"] == 0) monitor["current"] = 0;
  if (oneIn(8)) monitor["reply-delay"] = oneIn(2) ? 0.045 : 0.2;
  if (oneIn(4)) monitor["wakes-after"] = static_cast<double>(upTo(3000)) / 1000;
  Json members = {
      {"id", display},  {"name", model.name},       {"frame", {displayWidth * display, 0, displayWidth - 10, 1000}},
      {"vendor", 4268}, {"product", model.product}, {"serial", model.serial}};
  if (!oneIn(12)) members["monitor"] = monitor;
  mayRace("display", members);
}

void Life::disconnect(int display) {
  connected_.erase(display);
  mayRace("display", {{"id", display}, {"gone", true}});
}

void Life::addOutput(int output) {
  const auto& model = *std::ranges::find(outputModels, output, &OutputModel::id);
  outputs_.insert(output);
  say("output", {{"id", output},
                 {"uid", "UID-" + std::to_string(output)},
                 {"name", model.name},
                 {"volume", model.volume},
                 {"channels", model.channels},
                 {"inputs", model.inputs}});
}

void Life::pointAt(int display) {
  const double x = display == 1 ? 10 : displayWidth * display + 10;
  mayRace("pointer", {{"at", {x + static_cast<double>(upTo(1000)), 10.0 + static_cast<double>(upTo(900))}}});
  if (!oneIn(4)) say("advance", {{"seconds", 0.2}});
}

int Life::someDisplay() {
  return *std::next(connected_.begin(), static_cast<std::ptrdiff_t>(upTo(connected_.size() - 1)));
}

void Life::pointSomewhere() {
  if (connected_.empty() || oneIn(8)) return pointAt(oneIn(2) ? 1 : 9);
  pointAt(someDisplay());
}

// ---- What happens ----

void Life::episode() {
  // How likely each is, and what happens in its place half of the time, if anything does.
  struct Kind {
    std::uint64_t weight;
    Happening one;
    Happening other = nullptr;
  };
  static constexpr Kind kinds[] = {{6, &Life::pressBrightness},
                                   {5, &Life::pressVolume},
                                   {3, &Life::useMenu},
                                   {2, &Life::plug},
                                   {1, &Life::wakeInStorms},
                                   {2, &Life::changeOutput},
                                   {1, &Life::playSomething},
                                   {1, &Life::changePermission},
                                   {1, &Life::monitorMisbehaves},
                                   {1, &Life::callsFail, &Life::callsOfAnUpdateFail},
                                   {1, &Life::update, &Life::publish},
                                   {1, &Life::leaveAlertOpen, &Life::toggleLogin},
                                   {1, &Life::relaunch},
                                   {1, &Life::disturbKeys, &Life::changeTemper},
                                   {1, &Life::interruptACall},
                                   {1, &Life::mirror},
                                   {1, &Life::setClock, &Life::sendRawEvents},
                                   {1, &Life::everythingAtOnce}};
  constexpr auto all = std::accumulate(std::begin(kinds), std::end(kinds), std::uint64_t{0},
                                       [](std::uint64_t sum, const Kind& kind) { return sum + kind.weight; });
  std::uint64_t drawn = upTo(all - 1);
  const Kind* kind = kinds;
  for (; drawn >= kind->weight; ++kind) drawn -= kind->weight;
  (this->*(kind->other && !oneIn(2) ? kind->other : kind->one))();
}

void Life::pressBrightness() {
  pointSomewhere();
  pressKeys({"brightnessUp", "brightnessDown"});
}

void Life::pressVolume() { pressKeys({"volumeUp", "volumeDown", "mute"}); }

void Life::pressKeys(const std::vector<std::string>& keys) {
  std::string key = oneOf(keys);
  if (oneIn(6)) {
    say("key", {{"key", key}, {"hold", static_cast<double>(1 + upTo(20)) / 10}});
    return wait(4);
  }
  const bool mashes = oneIn(4);
  for (std::uint64_t i = 0, count = 1 + upTo(mashes ? 15 : 4); i < count; ++i) {
    if (oneIn(4)) key = oneOf(keys);
    if (oneIn(5)) {
      mayRace("key", {{"key", key}, {"action", "press"}});
      if (oneIn(2)) wait(0.3);
      mayRace("key", {{"key", key}, {"action", "release"}});
    } else if (key.starts_with("brightness") && oneIn(4)) {
      mayRace("event", {{"type", 10}, {"keycode", key == "brightnessUp" ? 144 : 145}, {"autorepeat", oneIn(4)}});
    } else {
      mayRace("key", {{"key", key}});
    }
    if (oneIn(mashes ? 4 : 2)) wait(mashes ? 0.05 : 0.6);
  }
}

void Life::useMenu() {
  say("menu", {{"open", true}});
  for (std::uint64_t i = 0, count = upTo(4); i < count; ++i) {
    if (oneIn(3)) {
      oneIn(2) ? pressBrightness() : pressVolume();
      continue;
    }
    Json through = Json::array();
    for (std::uint64_t stops = upTo(5); stops > 0; --stops) through.push_back(static_cast<double>(upTo(160)) / 10);
    const char* row = oneIn(3) ? oneOf(outputModels).name : oneOf(monitors).name;
    mayRace("slide", {{"row", row}, {"to", upTo(16)}, {"through", through}, {"release", !oneIn(5)}});
    if (oneIn(2)) wait(0.5);
    if (oneIn(3)) settle();
  }
  if (oneIn(3)) plug();
  if (oneIn(2)) wait(120);
  mayRace("menu", {{"open", false}});
}

void Life::plug() {
  for (std::uint64_t i = 0, count = 1 + upTo(oneIn(4) ? 6 : 1); i < count; ++i) {
    const int display = oneOf(monitors).id;
    connected_.contains(display) ? disconnect(display) : connect(display);
    if (oneIn(2)) wait(oneIn(2) ? 0.1 : 2);
  }
}

void Life::wakeInStorms() {
  for (std::uint64_t i = 0, count = 1 + upTo(oneIn(3) ? 6 : 1); i < count; ++i) {
    if (oneIn(2)) {
      mayRace("wake");
    } else {
      Json members = {{"seconds", oneIn(3) ? upTo(7200) : upTo(5)}};
      if (oneIn(2)) members["wakes-after"] = static_cast<double>(upTo(4000)) / 1000;
      mayRace("sleep", members);
    }
    if (oneIn(2)) wait(oneIn(2) ? 0.2 : 5);
    if (oneIn(3)) pressBrightness();
  }
}

void Life::changeOutput() {
  const auto& model = oneOf(outputModels);
  const auto what = upTo(7);
  if (what == 1) return mayRace("restart-audio");
  if (what == 0 && outputs_.size() >= 2 && outputs_.erase(model.id) > 0) {
    return mayRace("output", {{"id", model.id}, {"gone", true}});
  }
  if (what == 0 || !outputs_.contains(model.id)) addOutput(model.id);
  switch (what) {
    case 0:
      return;
    case 2:
    case 3: {
      static constexpr int rates[] = {44100, 48000, 96000};
      return mayRace("output", {{"id", model.id}, {"rate", oneOf(rates)}});
    }
    case 4: {
      static constexpr int frames[] = {128, 512, 4096};
      return mayRace("output",
                     {{"id", model.id}, {"channels", 1 + upTo(7)}, {"inputs", upTo(2)}, {"frames", oneOf(frames)}});
    }
    case 5: {
      // Something that makes it useless, for a while.
      const std::pair<Json, Json> changes[] = {
          {{{"format", {{"bits", 16}, {"flags", 12}}}}, {{"format", {{"bits", 32}, {"flags", 9}}}}},
          {{{"tap-format", {{"bits", 16}, {"flags", 12}}}}, {{"tap-format", {{"bits", 32}, {"flags", 9}}}}},
          {{{"alive", false}}, {{"alive", true}}},
          {{{"uid", nullptr}}, {{"uid", "UID-" + std::to_string(model.id)}}},
          {{{"name", nullptr}}, {{"name", model.name}}}};
      auto [harm, mend] = oneOf(changes);
      harm["id"] = mend["id"] = model.id;
      mayRace("output", harm);
      wait(60);
      pressVolume();
      return say("output", mend);
    }
    default:
      return mayRace("default-output", {{"id", model.id}});
  }
}

void Life::playSomething() {
  static constexpr const char* processes[] = {"Music", "Film", "Call"};
  // Together they are never above full scale.
  static constexpr double levels[] = {0.125, 0.25, 0.3};
  const char* process = oneOf(processes);
  const auto& model = oneOf(outputModels);
  // Or writes a level of its own, in or out of range. In the middle of a key nobody could tell which of the two was
  // last.
  if (oneIn(4)) {
    const std::string key = "steps.UID-" + std::to_string(model.id);
    return say("preference", {{"key", key}, {"value", oneIn(4) ? Json() : Json(upTo(20))}});
  }
  if (oneIn(4) || !outputs_.contains(model.id)) return mayRace("play", {{"process", process}, {"stop", true}});
  mayRace("play", {{"process", process}, {"output", model.id}, {"tone", 0}, {"level", oneOf(levels)}});
}

void Life::changePermission() {
  if (oneIn(2)) {
    mayRace("accessibility", {{"granted", false}});
    wait(oneIn(2) ? 1 : 600);
    pressBrightness();
    if (oneIn(2)) say("menu", {{"open", true}});
    say("menu", {{"open", false}});
    wait(5);
    return mayRace("accessibility", {{"granted", true}});
  }
  static constexpr const char* states[] = {"denied", "undetermined"};
  mayRace("capture", {{"permission", oneOf(states)}, {"answer", oneIn(2)}});
  if (oneIn(2)) wakeInStorms();
  pressVolume();
  wait(60);
  say("answer", {{"dismiss", true}});
  say("capture", {{"permission", "authorized"}});
}

void Life::monitorMisbehaves() {
  if (connected_.empty()) return;
  const int display = someDisplay();
  static constexpr const char* faults[] = {"no-answer",          "bad-checksum", "write-fails",
                                           "second-write-fails", "slow",         "null-message"};
  if (oneIn(4)) {
    const auto& model = *std::ranges::find(monitors, display, &MonitorModel::id);
    return mayRace("monitor", {{"display", display}, {"current", upTo(static_cast<std::uint64_t>(model.maximum))}});
  }
  Json members = {{"display", display}, {"fault", oneOf(faults)}};
  if (!oneIn(3)) members["attempts"] = 1 + upTo(12);
  mayRace("monitor", members);
  pointAt(display);
  if (oneIn(2)) mayRace("wake");
  pressKeys({"brightnessUp", "brightnessDown"});
  wait(30);
  if (!members.contains("attempts")) say("monitor", {{"display", display}, {"fault", "none"}});
}

void Life::callsFail() {
  static constexpr const char* calls[] = {"IORegistryEntryCreateIterator",
                                          "IOIteratorNext",
                                          "IORegistryEntryGetName",
                                          "IORegistryEntryCreateCFProperty",
                                          "IOAVServiceCreateWithService",
                                          "IOAVServiceWriteI2C",
                                          "IOAVServiceReadI2C",
                                          "CGGetOnlineDisplayList",
                                          "NSEvent.eventWithCGEvent",
                                          "AudioObjectIsPropertySettable",
                                          "AudioObjectGetPropertyDataSize",
                                          "AudioObjectGetPropertyData",
                                          "AudioObjectSetPropertyData",
                                          "AudioObjectAddPropertyListenerBlock",
                                          "AudioHardwareCreateProcessTap",
                                          "AudioHardwareCreateAggregateDevice",
                                          "AudioDeviceCreateIOProcIDWithBlock",
                                          "AudioDeviceStart",
                                          "TCCAccessPreflight"};
  const char* call = oneOf(calls);
  say("fail", {{"call", call}, {"status", -1}, {"nth", 1 + upTo(6)}, {"times", 1 + upTo(4)}});
  static constexpr Happening meanwhile[] = {&Life::wakeInStorms, &Life::plug, &Life::changeOutput, &Life::pressVolume,
                                            &Life::pressBrightness};
  someOf(meanwhile, 1 + upTo(2));
  say("fail", {{"call", call}, {"status", nullptr}});
}

// A call fails while an update is looked for and installed.
void Life::callsOfAnUpdateFail() {
  // Some with an error number, the tools with a status of their own.
  static constexpr std::pair<const char*, int> calls[] = {{"rename", 5},
                                                          {"remove_all", 5},
                                                          {"create_directories", 28},
                                                          {"directory_iterator", 5},
                                                          {"access", 13},
                                                          {"confstr", 5},
                                                          {"posix_spawn", 35},
                                                          {"posix_spawnattr_init", 12},
                                                          {"posix_spawn_file_actions_addinherit_np", 12},
                                                          {"waitpid", 10},
                                                          {"hdiutil attach", 1},
                                                          {"hdiutil attach", -9},
                                                          {"hdiutil detach", 1},
                                                          {"ditto", 1},
                                                          {"ditto", 0},
                                                          {"ditto", -9},
                                                          {"CFBundleCopyBundleURL", 0},
                                                          {"CFURLCreateFromFileSystemRepresentation", 0},
                                                          {"NSURLSession.dataTaskWithRequest", -1005},
                                                          {"NSURLSession.downloadTaskWithURL", -1005},
                                                          {"SecCodeCopySelf", -1},
                                                          {"SecCodeCopyStaticCode", -1},
                                                          {"SecCodeCopyDesignatedRequirement", -1},
                                                          {"SecStaticCodeCreateWithPath", -1},
                                                          {"SecStaticCodeCheckValidity", -67061}};
  std::set<std::string> failing;
  for (std::uint64_t count = 1 + upTo(1); count > 0; --count) {
    const auto& [call, status] = oneOf(calls);
    failing.insert(call);
    say("fail", {{"call", call}, {"status", status}, {"nth", 1 + upTo(oneIn(2) ? 1 : 5)}, {"times", 1 + upTo(2)}});
  }
  update();
  for (const std::string& call : failing) say("fail", {{"call", call}, {"status", nullptr}});
  if (oneIn(4)) update();
  // Where nothing could be put back, the user does it.
  say("bundle");
  say("launch");
}

void Life::publish() {
  if (oneIn(4)) {
    static const Json answers[] = {{{"status", 500}},
                                   {{"body", "[{"}},
                                   {{"error", "The network connection was lost."}},
                                   {{"releases", Json::array()}}};
    return mayRace("feed", oneOf(answers));
  }
  const std::string version = "9.0." + std::to_string(++version_);
  const Json release = {{"version", version},
                        {"date", "2026-01-01"},
                        {"dmg_url", imageURL},
                        {"size_bytes", 1},
                        {"notes", "What is new."}};
  mayRace("feed", {{"releases", Json::array({release})}});
  Json image = {{"url", imageURL}, {"version", version}};
  if (oneIn(3)) {
    static const Json bad[] = {{{"tampered", true}},
                               {{"tampered", "resource"}},
                               {{"signer", "Somebody"}},
                               {{"signer", nullptr}},
                               {{"forged", true}},
                               {{"apps", Json::array()}},
                               {{"apps", {"A.app", "B.app"}}},
                               {{"error", "lost"}},
                               {{"break-after", 3000}},
                               {{"identifier", "example.other"}}};
    image.update(oneOf(bad));
  }
  if (oneIn(4)) image["delay"] = upTo(8);
  mayRace("image", image);
}

void Life::update() {
  publish();
  if (!oneIn(4)) say("click", {{"item", "Check for Updates…"}});
  if (oneIn(2)) {
    wait(1);
  } else {
    settle();
  }
  say("click", {{"item", "Update to 9.0." + std::to_string(version_) + "…"}});
  if (oneIn(3)) wait(1);
  if (oneIn(4)) {
    say("menu", {{"open", true}});
    say("menu", {{"open", false}});
  }
  if (oneIn(4)) pressVolume();
  if (oneIn(12)) mayRace("quit");
  settle();
  say("launch");
}

void Life::leaveAlertOpen() {
  say("answer", {{"button", nullptr}});
  say("click", {{"item", "Check for Updates…"}});
  wait(2);
  static constexpr Happening meanwhile[] = {&Life::wakeInStorms, &Life::plug, &Life::pressVolume,
                                            &Life::pressBrightness};
  someOf(meanwhile, 1 + upTo(3));
  wait(7200);
  say("answer", oneIn(2) ? Json::object({{"dismiss", true}}) : Json::object());
  settle();
  say("launch");
}

void Life::toggleLogin() {
  if (oneIn(3)) say("login-item", {{"error", "It cannot be changed."}});
  if (oneIn(3)) say("login-item", {{"approved", oneIn(2)}});
  say("click", {{"item", "Start at Login"}});
  settle();
  say("login-item", {{"error", nullptr}});
}

void Life::relaunch() {
  if (oneIn(2)) settle();
  oneIn(2) ? mayRace("quit") : mayRace("click", {{"item", "Quit Dalvane"}});
  wait(oneIn(2) ? 0.1 : 60);
  say("launch");
  if (oneIn(2)) wait(0.2);
}

void Life::disturbKeys() {
  if (oneIn(2)) return mayRace("disable-tap", {{"by", oneIn(2) ? "timeout" : "user-input"}});
  say("tap", {{"process", "Helper"},
              {"place", oneIn(2) ? "head" : "tail"},
              {"swallows", oneIn(2) ? Json::array() : Json::array({"mute"})}});
  pressVolume();
  pressBrightness();
  say("tap", {{"process", "Helper"}, {"gone", true}});
}

void Life::changeTemper() {
  say("temper", {{oneIn(3) ? "threads" : "audio", "rough"}});
  for (std::uint64_t i = 0, count = 1 + upTo(4); i < count; ++i) episode();
  say("temper", {{"audio", "smooth"}, {"threads", "smooth"}});
}

// Something happens in the middle of a call.
void Life::interruptACall() {
  static constexpr std::pair<const char*, Happening> calls[] = {
      {"IOIteratorNext", &Life::wakeInStorms},
      {"IOAVServiceCreateWithService", &Life::wakeInStorms},
      {"CGGetOnlineDisplayList", &Life::plug},
      {"IOAVServiceReadI2C", &Life::plug},
      {"IOAVServiceWriteI2C", &Life::pressBrightness},
      {"NSEvent.eventWithCGEvent", &Life::pressVolume},
      {"AudioObjectGetPropertyData", &Life::changeOutput},
      {"AudioObjectGetPropertyDataSize", &Life::pressVolume},
      {"AudioHardwareCreateProcessTap", &Life::changeOutput},
      {"AudioHardwareCreateAggregateDevice", &Life::pressVolume},
      {"AudioDeviceStart", &Life::changeOutput},
      {"AudioDeviceStop", &Life::pressVolume},
      {"TCCAccessPreflight", &Life::wakeInStorms}};
  const auto& [call, happening] = oneOf(calls);
  const int display = oneOf(monitors).id;
  const int output = oneOf(outputModels).id;
  Json line;
  switch (upTo(7)) {
    case 0:
      line = {{"do", "display"}, {"id", display}, {"gone", true}};
      connected_.erase(display);
      break;
    case 1:
      line = {{"do", "output"}, {"id", output}, {"gone", true}};
      outputs_.erase(output);
      break;
    case 2:
      line = {{"do", "output"}, {"id", output}, {"rate", oneIn(2) ? 44100 : 96000}};
      break;
    case 3:
      line = {{"do", "default-output"}, {"id", output}};
      break;
    case 4:
      line = {{"do", "restart-audio"}};
      break;
    case 5:
      line = {{"do", "wake"}};
      break;
    case 6:
      line = {{"do", "capture"}, {"permission", "denied"}};
      break;
    default:
      line = {{"do", "accessibility"}, {"granted", false}};
  }
  say("during", {{"call", call}, {"line", line}, {"nth", 1 + upTo(5)}});
  someOf(std::array{happening}, 1 + upTo(2));
}

void Life::mirror() {
  if (connected_.empty()) return;
  const int display = someDisplay();
  const int shown = oneIn(2) ? 1 : someDisplay();
  if (shown == display) return;
  mayRace("display", {{"id", display}, {"mirrors", shown}});
  static constexpr Happening meanwhile[] = {&Life::pressBrightness, &Life::useMenu, &Life::wakeInStorms, &Life::plug};
  someOf(meanwhile, 1 + upTo(2));
  mayRace("display", {{"id", display}, {"mirrors", nullptr}});
}

void Life::setClock() {
  const auto by = static_cast<double>(upTo(oneIn(2) ? 3600 : 3 * 86400));
  mayRace("clock", {{"by", oneIn(2) ? by : -by}});
}

// What keyboards send beside the usual, and what none does: also of the program's keys.
void Life::sendRawEvents() {
  for (std::uint64_t i = 0, count = 1 + upTo(6); i < count; ++i) {
    if (oneIn(3)) {
      mayRace("event", {{"type", 10}, {"keycode", oneIn(2) ? upTo(127) : 140 + upTo(8)}});
      continue;
    }
    static constexpr std::uint64_t states[] = {0x0A, 0x0B, 0x00, 0xFF};
    static constexpr int subtypes[] = {8, 8, 8, 7, 0};
    const std::uint64_t key = upTo(28);
    const std::uint64_t state = oneOf(states);
    mayRace("event", {{"type", 14}, {"subtype", oneOf(subtypes)}, {"data1", key << 16 | state << 8 | upTo(1)}});
  }
}

void Life::everythingAtOnce() {
  static constexpr Happening all[] = {&Life::wakeInStorms,    &Life::plug,
                                      &Life::changeOutput,    &Life::pressVolume,
                                      &Life::pressBrightness, &Life::playSomething};
  someOf(all, 2 + upTo(4));
}

void Life::recover() {
  say("menu", {{"open", false}});
  say("answer", {{"dismiss", true}});
  say("capture", {{"permission", "authorized"}});
  say("accessibility", {{"granted", true}});
  for (const int display : connected_) {
    say("monitor", {{"display", display}, {"fault", "none"}, {"reply-delay", 0.04}});
  }
  settle();
  say("launch");
  say("wake");
  say("advance", {{"seconds", 5}});
  settle();
  // Everything is to work.
  for (const int display : connected_) {
    if (oneIn(3)) continue;
    pointAt(display);
    say("key", {{"key", oneIn(2) ? "brightnessUp" : "brightnessDown"}});
    say("advance", {{"seconds", 0.5}});
  }
  say("key", {{"key", oneIn(2) ? "volumeUp" : "volumeDown"}});
  settle();
  say("menu", {{"open", true}});
  settle();
  say("menu", {{"open", false}});
}

void Life::night() {
  settle();
  if (oneIn(3)) {
    say("advance", {{"seconds", 600}});
    settle();
    say("advance", {{"seconds", 30000 + upTo(10000)}});
  } else {
    say("sleep", {{"seconds", 30000 + upTo(10000)}});
  }
  settle();
}

}  // namespace campaign
