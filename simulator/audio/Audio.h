// The audio hardware layer: devices, the processes that play, taps, aggregate devices, and who listens to changes.
#pragma once

#include <CoreAudio/CoreAudio.h>

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "simulator/audio/AggregateDevice.h"
#include "simulator/audio/Listeners.h"
#include "simulator/audio/OutputDevice.h"
#include "simulator/audio/Player.h"
#include "simulator/audio/Tap.h"
#include "simulator/kernel/Part.h"

namespace simulator {

class Machine;
class AudioCapture;
class Dispatch;

class Audio : public Part {
 public:
  Audio(Machine& machine, Dispatch& dispatch, AudioCapture& consent);
  ~Audio() override;

  // ---- The hardware, by the numbers that a scenario gives ----

  // None: there is no such output.
  [[nodiscard]] OutputDevice* output(std::int64_t number);
  [[nodiscard]] std::optional<std::int64_t> defaultOutput() const { return defaultOutput_; }
  [[nodiscard]] std::size_t taps() const { return taps_.size(); }
  [[nodiscard]] std::size_t aggregates() const { return aggregates_.size(); }
  // A callback that was started reads a device's own inputs.
  [[nodiscard]] bool usesMicrophone() const;
  void addOutput(std::int64_t number, OutputSettings settings);
  void changeOutput(OutputDevice& device, OutputSettings settings);
  // Its default moves to another output, if there is one.
  void removeOutput(OutputDevice& device);
  void setDefaultOutput(std::optional<std::int64_t> number);
  // The output is there again if it vanished while the Mac slept.
  void bringBack(std::int64_t number);
  // The audio service ends and starts again: what clients had made is gone, and devices may be new objects.
  void restart();
  // Rough: everything goes as badly as it can on a Mac, by the run's seed.
  void setRough(bool rough);

  // Hears what that output's speaker plays from now on, also when the output comes only later.
  void listen(std::int64_t number, const Speaker::Listener& listener);

  // Is told of each cycle that is carried out on any output, by its number. What is left out is like the last.
  using Meter = std::function<void(std::int64_t number, float level, bool direct)>;
  void setMeter(const Meter& meter) { meter_ = meter; }

  // ---- Other programs ----

  void play(const std::string& process, std::int64_t output, const Sound& sound);
  void stopPlaying(const std::string& process);
  // What they all play to that output: the sum of their levels.
  [[nodiscard]] double signal(std::int64_t output) const;

  // ---- What clients call; AudioError where the call is to fail ----

  [[nodiscard]] PropertyValue property(AudioObjectID object, const AudioObjectPropertyAddress& address,
                                       std::span<const std::byte> qualifier);
  void setProperty(AudioObjectID object, const AudioObjectPropertyAddress& address, std::span<const std::byte> value);
  const Tap& createTap(const TapDescription& description);
  void destroyTap(AudioObjectID tap);
  // `problem` says what is wrong with the description, if that is why it fails.
  const AggregateDevice& createAggregate(CFDictionaryRef description, std::string& problem);
  void destroyAggregate(AudioObjectID aggregate);
  AudioDeviceIOProcID createProc(AudioObjectID aggregate, AudioDeviceIOBlock block);
  void destroyProc(AudioObjectID aggregate, AudioDeviceIOProcID proc);
  void start(AudioObjectID aggregate, AudioDeviceIOProcID proc);
  void stop(AudioObjectID aggregate, AudioDeviceIOProcID proc);

  // The names of processes, as a JSON list; of what is no process, its number.
  [[nodiscard]] std::string namesOf(const std::vector<AudioObjectID>& processes) const;

  PropertyListeners listeners;

  // A call takes its time: on a rough machine some do. For the beginning of every call.
  void takeTime();

  // What was done may change what is heard: `settle` waits until it has come through.
  void disturb();

  void addCommands(Commands& commands) override;
  void willSettle() override { disturb(); }
  void willSleep() override;
  void didWake() override;
  void processWillEnd(Leaks& leaks) override;
  void processEnded(Leaks& leaks) override;
  void snapshot(nlohmann::ordered_json& state) override;

 private:
  class SystemObject;
  // An output that is away while the Mac sleeps, and for a while longer.
  struct Vanished {
    OutputSettings settings;
    bool wasDefault;
  };

  AudioObjectID newID() { return nextID_++; }
  [[nodiscard]] std::vector<AudioObjectID> newIDs(std::size_t count);
  [[nodiscard]] AudioObject& object(AudioObjectID id) const;
  [[nodiscard]] OutputDevice& outputWithUID(const std::string& uid);
  // Shared, because the audio service may end while a call on it waits.
  [[nodiscard]] std::shared_ptr<AggregateDevice> aggregate(AudioObjectID id);
  OutputDevice& makeOutput(std::int64_t number, OutputSettings settings);
  void notify(AudioObjectID object, AudioObjectPropertySelector selector,
              AudioObjectPropertyScope scope = kAudioObjectPropertyScopeGlobal);
  void tellOfAggregates(const AggregateDevice& aggregate);
  void followFormat(const OutputDevice& device, bool changes);
  void stopAbnormally(const OutputDevice& device);
  [[nodiscard]] AudioObjectID processObject(pid_t pid);

  // Starts the cycles of devices that have something to play. They stop by themselves.
  void updateAll();
  void cycle(OutputDevice& device);
  // The aggregate devices whose callbacks are called in this cycle of that device.
  [[nodiscard]] std::vector<AggregateDevice*> runningOn(OutputDevice& device);
  // Leaves out the cycles until that time that would be like the last, but for the one in which it falls.
  void skipCycles(Time until);
  [[nodiscard]] bool isSteady(const OutputDevice& device) const;
  [[nodiscard]] bool isPlayed(const OutputDevice& device) const;
  [[nodiscard]] bool isHeard(const AggregateDevice& aggregate) const;
  [[nodiscard]] bool isMuted(const Player& player) const;
  [[nodiscard]] bool isRead(const Tap& tap) const;
  // What each process has played in a cycle, in the order of their names: sums of floating-point numbers depend on it.
  using Played = std::vector<std::pair<const Player*, const std::vector<float>*>>;
  [[nodiscard]] std::vector<AggregateDevice::Input> inputsOf(const AggregateDevice& aggregate,
                                                             const OutputDevice& device, const Played& played) const;

  Machine& machine_;
  AudioCapture& consent_;
  std::unique_ptr<SystemObject> system_;
  AudioObjectID nextID_ = 32;
  pid_t nextPid_ = 300;
  std::map<std::int64_t, std::unique_ptr<OutputDevice>> outputs_;
  std::map<std::int64_t, Speaker::Listener> speakerListeners_;
  Meter meter_;
  std::optional<std::int64_t> defaultOutput_;
  std::map<std::string, std::unique_ptr<Player>> players_;
  std::unique_ptr<Player> program_;  // the program as a client; none before it asks
  std::map<AudioObjectID, std::unique_ptr<Tap>> taps_;
  std::map<AudioObjectID, std::shared_ptr<AggregateDevice>> aggregates_;
  std::map<std::int64_t, Vanished> vanished_;
  std::uint64_t ownHappenings_ = 0;  // cycles that began, and I/O threads that answered
  std::uint64_t otherHappenings_ = 0;
  bool isRough_ = false;
  bool hasAskedForMicrophone_ = false;
};

}  // namespace simulator
