// The volume of the default output device, when that device has none of its own.
#pragma once

#include <CoreAudio/CoreAudio.h>

#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "base/MediaKey.h"
#include "base/SliderState.h"
#include "osd/NativeOSD.h"
#include "platform/NotificationCenter.h"
#include "platform/UserDefaults.h"
#include "volume/AudioRouter.h"

// Keeps a 16-step volume and a mute flag for each output device, answers the volume keys and the menu's slider, and
// runs an audio router whenever the level is below full. While one runs it watches the device, which can change under
// it. For a device with a volume of its own it stays idle and the keys go to the system. Main thread only. Owned by a
// shared pointer: what outlives a call holds it weakly.
class VolumeController : public std::enable_shared_from_this<VolumeController> {
 public:
  // `osd` is shown on key presses; null: no pop-up.
  explicit VolumeController(std::shared_ptr<const NativeOSD> osd);

  // Starts to follow the default output device and the Mac's wakes. Without effect when it does already.
  void start();
  // Leaves the device's sound as it was; what was on its way to the controller then comes to nothing. May be called
  // more than once.
  void stop();

  // Absent while the controller is idle.
  [[nodiscard]] std::optional<SliderState> sliderState() const;

  // Whether the key was taken; if not, it is the system's.
  bool handle(MediaKey key, bool isPressed, bool isRepeat);

  // The slider was moved: sets the level, limited to 0 to 16, and unmutes.
  void setSteps(int steps);

 private:
  struct Output {
    AudioObjectID device;
    std::string uid;
    std::string name;
  };

  // Chooses the device afresh; the one place that does.
  void refresh();
  void becomeIdle();
  void chooseOutput(AudioObjectID device);
  // Notifications, which may tell of no change at all.
  void defaultOutputChanged();
  void deviceChanged();
  // The call of `action`, for as long as the controller is there and runs.
  std::function<void()> whileRunning(void (VolumeController::*action)());
  void listenForDefaultOutputChanges();
  void listenForRestarts();
  void watchDevice(const Output& output);
  void observeWake();
  // Whether sound may be tapped. If not, the controller is idle, and the user is told, or asked.
  bool mayCapture();
  void requestPermission();
  void showPermissionAlert();

  [[nodiscard]] long storedSteps(const std::string& uid) const;
  [[nodiscard]] bool storedMute(const std::string& uid) const;
  void apply(long steps, bool muted, const Output& output);
  void startRouter(float gain, const Output& output);
  AudioRouter::Events routersEvents(const std::string& name);
  void takeRouterDown();
  void stopRouter();

  const NS::UserDefaults defaults_ = NS::UserDefaults::standardUserDefaults();
  const std::shared_ptr<const NativeOSD> osd_;
  bool isRunning_ = false;
  std::optional<PropertyListener> defaultOutputListener_;
  std::optional<PropertyListener> restartListener_;
  NS::Object wakeObserver_;
  std::optional<AudioObjectID> decided_;           // the device last chosen or left to the system
  std::optional<Output> output_;                   // absent: idle
  std::optional<AudioRouter> router_;              // present while a gain is, or would be, applied
  std::deque<PropertyListener> routersListeners_;  // present while the router is
  bool permissionAlertShown_ = false;              // in this run
};
