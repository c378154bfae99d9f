// CATapDescription and the calls that take it.
#include "platform/AudioTap.h"

#include "simulator/audio/Audio.h"
#include "simulator/foundation/CoreFoundation.h"
#include "simulator/foundation/UUID.h"
#include "simulator/kernel/Call.h"

namespace CA {
namespace {

using simulator::Call;

simulator::TapDescription& object(const TapDescription& description, const char* call) {
  return simulator::live<simulator::TapDescription>(description.get(), call);
}

}  // namespace

TapDescription TapDescription::initExcludingProcesses(const std::vector<AudioObjectID>& processes,
                                                      const std::string& deviceUID, long stream) {
  const Call call("CATapDescription.initExcludingProcesses");
  auto* const description = new simulator::TapDescription;
  description->excluded = processes;
  description->deviceUID = simulator::requireUTF8(deviceUID, "CATapDescription.initExcludingProcesses");
  description->stream = stream;
  description->uuid = simulator::newUUID();
  return TapDescription(CF::adopt(static_cast<CFTypeRef>(description)));
}

void TapDescription::setName(const std::string& name) const {
  const Call call("CATapDescription.setName");
  object(*this, "CATapDescription.setName").name = simulator::requireUTF8(name, "CATapDescription.setName");
}

void TapDescription::setUUID(const NS::UUID& uuid) const {
  const Call call("CATapDescription.setUUID");
  object(*this, "CATapDescription.setUUID").uuid =
      simulator::live<simulator::UUIDObject>(uuid.get(), "CATapDescription.setUUID").text;
}

void TapDescription::setPrivate(bool isPrivate) const {
  const Call call("CATapDescription.setPrivate");
  object(*this, "CATapDescription.setPrivate").isPrivate = isPrivate;
}

void TapDescription::setMuteBehavior(TapMuteBehavior behavior) const {
  const Call call("CATapDescription.setMuteBehavior");
  object(*this, "CATapDescription.setMuteBehavior").mute = behavior;
}

NS::UUID TapDescription::UUID() const {
  const Call call("CATapDescription.UUID");
  const std::string& text = object(*this, "CATapDescription.UUID").uuid;
  return NS::UUID(CF::adopt(static_cast<CFTypeRef>(new simulator::UUIDObject(text))));
}

OSStatus AudioHardwareCreateProcessTap(const TapDescription& description, AudioObjectID* tap) {
  constexpr const char* name = "AudioHardwareCreateProcessTap";
  const Call call(name);
  const simulator::TapDescription& wanted = object(description, name);
  call.part<simulator::Audio>().takeTime();
  const auto fault = call.fault();
  OSStatus status = fault.value_or(kAudioHardwareNoError);
  try {
    if (!fault) *tap = call.part<simulator::Audio>().createTap(wanted).id;
  } catch (const simulator::AudioError& error) {
    status = error.status;
  }
  auto record = call.machine.trace.call(name, status);
  record.text("name", wanted.name)
      .text("uuid", wanted.uuid)
      .text("device", wanted.deviceUID)
      .number("stream", wanted.stream)
      .json("excluded", call.part<simulator::Audio>().namesOf(wanted.excluded))
      .flag("private", wanted.isPrivate)
      .number("mute", static_cast<std::int64_t>(wanted.mute));
  if (status == kAudioHardwareNoError) record.number("tap", *tap);
  return status;
}

OSStatus AudioHardwareDestroyProcessTap(AudioObjectID tap) {
  const Call call("AudioHardwareDestroyProcessTap");
  call.part<simulator::Audio>().takeTime();
  const auto fault = call.fault();
  OSStatus status = fault.value_or(kAudioHardwareNoError);
  try {
    if (!fault) call.part<simulator::Audio>().destroyTap(tap);
  } catch (const simulator::AudioError& error) {
    status = error.status;
  }
  call.machine.trace.call("AudioHardwareDestroyProcessTap", status).number("tap", tap);
  return status;
}

}  // namespace CA
