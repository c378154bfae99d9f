#include "simulator/audio/AggregateDevice.h"

#include <Block.h>

#include <algorithm>
#include <array>
#include <set>
#include <string_view>
#include <utility>

#include "simulator/machine/Machine.h"
#include "simulator/machine/RealTime.h"
#include "simulator/services/CoreFoundation.h"

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
  std::vector<AudioDeviceIOBlock> started;

  // The cycle at hand.
  std::vector<Input> inputs;
  UInt32 channels = 0;
  std::size_t samples = 0;
  AudioTimeStamp now{};
  AudioTimeStamp inputTime{};
  AudioTimeStamp outputTime{};
  Done done;

  // Calls one callback and adds what it played.
  void call(AudioDeviceIOBlock block, std::vector<float>& sum) const;
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

// Written behind the output buffer, where a callback has no business.
constexpr std::array<float, 16> fence = {0.1F, 0.2F, 0.3F, 0.4F, 0.5F, 0.6F, 0.7F, 0.8F,
                                         0.9F, 1.0F, 1.1F, 1.2F, 1.3F, 1.4F, 1.5F, 1.6F};

}  // namespace

void AggregateDevice::Cycle::call(AudioDeviceIOBlock block, std::vector<float>& sum) const {
  BufferList input(inputs.size());
  for (std::size_t i = 0; i < inputs.size(); ++i) {
    const Input& each = inputs[i];
    input[i] = {each.channels, static_cast<UInt32>(each.samples.size() * sizeof(float)),
                const_cast<float*>(each.samples.data())};
  }
  std::vector<float> played(samples + fence.size());
  std::ranges::copy(fence, played.begin() + static_cast<std::ptrdiff_t>(samples));
  const AudioBuffer offered = {channels, static_cast<UInt32>(samples * sizeof(float)), played.data()};
  BufferList outputs(1);
  outputs[0] = offered;

  {
    const RealTime realTime;
    block(&now, input.get(), &inputTime, outputs.get(), &outputTime);
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
                                 std::vector<AudioObjectID> tapNumbers, Scheduler& scheduler)
    : AudioObject(number),
      description(std::move(what)),
      output(outputNumber),
      taps(std::move(tapNumbers)),
      scheduler_(scheduler),
      cycle_(std::make_shared<Cycle>(scheduler)) {}

AggregateDevice::~AggregateDevice() {
  cycle_->over = true;
  cycle_->started.clear();
  cycle_->wake.notifyAll();
  waitUntilIdle();
  for (const auto& [id, proc] : procs_) Block_release(proc.block);
}

AudioDeviceIOProcID AggregateDevice::createProc(AudioDeviceIOBlock block) {
  const auto id = reinterpret_cast<AudioDeviceIOProcID>(++lastProc_);
  procs_.emplace(id, Proc{.block = Block_copy(block), .started = false});
  return id;
}

AggregateDevice::Proc& AggregateDevice::proc(AudioDeviceIOProcID id) {
  const auto found = procs_.find(id);
  if (found == procs_.end()) throw AudioError{kAudioHardwareIllegalOperationError};
  return found->second;
}

void AggregateDevice::destroyProc(AudioDeviceIOProcID id) {
  stop(id);
  Block_release(proc(id).block);
  procs_.erase(id);
}

void AggregateDevice::start(AudioDeviceIOProcID id) {
  Proc& started = proc(id);
  if (std::exchange(started.started, true)) return;
  cycle_->started.push_back(started.block);
  if (std::exchange(cycle_->hasThread, true)) return;
  scheduler_.spawn("com.apple.audio.IOThread.client",
                   [&scheduler = scheduler_, cycle = cycle_] { runIO(scheduler, cycle); });
}

void AggregateDevice::stop(AudioDeviceIOProcID id) {
  Proc& stopped = proc(id);
  if (!std::exchange(stopped.started, false)) return;
  std::erase(cycle_->started, stopped.block);
  waitUntilIdle();
}

bool AggregateDevice::isStarted() const { return !cycle_->started.empty(); }

void AggregateDevice::waitUntilIdle() {
  if (cycle_->busy && Scheduler::current() == cycle_->thread) return;  // a callback that stops itself
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
  cycle_->due = true;
  cycle_->wake.notifyOne();
}

void AggregateDevice::runIO(Scheduler& scheduler, const std::shared_ptr<Cycle>& cycle) {
  const Scheduler::Lock lock(scheduler);
  cycle->thread = Scheduler::current();
  for (;;) {
    while (!cycle->due && !cycle->over) cycle->wake.wait();
    if (cycle->over) return;
    cycle->due = false;
    std::vector<float> sum(cycle->samples);
    {
      const std::vector<AudioDeviceIOBlock> blocks = cycle->started;
      cycle->busy = true;
      struct Busy {
        Cycle& cycle;
        ~Busy() {
          cycle.busy = false;
          cycle.idle.notifyAll();
        }
      } busy{*cycle};
      const Scheduler::Unlock unlock(scheduler);
      for (const AudioDeviceIOBlock block : blocks) cycle->call(block, sum);
    }
    if (!cycle->over) cycle->done(sum);
  }
}

PropertyValue AggregateDevice::property(const AudioObjectPropertyAddress& address, std::span<const std::byte>) const {
  if (isProperty(address, kAudioObjectPropertyName)) return PropertyValue::string(description.name);
  if (isProperty(address, kAudioDevicePropertyDeviceUID)) return PropertyValue::string(description.uid);
  throw AudioError{kAudioHardwareUnknownPropertyError};
}

}  // namespace simulator
