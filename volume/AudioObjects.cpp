#include "volume/AudioObjects.h"

#include "base/Log.h"
#include "volume/CoreAudio.h"

using CoreAudio::require;

namespace {

// For teardown, which always goes on to its next step.
void check(OSStatus status, const char* step) {
  static const os_log_t logger = makeLogger("AudioRouter");
  if (status != kAudioHardwareNoError) os_log_error(logger, "%{public}s failed (OSStatus %d)", step, status);
}

}  // namespace

ProcessTap::ProcessTap(const CA::TapDescription& description) {
  require(CA::AudioHardwareCreateProcessTap(description, &id_), "Creating the process tap");
}

ProcessTap::~ProcessTap() { check(CA::AudioHardwareDestroyProcessTap(id_), "Destroying the process tap"); }

AggregateDevice::AggregateDevice(CFDictionaryRef description) {
  require(AudioHardwareCreateAggregateDevice(description, &id_), "Creating the aggregate device");
}

AggregateDevice::~AggregateDevice() {
  check(AudioHardwareDestroyAggregateDevice(id_), "Destroying the aggregate device");
}

IOProc::IOProc(AudioObjectID device, AudioDeviceIOBlock block) : device_(device) {
  // Without a queue the block runs on the device's real-time thread itself.
  require(AudioDeviceCreateIOProcIDWithBlock(&id_, device, nullptr, block), "Creating the I/O proc");
}

IOProc::~IOProc() {
  check(AudioDeviceStop(device_, id_), "Stopping the aggregate device");
  check(AudioDeviceDestroyIOProcID(device_, id_), "Destroying the I/O proc");
}

void IOProc::start() { require(AudioDeviceStart(device_, id_), "Starting the aggregate device"); }
