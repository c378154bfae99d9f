// The calls of Core Audio.
#include <CoreAudio/CoreAudio.h>

#include <nlohmann/json.hpp>
#include <string>

#include "simulator/audio/Audio.h"
#include "simulator/kernel/Call.h"

namespace simulator {
namespace {

// Carries out a call that answers a status, unless it was told to fail.
template <typename Body>
OSStatus answer(const Call& call, Body body) {
  call.part<Audio>().takeTime();
  if (const auto fault = call.fault()) return *fault;
  try {
    body(call.part<simulator::Audio>());
  } catch (const AudioError& error) {
    return error.status;
  }
  return kAudioHardwareNoError;
}

std::span<const std::byte> bytes(const void* data, UInt32 size) {
  return {static_cast<const std::byte*>(data), data ? size : 0};
}

// Four characters as people read them: 'dOut'.
std::string fourCharacters(UInt32 code) {
  std::string text;
  for (int shift = 24; shift >= 0; shift -= 8) text += static_cast<char>((code >> shift) & 0xff);
  return text;
}

// The number of a callback; Core Audio's are addresses.
std::int64_t number(AudioDeviceIOProcID proc) {
  return static_cast<std::int64_t>(reinterpret_cast<std::uintptr_t>(proc));
}

// Stops the run where Core Audio itself would read or write at an address that isn't one.
void require(bool condition, const char* call, const char* what) {
  if (!condition) fatal(std::string(call) + " was given " + what);
}

OSStatus listen(const char* name, bool adds, AudioObjectID object, const AudioObjectPropertyAddress* address,
                dispatch_queue_t queue, AudioObjectPropertyListenerBlock block) {
  const Call call(name);
  require(address && block, name, "no address or no block");
  require(queue, name, "no queue: that is not simulated");
  const OSStatus status = answer(call, [&](Audio& audio) {
    if (adds) {
      (void)audio.property(object, *address, {});
      audio.listeners.add(object, *address, queue, block);
    } else if (!audio.listeners.remove(object, *address, queue, block)) {
      throw AudioError{kAudioHardwareIllegalOperationError};
    }
  });
  call.machine.trace.call(name, status)
      .number("object", object)
      .text("selector", fourCharacters(address->mSelector))
      .text("scope", fourCharacters(address->mScope));
  return status;
}

// A call that does something to one of a device's procs.
OSStatus changeProc(const char* name, AudioObjectID device, AudioDeviceIOProcID proc,
                    void (Audio::*change)(AudioObjectID, AudioDeviceIOProcID)) {
  const Call call(name);
  const OSStatus status = answer(call, [&](Audio& audio) { (audio.*change)(device, proc); });
  call.machine.trace.call(name, status).number("device", device).number("proc", number(proc));
  return status;
}

}  // namespace
}  // namespace simulator

using simulator::answer;
using simulator::Audio;
using simulator::AudioError;
using simulator::Call;
using simulator::changeProc;
using simulator::require;

extern "C" {

// ---- Properties ----

Boolean AudioObjectHasProperty(AudioObjectID inObjectID, const AudioObjectPropertyAddress* inAddress) {
  const Call call("AudioObjectHasProperty");
  require(inAddress, "AudioObjectHasProperty", "no address");
  const OSStatus status = answer(call, [&](Audio& audio) { (void)audio.property(inObjectID, *inAddress, {}); });
  // A qualifier that is missing is no sign that the property is.
  return status == kAudioHardwareNoError || status == kAudioHardwareBadPropertySizeError;
}

OSStatus AudioObjectIsPropertySettable(AudioObjectID inObjectID, const AudioObjectPropertyAddress* inAddress,
                                       Boolean* outIsSettable) {
  const Call call("AudioObjectIsPropertySettable");
  require(inAddress && outIsSettable, "AudioObjectIsPropertySettable", "no address or nowhere to write");
  return answer(call, [&](Audio& audio) { *outIsSettable = audio.property(inObjectID, *inAddress, {}).isSettable(); });
}

OSStatus AudioObjectGetPropertyDataSize(AudioObjectID inObjectID, const AudioObjectPropertyAddress* inAddress,
                                        UInt32 inQualifierDataSize, const void* inQualifierData, UInt32* outDataSize) {
  const Call call("AudioObjectGetPropertyDataSize");
  require(inAddress && outDataSize, "AudioObjectGetPropertyDataSize", "no address or nowhere to write");
  require(inQualifierData || inQualifierDataSize == 0, "AudioObjectGetPropertyDataSize", "no qualifier of that size");
  return answer(call, [&](Audio& audio) {
    *outDataSize =
        audio.property(inObjectID, *inAddress, simulator::bytes(inQualifierData, inQualifierDataSize)).size();
  });
}

OSStatus AudioObjectGetPropertyData(AudioObjectID inObjectID, const AudioObjectPropertyAddress* inAddress,
                                    UInt32 inQualifierDataSize, const void* inQualifierData, UInt32* ioDataSize,
                                    void* outData) {
  const Call call("AudioObjectGetPropertyData");
  require(inAddress && ioDataSize && outData, "AudioObjectGetPropertyData", "no address or nowhere to write");
  require(inQualifierData || inQualifierDataSize == 0, "AudioObjectGetPropertyData", "no qualifier of that size");
  return answer(call, [&](Audio& audio) {
    const auto value = audio.property(inObjectID, *inAddress, simulator::bytes(inQualifierData, inQualifierDataSize));
    if (*ioDataSize < value.size()) throw AudioError{kAudioHardwareBadPropertySizeError};
    *ioDataSize = value.size();
    value.write(outData);
  });
}

OSStatus AudioObjectSetPropertyData(AudioObjectID inObjectID, const AudioObjectPropertyAddress* inAddress,
                                    UInt32 inQualifierDataSize, const void*, UInt32 inDataSize, const void* inData) {
  constexpr const char* name = "AudioObjectSetPropertyData";
  const Call call(name);
  require(inAddress && inData, name, "no address or no data");
  require(inQualifierDataSize == 0, name, "a qualifier: that is not simulated");
  const auto value = simulator::bytes(inData, inDataSize);
  const OSStatus status = answer(call, [&](Audio& audio) { audio.setProperty(inObjectID, *inAddress, value); });
  std::vector<std::uint8_t> data(value.size());
  std::memcpy(data.data(), value.data(), value.size());
  call.machine.trace.call(name, status)
      .number("object", inObjectID)
      .text("selector", simulator::fourCharacters(inAddress->mSelector))
      .text("scope", simulator::fourCharacters(inAddress->mScope))
      .bytes("data", data);
  return status;
}

OSStatus AudioObjectAddPropertyListenerBlock(AudioObjectID inObjectID, const AudioObjectPropertyAddress* inAddress,
                                             dispatch_queue_t inDispatchQueue,
                                             AudioObjectPropertyListenerBlock inListener) {
  return simulator::listen("AudioObjectAddPropertyListenerBlock", true, inObjectID, inAddress, inDispatchQueue,
                           inListener);
}

OSStatus AudioObjectRemovePropertyListenerBlock(AudioObjectID inObjectID, const AudioObjectPropertyAddress* inAddress,
                                                dispatch_queue_t inDispatchQueue,
                                                AudioObjectPropertyListenerBlock inListener) {
  return simulator::listen("AudioObjectRemovePropertyListenerBlock", false, inObjectID, inAddress, inDispatchQueue,
                           inListener);
}

// ---- Aggregate devices ----

OSStatus AudioHardwareCreateAggregateDevice(CFDictionaryRef inDescription, AudioObjectID* outDeviceID) {
  constexpr const char* name = "AudioHardwareCreateAggregateDevice";
  const Call call(name);
  require(outDeviceID, name, "nowhere to write");
  std::string problem;
  const simulator::AggregateDevice* made = nullptr;
  const OSStatus status = answer(call, [&](Audio& audio) {
    made = &audio.createAggregate(inDescription, problem);
    *outDeviceID = made->id;
  });
  auto record = call.machine.trace.call(name, status);
  if (made) {
    // Under the keys of the description.
    const auto& wanted = made->description;
    nlohmann::ordered_json taps = nlohmann::ordered_json::array();
    for (const auto& tap : wanted.taps) taps.push_back({{"uid", tap.uid}, {"drift", tap.compensatesDrift}});
    record.number("device", made->id)
        .text("name", wanted.name)
        .text("uid", wanted.uid)
        .text("master", wanted.mainDevice)
        .flag("private", wanted.isPrivate)
        .flag("stacked", wanted.isStacked)
        .flag("tapautostart", wanted.startsWithTap)
        .json("subdevices", nlohmann::json(wanted.subDevices).dump())
        .json("taps", taps.dump());
  }
  if (!problem.empty()) record.text("problem", problem);
  return status;
}

OSStatus AudioHardwareDestroyAggregateDevice(AudioObjectID inDeviceID) {
  const Call call("AudioHardwareDestroyAggregateDevice");
  const OSStatus status = answer(call, [&](Audio& audio) { audio.destroyAggregate(inDeviceID); });
  call.machine.trace.call("AudioHardwareDestroyAggregateDevice", status).number("device", inDeviceID);
  return status;
}

// ---- I/O ----

OSStatus AudioDeviceCreateIOProcIDWithBlock(AudioDeviceIOProcID* outIOProcID, AudioObjectID inDevice,
                                            dispatch_queue_t inDispatchQueue, AudioDeviceIOBlock inIOBlock) {
  constexpr const char* name = "AudioDeviceCreateIOProcIDWithBlock";
  const Call call(name);
  require(outIOProcID && inIOBlock, name, "no block or nowhere to write");
  require(!inDispatchQueue, name, "a queue: that is not simulated");
  const OSStatus status = answer(call, [&](Audio& audio) { *outIOProcID = audio.createProc(inDevice, inIOBlock); });
  auto record = call.machine.trace.call(name, status);
  record.number("device", inDevice);
  if (status == kAudioHardwareNoError) record.number("proc", simulator::number(*outIOProcID));
  return status;
}

OSStatus AudioDeviceDestroyIOProcID(AudioObjectID inDevice, AudioDeviceIOProcID inIOProcID) {
  return changeProc("AudioDeviceDestroyIOProcID", inDevice, inIOProcID, &Audio::destroyProc);
}

OSStatus AudioDeviceStart(AudioObjectID inDevice, AudioDeviceIOProcID inProcID) {
  return changeProc("AudioDeviceStart", inDevice, inProcID, &Audio::start);
}

OSStatus AudioDeviceStop(AudioObjectID inDevice, AudioDeviceIOProcID inProcID) {
  return changeProc("AudioDeviceStop", inDevice, inProcID, &Audio::stop);
}

}  // extern "C"
