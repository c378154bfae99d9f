#include "volume/VolumeController.h"

#include <dispatch/dispatch.h>

#include <algorithm>
#include <exception>
#include <limits>
#include <utility>

#include "base/Alerts.h"
#include "base/Assertions.h"
#include "base/Log.h"
#include "platform/CF.h"
#include "volume/CoreAudio.h"
#include "volume/SystemAudioPermission.h"

namespace {

constexpr int totalSteps = 16;

constexpr AudioObjectPropertyAddress defaultOutputAddress =
    CoreAudio::propertyAddress(kAudioHardwarePropertyDefaultOutputDevice);

os_log_t logger() {
  static const os_log_t handle = makeLogger("VolumeController");
  return handle;
}

std::string stepsKey(const std::string& uid) { return "steps." + uid; }
std::string mutedKey(const std::string& uid) { return "muted." + uid; }

// The cube of the level: loudness follows the steps evenly. Exact in 32 bits for every step.
float gain(long steps, bool muted) {
  if (muted) return 0;
  const float fraction = static_cast<float>(steps) / totalSteps;
  return fraction * fraction * fraction;
}

// The level as a count for the pop-up and the slider. One that somebody else wrote can be out of every range.
int shown(long steps) { return static_cast<int>(std::clamp(steps, 0L, long{std::numeric_limits<int>::max()})); }

}  // namespace

VolumeController::VolumeController(std::shared_ptr<const NativeOSD> osd) : osd_(std::move(osd)) {}

void VolumeController::start() {
  assertMainThread();
  listenForDefaultOutputChanges();
  observeWake();
  refresh();
}

void VolumeController::stop() {
  assertMainThread();
  if (wakeObserver_) {
    NS::Workspace::sharedWorkspace().notificationCenter().removeObserver(std::exchange(wakeObserver_, {}));
  }
  if (defaultOutputListener_) {
    // There is nothing to be done about a listener that cannot be removed.
    AudioObjectRemovePropertyListenerBlock(CoreAudio::system, &defaultOutputAddress, dispatch_get_main_queue(),
                                           defaultOutputListener_.get());
    defaultOutputListener_ = {};
  }
  stopRouter();
  output_.reset();
}

std::optional<SliderState> VolumeController::sliderState() const {
  assertMainThread();
  if (!output_) return std::nullopt;
  const int steps = storedMute(output_->uid) ? 0 : shown(storedSteps(output_->uid));
  return SliderState{.title = output_->name, .steps = steps, .totalSteps = totalSteps};
}

bool VolumeController::handle(MediaKey key, bool isPressed, bool isRepeat) {
  assertMainThread();
  if (key > MediaKey::mute || !output_) return false;
  if (!isPressed) return true;

  const Output output = *output_;
  long steps = storedSteps(output.uid);
  bool muted = storedMute(output.uid);
  switch (key) {
    case MediaKey::mute:
      if (isRepeat) return true;  // a held key toggles once
      muted = !muted;
      break;
    case MediaKey::volumeDown:
      steps = steps > 0 ? steps - 1 : 0;
      muted = false;
      break;
    default:
      steps = steps < totalSteps ? steps + 1 : totalSteps;
      muted = false;
      break;
  }
  apply(steps, muted, output);
  if (osd_) osd_->showVolume(muted ? 0 : shown(steps), totalSteps, steps == 0 || muted);
  return true;
}

void VolumeController::setSteps(int steps) {
  assertMainThread();
  if (!output_) return;
  apply(std::clamp(steps, 0, totalSteps), false, Output(*output_));
}

void VolumeController::refresh() {
  assertMainThread();
  stopRouter();
  output_.reset();
  try {
    chooseOutput();
  } catch (const std::exception& error) {
    os_log_error(logger(), "%{public}s", error.what());
  }
}

void VolumeController::chooseOutput() {
  const AudioObjectID device = CoreAudio::defaultOutputDevice();
  const std::string name = CoreAudio::name(device);
  if (CoreAudio::hasSystemVolumeControl(device)) {
    os_log_info(logger(), "%{public}s has its own volume control, staying idle", name.c_str());
    return;
  }
  switch (SystemAudioPermission::status()) {
    case SystemAudioPermission::Status::authorized: {
      const Output output{.device = device, .uid = CoreAudio::deviceUID(device), .name = name};
      output_ = output;
      os_log_info(logger(), "Controlling the volume of %{public}s", name.c_str());
      updateCapture(storedSteps(output.uid), storedMute(output.uid), output);
      break;
    }
    case SystemAudioPermission::Status::denied:
      showPermissionAlert();
      break;
    case SystemAudioPermission::Status::notDetermined:
      requestPermission();
      break;
  }
}

void VolumeController::listenForDefaultOutputChanges() {
  const std::weak_ptr<VolumeController> controller = weak_from_this();
  const Block<AudioObjectPropertyListenerBlock> listener(^(UInt32, const AudioObjectPropertyAddress*) {
    if (const auto self = controller.lock()) self->refresh();
  });
  const OSStatus status = AudioObjectAddPropertyListenerBlock(CoreAudio::system, &defaultOutputAddress,
                                                              dispatch_get_main_queue(), listener.get());
  if (status != kAudioHardwareNoError) {
    os_log_error(logger(), "Could not watch the default output device (OSStatus %d)", status);
    return;
  }
  defaultOutputListener_ = listener;
}

void VolumeController::observeWake() {
  const std::weak_ptr<VolumeController> controller = weak_from_this();
  wakeObserver_ =
      NS::Workspace::sharedWorkspace().notificationCenter().addObserverForName(NS::WorkspaceDidWakeNotification(), ^{
        if (const auto self = controller.lock()) self->refresh();
      });
}

void VolumeController::requestPermission() {
  const std::weak_ptr<VolumeController> controller = weak_from_this();
  // Called on any thread.
  SystemAudioPermission::request(^(bool granted) {
    dispatch_async(dispatch_get_main_queue(), ^{
      const auto self = controller.lock();
      if (!self) return;
      if (granted) {
        self->refresh();
      } else {
        self->showPermissionAlert();
      }
    });
  });
}

void VolumeController::showPermissionAlert() {
  if (std::exchange(permissionAlertShown_, true)) return;
  presentAlert(weak_from_this(),
               makeAlert("Dalvane needs System Audio Recording",
                         "Allow Dalvane in System Settings > Privacy & Security > Screen & System Audio Recording, "
                         "then quit and reopen it."));
}

// A level that somebody else wrote is taken as it is, whatever it is.
long VolumeController::storedSteps(const std::string& uid) const {
  return static_cast<long>(CF::integer(defaults_.objectForKey(stepsKey(uid)).get()).value_or(totalSteps));
}

bool VolumeController::storedMute(const std::string& uid) const { return defaults_.boolForKey(mutedKey(uid)); }

void VolumeController::apply(long steps, bool muted, const Output& output) {
  defaults_.setInteger(steps, stepsKey(output.uid));
  defaults_.setBool(muted, mutedKey(output.uid));
  updateCapture(steps, muted, output);
}

void VolumeController::updateCapture(long steps, bool muted, const Output& output) {
  if (!muted && steps >= totalSteps) {
    // At full volume the device plays untouched.
    stopRouter();
    return;
  }
  if (router_) {
    router_->setGain(gain(steps, muted));
    return;
  }
  try {
    router_.emplace(output.device, gain(steps, muted));
  } catch (const std::exception& error) {
    // The next change of the level tries again.
    os_log_error(logger(), "Starting the capture for %{public}s failed: %{public}s", output.name.c_str(), error.what());
  }
}

void VolumeController::stopRouter() {
  if (router_) router_->stop();
  router_.reset();
}
