#include "volume/VolumeController.h"

#include <dispatch/dispatch.h>

#include <algorithm>
#include <array>
#include <exception>
#include <limits>
#include <utility>

#include "base/Alerts.h"
#include "base/AppError.h"
#include "base/Assertions.h"
#include "base/Log.h"
#include "platform/CF.h"
#include "volume/CoreAudio.h"
#include "volume/SystemAudioPermission.h"

namespace {

constexpr int totalSteps = 16;

// What a router is built upon.
constexpr std::array watchedOfDevice = {
    CoreAudio::propertyAddress(kAudioDevicePropertyStreams, kAudioObjectPropertyScopeInput),
    CoreAudio::propertyAddress(kAudioDevicePropertyStreams, kAudioObjectPropertyScopeOutput),
    CoreAudio::propertyAddress(kAudioDevicePropertyStreamFormat, kAudioObjectPropertyScopeOutput),
    CoreAudio::propertyAddress(kAudioDevicePropertyNominalSampleRate),
    CoreAudio::propertyAddress(kAudioDevicePropertyDeviceIsAlive),
};

os_log_t logger() {
  static const os_log_t handle = makeLogger("VolumeController");
  return handle;
}

std::string stepsKey(const std::string& uid) { return "steps." + uid; }
std::string mutedKey(const std::string& uid) { return "muted." + uid; }

// The device plays untouched.
bool isFull(long steps, bool muted) { return !muted && steps >= totalSteps; }

// The cube of the level: loudness follows the steps evenly. Exact in 32 bits for every step. From 0 to 1, whatever
// level somebody else wrote.
float gain(long steps, bool muted) {
  if (muted) return 0;
  const float fraction = static_cast<float>(std::clamp(steps, 0L, long{totalSteps})) / totalSteps;
  return fraction * fraction * fraction;
}

// The next change of the level tries again.
void logFailedStart(const std::string& name, const std::exception& error) {
  os_log_error(logger(), "Starting the capture for %{public}s failed: %{public}s", name.c_str(), error.what());
}

// The level as the slider and, from 0 on, the pop-up take it. One that somebody else wrote can be out of every range.
int shown(long steps, int least) {
  return static_cast<int>(std::clamp(steps, long{least}, long{std::numeric_limits<int>::max()}));
}

}  // namespace

VolumeController::VolumeController(std::shared_ptr<const NativeOSD> osd) : osd_(std::move(osd)) {}

void VolumeController::start() {
  assertMainThread();
  if (std::exchange(isRunning_, true)) return;
  listenForDefaultOutputChanges();
  listenForRestarts();
  observeWake();
  refresh();
}

void VolumeController::stop() {
  assertMainThread();
  isRunning_ = false;
  if (wakeObserver_) {
    NS::Workspace::sharedWorkspace().notificationCenter().removeObserver(std::exchange(wakeObserver_, {}));
  }
  restartListener_.reset();
  defaultOutputListener_.reset();
  becomeIdle();
}

std::optional<SliderState> VolumeController::sliderState() const {
  assertMainThread();
  if (!output_) return std::nullopt;
  const int steps = storedMute(output_->uid) ? 0 : shown(storedSteps(output_->uid), std::numeric_limits<int>::min());
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
  if (osd_) osd_->showVolume(muted ? 0 : shown(steps, 0), totalSteps, steps == 0 || muted);
  return true;
}

void VolumeController::setSteps(int steps) {
  assertMainThread();
  if (!output_) return;
  apply(std::clamp(steps, 0, totalSteps), false, Output(*output_));
}

void VolumeController::refresh() {
  assertMainThread();
  becomeIdle();
  defaultOutputChanged();
}

// The device may have been decided on already: one that vanishes says so itself, too.
void VolumeController::defaultOutputChanged() {
  try {
    const AudioObjectID device = CoreAudio::defaultOutputDevice();
    if (device == decided_) return;
    becomeIdle();
    if (device == kAudioObjectUnknown) decided_ = device;  // nothing that could be tried again
    chooseOutput(device);
    decided_ = device;
  } catch (const std::exception& error) {
    if (output_) becomeIdle();  // nothing tells that it is still the default
    os_log_error(logger(), "%{public}s", error.what());
  }
}

void VolumeController::becomeIdle() {
  stopRouter();
  output_.reset();
  decided_.reset();
}

void VolumeController::chooseOutput(AudioObjectID device) {
  const std::string name = CoreAudio::name(device);
  if (CoreAudio::hasSystemVolumeControl(device)) {
    os_log_info(logger(), "%{public}s has its own volume control, staying idle", name.c_str());
    return;
  }
  if (!mayCapture()) return;
  const Output output{.device = device, .uid = CoreAudio::deviceUID(device), .name = name};
  output_ = output;
  os_log_info(logger(), "Controlling the volume of %{public}s", name.c_str());
  const long steps = storedSteps(output.uid);
  const bool muted = storedMute(output.uid);
  if (!isFull(steps, muted)) startRouter(gain(steps, muted), output);
}

// Building a router is itself an occasion for notifications. Were each taken for a change, there would be no end.
void VolumeController::deviceChanged() {
  if (router_ && !router_->fitsDevice()) refresh();
}

std::function<void()> VolumeController::whileRunning(void (VolumeController::*action)()) {
  return [controller = weak_from_this(), action] {
    if (const auto self = controller.lock(); self && self->isRunning_) (self.get()->*action)();
  };
}

void VolumeController::listenForDefaultOutputChanges() {
  const OSStatus status =
      defaultOutputListener_
          .emplace(CoreAudio::system, CoreAudio::propertyAddress(kAudioHardwarePropertyDefaultOutputDevice),
                   whileRunning(&VolumeController::defaultOutputChanged))
          .status();
  if (status != kAudioHardwareNoError) {
    os_log_error(logger(), "Could not watch the default output device (OSStatus %d)", status);
  }
}

// Of what a router is made of nothing is left when the audio service restarts, however little the device has changed.
// One that was about to start has failed by then, so that the router is no sign of whether there is one to be made.
void VolumeController::listenForRestarts() {
  const OSStatus status =
      restartListener_
          .emplace(CoreAudio::system, CoreAudio::propertyAddress(kAudioHardwarePropertyServiceRestarted),
                   whileRunning(&VolumeController::refresh))
          .status();
  if (status != kAudioHardwareNoError) {
    os_log_error(logger(), "Could not watch the audio service (OSStatus %d)", status);
  }
}

void VolumeController::watchDevice(const Output& output) {
  for (const auto& address : watchedOfDevice) {
    const OSStatus status =
        routersListeners_.emplace_back(output.device, address, whileRunning(&VolumeController::deviceChanged)).status();
    if (status != kAudioHardwareNoError) {
      os_log_error(logger(), "Could not watch %{public}s (OSStatus %d)", output.name.c_str(), status);
    }
  }
}

void VolumeController::observeWake() {
  const auto woken = whileRunning(&VolumeController::refresh);
  wakeObserver_ =
      NS::Workspace::sharedWorkspace().notificationCenter().addObserverForName(NS::WorkspaceDidWakeNotification(), ^{
        woken();
      });
}

bool VolumeController::mayCapture() {
  const SystemAudioPermission::Status status = SystemAudioPermission::status();
  if (status == SystemAudioPermission::Status::authorized) return true;
  becomeIdle();
  if (status == SystemAudioPermission::Status::denied) {
    showPermissionAlert();
  } else {
    requestPermission();
  }
  return false;
}

void VolumeController::requestPermission() {
  const auto granted = whileRunning(&VolumeController::refresh);
  const auto refused = whileRunning(&VolumeController::showPermissionAlert);
  // Called on any thread.
  SystemAudioPermission::request(^(bool isGranted) {
    dispatch_async(dispatch_get_main_queue(), ^{
      isGranted ? granted() : refused();
    });
  });
}

void VolumeController::showPermissionAlert() {
  if (std::exchange(permissionAlertShown_, true)) return;
  presentAlert(weak_from_this(), [this]() -> std::optional<NS::Alert> {
    // The permission can have been given, and found, while another alert was open.
    permissionAlertShown_ = !output_;
    if (output_) return std::nullopt;
    return makeAlert("Dalvane needs System Audio Recording",
                     "Allow Dalvane in System Settings > Privacy & Security > Screen & System Audio Recording, "
                     "then quit and reopen it.");
  });
}

// A level that somebody else wrote is taken as it is, whatever it is.
long VolumeController::storedSteps(const std::string& uid) const {
  return static_cast<long>(CF::integer(defaults_.objectForKey(stepsKey(uid)).get()).value_or(totalSteps));
}

bool VolumeController::storedMute(const std::string& uid) const { return defaults_.boolForKey(mutedKey(uid)); }

void VolumeController::apply(long steps, bool muted, const Output& output) {
  defaults_.setInteger(steps, stepsKey(output.uid));
  defaults_.setBool(muted, mutedKey(output.uid));
  if (isFull(steps, muted)) return stopRouter();
  if (router_ && !router_->isStopped()) return router_->setGain(gain(steps, muted));
  try {
    // Without the permission, which can have been taken away, a tap is silent and the device too.
    if (mayCapture()) startRouter(gain(steps, muted), output);
  } catch (const std::exception& error) {
    os_log_error(logger(), "%{public}s", error.what());
    becomeIdle();
  }
}

void VolumeController::startRouter(float gain, const Output& output) {
  stopRouter();         // one whose start failed
  watchDevice(output);  // before it is made, so that no change is missed
  try {
    router_.emplace(output.device, gain, routersEvents(output.name));
  } catch (const std::exception& error) {
    logFailedStart(output.name, error);
    routersListeners_.clear();
  }
}

// A router whose start failed stays, with its listeners. The device may have changed meanwhile, which can be why, and
// they may be told of it later.
AudioRouter::Events VolumeController::routersEvents(const std::string& name) {
  const auto failed = whileRunning(&VolumeController::takeRouterDown);
  return {.startFailed =
              [failed, name = name](const AppError& error) {
                failed();
                logFailedStart(name, error);
              },
          .stopped = whileRunning(&VolumeController::refresh)};
}

void VolumeController::takeRouterDown() {
  if (router_) router_->stop();
}

void VolumeController::stopRouter() {
  routersListeners_.clear();
  router_.reset();
}
