#include "simulator/audio/Audio.h"

#include <unistd.h>

#include <algorithm>
#include <nlohmann/json.hpp>
#include <utility>

#include "simulator/foundation/Dispatch.h"
#include "simulator/kernel/Call.h"
#include "simulator/privacy/AudioCapture.h"

namespace simulator {
namespace {

// What a device's own inputs pick up. It is nothing that anybody plays, so it is noticed when it comes out somewhere.
constexpr float roomNoise = 0.125F;

// How bad a rough machine is, at the worst.
constexpr std::uint64_t slowStart = 12;  // cycles
constexpr Duration slowCall = std::chrono::milliseconds(20);
constexpr Duration lateNotice = std::chrono::milliseconds(200);

void addToAllChannels(std::vector<float>& mix, const std::vector<float>& block, std::size_t channels) {
  float* out = mix.data();
  for (const float sample : block) {
    for (std::size_t channel = 0; channel < channels; ++channel) *out++ += sample;
  }
}

}  // namespace

// The one and only system object.
class Audio::SystemObject : public AudioObject {
 public:
  explicit SystemObject(Audio& audio) : AudioObject(kAudioObjectSystemObject), audio_(audio) {}

  [[nodiscard]] PropertyValue property(const AudioObjectPropertyAddress& address,
                                       std::span<const std::byte> qualifier) const override {
    if (isProperty(address, kAudioHardwarePropertyDefaultOutputDevice)) {
      const OutputDevice* const device = audio_.defaultOutput_ ? audio_.output(*audio_.defaultOutput_) : nullptr;
      return PropertyValue::of(device ? device->id : AudioObjectID{kAudioObjectUnknown}).settable();
    }
    if (isProperty(address, kAudioHardwarePropertyDevices)) {
      std::vector<AudioObjectID> devices;
      for (const auto& [number, device] : audio_.outputs_) devices.push_back(device->id);
      for (const auto& [id, aggregate] : audio_.aggregates_) devices.push_back(id);
      return PropertyValue::list(devices);
    }
    // Its value has no meaning.
    if (isProperty(address, kAudioHardwarePropertyServiceRestarted)) return PropertyValue::of(UInt32{0});
    if (isProperty(address, kAudioHardwarePropertyTranslatePIDToProcessObject)) {
      pid_t pid = 0;
      if (qualifier.size() != sizeof pid) throw AudioError{kAudioHardwareBadPropertySizeError};
      std::memcpy(&pid, qualifier.data(), sizeof pid);
      return PropertyValue::of(audio_.processObject(pid));
    }
    throw AudioError{kAudioHardwareUnknownPropertyError};
  }

 private:
  Audio& audio_;
};

Audio::Audio(Machine& machine, Dispatch& dispatch, AudioCapture& consent)
    : listeners(dispatch), machine_(machine), consent_(consent), system_(std::make_unique<SystemObject>(*this)) {
  machine.faults.declare(
      {"AudioObjectHasProperty", "AudioObjectIsPropertySettable", "AudioObjectGetPropertyDataSize",
       "AudioObjectGetPropertyData", "AudioObjectSetPropertyData", "AudioObjectAddPropertyListenerBlock",
       "AudioObjectRemovePropertyListenerBlock", "AudioHardwareCreateProcessTap", "AudioHardwareDestroyProcessTap",
       "AudioHardwareCreateAggregateDevice", "AudioHardwareDestroyAggregateDevice",
       "AudioDeviceCreateIOProcIDWithBlock", "AudioDeviceDestroyIOProcID", "AudioDeviceStart", "AudioDeviceStop"});
  machine.scheduler.setTimeWillMove([this](Time until) { skipCycles(until); });
}

Audio::~Audio() {
  // On the live clock a cycle may be about to begin.
  const Scheduler::Lock lock(machine_.scheduler);
  outputs_.clear();
}

// ---- The hardware ----

std::vector<AudioObjectID> Audio::newIDs(std::size_t count) {
  std::vector<AudioObjectID> ids;
  while (ids.size() < count) ids.push_back(newID());
  return ids;
}

OutputDevice* Audio::output(std::int64_t number) {
  const Scheduler::Lock lock(machine_.scheduler);
  const auto found = outputs_.find(number);
  return found == outputs_.end() ? nullptr : found->second.get();
}

void Audio::notify(AudioObjectID id, AudioObjectPropertySelector selector, AudioObjectPropertyScope scope) {
  Scheduler& scheduler = machine_.scheduler;
  Duration delay = Duration::zero();
  if (isRough_ && scheduler.random(2) == 0) {
    delay = Duration(scheduler.random(static_cast<std::uint64_t>(lateNotice.count())));
  }
  listeners.notify(id, {selector, scope, kAudioObjectPropertyElementMain}, delay);
}

OutputDevice& Audio::makeOutput(std::int64_t number, OutputSettings settings) {
  const AudioObjectID id = newID();
  auto streams = newIDs(settings.inputs + std::size_t{1});
  auto& device = outputs_[number];
  device = std::make_unique<OutputDevice>(id, number, std::move(settings), std::move(streams), machine_.scheduler,
                                          [this](OutputDevice& beating) { cycle(beating); });
  if (const auto heard = speakerListeners_.find(number); heard != speakerListeners_.end()) {
    device->speaker.setListener(heard->second);
  }
  device->speaker.setMeter([this, number](float level, bool direct) {
    if (meter_) meter_(number, level, direct);
  });
  return *device;
}

void Audio::addOutput(std::int64_t number, OutputSettings settings) {
  const Scheduler::Lock lock(machine_.scheduler);
  const OutputDevice& device = makeOutput(number, std::move(settings));
  for (const auto& [tapID, tap] : taps_) {
    if (tap->output == number) tap->follow(device);
  }
  notify(kAudioObjectSystemObject, kAudioHardwarePropertyDevices);
  updateAll();
}

void Audio::changeOutput(OutputDevice& device, OutputSettings settings) {
  const Scheduler::Lock lock(machine_.scheduler);
  const OutputSettings before = device.settings();
  if (settings == before) return;
  auto streams = newIDs(settings.inputs + std::size_t{1});
  device.change(std::move(settings), std::move(streams));
  const OutputSettings& after = device.settings();
  const bool isOfOtherStreams = after.inputs != before.inputs;
  const bool isOfOtherRate = after.rate != before.rate;
  const bool isOfOtherFormat = isOfOtherRate || after.channels != before.channels || after.layout != before.layout;
  followFormat(device, isOfOtherStreams || isOfOtherFormat);
  if (isOfOtherStreams) {
    notify(device.id, kAudioDevicePropertyStreams);
    notify(device.id, kAudioDevicePropertyStreams, kAudioObjectPropertyScopeInput);
  }
  if (isOfOtherRate) notify(device.id, kAudioDevicePropertyNominalSampleRate);
  if (isOfOtherFormat) {
    notify(device.id, kAudioDevicePropertyStreamFormat, kAudioObjectPropertyScopeOutput);
  }
  if (after.isAlive != before.isAlive) notify(device.id, kAudioDevicePropertyDeviceIsAlive);
  updateAll();
}

// If the device's format or streams change, a rough machine stops what runs on it, or leaves the taps as they are.
void Audio::followFormat(const OutputDevice& device, bool changes) {
  const std::uint64_t mishap = isRough_ && changes ? machine_.scheduler.random(3) : 0;
  if (mishap == 1) stopAbnormally(device);
  if (mishap == 2) return;
  for (const auto& [id, tap] : taps_) {
    if (tap->output != device.number) continue;
    tap->follow(device);
    notify(id, kAudioTapPropertyFormat);
  }
}

void Audio::stopAbnormally(const OutputDevice& device) {
  for (const auto& [id, aggregate] : aggregates_) {
    if (aggregate->output != device.number || !aggregate->isStarted()) continue;
    aggregate->stopAll();
    notify(id, kAudioDevicePropertyIOStoppedAbnormally);
  }
  disturb();
}

void Audio::removeOutput(OutputDevice& device) {
  const Scheduler::Lock lock(machine_.scheduler);
  const std::int64_t number = device.number;
  for (const auto& [id, aggregate] : aggregates_) {
    if (aggregate->output == number) aggregate->setRunning(false);
  }
  notify(device.id, kAudioDevicePropertyDeviceIsAlive);
  if (isRough_) listeners.clear(device.id);
  outputs_.erase(number);
  notify(kAudioObjectSystemObject, kAudioHardwarePropertyDevices);
  if (defaultOutput_ != number) return;
  setDefaultOutput(outputs_.empty() ? std::nullopt : std::optional(outputs_.begin()->first));
}

void Audio::setDefaultOutput(std::optional<std::int64_t> number) {
  const Scheduler::Lock lock(machine_.scheduler);
  if (std::exchange(defaultOutput_, number) == number) return;
  notify(kAudioObjectSystemObject, kAudioHardwarePropertyDefaultOutputDevice);
  if (isRough_) notify(kAudioObjectSystemObject, kAudioHardwarePropertyDefaultOutputDevice);
}

// Displays take their outputs with them when they go dark, and some bring them back only after a while.
void Audio::willSleep() {
  const Scheduler::Lock lock(machine_.scheduler);
  const auto chosen = defaultOutput_;
  std::vector<std::int64_t> vanishing;
  for (const auto& [number, device] : outputs_) {
    if (machine_.scheduler.random(2) == 0) vanishing.push_back(number);
  }
  for (const std::int64_t number : vanishing) {
    OutputDevice& device = *output(number);
    vanished_.insert_or_assign(number, Vanished{OutputSettings(device.settings()), chosen == number});
    removeOutput(device);
  }
}

void Audio::didWake() {
  constexpr std::uint64_t longest = 2'000'000'000;  // ns
  const Scheduler::Lock lock(machine_.scheduler);
  for (const auto& [number, output] : vanished_) {
    machine_.scheduler.after(Duration(machine_.scheduler.random(longest)), Waiting::work,
                             [this, returning = number] { bringBack(returning); });
  }
}

void Audio::bringBack(std::int64_t number) {
  const Scheduler::Lock lock(machine_.scheduler);
  const auto returning = vanished_.extract(number);
  if (returning.empty()) return;
  addOutput(number, OutputSettings(returning.mapped().settings));
  // The system goes back to the output that the user chose.
  if (returning.mapped().wasDefault || !defaultOutput_) setDefaultOutput(number);
}

void Audio::restart() {
  const Scheduler::Lock lock(machine_.scheduler);
  for (const auto& [id, aggregate] : aggregates_) aggregate->stopAll();
  aggregates_.clear();
  taps_.clear();
  program_.reset();
  listeners.clearExcept(kAudioObjectSystemObject);
  notify(kAudioObjectSystemObject, kAudioHardwarePropertyServiceRestarted);
  // Whether devices keep their numbers is nobody's to know.
  if (machine_.scheduler.random(2) == 0) {
    for (auto& [number, device] : outputs_) makeOutput(number, OutputSettings(device->settings()));
    notify(kAudioObjectSystemObject, kAudioHardwarePropertyDevices);
    if (defaultOutput_) notify(kAudioObjectSystemObject, kAudioHardwarePropertyDefaultOutputDevice);
  }
  updateAll();
  disturb();
}

void Audio::setRough(bool rough) {
  const Scheduler::Lock lock(machine_.scheduler);
  isRough_ = rough;
}

void Audio::takeTime() {
  Scheduler& scheduler = machine_.scheduler;
  if (!isRough_ || !Scheduler::current() || scheduler.random(4) > 0) return;
  try {
    scheduler.sleep(Duration(scheduler.random(static_cast<std::uint64_t>(slowCall.count()))));
  } catch (const ProcessEnd&) {
    // What takes things down as the process ends must get through.
  }
}

void Audio::listen(std::int64_t number, const Speaker::Listener& listener) {
  const Scheduler::Lock lock(machine_.scheduler);
  speakerListeners_[number] = listener;
  if (OutputDevice* const device = output(number)) device->speaker.setListener(listener);
}

// ---- Other programs ----

void Audio::play(const std::string& process, std::int64_t number, const Sound& sound) {
  const Scheduler::Lock lock(machine_.scheduler);
  auto& player = players_[process];
  if (!player) player = std::make_unique<Player>(newID(), nextPid_++);
  player->play(number, sound);
  updateAll();
}

void Audio::stopPlaying(const std::string& process) {
  const Scheduler::Lock lock(machine_.scheduler);
  players_.erase(process);
  disturb();
}

double Audio::signal(std::int64_t number) const {
  double sum = 0;
  for (const auto& [process, player] : players_) sum += player->plays(number) ? player->level() : 0;
  return sum;
}

// ---- Objects ----

AudioObject& Audio::object(AudioObjectID id) const {
  if (id == kAudioObjectSystemObject) return *system_;
  for (const auto& [number, device] : outputs_) {
    if (device->id == id) return *device;
  }
  for (const auto& [name, player] : players_) {
    if (player->id == id) return *player;
  }
  if (program_ && program_->id == id) return *program_;
  if (const auto tap = taps_.find(id); tap != taps_.end()) return *tap->second;
  if (const auto aggregate = aggregates_.find(id); aggregate != aggregates_.end()) return *aggregate->second;
  throw AudioError{kAudioHardwareBadObjectError};
}

OutputDevice& Audio::outputWithUID(const std::string& uid) {
  for (const auto& [number, device] : outputs_) {
    if (device->settings().uid == uid && device->settings().isAlive) return *device;
  }
  throw AudioError{kAudioHardwareBadDeviceError};
}

std::shared_ptr<AggregateDevice> Audio::aggregate(AudioObjectID id) {
  if (const auto found = aggregates_.find(id); found != aggregates_.end()) return found->second;
  for (const auto& [number, device] : outputs_) {
    if (device->id == id) fatal("I/O on a device that is no aggregate device is not simulated");
  }
  throw AudioError{kAudioHardwareBadDeviceError};
}

AudioObjectID Audio::processObject(pid_t pid) {
  if (pid == getpid()) {
    if (!program_) program_ = std::make_unique<Player>(newID(), pid);
    return program_->id;
  }
  for (const auto& [name, player] : players_) {
    if (player->pid == pid) return player->id;
  }
  return kAudioObjectUnknown;
}

std::string Audio::namesOf(const std::vector<AudioObjectID>& processes) const {
  nlohmann::json names = nlohmann::json::array();
  for (const AudioObjectID process : processes) {
    const auto player =
        std::ranges::find_if(players_, [process](const auto& each) { return each.second->id == process; });
    if (program_ && program_->id == process) {
      names.push_back(machine_.process.program().name);
    } else if (player != players_.end()) {
      names.push_back(player->first);
    } else {
      names.push_back(process);
    }
  }
  return names.dump();
}

PropertyValue Audio::property(AudioObjectID id, const AudioObjectPropertyAddress& address,
                              std::span<const std::byte> qualifier) {
  return object(id).property(address, qualifier);
}

void Audio::setProperty(AudioObjectID id, const AudioObjectPropertyAddress& address, std::span<const std::byte> value) {
  object(id).setProperty(address, value);
}

// ---- Taps and aggregate devices ----

const Tap& Audio::createTap(const TapDescription& description) {
  const OutputDevice& device = outputWithUID(description.deviceUID);
  if (description.stream != 0) throw AudioError{kAudioHardwareBadStreamError};  // a device has one output stream
  for (const AudioObjectID process : description.excluded) {
    if (!dynamic_cast<const Player*>(&object(process))) throw AudioError{kAudioHardwareBadObjectError};
  }
  for (const auto& [id, tap] : taps_) {
    if (tap->uid == description.uuid) throw AudioError{kAudioHardwareIllegalOperationError};
  }
  const AudioObjectID id = newID();
  auto tap = std::make_unique<Tap>(id, device, description, consent_.isAuthorized());
  return *taps_.emplace(id, std::move(tap)).first->second;
}

void Audio::destroyTap(AudioObjectID tap) {
  if (taps_.erase(tap) == 0) throw AudioError{kAudioHardwareBadObjectError};
  disturb();
}

const AggregateDevice& Audio::createAggregate(CFDictionaryRef dictionary, std::string& problem) {
  AggregateDescription description = AggregateDescription::parse(dictionary, problem);
  const auto refuse = [&problem](std::string reason) {
    problem = std::move(reason);
    throw AudioError{kAudioHardwareIllegalOperationError};
  };
  for (const auto& [id, other] : aggregates_) {
    if (other->description.uid == description.uid) refuse("the UID is another device's");
  }
  if (description.subDevices.size() != 1) fatal("Aggregate devices of several sub-devices are not simulated");
  if (description.isStacked) fatal("Stacked aggregate devices are not simulated");
  const OutputDevice& device = outputWithUID(description.mainDevice);
  std::vector<AudioObjectID> taps;
  for (const auto& subTap : description.taps) {
    const auto found =
        std::ranges::find_if(taps_, [&subTap](const auto& each) { return each.second->uid == subTap.uid; });
    if (found == taps_.end()) refuse("there is no tap \"" + subTap.uid + "\"");
    if (found->second->output != device.number) fatal("Taps of another device than the sub-device are not simulated");
    taps.push_back(found->first);
  }
  const AudioObjectID id = newID();
  const auto ownInputs = [this, number = device.number] {
    const OutputDevice* const own = output(number);
    return own ? std::size_t{own->settings().inputs} : 0;
  };
  const auto made = std::make_shared<AggregateDevice>(id, std::move(description), device.number, ownInputs,
                                                      std::move(taps), machine_.scheduler);
  aggregates_.emplace(id, made);
  tellOfAggregates(*made);
  return *made;
}

void Audio::destroyAggregate(AudioObjectID id) {
  const auto device = aggregate(id);
  device->stopAll();
  aggregates_.erase(id);
  tellOfAggregates(*device);
  disturb();
}

void Audio::tellOfAggregates(const AggregateDevice& aggregate) {
  notify(kAudioObjectSystemObject, kAudioHardwarePropertyDevices);
  const OutputDevice* const device = isRough_ ? output(aggregate.output) : nullptr;
  if (!device) return;
  notify(kAudioObjectSystemObject, kAudioHardwarePropertyDefaultOutputDevice);
  notify(device->id, kAudioDevicePropertyStreams, kAudioObjectPropertyScopeInput);
  notify(device->id, kAudioDevicePropertyStreamFormat, kAudioObjectPropertyScopeOutput);
  notify(device->id, kAudioDevicePropertyNominalSampleRate);
}

AudioDeviceIOProcID Audio::createProc(AudioObjectID id, AudioDeviceIOBlock block) {
  return aggregate(id)->createProc(block);
}

void Audio::destroyProc(AudioObjectID id, AudioDeviceIOProcID proc) {
  const auto device = aggregate(id);
  device->destroyProc(proc);
  if (!device->isStarted()) device->setRunning(false);
  disturb();
}

void Audio::start(AudioObjectID id, AudioDeviceIOProcID proc) {
  const auto device = aggregate(id);
  if (!output(device->output)) throw AudioError{kAudioHardwareNotRunningError};
  device->start(proc);
  if (device->listens() && !std::exchange(hasAskedForMicrophone_, true)) {
    machine_.trace.record("prompt").text("for", "microphone");
  }
  updateAll();
  disturb();
  // As Apple's header has it, such a start waits for the first sound.
  if (!isRough_ || !device->description.startsWithTap || machine_.scheduler.random(2) == 0) return;
  if (!device->waitForStart(proc)) throw AudioError{kAudioHardwareNotRunningError};
}

void Audio::stop(AudioObjectID id, AudioDeviceIOProcID proc) {
  const auto device = aggregate(id);
  device->stop(proc, isRough_ && device->isRunning() && machine_.scheduler.random(2) == 0);
  if (!device->isStarted()) device->setRunning(false);
  disturb();
  if (isRough_ && !output(device->output)) throw AudioError{kAudioHardwareBadDeviceError};
}

// ---- Cycles ----

bool Audio::isHeard(const AggregateDevice& aggregate) const {
  return std::ranges::any_of(aggregate.taps, [this](AudioObjectID id) {
    const auto tap = taps_.find(id);
    return tap != taps_.end() &&
           std::ranges::any_of(players_, [&](const auto& player) { return tap->second->covers(*player.second); });
  });
}

bool Audio::isRead(const Tap& tap) const {
  return std::ranges::any_of(aggregates_, [&tap](const auto& each) {
    return each.second->mutes() && std::ranges::find(each.second->taps, tap.id) != each.second->taps.end();
  });
}

bool Audio::isMuted(const Player& player) const {
  return std::ranges::any_of(taps_, [&](const auto& each) {
    const Tap& tap = *each.second;
    return tap.covers(player) && (tap.mute == CA::TapMuteBehavior::Muted ||
                                  (tap.mute == CA::TapMuteBehavior::MutedWhenTapped && isRead(tap)));
  });
}

bool Audio::isPlayed(const OutputDevice& device) const {
  if (!device.settings().isAlive) return false;
  return std::ranges::any_of(players_, [&](const auto& player) { return player.second->plays(device.number); }) ||
         std::ranges::any_of(aggregates_, [&](const auto& each) {
           const AggregateDevice& aggregate = *each.second;
           return aggregate.output == device.number && aggregate.isStarted() &&
                  (aggregate.isRunning() || !aggregate.description.startsWithTap || isHeard(aggregate));
         });
}

void Audio::updateAll() {
  for (const auto& [number, device] : outputs_) {
    if (isPlayed(*device)) device->clock.start(device->settings().frames, device->settings().rate);
  }
}

void Audio::disturb() {
  const Scheduler::Lock lock(machine_.scheduler);
  for (const auto& [number, device] : outputs_) device->clock.disturb();
}

std::vector<AggregateDevice::Input> Audio::inputsOf(const AggregateDevice& aggregate, const OutputDevice& device,
                                                    const Played& played) const {
  const OutputSettings& settings = device.settings();
  std::vector<AggregateDevice::Input> inputs(settings.inputs,
                                             {.channels = 1, .samples = std::vector(settings.frames, roomNoise)});
  for (const AudioObjectID id : aggregate.taps) {
    const auto tap = taps_.find(id);
    if (tap == taps_.end()) continue;  // destroyed before the device that it was part of
    const UInt32 channels = tap->second->format().mChannelsPerFrame;
    std::vector<float> samples(std::size_t{settings.frames} * channels);
    // The tap has no buffer yet, or less in it.
    if (aggregate.lacksSound() && machine_.scheduler.random(3) == 0) continue;
    for (const auto& [player, block] : played) {
      if (!tap->second->hears || !tap->second->covers(*player)) continue;
      addToAllChannels(samples, *block, channels);
    }
    if (aggregate.lacksSound()) samples.resize(machine_.scheduler.random(settings.frames) * channels);
    inputs.push_back({.channels = channels, .samples = std::move(samples)});
  }
  return inputs;
}

std::vector<AggregateDevice*> Audio::runningOn(OutputDevice& device) {
  std::vector<AggregateDevice*> running;
  for (const auto& [id, aggregate] : aggregates_) {
    if (aggregate->output != device.number || !aggregate->isStarted()) continue;
    if (!aggregate->isRunning()) {
      if (aggregate->description.startsWithTap && !isHeard(*aggregate)) continue;
      aggregate->setRunning(true);
      if (isRough_) aggregate->beginSlowly(machine_.scheduler.random(slowStart), machine_.scheduler.random(slowStart));
    }
    if (aggregate->lacksSound() || !aggregate->mutes()) device.clock.disturb();
    running.push_back(aggregate.get());
  }
  return running;
}

void Audio::cycle(OutputDevice& device) {
  ++ownHappenings_;
  device.endCycle();
  if (!isPlayed(device)) {
    device.clock.stop();
    device.speaker.fallSilent();
    return;
  }
  const std::vector<AggregateDevice*> running = runningOn(device);
  const OutputSettings& settings = device.settings();
  Played played;
  std::vector<float> direct(std::size_t{settings.frames} * settings.channels);
  bool isDirect = false;
  for (const auto& [name, player] : players_) {
    if (!player->plays(device.number)) continue;
    const std::vector<float>& block = player->next(settings.frames, settings.rate);
    played.emplace_back(player.get(), &block);
    if (isMuted(*player)) continue;
    isDirect = isDirect || player->isAudible();
    addToAllChannels(direct, block, settings.channels);
  }
  device.beginCycle(std::move(direct), isDirect, running.size());
  for (AggregateDevice* const aggregate : running) {
    aggregate->beginCycle(
        device, inputsOf(*aggregate, device, played),
        [this, number = device.number, cycle = device.clock.cycle()](const std::vector<float>& output) {
          ++ownHappenings_;
          if (OutputDevice* const heard = this->output(number)) heard->add(cycle, output);
        });
  }
}

// The next cycle on that device would be like the last: nothing has happened in the meantime that could have changed
// what is played or what the callback makes of it, the callback has made an even level of it, and nobody listens to
// each sample.
bool Audio::isSteady(const OutputDevice& device) const {
  return device.clock.isCalm() && !device.speaker.isHeard() &&
         std::ranges::all_of(aggregates_, [&device](const auto& each) {
           const AggregateDevice& aggregate = *each.second;
           return aggregate.output != device.number || !aggregate.isRunning() || aggregate.isSteady();
         });
}

void Audio::skipCycles(Time until) {
  Scheduler& scheduler = machine_.scheduler;
  const std::uint64_t others = scheduler.happenings() - ownHappenings_;
  const bool isInterrupted = std::exchange(otherHappenings_, others) != others;
  std::vector<Scheduler::TimerID> beats;
  bool areSteady = true;
  for (const auto& [number, device] : outputs_) {
    if (!device->clock.isRunning()) continue;
    if (isInterrupted) device->clock.interrupt();
    beats.push_back(*device->clock.timer());
    areSteady = areSteady && isSteady(*device);
  }
  // Of several I/O threads the run's seed chooses who comes first.
  const auto isRunning = [](const auto& each) { return each.second->isRunning(); };
  if (beats.empty() || !areSteady || std::ranges::count_if(aggregates_, isRunning) > 1) return;

  const Time end = std::min(until, scheduler.nextTimer(beats).value_or(until));
  for (const auto& [number, device] : outputs_) {
    const std::uint64_t cycles = device->clock.isRunning() ? device->clock.skippableUntil(end) : 0;
    if (cycles == 0) continue;
    device->clock.skip(cycles);
    const OutputSettings& settings = device->settings();
    for (const auto& [name, player] : players_) {
      if (player->plays(number)) player->skip(cycles, settings.frames, settings.rate);
    }
  }
}

// ---- The part ----

void Audio::processWillEnd(Leaks& leaks) {
  const auto count = [&leaks](const char* kind, std::size_t alive) {
    if (alive > 0) leaks[kind] += alive;
  };
  std::size_t procs = 0;
  for (const auto& [id, aggregate] : aggregates_) procs += aggregate->procs();
  count("process tap", taps_.size());
  count("aggregate device", aggregates_.size());
  count("I/O proc", procs);
  count("property listener", listeners.count());
}

void Audio::processEnded(Leaks&) {
  // What is private to a process ends with it.
  aggregates_.clear();
  taps_.clear();
  listeners.clear();
  program_.reset();
  disturb();
}

bool Audio::usesMicrophone() const {
  return std::ranges::any_of(aggregates_, [](const auto& each) { return each.second->listens(); });
}

void Audio::snapshot(nlohmann::ordered_json& state) {
  auto& speakers = state["speakers"] = nlohmann::ordered_json::array();
  for (const auto& [number, device] : outputs_) {
    nlohmann::ordered_json speaker;
    speaker["id"] = number;
    speaker["name"] = device->settings().name.value_or("");
    speaker["level"] = device->speaker.level();
    speaker["direct"] = device->speaker.direct();
    speaker["default"] = defaultOutput_ == number;
    speakers.push_back(std::move(speaker));
  }
  // How many there are, and what each is like.
  state["taps"] = taps_.size();
  state["aggregates"] = aggregates_.size();
  auto& objects = state["audio"];
  auto& taps = objects["taps"] = nlohmann::ordered_json::array();
  for (const auto& [id, tap] : taps_) {
    nlohmann::ordered_json entry;
    entry["name"] = tap->name;
    entry["output"] = tap->output;
    entry["private"] = tap->isPrivate;
    entry["mute"] = static_cast<long>(tap->mute);
    entry["read"] = isRead(*tap);
    taps.push_back(std::move(entry));
  }
  auto& aggregates = objects["aggregates"] = nlohmann::ordered_json::array();
  for (const auto& [id, aggregate] : aggregates_) {
    nlohmann::ordered_json entry;
    entry["name"] = aggregate->description.name;
    entry["output"] = aggregate->output;
    entry["private"] = aggregate->description.isPrivate;
    entry["running"] = aggregate->isRunning();
    aggregates.push_back(std::move(entry));
  }
  // I/O that runs keeps an idle Mac from going to sleep.
  objects["keeps_awake"] = std::ranges::any_of(aggregates_, [](const auto& each) { return each.second->isRunning(); });
  objects["microphone"] = usesMicrophone();
}

}  // namespace simulator
