// Aggregate devices: an output device and taps that a client made into one device, and the I/O on it.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "platform/Block.h"
#include "simulator/audio/AudioObject.h"
#include "simulator/audio/OutputDevice.h"
#include "simulator/audio/Tap.h"
#include "simulator/kernel/Scheduler.h"

namespace simulator {

// What a client asks for, checked.
struct AggregateDescription {
  // Every key is required and no other is known; anything else is kAudioHardwareIllegalOperationError. `problem` says
  // what is wrong.
  static AggregateDescription parse(CFDictionaryRef dictionary, std::string& problem);

  std::string name;
  std::string uid;
  std::string mainDevice;  // the UID of the sub-device that gives the beat
  bool isPrivate = false;
  bool isStacked = false;
  bool startsWithTap = false;  // starting waits until a tapped process is heard
  std::vector<std::string> subDevices;
  struct SubTap {
    std::string uid;
    bool compensatesDrift = false;
  };
  std::vector<SubTap> taps;
};

class AggregateDevice : public AudioObject {
 public:
  // On `output`, the one sub-device (by its number in the scenario), with these taps; `ownInputs` says how many input
  // streams the sub-device has.
  AggregateDevice(AudioObjectID id, AggregateDescription description, std::int64_t output,
                  std::function<std::size_t()> ownInputs, std::vector<AudioObjectID> taps, Scheduler& scheduler);
  // Waits until no callback runs.
  ~AggregateDevice() override;

  const AggregateDescription description;
  const std::int64_t output;
  const std::vector<AudioObjectID> taps;

  // ---- Callbacks; unknown ones are kAudioHardwareIllegalOperationError ----

  // Keeps a copy of the block until the callback is destroyed.
  AudioDeviceIOProcID createProc(AudioDeviceIOBlock block);
  void destroyProc(AudioDeviceIOProcID proc);
  void start(AudioDeviceIOProcID proc);
  // Waits until callbacks are called, or that one is stopped. Whether they are.
  bool waitForStart(AudioDeviceIOProcID proc);
  // When it returns the block isn't running. `calledOnceMore`: it still will be, once, and what it plays is not heard.
  void stop(AudioDeviceIOProcID proc, bool calledOnceMore);
  // Stops all callbacks.
  void stopAll();

  [[nodiscard]] std::size_t procs() const { return procs_.size(); }
  // A callback that was started reads an input stream of the sub-device.
  [[nodiscard]] bool listens() const;
  // A callback was started.
  [[nodiscard]] bool isStarted() const;
  // Its callbacks are called, and so its taps are read.
  [[nodiscard]] bool isRunning() const { return running_; }
  void setRunning(bool running);
  // It begins to run, and is slow about it: for so many cycles its taps deliver less than they should, and for so many
  // they mute nothing.
  void beginSlowly(std::uint64_t lackingCycles, std::uint64_t unmutedCycles);
  [[nodiscard]] bool lacksSound() const { return running_ && lackingCycles_ > 0; }
  [[nodiscard]] bool mutes() const { return running_ && unmutedCycles_ == 0; }

  // ---- Cycles ----

  // The buffers of one input stream.
  struct Input {
    UInt32 channels;
    std::vector<float> samples;
  };
  // What the callbacks played: the sum of theirs.
  using Done = std::function<void(const std::vector<float>& output)>;

  // Hands a cycle to the I/O thread: `inputs` are the sub-device's own and then the taps'. Nothing comes of it when the
  // thread is still busy with an earlier one.
  void beginCycle(const OutputDevice& device, std::vector<Input> inputs, Done done);
  // The callbacks are through with the last cycle, and what they played was its last input at some level, the same from
  // its first sample to its last. A callback that does so is taken to do the same to the next, until something happens.
  [[nodiscard]] bool isSteady() const;

  [[nodiscard]] PropertyValue property(const AudioObjectPropertyAddress& address,
                                       std::span<const std::byte> qualifier) const override;
  // Which input streams a callback uses.
  void setProperty(const AudioObjectPropertyAddress& address, std::span<const std::byte> value) override;

 private:
  // What one callback is called with.
  struct Client {
    Block<AudioDeviceIOBlock> block;
    std::vector<bool> inputsOn;  // those behind its end are on
    [[nodiscard]] bool uses(std::size_t input) const { return input >= inputsOn.size() || inputsOn[input]; }
  };
  struct Proc {
    Client client;
    bool started = false;
  };
  // What the I/O thread shares with the device. It outlives the device when the thread ends later.
  struct Cycle;

  Proc& proc(AudioDeviceIOProcID id);
  void waitUntilIdle();
  static std::vector<float> callAll(Scheduler& scheduler, Cycle& cycle, const std::vector<Client>& clients);
  static void runIO(Scheduler& scheduler, const std::shared_ptr<Cycle>& cycle);

  const std::function<std::size_t()> ownInputs_;
  Scheduler& scheduler_;
  std::map<AudioDeviceIOProcID, Proc> procs_;
  std::uintptr_t lastProc_ = 0;
  bool running_ = false;
  std::uint64_t lackingCycles_ = 0;
  std::uint64_t unmutedCycles_ = 0;
  WaitQueue startsOrStops_;
  std::shared_ptr<Cycle> cycle_;
};

}  // namespace simulator
