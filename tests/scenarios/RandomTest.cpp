// Scenarios that nobody thought of: made by a generator from a seed, and held against what must always be so.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <map>
#include <optional>
#include <ostream>
#include <random>
#include <set>
#include <utility>

#include "tests/support/Lines.h"
#include "tests/support/Play.h"

using namespace lines;
using nlohmann::json;

namespace {

// Writes one scenario, and keeps in mind what of it matters for judging the trace.
class Generator {
 public:
  // With faults, monitors and calls fail now and then, and less can be said about how it must end.
  Generator(std::uint64_t seed, bool withFaults) : random_(seed), withFaults_(withFaults) {}

  std::string scenario() {
    for (std::uint64_t i = 0, n = 1 + upTo(5); i < n; ++i) connect();
    for (std::uint64_t i = 0, n = upTo(2); i < n; ++i) changeSound();
    text_ += launch;
    for (std::uint64_t i = 0, n = 20 + upTo(60); i < n; ++i) step();
    text_ += menu(false) + settle;
    return text_;
  }

  // The maximum of displays that stay: their last pop-up says what their monitor was sent last.
  [[nodiscard]] const std::map<std::uint32_t, int>& undisturbed() const { return maximum_; }

 private:
  std::uint64_t upTo(std::uint64_t n) { return random_() % (n + 1); }
  bool maybe() { return upTo(1) == 1; }
  template <std::size_t N>
  const char* oneOf(const std::array<const char*, N>& choices) {
    return choices[upTo(N - 1)];
  }

  void connect() {
    const std::uint32_t id = upTo(9) == 0 ? 4294967295U - used_ : 10 + used_;
    const std::uint64_t x = 1000ULL * used_;
    ++used_;
    const int maximum = upTo(6) == 0 ? 0 : static_cast<int>(1 + upTo(maybe() ? 65534 : 254));
    const int current = static_cast<int>(upTo(static_cast<std::uint64_t>(maximum)));
    const bool twin = upTo(7) == 0;
    const bool builtin = upTo(7) == 0;
    const bool external = !builtin && upTo(9) != 0;
    text_ += line("display", {{"id", id},
                              {"name", "D"},
                              {"frame", {x, 0, upTo(9) ? 1000 : 0, 500}},
                              {"vendor", 1},
                              {"product", 2},
                              {"serial", twin ? 1 : id},
                              {"builtin", builtin},
                              {"location", external ? "External" : "Embedded"},
                              {"monitor", {{"current", current}, {"maximum", maximum}}}});
    connected_[id] = x;
    maximum_[id] = maximum;
  }

  std::uint32_t anyDisplay() {
    auto each = connected_.begin();
    std::advance(each, static_cast<std::ptrdiff_t>(upTo(connected_.size() - 1)));
    return each->first;
  }

  void pointAt(std::uint32_t display) {
    text_ += pointer(static_cast<double>(connected_[display] + upTo(1000)), static_cast<double>(upTo(500)));
  }

  void keys() {
    static constexpr std::array names = {"brightnessUp", "brightnessDown", "brightnessUp", "brightnessDown",
                                         "volumeUp",     "volumeDown",     "mute"};
    static constexpr std::array actions = {"tap", "press", "release"};
    for (std::uint64_t i = 0, n = 1 + upTo(upTo(3) ? 2 : 40); i < n; ++i) {
      text_ += key(oneOf(names), {{"action", oneOf(actions)}, {"repeat", maybe()}});
      if (upTo(2) == 0) wait();
    }
  }

  void wait() { text_ += advance(static_cast<double>(upTo(120)) / 1000); }

  // Anything about sound. An output that goes is there again with the next line about it.
  void changeSound() {
    static constexpr std::array volumes = {"none", "none", "none", "fixed", "settable"};
    static constexpr std::array permissions = {"authorized", "authorized", "authorized", "denied", "undetermined"};
    const int id = static_cast<int>(10 + upTo(1));
    switch (upTo(8)) {
      case 0:
        text_ += restartAudio;
        return;
      case 1:
        text_ += temper({{"audio", maybe() ? "rough" : "smooth"}});
        return;
      case 2:
        text_ += capture({{"permission", oneOf(permissions)}, {"answer", maybe()}});
        return;
      case 3:
        text_ += preference("steps.U" + std::to_string(id), upTo(18));
        return;
      case 4:
        if (outputs_.erase(id) > 0) text_ += outputGone(id);
        return;
      default:
        if (!outputs_.contains(id)) text_ += output(id, {{"uid", "U" + std::to_string(id)}, {"name", "Output"}});
        outputs_.insert(id);
        text_ += output(id, {{"volume", oneOf(volumes)},
                             {"rate", maybe() ? 48000 : 44100},
                             {"channels", 1 + upTo(7)},
                             {"inputs", upTo(2)},
                             {"alive", upTo(9) != 0},
                             {"default", maybe()}});
        text_ += play("music", id, {{"tone", 0}, {"level", 0.25}});
    }
  }

  void connectOrNot() {
    if (connected_.size() > 1 && maybe()) {
      const std::uint32_t gone = anyDisplay();
      text_ += line("display", {{"id", gone}, {"gone", true}});
      connected_.erase(gone);
      maximum_.erase(gone);
    } else {
      connect();
    }
  }

  void quitAndPerhapsComeBack() {
    // A process that ends takes what it has not sent yet along.
    if (!withFaults_) text_ += settle;
    text_ += maybe() ? quit : click("Quit Dalvane");
    if (upTo(3)) text_ += launch;
  }

  void rawEvent() {
    json members = {{"type", 10}, {"keycode", 144 + upTo(1)}};
    if (maybe()) members = {{"type", 14}, {"subtype", 8}, {"data1", maybe() ? upTo(1ULL << 62) : 144 + upTo(1)}};
    text_ += line("event", members);
  }

  void misbehave() {
    static constexpr std::array faults = {"none", "no-answer", "bad-checksum", "write-fails", "second-write-fails"};
    static constexpr std::array calls = {"IORegistryGetRootEntry",
                                         "IORegistryEntryCreateIterator",
                                         "IOIteratorNext",
                                         "IORegistryEntryGetName",
                                         "IORegistryEntryCreateCFProperty",
                                         "IOObjectRelease",
                                         "IOAVServiceCreateWithService",
                                         "IOAVServiceWriteI2C",
                                         "IOAVServiceReadI2C",
                                         "CGGetOnlineDisplayList",
                                         "CGEventTapCreate",
                                         "CFMachPortCreateRunLoopSource",
                                         "AXIsProcessTrusted",
                                         "NSEvent.eventWithCGEvent",
                                         "dlopen",
                                         "dlsym",
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
    if (maybe()) {
      text_ += fail(oneOf(calls), -1, static_cast<int>(1 + upTo(8)), static_cast<int>(1 + upTo(3)));
    } else if (!connected_.empty()) {
      text_ += line("monitor", {{"display", anyDisplay()}, {"fault", oneOf(faults)}, {"attempts", 1 + upTo(12)}});
    }
  }

  void step() {
    switch (upTo(withFaults_ ? 19 : 15)) {
      case 0:
      case 1:
      case 2:
        if (!connected_.empty()) pointAt(anyDisplay());
        return keys();
      case 3:
        return wait();
      case 4:
        text_ += settle;
        return;
      case 5:
        text_ += wake;
        return;
      case 6:
        return connectOrNot();
      case 7:
        text_ += line("disable-tap", {{"by", maybe() ? "timeout" : "user-input"}});
        return;
      case 8:
        text_ += menu(maybe());
        return;
      case 9:
        text_ += accessibility(upTo(3) != 0);
        return;
      case 10:
        return rawEvent();
      case 11:
        return quitAndPerhapsComeBack();
      case 12:
      case 13:
      case 14:
      case 15:
        return changeSound();
      default:
        return misbehave();
    }
  }

  std::mt19937_64 random_;
  bool withFaults_;
  std::string text_;
  std::uint32_t used_ = 0;
  std::map<std::uint32_t, std::uint64_t> connected_;  // with their screens' left edges
  std::map<std::uint32_t, int> maximum_;
  std::set<int> outputs_;
};

void expectTheUsual(const Played& played) {
  EXPECT_EQ(played.status, 0) << played.error;
  EXPECT_TRUE(played.of("fatal").empty());
  EXPECT_TRUE(played.of("leak").empty());
  double before = 0;
  for (const auto& record : played.records) {
    EXPECT_GE(record["t"], before);
    before = record["t"];
  }
  // A microphone is nobody's business.
  for (const auto& prompt : played.of("prompt")) EXPECT_NE(prompt["for"], "microphone");
  // A pop-up is for a swallowed press, and shows a level of the scale.
  for (const auto& call : played.calls("OSDManager.showImage")) {
    if (call["args"]["image"] != 1) continue;
    EXPECT_EQ(call["args"]["total"], 16);
    EXPECT_LE(call["args"]["filled"], 16);
    EXPECT_GE(call["args"]["filled"], 0);
  }
}

// ---- The sound ----

// What a person knows of Dalvane's volume: which output it controls, and what is heard. It writes a scenario and, line
// by line, what is to come of it.
class SoundModel {
 public:
  explicit SoundModel(std::uint64_t seed) : random_(seed) {}

  std::string scenario() {
    text_ = display(1, {{"name", "Built-in"}, {"builtin", true}, {"frame", {0, 0, 1512, 982}}});
    for (int i = 0; i < 2; ++i) step();
    program(true);
    for (std::uint64_t i = 0, n = 20 + upTo(40); i < n; ++i) {
      step();
      look();
    }
    return text_;
  }

  struct Speaker {
    float level;
    bool isDirect;
    friend bool operator==(const Speaker&, const Speaker&) = default;
    friend std::ostream& operator<<(std::ostream& out, const Speaker& speaker) {
      return out << speaker.level << (speaker.isDirect ? " direct" : "");
    }
  };
  struct Look {
    std::map<int, Speaker> speakers;
    int routers;
    json preferences;
  };
  using PopUp = std::pair<int, std::int64_t>;  // image and filled steps

  // What each snapshot is to show.
  std::vector<Look> looks;
  std::vector<bool> swallowed;
  std::vector<PopUp> popUps;
  std::size_t alerts = 0;
  std::size_t prompts = 0;

 private:
  struct Output {
    std::string volume = "none";
    int rate = 48000;
    std::optional<int> tapRate;  // none: the output's
    int channels = 2;
    int inputs = 0;
    bool isAlive = true;
    [[nodiscard]] bool canBeRouted() const { return isAlive && tapRate.value_or(rate) == rate; }
  };

  std::uint64_t upTo(std::uint64_t n) { return random_() % (n + 1); }
  bool maybe() { return upTo(1) == 1; }
  static std::string uid(int id) { return "U" + std::to_string(id); }

  // ---- What the program is to do ----

  [[nodiscard]] json preferenceOf(const std::string& key) const {
    const auto found = preferences_.find(key);
    return found == preferences_.end() ? nullptr : found->second;
  }
  [[nodiscard]] std::int64_t steps(int id) const {
    const json stored = preferenceOf("steps." + uid(id));
    return stored.is_number_integer() ? stored.get<std::int64_t>() : 16;
  }
  [[nodiscard]] bool muted(int id) const { return preferenceOf("muted." + uid(id)) == json(true); }
  [[nodiscard]] bool isFull(int id) const { return !muted(id) && steps(id) >= 16; }
  [[nodiscard]] float gain(int id) const {
    if (muted(id)) return 0;
    return std::pow(static_cast<float>(std::clamp<std::int64_t>(steps(id), 0, 16)) / 16, 3.0F);
  }

  void alert() {
    if (!std::exchange(hasAlerted_, true)) ++alerts;
  }

  // Whether the permission is there; if not, the program is idle, and what the user answers has come through.
  bool mayCapture() {
    isStale_ = false;
    if (permission_ == "authorized") return true;
    controlled_.reset();
    if (permission_ == "denied") {
      alert();
      return false;
    }
    ++prompts;
    permission_ = willAllow_ ? "authorized" : "denied";
    if (!willAllow_) {
      alert();
    } else {
      refresh();
    }
    return false;
  }

  void refresh() {
    if (!isRunning_) return;
    isRouted_ = false;
    controlled_.reset();
    isStale_ = false;
    if (!default_ || outputs_[*default_].volume == "settable" || !mayCapture()) return;
    controlled_ = default_;
    if (!isFull(*default_)) startRouter();
  }

  void startRouter() {
    isRouted_ = outputs_[*controlled_].canBeRouted();
    gain_ = gain(*controlled_);
  }

  void apply() {
    if (isFull(*controlled_)) {
      isRouted_ = false;
    } else if (isRouted_) {
      gain_ = gain(*controlled_);
    } else if (mayCapture()) {
      startRouter();
    }
  }

  void pressKey(const std::string& name, bool isRepeat) {
    if (!isRunning_) return;
    swallowed.push_back(controlled_.has_value());
    if (!controlled_ || (name == "mute" && isRepeat)) return;
    const int id = *controlled_;
    std::int64_t level = steps(id);
    const bool isMuted = name == "mute" && !muted(id);
    if (name == "volumeDown") level = level > 0 ? level - 1 : 0;
    if (name == "volumeUp") level = level < 16 ? level + 1 : 16;
    preferences_["steps." + uid(id)] = level;
    preferences_["muted." + uid(id)] = isMuted;
    apply();
    popUps.emplace_back(level == 0 || isMuted ? 4 : 3, isMuted ? 0 : std::max<std::int64_t>(level, 0));
  }

  // ---- What happens ----

  void say(const std::string& what) { text_ += what + settle; }

  void program(bool runs) {
    say(runs ? launch : quit);
    if (runs == isRunning_) return;
    isRunning_ = runs;
    hasAlerted_ = false;
    isRouted_ = false;
    controlled_.reset();
    refresh();
  }

  void pressKeys() {
    static const std::array<std::string, 3> names = {"volumeUp", "volumeDown", "mute"};
    for (std::uint64_t i = 0, n = 1 + upTo(3); i < n; ++i) {
      const std::string& name = names[upTo(names.size() - 1)];
      const bool isRepeat = upTo(3) == 0;
      say(isRepeat ? repeated(name) : press(name));
      pressKey(name, isRepeat);
      if (maybe()) continue;
      say(release(name));
      if (isRunning_) swallowed.push_back(controlled_.has_value());
    }
  }

  void makeDefault(std::optional<int> id) {
    if (std::exchange(default_, id) != id && controlled_ != id) refresh();
    if (!id && isRunning_) refresh();
  }

  void changeOutput(int id) {
    json members = {{"uid", uid(id)}, {"name", "Output " + std::to_string(id)}};
    if (!outputs_.contains(id)) text_ += output(id, members);
    Output& changed = outputs_[id];
    const Output before = changed;
    static constexpr std::array volumes = {"none", "none", "fixed", "settable"};
    const auto change = [&](const char* name, auto& value, auto to) {
      if (maybe()) return;
      value = to;
      members[name] = to;
    };
    change("rate", changed.rate, maybe() ? 48000 : 44100);
    change("tap-rate", changed.tapRate, maybe() ? 48000 : 44100);
    change("channels", changed.channels, static_cast<int>(1 + upTo(7)));
    change("inputs", changed.inputs, static_cast<int>(upTo(2)));
    if (upTo(4) == 0) change("volume", changed.volume, volumes[upTo(volumes.size() - 1)]);
    if (upTo(4) == 0 || !changed.isAlive) change("alive", changed.isAlive, maybe());
    isStale_ = true;
    say(output(id, members));
    const bool isAnother = changed.rate != before.rate || changed.channels != before.channels ||
                           changed.inputs != before.inputs || changed.isAlive != before.isAlive;
    if (isRouted_ && controlled_ == id && isAnother) refresh();
    if (maybe()) return;
    say(defaultOutput(id));
    makeDefault(id);
  }

  void removeOutput(int id) {
    if (outputs_.erase(id) == 0) return;
    say(outputGone(id));
    if (default_ == id) makeDefault(outputs_.empty() ? std::nullopt : std::optional(outputs_.begin()->first));
  }

  void restart() {
    // Without a router it is the seed's whether the program hears of it, and what it would find is to be nothing new.
    if (!isRouted_ && isStale_) return;
    say(restartAudio);
    if (isRouted_) refresh();
  }

  void changePermission() {
    static const std::array<std::string, 4> states = {"authorized", "authorized", "denied", "undetermined"};
    permission_ = states[upTo(states.size() - 1)];
    willAllow_ = maybe();
    isStale_ = true;
    say(capture({{"permission", permission_}, {"answer", willAllow_}}));
  }

  void writePreference(int id) {
    static const std::array<json, 8> levels = {0, 1, 8, 15, 16, -100, 100, "loud"};
    const bool isLevel = upTo(3) != 0;
    const json value = isLevel ? levels[upTo(levels.size() - 1)] : json(maybe());
    const std::string name = (isLevel ? "steps." : "muted.") + uid(id);
    preferences_[name] = value;
    isStale_ = true;
    say(preference(name, value));
  }

  void changeMusic(int id) {
    const std::string process = maybe() ? "music" : "film";
    if (upTo(3) == 0 || !outputs_.contains(id)) {
      players_.erase(process);
      say(playStops(process));
      return;
    }
    const float level = maybe() ? 0.25F : 0.5F;
    players_[process] = {id, level};
    say(play(process, id, {{"tone", 0}, {"level", level}}));
  }

  void step() {
    const int id = static_cast<int>(10 + upTo(2));
    switch (upTo(15)) {
      case 0:
      case 1:
      case 2:
      case 3:
      case 4:
        return pressKeys();
      case 5:
      case 6:
      case 7:
        return changeOutput(id);
      case 8:
        return removeOutput(id);
      case 9:
      case 10:
        return changeMusic(id);
      case 11:
        return changePermission();
      case 12:
        return writePreference(id);
      case 13:
        return restart();
      case 14:
        say(temper({{"audio", maybe() ? "rough" : "smooth"}}) + wake);
        return refresh();
      default:
        return program(upTo(3) != 0);
    }
  }

  void look() {
    text_ += snapshot(std::to_string(looks.size()));
    Look& expected = looks.emplace_back(Look{{}, isRouted_ ? 1 : 0, json::object()});
    for (const auto& [id, output] : outputs_) {
      float level = 0;
      for (const auto& [process, sound] : players_) level += sound.first == id ? sound.second : 0;
      if (!output.isAlive) level = 0;
      const bool isRoutedHere = isRouted_ && controlled_ == id;
      expected.speakers[id] = isRoutedHere ? Speaker{level * gain_, false} : Speaker{level, level > 0};
    }
    for (const auto& [key, value] : preferences_) expected.preferences[key] = value;
  }

  std::mt19937_64 random_;
  std::string text_;
  std::map<int, Output> outputs_;
  std::map<std::string, std::pair<int, float>> players_;
  std::map<std::string, json> preferences_;
  std::optional<int> default_;
  std::string permission_ = "authorized";
  bool willAllow_ = true;
  bool isRunning_ = false;
  bool hasAlerted_ = false;
  std::optional<int> controlled_;
  bool isRouted_ = false;
  float gain_ = 0;        // the router's: what another program stores it hears of only when it asks
  bool isStale_ = false;  // a choice would find something new that nobody has told of
};

void expectLook(const json& record, const SoundModel::Look& expected) {
  std::map<int, SoundModel::Speaker> speakers;
  for (const json& speaker : record["speakers"]) {
    speakers[speaker["id"]] = {speaker["level"].get<float>(), speaker["direct"].get<bool>()};
  }
  EXPECT_EQ(speakers, expected.speakers) << record["name"];
  EXPECT_EQ(record["taps"], expected.routers) << record["name"];
  EXPECT_EQ(record["aggregates"], expected.routers) << record["name"];
  EXPECT_EQ(record["audio"]["microphone"], false) << record["name"];
  EXPECT_EQ(record["preferences"], expected.preferences) << record["name"];
}

}  // namespace

TEST(Random, EveryPressThatIsTakenReachesItsMonitor) {
  std::size_t checked = 0;
  WITH_SEEDS(seed, seedsInTime(200)) {
    Generator generator(seed, false);
    const std::string scenario = generator.scenario();
    const Played played = playScenario(scenario, seed);
    SCOPED_TRACE(scenario);
    expectTheUsual(played);
    std::map<std::uint32_t, int> shown;  // the last level that each display's pop-up showed
    for (const auto& call : played.calls("OSDManager.showImage")) {
      if (call["args"]["image"] == 1) shown[call["args"]["display"]] = call["args"]["filled"];
    }
    for (const auto& [display, filled] : shown) {
      const auto maximum = generator.undisturbed().find(display);
      if (maximum == generator.undisturbed().end()) continue;
      // A level that the monitor showed already is no change of its light.
      std::string last;
      for (const auto& call : played.calls("IOAVServiceWriteI2C")) {
        const std::string bytes = call["args"]["bytes"];
        if (call["args"]["display"] == display && bytes.starts_with("84 03 10 ")) last = bytes.substr(9, 5);
      }
      const long raw = std::lround(filled * maximum->second / 16.0);
      std::array<char, 8> expected{};
      std::snprintf(expected.data(), expected.size(), "%02lx %02lx", raw >> 8, raw & 0xFF);
      EXPECT_EQ(last, expected.data()) << "display " << display;
      ++checked;
    }
    if (seed % 10 == 0) {
      EXPECT_EQ(playScenario(scenario, seed).bytes, played.bytes);
    }
    if (HasFailure()) return;
  }
  EXPECT_GT(checked, seedsInTime(50));
}

TEST(Random, NothingThatFailsStopsTheProgram) {
  WITH_SEEDS(seed, seedsInTime(200)) {
    const std::string scenario = Generator(seed, true).scenario();
    SCOPED_TRACE(scenario);
    const Played played = playScenario(scenario, seed);
    expectTheUsual(played);
    if (seed % 10 == 0) {
      EXPECT_EQ(playScenario(scenario, seed).bytes, played.bytes);
    }
    if (HasFailure()) return;
  }
}

TEST(Random, TheSoundIsAsItShouldBe) {
  std::size_t routed = 0;
  std::size_t pressed = 0;
  WITH_SEEDS(seed, seedsInTime(300)) {
    SoundModel model(seed);
    const std::string scenario = model.scenario();
    SCOPED_TRACE(scenario);
    const Played played = playScenario(scenario, seed);
    expectTheUsual(played);
    const auto snapshots = played.of("snapshot");
    ASSERT_EQ(snapshots.size(), model.looks.size());
    for (std::size_t i = 0; i < snapshots.size(); ++i) {
      expectLook(snapshots[i], model.looks[i]);
      routed += static_cast<std::size_t>(model.looks[i].routers);
    }
    std::vector<SoundModel::PopUp> popUps;
    for (const auto& call : played.calls("OSDManager.showImage")) {
      popUps.emplace_back(call["args"]["image"], call["args"]["filled"]);
    }
    EXPECT_EQ(popUps, model.popUps);
    EXPECT_EQ(played.swallowed(), model.swallowed);
    EXPECT_EQ(played.of("alert").size(), model.alerts);
    EXPECT_EQ(played.of("prompt").size(), model.prompts);
    pressed += model.popUps.size();
    if (HasFailure()) return;
  }
  EXPECT_GT(routed, seedsInTime(1000));
  EXPECT_GT(pressed, seedsInTime(1000));
}

// Whatever has happened how fast: once the Mac has woken and all is quiet, what is heard follows from what there is.
TEST(Random, AfterAWakeTheSoundIsWhatIsStored) {
  std::size_t routed = 0;
  WITH_SEEDS(seed, seedsInTime(200)) {
    const std::string scenario = Generator(seed, false).scenario() + capture({{"permission", "authorized"}}) +
                                 line("answer", {{"button", "OK"}}) + wake + settle + snapshot("end");
    SCOPED_TRACE(scenario);
    const Played played = playScenario(scenario, seed);
    expectTheUsual(played);
    const json end = played.of("snapshot").back();
    std::size_t routers = 0;
    for (const json& speaker : end["speakers"]) {
      if (speaker["direct"] == true || speaker["default"] == false || speaker["level"] == 0) continue;
      ++routers;
      const std::string uid = "U" + speaker["id"].dump();
      const float steps = end["preferences"].value("steps." + uid, 16.0F);
      EXPECT_EQ(speaker["level"].get<float>(), 0.25F * std::pow(steps / 16, 3.0F));
      EXPECT_FALSE(end["preferences"].value("muted." + uid, false));
    }
    EXPECT_LE(end["taps"], 1);
    EXPECT_EQ(end["aggregates"], end["taps"]);
    EXPECT_LE(routers, end["taps"].get<std::size_t>());
    routed += routers;
    if (HasFailure()) return;
  }
  EXPECT_GT(routed, seedsInTime(10));
}
