// The world around the program, as far as it follows from the lines that were played, the records that came of them,
// and what a person could see of the machine's hardware. Invariants are held against it. It knows nothing of who wrote
// the lines, so that a scenario file is judged as a campaign is.
#pragma once

#include <cstdint>
#include <map>
#include <nlohmann/json.hpp>
#include <optional>
#include <set>
#include <string>
#include <string_view>

#include "simulator/audio/OutputDevice.h"
#include "simulator/displays/Displays.h"
#include "simulator/kernel/Scheduler.h"

namespace simulator {
class Mac;
}

namespace campaign {

using simulator::Duration;
using simulator::Time;

// One record of the trace.
struct Record {
  Time time;
  std::string what;
  nlohmann::json members;

  // The member of that name; of a call, the argument.
  [[nodiscard]] const nlohmann::json& operator[](const char* name) const;
  [[nodiscard]] bool isCall(std::string_view api) const;
};

// Whether the path is that of a working directory of an install, or below it.
bool isOfInstall(const nlohmann::json& path);

// An event of one of the program's keys that was offered to it: of a media key, or of a plain brightness key, which
// has no release.
struct KeyEvent {
  enum class Key { volumeUp, volumeDown, brightnessUp, brightnessDown, mute };
  Key key;
  bool isPress;
  bool isRepeat;

  // None: the record is no such event.
  static std::optional<KeyEvent> of(const Record& record);
  [[nodiscard]] bool isVolume() const { return key == Key::volumeUp || key == Key::volumeDown || key == Key::mute; }
};

// What must be so, must not, or cannot be told: the world has just changed, or something failed.
enum class Expected { no, yes, unknown };

class World {
 public:
  explicit World(simulator::Mac& mac);

  // ---- What happens ----

  // Whether anything is learnt from records that begin so; the others need not be read.
  static bool concerns(std::string_view line);
  void see(const Record& record);
  // Whether the line will do something where it stands: others may have raced past it.
  [[nodiscard]] bool makesSense(const nlohmann::json& line) const;
  // A line, and those that raced with it, have been played.
  void endStep();

  // ---- What is known ----

  simulator::Mac& mac;
  [[nodiscard]] Time now() const;
  [[nodiscard]] bool isRunning() const { return isRunning_; }
  // The Mac holds threads back now and then.
  [[nodiscard]] bool isBusy() const { return now() < busyUntil_; }
  [[nodiscard]] Time launchedAt() const { return launchedAt_; }
  // The step was one that let everything come to rest, and nothing has happened since.
  [[nodiscard]] bool isAtRest() const { return isAtRest_; }
  // The name of the step's first line.
  [[nodiscard]] bool lineIs(std::string_view name) const { return line_["do"] == name; }
  // Since when no line has changed anything but time, keys and pointer.
  [[nodiscard]] Time quietSince() const { return disturbedAt_; }
  // Whether calls failed on purpose since then, or may still.
  [[nodiscard]] bool failsSince(const std::set<std::string>& calls, Time since) const;
  // What the program loads once could be loaded when it started: the pop-up service and what displays take.
  [[nodiscard]] bool hasLibraries() const { return hasLibraries_; }

  // ---- Displays ----

  // Whether the display must be controlled by now, from the last occasion on which the program looks for displays.
  [[nodiscard]] Expected isControlled(const simulator::Display& display) const;
  // Whether a brightness key must be taken: it is for the display under the pointer.
  [[nodiscard]] Expected takesBrightnessKeys() const;
  // When the monitor was last known to misbehave, or was changed; never: the beginning of time.
  [[nodiscard]] Time troubledAt(std::uint32_t display) const;
  // The last occasion on which the program looks for displays: from when, and until when it may come.
  struct Occasion {
    Time from{0};
    Time until{0};
  };
  [[nodiscard]] Occasion displaysRefreshed() const { return displaysRefreshed_; }

  // ---- Sound ----

  // Whether the program must control the default output.
  [[nodiscard]] Expected controlsVolume() const;
  // The default output; null: there is none.
  [[nodiscard]] simulator::OutputDevice* output() const;
  // What other programs play to that output: the sum of their levels.
  [[nodiscard]] double signal(std::int64_t output) const;
  // The stored level of that output: 1 at full volume. None: another program has written it since the program last did,
  // or was launched, or the output does not say which it is.
  [[nodiscard]] std::optional<float> storedGain(const simulator::OutputDevice& output) const;
  // What a router needs of the output.
  static bool canBeRouted(const simulator::OutputSettings& settings);
  // The audio hardware does everything as badly as it can, and something about sound has begun or changed a moment ago:
  // notices are on their way, and I/O that begins lacks sound, or lets it through, for some cycles.
  [[nodiscard]] bool isUnsettled() const;
  // That, or a busy Mac holds back the threads by which the program hears of it.
  [[nodiscard]] bool isBeingTold() const;
  // How long an output's cycle is.
  static Duration cycle(const simulator::OutputSettings& settings);
  // How many cycles of that output a thread may be held back for: some when the Mac is busy.
  [[nodiscard]] int lateCycles(const simulator::OutputDevice& output) const;
  // When the permission to record sound was last given or taken.
  [[nodiscard]] Time permissionChangedAt() const { return permissionChangedAt_; }

  // ---- Keys ----

  // Whether the program's event tap must see the keys.
  [[nodiscard]] Expected seesKeys() const;

  // ---- Updates ----

  // A download has been asked for, and the program, which still runs, or has just ended, has not come to the last thing
  // that an install does to files, which is to remove its working directory; for as long as that may take at most.
  [[nodiscard]] bool isInstalling() const;
  // What the item for updates must say; empty: it cannot be told.
  [[nodiscard]] std::string updateTitle() const;

 private:
  void seeLine(const nlohmann::json& line);
  void seeDisplayLine(const std::string& name, const nlohmann::json& line);
  void seeSoundLine(const std::string& name, const nlohmann::json& line);
  void seeKeyLine(const std::string& name, const nlohmann::json& line);
  void seeUpdateLine(const std::string& name, const nlohmann::json& line);
  void seeUpdate(const Record& record);
  void follow();
  void followTrouble();
  void began();
  [[nodiscard]] const simulator::Display* underPointer(bool& isOne) const;
  // When something last happened to sound.
  [[nodiscard]] Time soundMovedAt() const;

  bool isRunning_ = false;
  bool isAtRest_ = false;
  nlohmann::json line_ = nlohmann::json::object();
  bool lineIsKnown_ = false;
  Time launchedAt_{0};
  Time disturbedAt_{0};
  bool hasLibraries_ = true;
  std::map<std::string, Time> failedAt_;  // calls that were to fail, and when they last were
  std::set<std::string> toFail_;

  bool sleeps_ = false;
  Occasion displaysRefreshed_;
  std::map<std::uint32_t, Time> troubledAt_;
  std::set<std::uint32_t> troubled_;  // when it was last looked at

  std::optional<std::int64_t> defaultOutput_;
  Time soundRefreshedAt_{0};  // what was wrong before it does not matter any more
  Time soundDisturbedAt_{0};
  Time permissionChangedAt_{-1};
  Time outputChangedAt_{-1};
  std::set<std::string> othersLevels_;  // of these outputs another program has written the level last
  Time roughUntil_{0};
  Time busyUntil_{0};
  Time soundChangedAt_{0};  // by the program
  bool mayCapture_ = true;  // when the program last looked

  Time trustChangedAt_{-1};
  Time tapCheckedAt_{-1};
  Time tapSwitchedOffAt_{-1};
  Time pointerMovedAt_{-1000000000};
  std::set<std::string> otherTaps_;

  enum class Updating { no, checks, installs, hasInstalled, launches };
  void nowUpdates(Updating updating, Duration atMost);
  [[nodiscard]] std::string titleAfterCheck() const;

  Updating updating_ = Updating::no;
  Time updatesSince_{0};
  Time updatesUntil_{0};  // at most, on the uptime clock
  std::string found_;     // what the item says after the check
  nlohmann::json feed_;   // the line that says what is published; null: there was none
  Duration feedTime_{0};  // that the host takes for it
  Duration imageTime_{0};
};

// The calls whose failure can keep displays, sound, keys or updates from working.
extern const std::set<std::string> displayCalls;
extern const std::set<std::string> soundCalls;
extern const std::set<std::string> keyCalls;
extern const std::set<std::string> updateCalls;
// Of those for sound, the ones that building a router and taking it down consist of.
extern const std::set<std::string> routerCalls;

}  // namespace campaign
