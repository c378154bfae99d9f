// The volume of the default output device, when that device has none of its own.
#pragma once

#include <CoreAudio/CoreAudio.h>

#include <memory>
#include <optional>
#include <string>

#include "base/MediaKey.h"
#include "base/SliderState.h"
#include "osd/NativeOSD.h"
#include "platform/Block.h"
#include "platform/NotificationCenter.h"
#include "platform/UserDefaults.h"
#include "volume/AudioRouter.h"

// Keeps a 16-step volume and a mute flag for each output device, answers the volume keys and the menu's slider, and
// runs an audio router whenever the level is below full. For a device with a volume of its own it stays idle and the
// keys go to the system. Main thread only. Owned by a shared pointer: what outlives a call holds it weakly.
class VolumeController : public std::enable_shared_from_this<VolumeController> {
 public:
  // `osd` is shown on key presses; null: no pop-up.
  explicit VolumeController(std::shared_ptr<const NativeOSD> osd);

  // Starts to follow the default output device and the Mac's wakes.
  void start();
  // Leaves the device's sound as it was. May be called more than once.
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
  void chooseOutput();
  void listenForDefaultOutputChanges();
  void observeWake();
  void requestPermission();
  void showPermissionAlert();

  [[nodiscard]] long storedSteps(const std::string& uid) const;
  [[nodiscard]] bool storedMute(const std::string& uid) const;
  void apply(long steps, bool muted, const Output& output);
  void updateCapture(long steps, bool muted, const Output& output);
  void stopRouter();

  const NS::UserDefaults defaults_ = NS::UserDefaults::standardUserDefaults();
  const std::shared_ptr<const NativeOSD> osd_;
  Block<AudioObjectPropertyListenerBlock> defaultOutputListener_;  // null: not registered
  NS::Object wakeObserver_;
  std::optional<Output> output_;       // absent: idle
  std::optional<AudioRouter> router_;  // present while a gain is applied
  bool permissionAlertShown_ = false;  // in this run
};
