#include "desk/campaign/World.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>

#include "simulator/audio/Audio.h"
#include "simulator/desktop/EventStream.h"
#include "simulator/foundation/Preferences.h"
#include "simulator/mac/Mac.h"
#include "simulator/privacy/Accessibility.h"
#include "simulator/privacy/AudioCapture.h"
#include "simulator/software/Applications.h"

using nlohmann::json;
using simulator::Audio;
using simulator::Display;
using simulator::Displays;
using simulator::OutputDevice;
using simulator::OutputSettings;

namespace campaign {

using namespace std::chrono_literals;

const std::set<std::string> displayCalls = {
    "IORegistryGetRootEntry", "IORegistryEntryCreateIterator", "IOIteratorNext",
    "IOIteratorIsValid",      "IORegistryEntryGetName",        "IORegistryEntryCreateCFProperty",
    "IOObjectRelease",        "IOAVServiceCreateWithService",  "IOAVServiceWriteI2C",
    "IOAVServiceReadI2C",     "CGGetOnlineDisplayList"};
const std::set<std::string> routerCalls = {"AudioObjectGetPropertyDataSize",
                                           "AudioObjectSetPropertyData",
                                           "AudioObjectAddPropertyListenerBlock",
                                           "AudioObjectRemovePropertyListenerBlock",
                                           "AudioHardwareCreateProcessTap",
                                           "AudioHardwareDestroyProcessTap",
                                           "AudioHardwareCreateAggregateDevice",
                                           "AudioHardwareDestroyAggregateDevice",
                                           "AudioDeviceCreateIOProcIDWithBlock",
                                           "AudioDeviceDestroyIOProcID",
                                           "AudioDeviceStart",
                                           "AudioDeviceStop"};
const std::set<std::string> soundCalls = [] {
  std::set<std::string> calls = routerCalls;
  calls.insert({"AudioObjectIsPropertySettable", "AudioObjectGetPropertyData", "TCCAccessPreflight", "TCCAccessRequest",
                "dlopen", "dlsym"});
  return calls;
}();
const std::set<std::string> keyCalls = {
    "CGEventTapCreate",   "CFMachPortCreateRunLoopSource", "AXIsProcessTrustedWithOptions",
    "AXIsProcessTrusted", "NSEvent.eventWithCGEvent",      "CFRunLoopTimerCreateWithHandler"};
const std::set<std::string> updateCalls = {"rename",
                                           "remove",
                                           "remove_all",
                                           "create_directories",
                                           "directory_iterator",
                                           "access",
                                           "confstr",
                                           "posix_spawn",
                                           "posix_spawnattr_init",
                                           "posix_spawnattr_setflags",
                                           "posix_spawnattr_setsigmask",
                                           "posix_spawnattr_setsigdefault",
                                           "posix_spawn_file_actions_init",
                                           "posix_spawn_file_actions_addinherit_np",
                                           "waitpid",
                                           "hdiutil",
                                           "hdiutil attach",
                                           "hdiutil detach",
                                           "ditto",
                                           "CFBundleCopyBundleURL",
                                           "CFURLCreateFromFileSystemRepresentation",
                                           "NSURLSession.dataTaskWithRequest",
                                           "NSURLSession.downloadTaskWithURL",
                                           "SecCodeCopySelf",
                                           "SecCodeCopyStaticCode",
                                           "SecCodeCopyDesignatedRequirement",
                                           "SecStaticCodeCreateWithPath",
                                           "SecStaticCodeCheckValidity"};

namespace {

// What the program loads once, when it is launched.
constexpr std::array libraryCalls = {"dlopen", "dlsym", "objc_lookUpClass", "OSDManager.sharedManager"};

// "500 ms after the last of any burst of refreshes"
constexpr Duration controlTime = 500ms;
// For so long the Mac tells of a wake and of what came of it.
constexpr Duration wakeTellings = 500ms;
// For so long after a wake outputs come back, and sound is not settled; and after whatever else happens to it: notices
// come late, aggregate devices start slowly, and the user takes a second to answer.
constexpr Duration outputsReturn = 2s;
constexpr Duration soundSettles = 3s;
// The host waits that long for a reply before it reads it.
constexpr Duration replyPatience = 50ms;
// The poll for the Accessibility permission, and a little.
constexpr Duration trustPoll = 2100ms;

// Until the program has launched, it sees nothing.
constexpr Duration launchTime = 1s;

// For so long a busy Mac holds back the thread of a cycle at most: 5 ms before it, and again in the middle of it.
constexpr Duration heldBack = 10ms;
// And all the threads, one after the other, by which the program hears of something.
constexpr Duration hearsLate = 10 * heldBack;

// A callback is through with an event in that time, on rough hardware too.
constexpr Duration callTime = 100ms;

// An install hands three tools their work, which take 200 ms each, and one request, on threads that may be held back.
constexpr Duration installTime = 5s;
// The main thread is never held up for longer (see the invariants), and changes the menu as soon as it hears.
constexpr Duration mainThreadHears = 1s;

const std::string checkForUpdates = "Check for Updates…";
const std::string installingUpdate = "Installing Update…";

// Types of events, and the subtype of those that media keys send.
constexpr int plainKeyDown = 10;
constexpr int systemDefined = 14;
constexpr int mediaKeys = 8;

const json nothing;

// Which output a preference is about.
std::string outputOf(const json& key) {
  const auto& text = key.get_ref<const std::string&>();
  return text.substr(text.find('.') + 1);
}

// Of a version of three numbers; none: it is another.
std::optional<std::array<unsigned, 3>> numbersIn(const json& version) {
  std::array<unsigned, 3> numbers{};
  int length = 0;
  if (!version.is_string()) return std::nullopt;
  const auto& text = version.get_ref<const std::string&>();
  const int found = std::sscanf(text.c_str(), "%3u.%3u.%3u%n", &numbers[0], &numbers[1], &numbers[2], &length);
  return found == 3 && static_cast<std::size_t>(length) == text.size() ? std::optional(numbers) : std::nullopt;
}

}  // namespace

// ---- Records ----

const json& Record::operator[](const char* name) const {
  const auto in = [name](const json& object) -> const json& {
    const auto found = object.find(name);
    return found == object.end() ? nothing : *found;
  };
  return what == "call" && members.contains("args") && std::string_view(name) != "api" &&
                 std::string_view(name) != "status"
             ? in(members["args"])
             : in(members);
}

bool isOfInstall(const json& path) {
  return path.get_ref<const std::string&>().find("/dalvane-update-") != std::string::npos;
}

bool Record::isCall(std::string_view api) const { return what == "call" && members["api"] == api; }

std::optional<KeyEvent> KeyEvent::of(const Record& record) {
  if (record.what != "input") return std::nullopt;
  if (record["type"] == plainKeyDown) {
    static const std::map<std::int64_t, Key> plain = {{144, Key::brightnessUp}, {145, Key::brightnessDown}};
    const auto key = plain.find(record["keycode"].get<std::int64_t>());
    if (key == plain.end()) return std::nullopt;
    return KeyEvent{.key = key->second, .isPress = true, .isRepeat = record["autorepeat"] == true};
  }
  if (record["type"] != systemDefined || record["subtype"] != mediaKeys) return std::nullopt;
  static const std::map<std::int64_t, Key> media = {
      {0, Key::volumeUp}, {1, Key::volumeDown}, {2, Key::brightnessUp}, {3, Key::brightnessDown}, {7, Key::mute}};
  const auto data = record["data1"].get<std::int64_t>();
  const auto key = media.find((data >> 16) & 0xFFFF);
  if (key == media.end()) return std::nullopt;
  return KeyEvent{.key = key->second, .isPress = ((data >> 8) & 0xFF) == 0x0A, .isRepeat = (data & 1) != 0};
}

// ---- What happens ----

World::World(simulator::Mac& machine) : mac(machine) {}

Time World::now() const { return mac.scheduler.now(); }

bool World::concerns(std::string_view line) {
  const auto what = line.find("\"what\":\"");
  if (what == line.npos) return false;
  const std::string_view rest = line.substr(what + 8);
  // Of what goes over the wire, which shows in the monitors' light, only that a luminance came back.
  return !rest.starts_with("call\",\"api\":\"IOAV") || rest.find("\"6e 88 02 00 10 ") != rest.npos;
}

void World::see(const Record& record) {
  follow();
  if (record.what == "do") return seeLine(record["line"]);
  if (record.isCall("AudioDeviceStart") || record.what == "preference") soundChangedAt_ = now();
  if (record.what == "preference") othersLevels_.erase(outputOf(record["key"]));
  seeUpdate(record);
}

bool World::makesSense(const json& line) const {
  if (line["do"] != "display" || !line.contains("id")) return true;
  const Display* const display = mac.part<Displays>().find(line["id"].get<std::uint32_t>());
  if (!display || !line.contains("name")) return display || line.contains("name");
  return !display->monitor == line.value("monitor", json()).is_null();  // all of it anew
}

void World::seeLine(const json& line) {
  const std::string& name = line["do"].get_ref<const std::string&>();
  if (!lineIsKnown_) {
    line_ = line;
    lineIsKnown_ = true;
    isAtRest_ = name == "settle";
  } else {
    isAtRest_ = false;  // more happened in the same step
  }
  static const std::set<std::string> quiet = {"advance", "settle", "key",   "pointer",   "snapshot",
                                              "menu",    "slide",  "click", "preference"};
  if (!quiet.contains(name)) disturbedAt_ = now();
  if (name == "fail" && !line["status"].is_null()) toFail_.insert(line["call"].get<std::string>());
  seeDisplayLine(name, line);
  seeSoundLine(name, line);
  seeKeyLine(name, line);
  seeUpdateLine(name, line);
}

void World::seeDisplayLine(const std::string& name, const json& line) {
  if (name == "wake" || name == "display" || name == "registry")
    displaysRefreshed_ = {.from = now(), .until = std::max(displaysRefreshed_.until, now())};
  if (name == "sleep") sleeps_ = true;
  if (name == "monitor") troubledAt_[line["display"].get<std::uint32_t>()] = now();
  if (name == "display" && (line.contains("name") || line.contains("gone"))) {
    const auto id = line["id"].get<std::uint32_t>();
    troubledAt_.erase(id);
    // Another monitor, on the same link.
    if (line.contains("name") && mac.part<Displays>().find(id)) troubledAt_[id] = now();
  }
}

void World::seeSoundLine(const std::string& name, const json& line) {
  static const std::set<std::string> disturbing = {"output", "default-output", "play",    "restart-audio", "temper",
                                                   "wake",   "sleep",          "capture", "launch",        "quit"};
  if (disturbing.contains(name)) soundDisturbedAt_ = std::max(soundDisturbedAt_, now());
  if (name == "wake" || name == "restart-audio") soundRefreshedAt_ = now();
  if (name == "capture") permissionChangedAt_ = now();
  if (name == "temper") {
    // What has begun on a rough machine goes on for a while.
    const auto follow = [&](const char* part, Time& until, Duration settles) {
      if (line.contains(part)) until = line[part] == "rough" ? Time::max() : std::min(until, now() + settles);
    };
    follow("audio", roughUntil_, soundSettles);
    follow("threads", busyUntil_, hearsLate);
  }
  if (name == "preference") othersLevels_.insert(outputOf(line["key"]));
  // The program is told of new rates, channels and streams of what it routes, and of nothing else.
  if (name == "output" && line["id"] == defaultOutput_) {
    static const std::set<std::string> told = {"do", "id", "rate", "channels", "inputs", "frames", "default", "race"};
    const OutputDevice* const device = output();
    const auto isTold = [](const auto& member) { return told.contains(member.key()); };
    const auto items = line.items();
    if (!device || !canBeRouted(device->settings()) || !std::all_of(items.begin(), items.end(), isTold)) {
      outputChangedAt_ = now();
    }
  }
}

void World::seeKeyLine(const std::string& name, const json& line) {
  if (name == "accessibility") {
    trustChangedAt_ = now();
  }
  if (name == "tap") {
    const std::string process =
        line["process"].is_string() ? line["process"].get<std::string>() : line["process"].dump();
    if (line.value("gone", false)) {
      otherTaps_.erase(process);
    } else {
      otherTaps_.insert(process);
    }
  }
  if (name == "pointer") pointerMovedAt_ = now();
  if (name == "disable-tap" || name == "sleep") tapSwitchedOffAt_ = now();
  // The occasions on which the program looks after its tap.
  if (name == "wake" || name == "menu" || name == "click" || name == "disable-tap") tapCheckedAt_ = now();
}

void World::seeUpdateLine(const std::string& name, const json& line) {
  // A request waits for the next thing that comes no longer than the program wants it to.
  const auto timeOf = [&line](Duration patience) {
    const auto seconds = [patience](const json& object, const char* member) {
      const std::chrono::duration<double> time(object.value(member, 0.0));
      return time < patience ? std::chrono::duration_cast<Duration>(time) : patience;
    };
    const json drip = line.value("drip", json::object());
    return seconds(line, "delay") + drip.value("pieces", 1) * seconds(drip, "pause");
  };
  if (name == "image") imageTime_ = std::max(imageTime_, timeOf(60s));
  if (name != "feed") return;
  feed_ = line;
  feedTime_ = timeOf(15s);
  // It comes too late for this check, or not.
  if (updating_ == Updating::checks && mac.scheduler.uptime() < updatesUntil_) found_.clear();
}

void World::seeUpdate(const Record& record) {
  if (record.isCall("NSURLSession.dataTaskWithRequest")) {
    nowUpdates(Updating::checks, feedTime_ + mainThreadHears);
    found_ = titleAfterCheck();
  }
  if (record.isCall("NSURLSession.downloadTaskWithURL")) nowUpdates(Updating::installs, imageTime_ + installTime);
  // Whether that succeeds or not.
  if (record.isCall("remove_all") && isOfInstall(record["path"])) nowUpdates(Updating::hasInstalled, mainThreadHears);
  if (record.isCall("posix_spawn") && record["executable"] == "/bin/sh" && record["status"] == 0)
    nowUpdates(Updating::launches, 0s);
  // Said late, behind other alerts, it is about an install before this one.
  if (record.what == "alert" && record["message"] == "Could not install the update" && updating_ != Updating::installs)
    nowUpdates(Updating::no, 0s);
}

void World::nowUpdates(Updating updating, Duration atMost) {
  updating_ = updating;
  updatesSince_ = now();
  updatesUntil_ = mac.scheduler.uptime() + atMost;
}

// What has changed without a record of its own.
void World::follow() {
  if (std::exchange(sleeps_, false)) {
    // The line before this record, or the step that ends, was the Mac's sleep.
    displaysRefreshed_ = {.from = now(), .until = now() + wakeTellings};
    soundRefreshedAt_ = now();
    soundDisturbedAt_ = now() + outputsReturn;
    disturbedAt_ = now() + outputsReturn;
    tapCheckedAt_ = now();
    tapSwitchedOffAt_ = now();
    followTrouble();
  }
  const bool runs = mac.process.running();
  if (std::exchange(isRunning_, runs) != runs) began();
  const auto chosen = mac.part<Audio>().defaultOutput();
  if (std::exchange(defaultOutput_, chosen) != chosen) {
    soundDisturbedAt_ = std::max(soundDisturbedAt_, now());
  }
  const bool mayCapture = mac.part<simulator::AudioCapture>().isAuthorized();
  if (std::exchange(mayCapture_, mayCapture) != mayCapture) {
    permissionChangedAt_ = now();
    soundDisturbedAt_ = std::max(soundDisturbedAt_, now());
  }
}

void World::began() {
  isAtRest_ = false;
  disturbedAt_ = std::max(disturbedAt_, now());
  soundDisturbedAt_ = std::max(soundDisturbedAt_, now());
  nowUpdates(Updating::no, 0s);
  if (!isRunning_) return;
  launchedAt_ = now();
  othersLevels_.clear();
  displaysRefreshed_ = {.from = now(), .until = std::max(displaysRefreshed_.until, now())};
  soundRefreshedAt_ = now();
  tapCheckedAt_ = now();
  hasLibraries_ = std::ranges::none_of(libraryCalls, [this](const char* call) { return toFail_.contains(call); });
}

// What misbehaved when the step began may have done so up to its end.
void World::followTrouble() {
  for (const Display& display : mac.part<Displays>().all()) {
    if (!display.monitor) continue;
    const bool answers = display.monitor->answersWithin(replyPatience);
    if (!answers || troubled_.contains(display.id)) troubledAt_[display.id] = now();
    answers ? (void)troubled_.erase(display.id) : (void)troubled_.insert(display.id);
  }
  for (const std::string& call : toFail_) failedAt_[call] = now();
  std::erase_if(toFail_, [this](const std::string& call) { return !mac.faults.isPending(call); });
}

void World::endStep() {
  follow();
  followTrouble();
  lineIsKnown_ = false;
}

bool World::failsSince(const std::set<std::string>& calls, Time since) const {
  return std::ranges::any_of(failedAt_,
                             [&](const auto& each) { return each.second >= since && calls.contains(each.first); }) ||
         std::ranges::any_of(toFail_, [&](const std::string& call) { return calls.contains(call); });
}

// ---- Displays ----

Time World::troubledAt(std::uint32_t display) const {
  const auto found = troubledAt_.find(display);
  return found == troubledAt_.end() ? Time{-1} : found->second;
}

Expected World::isControlled(const Display& display) const {
  if (!isRunning_) return Expected::no;
  if (now() < displaysRefreshed_.until + controlTime || !hasLibraries_) return Expected::unknown;
  if (failsSince(displayCalls, displaysRefreshed_.from)) return Expected::unknown;
  if (display.builtin) return Expected::no;
  std::size_t services = 0;
  std::size_t sharers = 0;
  for (const Display& other : mac.part<Displays>().all()) {
    if (other.vendor != display.vendor || other.product != display.product || other.serial != display.serial) continue;
    if (!other.builtin) ++sharers;
    if (other.monitor && other.location == "External") ++services;
  }
  if (services != 1 || sharers != 1) return Expected::no;
  // With one service for one display, it is the display's own.
  if (troubled_.contains(display.id) || troubledAt(display.id) >= displaysRefreshed_.from) return Expected::unknown;
  return display.monitor->maximum() > 0 ? Expected::yes : Expected::no;
}

const Display* World::underPointer(bool& isOne) const {
  const auto& displays = mac.part<Displays>();
  const CGPoint at = displays.pointer();
  const Display* found = nullptr;
  isOne = true;
  for (const Display& display : displays.all()) {
    if (display.mirrors) continue;
    const CGRect& frame = display.frame;
    const double right = frame.origin.x + frame.size.width;
    const double top = frame.origin.y + frame.size.height;
    if (at.x < frame.origin.x || at.x > right || at.y < frame.origin.y || at.y > top) continue;
    // On an edge it is a matter of definition; where two overlap, of their order.
    if (found || at.x == frame.origin.x || at.x == right || at.y == frame.origin.y || at.y == top) isOne = false;
    found = &display;
  }
  return found;
}

Expected World::takesBrightnessKeys() const {
  if (!isRunning_) return Expected::no;
  // The program may have looked at how it was.
  if (now() < pointerMovedAt_ + callTime || now() < displaysRefreshed_.until + controlTime) return Expected::unknown;
  // A screen that does not say which display it is cannot be told from another.
  if (failsSince({"NSScreen.deviceDescription"}, now())) return Expected::unknown;
  bool isOne = false;
  const Display* const display = underPointer(isOne);
  if (!isOne) return Expected::unknown;
  return display ? isControlled(*display) : Expected::no;
}

// ---- Sound ----

OutputDevice* World::output() const {
  const auto number = mac.part<Audio>().defaultOutput();
  return number ? mac.part<Audio>().output(*number) : nullptr;
}

bool World::canBeRouted(const OutputSettings& settings) {
  return settings.isAlive && settings.uid && settings.tapRate.value_or(settings.rate) == settings.rate &&
         settings.tapChannels.value_or(settings.channels) == settings.channels &&
         settings.layout == simulator::SampleLayout{} && settings.tapLayout == simulator::SampleLayout{};
}

Duration World::cycle(const OutputSettings& settings) {
  return std::chrono::duration_cast<Duration>(std::chrono::duration<double>(settings.frames / settings.rate));
}

double World::signal(std::int64_t output) const { return mac.part<Audio>().signal(output); }

Time World::soundMovedAt() const { return std::max(soundDisturbedAt_, soundChangedAt_); }

bool World::isUnsettled() const { return now() < std::min(roughUntil_, soundMovedAt() + soundSettles); }

bool World::isBeingTold() const { return isUnsettled() || (isBusy() && now() < soundMovedAt() + hearsLate); }

int World::lateCycles(const OutputDevice& device) const {
  const Duration each = cycle(device.settings());
  return isBusy() ? static_cast<int>((heldBack + each - Duration(1)) / each) : 0;
}

Expected World::controlsVolume() const {
  if (!isRunning_) return Expected::no;
  if (now() < soundDisturbedAt_ + soundSettles) return Expected::unknown;
  if (failsSince(soundCalls, soundRefreshedAt_)) return Expected::unknown;
  // What changed since the program last chose it may not know.
  if (permissionChangedAt_ >= soundRefreshedAt_ || outputChangedAt_ >= soundRefreshedAt_) return Expected::unknown;
  const OutputDevice* const device = output();
  if (!device) return Expected::no;
  const OutputSettings& settings = device->settings();
  if (!settings.uid || !settings.name || settings.volume == OutputSettings::Volume::settable) return Expected::no;
  return mac.part<simulator::AudioCapture>().isAuthorized() ? Expected::yes : Expected::no;
}

std::optional<float> World::storedGain(const OutputDevice& device) const {
  if (!device.settings().uid || othersLevels_.contains(*device.settings().uid)) return std::nullopt;
  const auto& preferences = mac.part<simulator::Preferences>();
  const std::string uid = *device.settings().uid;
  const json* const muted = preferences.value("muted." + uid);
  if (muted && *muted == json(true)) return 0.0F;
  const json* const steps = preferences.value("steps." + uid);
  const float level = steps && steps->is_number_integer() ? std::clamp(steps->get<float>(), 0.0F, 16.0F) : 16.0F;
  return std::pow(level / 16, 3.0F);
}

// ---- Keys ----

Expected World::seesKeys() const {
  if (!isRunning_) return Expected::no;
  if (!otherTaps_.empty() || now() < launchedAt_ + launchTime) return Expected::unknown;
  // A tap that was switched off lets what comes meanwhile go to the system; so does one in whose callback the Mac fell
  // asleep, which took too long.
  if (now() < tapSwitchedOffAt_ + launchTime) return Expected::unknown;
  if (failsSince(keyCalls, launchedAt_)) return Expected::unknown;
  if (!mac.part<simulator::Accessibility>().granted()) return Expected::unknown;
  // Given back, it is found by the poll, if the program has noticed that it was taken.
  if (trustChangedAt_ >= launchedAt_) {
    return tapCheckedAt_ > trustChangedAt_ && now() >= tapCheckedAt_ + trustPoll ? Expected::yes : Expected::unknown;
  }
  return Expected::yes;
}

// ---- Updates ----

bool World::isInstalling() const { return updating_ == Updating::installs && mac.scheduler.uptime() < updatesUntil_; }

std::string World::updateTitle() const {
  if (!isRunning_) return "";
  if (updating_ == Updating::launches || isInstalling()) return installingUpdate;
  if (mac.scheduler.uptime() < updatesUntil_) return "";
  if (updating_ != Updating::checks) return checkForUpdates;
  // Nor can it be told whether an install came as far as to a record of it.
  return failsSince(updateCalls, updatesSince_) ? "" : found_;
}

// As far as the published releases are simple.
std::string World::titleAfterCheck() const {
  const json& line = feed_;
  json version = mac.process.program().version;  // what is published at first
  if (!line.is_null()) {
    const bool isError = line.contains("error") && !line["error"].is_null();
    if (isError || line.value("status", 200) != 200 || line.value("releases", nothing) == json::array()) {
      return checkForUpdates;
    }
    if (line.contains("body")) return json::accept(line["body"].get<std::string>()) ? "" : checkForUpdates;
    static const std::set<std::string> simple = {"do", "race", "releases", "status", "error", "delay", "drip"};
    const auto items = line.items();
    const bool isSimple =
        std::all_of(items.begin(), items.end(), [](const auto& each) { return simple.contains(each.key()); });
    if (!isSimple || !line.contains("releases") || line["releases"].size() != 1) return "";
    const json& release = line["releases"][0];
    for (const char* member : {"version", "date", "dmg_url", "notes"}) {
      if (!release.is_object() || !release.contains(member) || !release[member].is_string()) return "";
    }
    if (!release.contains("size_bytes") || !release["size_bytes"].is_number_integer()) return "";
    version = release["version"];
  }
  const json& info = mac.part<simulator::Applications>().runningInfo();
  const auto offered = numbersIn(version);
  const auto running = numbersIn(info.value("CFBundleShortVersionString", nothing));
  if (!offered || !running) return "";
  return *offered > *running ? "Update to " + version.get<std::string>() + "…" : checkForUpdates;
}

}  // namespace campaign
