// The brightness of the external monitors: steps out of 16, moved by the keys and by the menu's sliders.
#pragma once

#include <CoreGraphics/CoreGraphics.h>
#include <os/log.h>

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <vector>

#include "base/MediaKey.h"
#include "base/SliderState.h"
#include "brightness/DDCChannel.h"
#include "brightness/IOAVServiceAPI.h"
#include "osd/NativeOSD.h"
#include "platform/NotificationCenter.h"

// Main thread only. Made with std::make_shared: closures that outlive a call hold it weakly.
class BrightnessController : public std::enable_shared_from_this<BrightnessController> {
 public:
  static constexpr int totalSteps = 16;

  struct DisplaySlider {
    std::uint32_t displayID;
    SliderState state;
  };

  // What a brightness key does.
  struct KeyDecision {
    bool isConsumed = false;   // a consumed event must not reach the system
    std::optional<int> steps;  // the new level, if it is to be set
    friend bool operator==(const KeyDecision&, const KeyDecision&) = default;
  };

  // Without `osd` keys show no pop-up.
  explicit BrightnessController(std::shared_ptr<const NativeOSD> osd);

  // Loads the private functions, watches for changes of the screens and for wakes, and reads every display.
  void start();
  // Forgets all displays and stops watching. Values already given to a monitor's channel are still sent.
  void stop();

  // Asks the monitors again that have not told their brightness, unless they are being asked.
  void readUnreadDisplays();

  // The displays that can be set, in the order of the screens.
  [[nodiscard]] std::vector<DisplaySlider> sliders() const;
  // Whether the event of a media key was consumed. A key over a display that is known but not read yet is not, and
  // asks its monitor again.
  bool handle(MediaKey key, bool isPressed);
  // Sets a display's level, 0 to 16 (other values are brought into that range). Without effect for a display that is
  // not known or not yet read.
  void setSteps(int steps, std::uint32_t displayID);

  // The raw VCP value, 0 to `maximum`, of a level of 0 to 16.
  static std::uint16_t rawFromSteps(int steps, std::uint16_t maximum);
  // The level of a reading, rounded down; above 16 when the monitor reports more than its own maximum, which must
  // not be 0.
  static int stepsFromReading(std::uint16_t current, std::uint16_t maximum);
  // `steps` is the level of the display under the pointer; none when it cannot be set.
  static KeyDecision decide(MediaKey key, bool isPressed, std::optional<int> steps);

 private:
  struct ExternalDisplay {
    std::shared_ptr<DDCChannel> channel;
    std::uint16_t maximum = 0;  // 0 until read
    std::optional<int> steps;   // none until read
    bool isBeingRead = false;
  };
  using Channels = std::vector<DDCChannel::IdentifiedChannel>;
  struct Observer {
    NS::NotificationCenter center;
    NS::Object token;
  };

  void observe(const NS::NotificationCenter& center, CFStringRef name);
  void refreshDisplays();
  void matchDisplays(const Channels& channels);
  void readBrightness(const std::shared_ptr<ExternalDisplay>& display, std::uint32_t displayID);
  void brightnessWasRead(ExternalDisplay& display, std::uint32_t displayID, const DDCChannel::Reading& reading);
  static void set(ExternalDisplay& display, int steps);

  const os_log_t logger_;
  std::optional<IOAVServiceAPI> api_;  // none until `start` has loaded it
  DDCChannel::Queues queues_;          // of every monitor that was ever found
  std::map<std::uint32_t, std::shared_ptr<ExternalDisplay>> displays_;
  std::vector<Observer> observers_;
  const std::shared_ptr<const NativeOSD> osd_;
};
