#include "simulator/audio/AggregateDevice.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <set>
#include <string_view>
#include <thread>
#include <utility>

#include "simulator/foundation/CoreFoundation.h"
#include "simulator/kernel/Call.h"
#include "simulator/kernel/RealTime.h"

namespace simulator {

// ---- The description ----

namespace {

constexpr const char* creating = "AudioHardwareCreateAggregateDevice";

// Reads a dictionary that must have exactly the keys that are asked for.
class DescriptionReader {
 public:
  DescriptionReader(CFTypeRef dictionary, std::string where, std::string& problem)
      : dictionary_(dynamic_cast<const __CFDictionary*>(&live(dictionary, creating))),
        where_(std::move(where)),
        problem_(problem) {
    if (!dictionary_) refuse(where_ + " is no dictionary");
  }

  template <typename T>
  const T& value(std::string_view key, std::string_view type) {
    known_.emplace(key);
    for (const auto& [name, object] : dictionary_->values) {
      if (textOf(name, creating) != key) continue;
      const auto* const typed = dynamic_cast<const T*>(&live(object, creating));
      if (!typed) refuse(where_ + "\"" + std::string(key) + "\" is no " + std::string(type));
      return *typed;
    }
    refuse(where_ + "\"" + std::string(key) + "\" is missing");
  }

  std::string text(std::string_view key) {
    const std::string& text = value<__CFString>(key, "string").text;
    if (text.empty()) refuse(where_ + "\"" + std::string(key) + "\" is empty");
    return text;
  }

  // Core Audio takes a number, of which a boolean object is one.
  bool flag(std::string_view key) {
    const Object& object = value<Object>(key, "number");
    if (const auto* const boolean = dynamic_cast<const __CFBoolean*>(&object)) return boolean->value;
    const auto* const number = dynamic_cast<const __CFNumber*>(&object);
    if (!number) refuse(where_ + "\"" + std::string(key) + "\" is no number");
    return std::visit([](auto each) { return each != 0; }, number->value);
  }

  const std::vector<CFTypeRef>& list(std::string_view key) { return value<__CFArray>(key, "array").values; }

  void refuseOthers() {
    for (const auto& [name, object] : dictionary_->values) {
      const std::string& key = textOf(name, creating);
      if (!known_.contains(key)) refuse(where_ + "\"" + key + "\" is not known");
    }
  }

  [[noreturn]] void refuse(std::string problem) {
    problem_ = std::move(problem);
    throw AudioError{kAudioHardwareIllegalOperationError};
  }

 private:
  const __CFDictionary* dictionary_;
  const std::string where_;
  std::string& problem_;
  std::set<std::string, std::less<>> known_;
};

}  // namespace

AggregateDescription AggregateDescription::parse(CFDictionaryRef dictionary, std::string& problem) {
  DescriptionReader reader(dictionary, "", problem);
  AggregateDescription result;
  result.name = reader.text(kAudioAggregateDeviceNameKey);
  result.uid = reader.text(kAudioAggregateDeviceUIDKey);
  result.mainDevice = reader.text(kAudioAggregateDeviceMainSubDeviceKey);
  result.isPrivate = reader.flag(kAudioAggregateDeviceIsPrivateKey);
  result.isStacked = reader.flag(kAudioAggregateDeviceIsStackedKey);
  result.startsWithTap = reader.flag(kAudioAggregateDeviceTapAutoStartKey);
  for (const CFTypeRef each : reader.list(kAudioAggregateDeviceSubDeviceListKey)) {
    DescriptionReader subDevice(each, "a sub-device's ", problem);
    result.subDevices.push_back(subDevice.text(kAudioSubDeviceUIDKey));
    subDevice.refuseOthers();
  }
  for (const CFTypeRef each : reader.list(kAudioAggregateDeviceTapListKey)) {
    DescriptionReader tap(each, "a tap's ", problem);
    result.taps.push_back({tap.text(kAudioSubTapUIDKey), tap.flag(kAudioSubTapDriftCompensationKey)});
    tap.refuseOthers();
  }
  reader.refuseOthers();
  // Apple's header asks for it: only its maker may wait for a tap.
  if (result.startsWithTap && !result.isPrivate) reader.refuse("\"tapautostart\" needs a private device");
  if (std::ranges::find(result.subDevices, result.mainDevice) == result.subDevices.end()) {
    reader.refuse("the main sub-device is none of the sub-devices");
  }
  return result;
}

// ---- The device ----

struct AggregateDevice::Cycle {
  explicit Cycle(Scheduler& scheduler) : wake(scheduler), idle(scheduler) {}

  WaitQueue wake;
  WaitQueue idle;
  bool due = false;   // there is a cycle for the thread
  bool busy = false;  // it is calling the callbacks
  bool over = false;  // the device is gone
  bool hasThread = false;
  const Scheduler::Thread* thread = nullptr;  // once it runs
  std::map<AudioDeviceIOProcID, Client> started;
  std::vector<Client> stopped;  // those that are called once more

  // The cycle at hand.
  std::vector<Input> inputs;
  UInt32 channels = 0;
  std::size_t samples = 0;
  AudioTimeStamp now{};
  AudioTimeStamp inputTime{};
  AudioTimeStamp outputTime{};
  Done done;
  bool steady = false;  // what became of it

  // Calls one callback and adds what it played.
  void call(const Client& client, std::vector<float>& sum) const;
};

namespace {

// An AudioBufferList with room for as many buffers as are needed.
class BufferList {
 public:
  explicit BufferList(std::size_t buffers)
      : storage_(offsetof(AudioBufferList, mBuffers) + std::max<std::size_t>(buffers, 1) * sizeof(AudioBuffer)) {
    get()->mNumberBuffers = static_cast<UInt32>(buffers);
  }
  AudioBufferList* get() { return reinterpret_cast<AudioBufferList*>(storage_.data()); }
  AudioBuffer& operator[](std::size_t index) { return get()->mBuffers[index]; }

 private:
  std::vector<std::byte> storage_;
};

// Whether one is the other at some level, but for rounding.
bool isMultiple(const std::vector<float>& played, const std::vector<float>& input) {
  if (played.size() != input.size()) return false;
  const auto loudest = std::ranges::max_element(input, {}, [](float sample) { return std::abs(sample); });
  if (loudest == input.end()) return true;
  const float level = *loudest == 0 ? 0 : played[static_cast<std::size_t>(loudest - input.begin())] / *loudest;
  constexpr float rounding = 2 * std::numeric_limits<float>::epsilon();
  return std::ranges::equal(played, input, [level](float out, float in) {
    return std::abs(out - in * level) <= rounding * std::abs(in * level);
  });
}

// Written behind the output buffer, where a callback has no business.
constexpr std::array<float, 16> fence = {0.1F, 0.2F, 0.3F, 0.4F, 0.5F, 0.6F, 0.7F, 0.8F,
                                         0.9F, 1.0F, 1.1F, 1.2F, 1.3F, 1.4F, 1.5F, 1.6F};

}  // namespace

void AggregateDevice::Cycle::call(const Client& client, std::vector<float>& sum) const {
  BufferList input(inputs.size());
  for (std::size_t i = 0; i < inputs.size(); ++i) {
    const Input& each = inputs[i];
    // Of a stream that is off only the size is told.
    input[i] = {each.channels, static_cast<UInt32>(each.samples.size() * sizeof(float)),
                client.uses(i) ? const_cast<float*>(each.samples.data()) : nullptr};
  }
  std::vector<float> played(samples + fence.size());
  std::ranges::copy(fence, played.begin() + static_cast<std::ptrdiff_t>(samples));
  const AudioBuffer offered = {channels, static_cast<UInt32>(samples * sizeof(float)), played.data()};
  BufferList outputs(1);
  outputs[0] = offered;

  {
    const RealTime realTime;
    client.block.get()(&now, input.get(), &inputTime, outputs.get(), &outputTime);
  }

  if (std::memcmp(&offered, &outputs[0], sizeof offered) != 0 || outputs.get()->mNumberBuffers != 1) {
    fatal("An I/O proc changed its list of output buffers");
  }
  if (!std::equal(fence.begin(), fence.end(), played.begin() + static_cast<std::ptrdiff_t>(samples))) {
    fatal("An I/O proc wrote behind its output buffer");
  }
  for (std::size_t i = 0; i < samples; ++i) sum[i] += played[i];
}

AggregateDevice::AggregateDevice(AudioObjectID number, AggregateDescription what, std::int64_t outputNumber,
                                 std::function<std::size_t()> ownInputs, std::vector<AudioObjectID> tapNumbers,
                                 Scheduler& scheduler)
    : AudioObject(number),
      description(std::move(what)),
      output(outputNumber),
      taps(std::move(tapNumbers)),
      ownInputs_(std::move(ownInputs)),
      scheduler_(scheduler),
      startsOrStops_(scheduler),
      cycle_(std::make_shared<Cycle>(scheduler)) {}

AggregateDevice::~AggregateDevice() {
  cycle_->over = true;
  cycle_->started.clear();
  cycle_->wake.notifyAll();
  waitUntilIdle();
}

AudioDeviceIOProcID AggregateDevice::createProc(AudioDeviceIOBlock block) {
  const auto id = reinterpret_cast<AudioDeviceIOProcID>(++lastProc_);
  procs_.emplace(id, Proc{.client = {.block = Block<AudioDeviceIOBlock>(block), .inputsOn = {}}, .started = false});
  return id;
}

AggregateDevice::Proc& AggregateDevice::proc(AudioDeviceIOProcID id) {
  const auto found = procs_.find(id);
  if (found == procs_.end()) throw AudioError{kAudioHardwareIllegalOperationError};
  return found->second;
}

void AggregateDevice::destroyProc(AudioDeviceIOProcID id) {
  stop(id, false);
  procs_.erase(id);
}

void AggregateDevice::start(AudioDeviceIOProcID id) {
  Proc& started = proc(id);
  if (std::exchange(started.started, true)) return;
  cycle_->started.emplace(id, started.client);
  if (std::exchange(cycle_->hasThread, true)) return;
  scheduler_.spawn("com.apple.audio.IOThread.client",
                   [&scheduler = scheduler_, cycle = cycle_] { runIO(scheduler, cycle); });
}

bool AggregateDevice::waitForStart(AudioDeviceIOProcID id) {
  const auto isWaiting = [&] {
    const auto found = procs_.find(id);
    return !running_ && found != procs_.end() && found->second.started;
  };
  while (isWaiting()) startsOrStops_.wait();
  return running_;
}

void AggregateDevice::setRunning(bool running) {
  running_ = running;
  lackingCycles_ = unmutedCycles_ = 0;
  startsOrStops_.notifyAll();
}

void AggregateDevice::beginSlowly(std::uint64_t lackingCycles, std::uint64_t unmutedCycles) {
  lackingCycles_ = lackingCycles;
  unmutedCycles_ = unmutedCycles;
}

void AggregateDevice::stop(AudioDeviceIOProcID id, bool calledOnceMore) {
  Proc& stopped = proc(id);
  if (!std::exchange(stopped.started, false)) return;
  if (calledOnceMore) cycle_->stopped.push_back(stopped.client);
  cycle_->started.erase(id);
  startsOrStops_.notifyAll();
  waitUntilIdle();
  if (calledOnceMore) cycle_->wake.notifyOne();
}

void AggregateDevice::stopAll() {
  for (auto& [id, each] : procs_) each.started = false;
  cycle_->started.clear();
  setRunning(false);
}

bool AggregateDevice::isStarted() const { return !cycle_->started.empty(); }

bool AggregateDevice::listens() const {
  const std::size_t own = ownInputs_();
  return std::ranges::any_of(procs_, [own](const auto& each) {
    const Proc& proc = each.second;
    for (std::size_t input = 0; input < own; ++input) {
      if (proc.started && proc.client.uses(input)) return true;
    }
    return false;
  });
}

void AggregateDevice::waitUntilIdle() {
  if (cycle_->busy && Scheduler::current() == cycle_->thread) return;  // a callback that stops itself
  // Not a thread of the program: the audio service ends. Only real threads can be in the middle of something then.
  while (cycle_->busy && !Scheduler::current()) {
    const Scheduler::Unlock unlock(scheduler_);
    std::this_thread::yield();
  }
  try {
    while (cycle_->busy) cycle_->idle.wait();
  } catch (const ProcessEnd&) {
    // The I/O thread ends with the process.
  }
}

void AggregateDevice::beginCycle(const OutputDevice& device, std::vector<Input> inputs, Done done) {
  if (cycle_->due || cycle_->busy) return;
  const OutputSettings& settings = device.settings();
  const auto position = static_cast<double>(device.clock.cycle() * settings.frames);
  const AudioTimeStamp now = {
      .mSampleTime = position,
      .mHostTime = static_cast<UInt64>(scheduler_.now().count()),
      .mRateScalar = 1,
      .mWordClockTime = 0,
      .mSMPTETime = {},
      .mFlags = kAudioTimeStampSampleTimeValid | kAudioTimeStampHostTimeValid | kAudioTimeStampRateScalarValid,
      .mReserved = 0};
  cycle_->now = cycle_->inputTime = cycle_->outputTime = now;
  cycle_->inputTime.mSampleTime -= settings.frames;
  cycle_->inputs = std::move(inputs);
  cycle_->channels = settings.channels;
  cycle_->samples = std::size_t{settings.frames} * settings.channels;
  cycle_->done = std::move(done);
  if (lackingCycles_ > 0) --lackingCycles_;
  if (unmutedCycles_ > 0) --unmutedCycles_;
  cycle_->due = true;
  cycle_->wake.notifyOne();
}

// The sum of what these play.
std::vector<float> AggregateDevice::callAll(Scheduler& scheduler, Cycle& cycle, const std::vector<Client>& clients) {
  std::vector<float> sum(cycle.samples);
  cycle.busy = true;
  struct Busy {
    Cycle& cycle;
    ~Busy() {
      cycle.busy = false;
      cycle.idle.notifyAll();
    }
  } busy{cycle};
  const Scheduler::Unlock unlock(scheduler);
  for (const Client& client : clients) cycle.call(client, sum);
  return sum;
}

bool AggregateDevice::isSteady() const { return !cycle_->due && !cycle_->busy && cycle_->steady; }

void AggregateDevice::runIO(Scheduler& scheduler, const std::shared_ptr<Cycle>& cycle) {
  const Scheduler::Lock lock(scheduler);
  cycle->thread = Scheduler::current();
  for (;;) {
    while (!cycle->due && !cycle->over && cycle->stopped.empty()) cycle->wake.wait();
    if (!cycle->stopped.empty()) callAll(scheduler, *cycle, std::exchange(cycle->stopped, {}));
    if (cycle->over) return;
    if (!cycle->due) continue;
    cycle->due = false;
    std::vector<Client> clients;
    for (const auto& [id, client] : cycle->started) clients.push_back(client);
    const std::vector<float> sum = callAll(scheduler, *cycle, clients);
    cycle->steady = !cycle->inputs.empty() && isMultiple(sum, cycle->inputs.back().samples);
    if (!cycle->over) cycle->done(sum);
  }
}

PropertyValue AggregateDevice::property(const AudioObjectPropertyAddress& address, std::span<const std::byte>) const {
  if (isProperty(address, kAudioObjectPropertyName)) return PropertyValue::string(description.name);
  if (isProperty(address, kAudioDevicePropertyDeviceUID)) return PropertyValue::string(description.uid);
  // Its value has no meaning.
  if (isProperty(address, kAudioDevicePropertyIOStoppedAbnormally)) return PropertyValue::of(UInt32{0});
  if (isProperty(address, kAudioDevicePropertyStreams, kAudioObjectPropertyScopeInput)) {
    // They have no numbers that anything could be asked by.
    return PropertyValue::list(std::vector<AudioObjectID>(ownInputs_() + taps.size(), kAudioObjectUnknown));
  }
  throw AudioError{kAudioHardwareUnknownPropertyError};
}

void AggregateDevice::setProperty(const AudioObjectPropertyAddress& address, std::span<const std::byte> value) {
  if (!isProperty(address, kAudioDevicePropertyIOProcStreamUsage, kAudioObjectPropertyScopeInput)) {
    throw AudioError{kAudioHardwareIllegalOperationError};
  }
  AudioHardwareIOProcStreamUsage usage{};
  constexpr std::size_t header = offsetof(AudioHardwareIOProcStreamUsage, mStreamIsOn);
  if (value.size() < header) throw AudioError{kAudioHardwareBadPropertySizeError};
  std::memcpy(&usage, value.data(), header);
  // All streams of the direction must be in it.
  if (usage.mNumberStreams != ownInputs_() + taps.size()) throw AudioError{kAudioHardwareIllegalOperationError};
  std::vector<UInt32> on(usage.mNumberStreams);
  if (value.size() != header + on.size() * sizeof(UInt32)) throw AudioError{kAudioHardwareBadPropertySizeError};
  std::memcpy(on.data(), value.data() + header, on.size() * sizeof(UInt32));
  const auto id = reinterpret_cast<AudioDeviceIOProcID>(usage.mIOProc);
  Proc& changed = proc(id);
  changed.client.inputsOn.assign(on.begin(), on.end());
  if (changed.started) cycle_->started.at(id) = changed.client;
}

}  // namespace simulator
