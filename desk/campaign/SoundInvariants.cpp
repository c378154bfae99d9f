// What must be so of what is heard.
#include <algorithm>
#include <cmath>
#include <map>
#include <set>

#include "desk/campaign/Invariant.h"
#include "simulator/audio/Audio.h"
#include "simulator/foundation/Preferences.h"
#include "simulator/mac/Mac.h"

namespace campaign {
namespace {

using simulator::Audio;
using simulator::OutputDevice;

// Sums of samples in 32 bits.
constexpr double rounding = 1e-5;

std::string text(double value) { return nlohmann::json(value).dump(); }

// Whether the program's router must be running.
Expected isRouted(const World& world) {
  const Expected controls = world.controlsVolume();
  if (controls != Expected::yes) return controls;
  const OutputDevice& output = *world.output();
  if (!World::canBeRouted(output.settings())) return Expected::no;
  const auto gain = world.storedGain(output);
  if (!gain) return Expected::unknown;
  return *gain < 1 ? Expected::yes : Expected::no;
}

class LoudnessIsStored : public Invariant {
 public:
  LoudnessIsStored()
      : Invariant("loudness-is-stored",
                  "At rest a speaker plays the signal times the gain of its stored level, and untouched where the "
                  "program has nothing to do.") {}

  void see(const World&, const Record& record) override {
    if (record.what == "preference") changedAt_ = record.time;
  }

  void look(const World& world) override {
    if (!world.isAtRest() || world.isUnsettled()) return;
    const Expected routed = isRouted(world);
    if (routed == Expected::unknown) return;
    const OutputDevice* const output = world.output();
    if (!output) return;
    // The ramp to a new level takes one cycle, and is heard in the next; and there is the rest of the one before.
    const int cycles = 3 + world.lateCycles(*output);
    if (world.now() < changedAt_ + cycles * World::cycle(output->settings())) return;
    const double signal = output->settings().isAlive ? world.signal(output->number) : 0;
    const bool isRoutedNow = routed == Expected::yes;
    const double wanted = isRoutedNow ? signal * *world.storedGain(*output) : signal;
    const bool wantsDirect = !isRoutedNow && signal > 0;
    const float level = output->speaker.level();
    if (std::abs(level - wanted) > rounding || output->speaker.direct() != wantsDirect) {
      isBroken("output " + std::to_string(output->number) + " plays " + text(level) +
               (output->speaker.direct() ? " directly" : "") + " instead of " + text(wanted));
    }
  }

 private:
  Time changedAt_{0};
};

class NeverBothPaths : public Invariant {
 public:
  NeverBothPaths()
      : Invariant("never-both-paths", "Sound never takes both paths, and is never louder than it was played.") {}

  void hear(const World& world, std::int64_t output, float level, bool) override {
    const double signal = world.signal(output);
    // A cycle that began before the signal became softer is as loud as that was.
    const double loudest = std::max(signal, std::exchange(before_[output], signal));
    // Rough hardware lets both through for some cycles when it begins.
    if (world.isUnsettled() || level <= loudest + rounding) return;
    isBroken("output " + std::to_string(output) + " plays " + text(level) + " of " + text(signal));
  }

 private:
  std::map<std::int64_t, double> before_;
};

class FullScale : public Invariant {
 public:
  FullScale() : Invariant("full-scale", "No speaker ever plays above full scale.") {}

  void hear(const World& world, std::int64_t output, float level, bool) override {
    // Of what other programs play, and rough hardware plays twice, nothing is the program's.
    const double loudest = std::max(1.0, world.signal(output) * (world.isUnsettled() ? 2 : 1));
    if (level > loudest + rounding) isBroken("output " + std::to_string(output) + " plays " + text(level));
  }
};

class NeverSilent : public Invariant {
 public:
  NeverSilent()
      : Invariant("never-silent",
                  "No speaker is silent for more than two cycles, unless it is muted, at 0, or the hardware was.") {}

  void see(const World& world, const Record& record) override {
    // The system gives silence to a tap that is made without the permission. The program asks for it just before; what
    // is taken between the two calls it learns of at the next occasion.
    if (record.isCall("AudioHardwareCreateProcessTap")) {
      isDeaf_ = world.permissionChangedAt() >= Time{0} && record.time <= world.permissionChangedAt() + betweenCalls;
    }
  }

  void hear(const World& world, std::int64_t output, float level, bool) override {
    int& silent = silent_[output];
    if (level > 0 || world.signal(output) == 0 || isDeaf_ || isExcused(world, output)) {
      silent = 0;
    } else if (++silent > 2 + world.lateCycles(*world.mac.part<Audio>().output(output))) {
      isBroken("output " + std::to_string(output) + " has been silent for " + std::to_string(silent) + " cycles");
    }
  }

 private:
  static bool isExcused(const World& world, std::int64_t number) {
    // Rough hardware delivers nothing for some cycles when it begins.
    if (world.isUnsettled()) return true;
    const OutputDevice* const output = world.mac.part<Audio>().output(number);
    if (!output || !output->settings().isAlive) return true;
    const auto gain = world.storedGain(*output);
    return !gain || *gain == 0;
  }

  static constexpr Duration betweenCalls = std::chrono::milliseconds(100);

  bool isDeaf_ = false;
  std::map<std::int64_t, int> silent_;
};

class NothingIsTapped : public Invariant {
 public:
  NothingIsTapped()
      : Invariant("nothing-is-tapped",
                  "There is a tap and an aggregate device exactly while they have to be, and never a microphone.") {}

  void look(const World& world) override {
    // What could not be destroyed stays until the process ends.
    static const std::set<std::string> destroying = {"AudioHardwareDestroyProcessTap",
                                                     "AudioHardwareDestroyAggregateDevice"};
    if (world.isRunning() && world.failsSince(destroying, world.launchedAt())) return;
    const auto& audio = world.mac.part<Audio>();
    const std::size_t taps = audio.taps();
    const std::size_t aggregates = audio.aggregates();
    // That its output has more inputs now, a router may have to learn first.
    if (audio.usesMicrophone() && !world.isBeingTold()) isBroken("a microphone is open");
    if (taps > 1 || aggregates > taps) isBroken(said(taps, aggregates));
    if (!world.isRunning() && taps + aggregates > 0) isBroken(said(taps, aggregates) + " without the program");
    if (!world.isAtRest()) return;
    const Expected routed = isRouted(world);
    if (routed == Expected::unknown) return;
    const std::size_t wanted = routed == Expected::yes ? 1 : 0;
    if (taps != wanted || aggregates != wanted)
      isBroken(said(taps, aggregates) + " instead of " + std::to_string(wanted));
  }

 private:
  static std::string said(std::size_t taps, std::size_t aggregates) {
    return "there are " + std::to_string(taps) + " taps and " + std::to_string(aggregates) + " aggregate devices";
  }
};

// Nobody but the keys and the slider changes what is stored, and what they say is what is there.
class PreferencesHold : public Invariant {
 public:
  PreferencesHold()
      : Invariant("preferences-hold", "The preferences hold what the last action says, also after a new launch.") {}

  void see(const World&, const Record& record) override {
    if (record.what == "do" && record["line"]["do"] == "preference") {
      known_[record["line"]["key"].get<std::string>()] = record["line"]["value"];
    }
    if (record.what == "do" && record["line"]["do"] == "slide") {
      slidesAt_ = record.time;
      for (const auto& [key, value] : written_) known_[key] = value;
    }
    if (record.what == "preference") {
      const auto key = record["key"].get<std::string>();
      written_[key] = record["value"];
      if (slides(record)) known_[key] = record["value"];
    }
    const auto event = KeyEvent::of(record);
    if (slides(record)) {
      // A key may have begun while the slider was moved.
      if (!written_.empty()) wasDisturbed_ = true;
      if (event) wasDisturbed_ = false;
      written_.clear();
      return;
    }
    if (!event) return;
    if (std::exchange(wasDisturbed_, false)) {
      for (const auto& [key, value] : written_) known_[key] = value;
      written_.clear();
      return;
    }
    const auto written = std::exchange(written_, {});
    const bool acts = record["swallowed"] == true && event->isPress && event->isVolume() &&
                      !(event->key == KeyEvent::Key::mute && event->isRepeat);
    if (!acts) {
      if (!written.empty()) isBroken("a key that does nothing wrote " + written.begin()->first);
      return;
    }
    const std::string uid = uidOf(written);
    if (uid.empty()) return isBroken("a volume key did not write one level and one mute flag");
    const auto wanted = outcome(*event, uid);
    for (const auto& [key, value] : wanted) {
      if (written.at(key) != value) isBroken(key + " became " + written.at(key).dump() + " instead of " + value.dump());
      known_[key] = value;
    }
  }

  void look(const World& world) override {
    if (!written_.empty()) return;  // a key is being worked on
    for (const auto& [key, value] : known_) {
      const nlohmann::json* const stored = world.mac.part<simulator::Preferences>().value(key);
      const bool holds = value.is_null() ? stored == nullptr : stored && *stored == value;
      if (!holds) isBroken(key + " is " + (stored ? stored->dump() : "missing") + " instead of " + value.dump());
    }
  }

 private:
  // What a slider does cannot be told from what keys do at the same time.
  [[nodiscard]] bool slides(const Record& record) const {
    return slidesAt_ >= Time{0} && record.time <= slidesAt_ + std::chrono::seconds(1);
  }

  using Values = std::map<std::string, nlohmann::json>;

  // The one output that was written about; empty: there is none.
  static std::string uidOf(const Values& written) {
    if (written.size() != 2) return {};
    const std::string& muted = written.begin()->first;
    const std::string& steps = written.rbegin()->first;
    if (!muted.starts_with("muted.") || !steps.starts_with("steps.") || muted.substr(6) != steps.substr(6)) return {};
    return muted.substr(6);
  }

  [[nodiscard]] Values outcome(const KeyEvent& event, const std::string& uid) const {
    const auto valueOf = [this](const std::string& key) {
      const auto found = known_.find(key);
      return found == known_.end() ? nlohmann::json() : found->second;
    };
    const nlohmann::json stored = valueOf("steps." + uid);
    long steps = stored.is_number_integer() ? stored.get<long>() : 16;
    bool muted = valueOf("muted." + uid) == nlohmann::json(true);
    if (event.key == KeyEvent::Key::mute) {
      muted = !muted;
    } else {
      steps = event.key == KeyEvent::Key::volumeUp ? std::min(steps + 1, 16L) : std::max(steps - 1, 0L);
      muted = false;
    }
    return {{"muted." + uid, muted}, {"steps." + uid, steps}};
  }

  Values known_;    // by what was done
  Values written_;  // since the last key
  Time slidesAt_{-1};
  bool wasDisturbed_ = false;
};

}  // namespace

void addSoundInvariants(Invariants& all) {
  all.push_back(std::make_unique<LoudnessIsStored>());
  all.push_back(std::make_unique<NeverBothPaths>());
  all.push_back(std::make_unique<FullScale>());
  all.push_back(std::make_unique<NeverSilent>());
  all.push_back(std::make_unique<NothingIsTapped>());
  all.push_back(std::make_unique<PreferencesHold>());
}

}  // namespace campaign
