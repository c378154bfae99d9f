// What must be so of the menu, of files and processes, and of the program as a guest of the system.
#include <algorithm>
#include <cmath>
#include <filesystem>
#include <set>

#include "desk/campaign/Invariant.h"
#include "simulator/audio/Audio.h"
#include "simulator/desktop/MenuBar.h"
#include "simulator/foundation/Preferences.h"
#include "simulator/foundation/RunLoop.h"
#include "simulator/mac/Mac.h"
#include "simulator/privacy/Accessibility.h"
#include "simulator/software/Applications.h"
#include "simulator/software/LoginItem.h"
#include "simulator/system/ChildProcesses.h"
#include "simulator/system/Files.h"
#include "simulator/system/SystemRoot.h"
#include "simulator/system/Volumes.h"

namespace campaign {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using nlohmann::json;

// Whether something was done to files or processes.
bool touchesFiles(const Record& record) {
  static const std::set<std::string> calls = {"rename", "remove", "remove_all", "posix_spawn"};
  if (record.what == "do") return record["line"]["do"] == "bundle";
  if (record.isCall("NSURLSession.downloadTaskWithURL")) return true;
  return record.what == "exit" || (record.what == "call" && calls.contains(record["api"].get<std::string>()));
}

std::string nameIn(const json& path) { return fs::path(path.get_ref<const std::string&>()).filename(); }

fs::path backupOf(const World& world) { return world.mac.part<simulator::Applications>().bundle().string() + ".bak"; }

// Whether the installed bundle could not be removed, so that its backup could take its place, or that could not.
bool failsToPutBack(const World& world, const Record& record) {
  if (record["status"] == 0) return false;
  const std::string bundle = world.mac.part<simulator::Applications>().bundle().filename();
  return (record.isCall("remove_all") && nameIn(record["path"]) == bundle) ||
         (record.isCall("rename") && nameIn(record["from"]) == bundle + ".bak");
}

class NothingIsLeftBehind : public Invariant {
 public:
  NothingIsLeftBehind()
      : Invariant("nothing-is-left-behind",
                  "There is no mounted image, working directory, backup or child process but while an update is "
                  "installed.") {}

  void see(const World& world, const Record& record) override {
    isTouched_ = isTouched_ || touchesFiles(record);
    if (record.what == "do" && record["line"].contains("backup")) excused_.insert(backupOf(world).filename());
    if (record.what == "exit") {
      launching_ = 0;
      // Ending the program in the middle of an install leaves it as it is.
      if (world.isInstalling()) excused_.merge(leftovers(world));
    }
    if (record.what == "call") seeCall(world, record);
  }

  void look(const World& world) override {
    if (!isTouched_ || world.isInstalling()) return;
    isTouched_ = false;
    const std::set<std::string> left = leftovers(world);
    std::erase_if(excused_, [&left](const std::string& each) { return !left.contains(each); });
    for (const std::string& each : left) {
      if (!excused_.contains(each)) isBroken(each + " is left");
    }
    const std::size_t children = world.mac.part<simulator::ChildProcesses>().unwaited();
    if (children > launching_ && !world.failsSince({"waitpid"}, world.launchedAt()))
      isBroken(std::to_string(children) + " child processes are left");
  }

 private:
  // What cannot be removed the program tries once.
  void seeCall(const World& world, const Record& record) {
    if (record.isCall("NSURLSession.downloadTaskWithURL")) {
      begunAt_ = record.time;
      detachFails_ = false;
    }
    if (record.isCall("posix_spawn")) {
      const bool fails = record["status"] != 0 || (record["exit"] != 0 && !record["exit"].is_null());
      // The shell that launches the new version waits for the end of this one.
      if (record["executable"] == "/bin/sh") launching_ = fails ? 0 : 1;
      if (record["arguments"][0] == "detach") detachFails_ = fails;
    }
    const bool failsToRemove = record.isCall("remove_all") && record["status"] != 0;
    if (failsToPutBack(world, record) || (failsToRemove && nameIn(record["path"]) == backupOf(world).filename()))
      excused_.insert(backupOf(world).filename());
    if (!failsToRemove || !isOfInstall(record["path"])) return;
    // What makes a process ready leaves no record.
    static const std::set<std::string> readying = {
        "posix_spawnattr_init",          "posix_spawnattr_setflags",      "posix_spawnattr_setsigmask",
        "posix_spawnattr_setsigdefault", "posix_spawn_file_actions_init", "posix_spawn_file_actions_addinherit_np"};
    std::set<std::string> left = leftovers(world);
    std::erase_if(left, [name = nameIn(record["path"])](const auto& each) { return !each.starts_with(name); });
    const bool isAttached = left.size() > 1;
    if (!isAttached || detachFails_ || world.failsSince(readying, begunAt_)) excused_.merge(left);
  }

  // Images and working directories, by their paths in the temporary directory, and the backup.
  static std::set<std::string> leftovers(const World& world) {
    const simulator::MachineAtWork work;  // not the program, in the middle of which the record may have come
    const auto& root = world.mac.part<simulator::SystemRoot>();
    const fs::path temporary = root.temporaryDirectory();
    std::set<std::string> found;
    for (const fs::path& point : simulator::Volumes(root.path()).mountPoints()) {
      // An application that was opened in its image.
      if (!point.string().starts_with(root.below("/Volumes").string()))
        found.insert(point.lexically_relative(temporary));
    }
    for (const auto& entry : fs::directory_iterator(temporary)) {
      if (isOfInstall(entry.path().string())) found.insert(entry.path().filename());
    }
    const fs::path backup = backupOf(world);
    if (fs::exists(fs::symlink_status(backup))) found.insert(backup.filename());
    return found;
  }

  bool isTouched_ = false;
  std::size_t launching_ = 0;  // processes
  Time begunAt_{0};            // the last install
  bool detachFails_ = false;
  std::set<std::string> excused_;  // what is left for a reason, as long as it is there
};

class BundleIsWhole : public Invariant {
 public:
  BundleIsWhole() : Invariant("bundle-is-whole", "What is installed is always one whole, validly signed version.") {}

  void see(const World& world, const Record& record) override {
    isTouched_ = isTouched_ || touchesFiles(record);
    if (record.what == "exit" && world.isInstalling()) mayLieBeside_ = true;
    if (failsToPutBack(world, record)) mayLieBeside_ = true;
    // What the user has put there is what it is.
    if (record.what == "do" && record["line"]["do"] == "bundle") {
      const json& line = record["line"];
      const json signer = line.contains("signer") ? line["signer"] : json("Tessbrook");
      const json tampered = line.contains("tampered") ? line["tampered"] : json(false);
      isOurs_ =
          signer == "Tessbrook" && tampered == false && !line.value("forged", false) && !line.contains("identifier");
    }
  }

  void look(const World& world) override {
    if (!std::exchange(isTouched_, false) || !isOurs_) return;
    const auto& applications = world.mac.part<simulator::Applications>();
    const fs::path bundle = applications.bundle();
    if (isWhole(world, bundle)) {
      mayLieBeside_ = false;
      return;
    }
    // While the new version is copied, and when that was cut short or could not be taken back, the old one lies beside
    // its place, whole: the next install puts it back.
    if ((world.isInstalling() || mayLieBeside_) && isWhole(world, backupOf(world))) {
      isTouched_ = world.isInstalling();
      return;
    }
    isBroken(fs::exists(bundle) ? "the installed bundle is not whole" : "nothing is installed");
  }

 private:
  static bool isWhole(const World& world, const fs::path& bundle) {
    const simulator::CodeRequirement ours = {.identifier = world.mac.process.program().identifier,
                                             .team = simulator::teamIdentifier(world.mac.process.program().publisher)};
    return simulator::Applications::signers().check(bundle, {.strict = true, .allArchitectures = true}, ours) == 0;
  }

  bool isTouched_ = false;
  bool isOurs_ = true;
  bool mayLieBeside_ = false;  // until it is whole again
};

class NothingLeaks : public Invariant {
 public:
  NothingLeaks() : Invariant("nothing-leaks", "Nothing that the program made outlives its process.") {}

  void look(const World& world) override {
    // What could not be destroyed is lost.
    static const std::set<std::string> destroying = {"AudioObjectRemovePropertyListenerBlock",
                                                     "AudioHardwareDestroyProcessTap",
                                                     "AudioHardwareDestroyAggregateDevice",
                                                     "AudioDeviceDestroyIOProcID",
                                                     "AudioDeviceStop",
                                                     "IOObjectRelease"};
    for (const auto& [kind, count] : world.mac.process.leaks()) {
      if (world.failsSince(destroying, Time{0})) return;
      isBroken(std::to_string(count) + " of " + kind + " leaked");
    }
  }
};

class MainThreadIsQuick : public Invariant {
 public:
  MainThreadIsQuick()
      : Invariant("main-thread-is-quick",
                  "No call into the program on the main thread takes longer than the system's patience with an event "
                  "tap.") {}

  void look(const World& world) override {
    const Duration longest = world.mac.part<simulator::RunLoop>().longestWork();
    if (longest > patience)
      isBroken("the main thread was held up for " + std::to_string(longest.count() / 1'000'000) + " ms");
  }

 private:
  static constexpr Duration patience = 1s;
};

// Over an hour and more in which nothing happens, the program wakes up for the updater's timer and the poll for the
// Accessibility permission alone; and for sound, where it plays any.
class IdleMeansIdle : public Invariant {
 public:
  IdleMeansIdle()
      : Invariant("idle-means-idle", "While nothing happens the program wakes up for its named timers alone.") {}

  void see(const World& world, const Record& record) override {
    if (record.what == "do") {
      isIdle_ = record["line"]["do"] == "advance" && world.isRunning() && world.quietSince() + 60s < record.time &&
                !world.isInstalling();
      since_ = record.time;
      works_ = world.mac.part<simulator::RunLoop>().works();
      wakeUps_ = world.mac.scheduler.wakeUps();
    }
  }

  void look(const World& world) override {
    const Duration idle = world.now() - since_;
    if (!std::exchange(isIdle_, false) || idle < 1h) return;
    const std::uint64_t checks = static_cast<std::uint64_t>(idle / 6h) + 1;
    std::uint64_t polls = 0;
    if (!world.mac.part<simulator::Accessibility>().granted()) polls = static_cast<std::uint64_t>(idle / 2s) + 1;
    count("the main thread", world.mac.part<simulator::RunLoop>().works() - works_, checks * worksOfACheck + polls,
          idle);
    if (world.mac.part<simulator::Audio>().taps() > 0 || world.isBusy()) return;
    count("threads", world.mac.scheduler.wakeUps() - wakeUps_, checks * wakeUpsOfACheck + polls, idle);
  }

 private:
  void count(const std::string& what, std::uint64_t times, std::uint64_t allowed, Duration idle) {
    if (times <= allowed) return;
    isBroken(what + " woke up " + std::to_string(times) + " times in " + std::to_string(idle / 1h) +
             " hours, instead of " + std::to_string(allowed));
  }

  // The timer, and what the answer comes through.
  static constexpr std::uint64_t worksOfACheck = 2;
  // The main thread for these, and the thread of the request, which waits for the answer.
  static constexpr std::uint64_t wakeUpsOfACheck = 4;

  bool isIdle_ = false;
  Time since_{0};
  std::uint64_t works_ = 0;
  std::uint64_t wakeUps_ = 0;
};

class MenuShowsTheTruth : public Invariant {
 public:
  MenuShowsTheTruth() : Invariant("menu-shows-the-truth", "The menu, when it opens and at rest, shows what is.") {}

  void see(const World&, const Record& record) override {
    if (record.what != "do") return;
    const json& line = record["line"];
    if (line["do"] == "menu" && line["open"] == true) {
      isOpening_ = true;
      if (!wasOpen_) openedAt_ = record.time;
    }
  }

  void look(const World& world) override {
    auto& bar = world.mac.part<simulator::MenuBar>();
    if (!bar.isOpen()) {
      isOpening_ = false;
      wasOpen_ = false;
      return;
    }
    const bool opens = std::exchange(isOpening_, false) && !wasOpen_ && world.lineIs("menu");
    wasOpen_ = true;
    if (!opens && !world.isAtRest()) return;
    nlohmann::ordered_json state;
    bar.snapshot(state);
    if (!state["menu"].is_array()) return;
    std::vector<json> items;
    for (const auto& item : state["menu"]) items.push_back(json::parse(item.dump()));
    checkFixed(world, items, opens);
    // Rows are made when the menu opens: behind those that were made before, or soon after, something changed there may
    // be something else.
    if (!opens && openedAt_ < world.quietSince() + 3s) return;
    checkVolume(world, items);
    if (!world.failsSince({"NSScreen.deviceDescription"}, openedAt_)) checkBrightness(world, items);
  }

 private:
  void checkFixed(const World& world, const std::vector<json>& items, bool opens) {
    if (items.size() < 5) return isBroken("the menu lacks items");
    const auto fixed = items.end() - 5;
    if (fixed[0]["title"] != "Start at Login" || fixed[2]["separator"] != true || fixed[4]["title"] != "Quit Dalvane" ||
        !fixed[3]["title"].get<std::string>().starts_with("Version ")) {
      isBroken("the menu's fixed items are not as they should be");
    }
    const auto& login = world.mac.part<simulator::LoginItem>();
    if (opens && fixed[0]["ticked"] != (login.registered() && login.approved())) {
      isBroken("\"Start at Login\" is ticked wrongly");
    }
    const json& update = fixed[1];
    if (const std::string title = world.updateTitle(); !title.empty() && update["title"] != title) {
      isBroken("the menu says " + update["title"].dump() + " instead of " + json(title).dump());
    }
    const bool isBusy = update["title"] == "Checking for Updates…" || update["title"] == "Installing Update…";
    if (update["enabled"] == isBusy) isBroken(update["title"].dump() + " can" + (isBusy ? "" : "not") + " be chosen");
  }

  // The slider rows below the section header of that title.
  static std::vector<json> rowsBelow(const std::vector<json>& items, const char* header) {
    std::vector<json> rows;
    bool isBelow = false;
    for (const json& item : items) {
      if (item["slider"].is_null()) {
        isBelow = item["header"] == true && item["title"] == header;
      } else if (isBelow) {
        rows.push_back(item["slider"]);
      }
    }
    return rows;
  }

  void checkVolume(const World& world, const std::vector<json>& items) {
    const auto rows = rowsBelow(items, "Volume");
    const Expected controls = world.controlsVolume();
    if (controls == Expected::unknown) return;
    if (rows.size() != (controls == Expected::yes ? 1 : 0)) {
      return isBroken("the menu has " + std::to_string(rows.size()) + " volume rows");
    }
    if (rows.empty()) return;
    const auto gain = world.storedGain(*world.output());
    if (!gain) return;
    const double steps = std::round(std::cbrt(*gain) * 16);
    if (rows[0]["caption"] != *world.output()->settings().name || rows[0]["value"] != steps) {
      isBroken("the volume row shows " + rows[0]["caption"].dump() + " at " + rows[0]["value"].dump() + " instead of " +
               std::to_string(steps));
    }
  }

  void checkBrightness(const World& world, const std::vector<json>& items) {
    const auto rows = rowsBelow(items, "Brightness");
    std::set<std::string> known;
    for (const auto& display : world.mac.part<simulator::Displays>().all()) {
      const Expected controlled = world.isControlled(display);
      if (controlled == Expected::unknown || !known.insert(display.name).second) continue;
      const auto row = std::ranges::find_if(rows, [&](const json& each) { return each["caption"] == display.name; });
      if ((row != rows.end()) != (controlled == Expected::yes && !display.mirrors)) {
        isBroken("the menu " + std::string(row == rows.end() ? "has no" : "has a") + " row for " + display.name);
        continue;
      }
      if (row == rows.end() || !world.isAtRest() || world.troubledAt(display.id) >= world.displaysRefreshed().from)
        continue;
      const double value = (*row)["value"];
      const double light = display.monitor->current();
      const double maximum = display.monitor->maximum();
      // Sent by the program, or found by it.
      if (std::lround(value * maximum / 16) != std::lround(light) && value != std::trunc(light * 16 / maximum)) {
        isBroken("the row of " + display.name + " shows " + (*row)["value"].dump() + " and its monitor is at " +
                 std::to_string(display.monitor->current()));
      }
    }
  }

  bool isOpening_ = false;
  bool wasOpen_ = false;
  Time openedAt_{-1};
};

}  // namespace

void addSystemInvariants(Invariants& all) {
  all.push_back(std::make_unique<NothingIsLeftBehind>());
  all.push_back(std::make_unique<BundleIsWhole>());
  all.push_back(std::make_unique<NothingLeaks>());
  all.push_back(std::make_unique<MainThreadIsQuick>());
  all.push_back(std::make_unique<IdleMeansIdle>());
  all.push_back(std::make_unique<MenuShowsTheTruth>());
}

Invariants allInvariants() {
  Invariants all;
  addDisplayInvariants(all);
  addKeyInvariants(all);
  addSoundInvariants(all);
  addSystemInvariants(all);
  return all;
}

}  // namespace campaign
