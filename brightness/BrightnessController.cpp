#include "brightness/BrightnessController.h"

#include <dispatch/dispatch.h>

#include <algorithm>
#include <cmath>
#include <utility>

#include "base/AppError.h"
#include "base/Assertions.h"
#include "base/Log.h"
#include "platform/Event.h"
#include "platform/Screen.h"

namespace {

// VESA MCCS: luminance.
constexpr std::uint8_t luminance = 0x10;

std::optional<std::uint32_t> displayIDOf(const NS::Screen& screen) {
  const auto description = screen.deviceDescription();
  if (!description) return std::nullopt;
  const auto number = CF::integer(CFDictionaryGetValue(description.get(), CFSTR("NSScreenNumber")));
  if (!number) return std::nullopt;
  return static_cast<std::uint32_t>(*number);
}

std::optional<std::uint32_t> displayUnderPointer() {
  const CGPoint pointer = NS::Event::mouseLocation();
  for (const NS::Screen& screen : NS::Screen::screens()) {
    if (NS::MouseInRect(pointer, screen.frame(), false)) return displayIDOf(screen);
  }
  return std::nullopt;
}

struct OnlineDisplay {
  CGDirectDisplayID id;
  DisplayIdentity identity;
};

// Empty on any error.
std::vector<OnlineDisplay> externalDisplays() {
  std::uint32_t count = 0;
  if (CGGetOnlineDisplayList(0, nullptr, &count) != kCGErrorSuccess) return {};
  std::vector<CGDirectDisplayID> online(count);
  std::uint32_t stored = 0;
  if (CGGetOnlineDisplayList(count, online.data(), &stored) != kCGErrorSuccess) return {};
  online.resize(std::min(count, stored));  // one may have gone between the two calls
  std::vector<OnlineDisplay> displays;
  for (const CGDirectDisplayID display : online) {
    if (!CGDisplayIsBuiltin(display)) displays.push_back({display, DisplayIdentity::ofDisplay(display)});
  }
  return displays;
}

}  // namespace

// ---- Arithmetic ----

std::uint16_t BrightnessController::rawFromSteps(int steps, std::uint16_t maximum) {
  return static_cast<std::uint16_t>(std::lround(steps * maximum * 0.0625));
}

int BrightnessController::stepsFromReading(std::uint16_t current, std::uint16_t maximum) {
  return static_cast<int>(static_cast<double>(current) * totalSteps / maximum);
}

BrightnessController::KeyDecision BrightnessController::decide(MediaKey key, bool isPressed, std::optional<int> steps) {
  if (key != MediaKey::brightnessUp && key != MediaKey::brightnessDown) return {};
  if (!steps) return {};
  // The release of a key whose press was handled is swallowed too.
  if (!isPressed) return {.isConsumed = true, .steps = std::nullopt};
  const int change = key == MediaKey::brightnessUp ? 1 : -1;
  return {.isConsumed = true, .steps = std::clamp(*steps + change, 0, totalSteps)};
}

// ---- Life ----

BrightnessController::BrightnessController(std::shared_ptr<const NativeOSD> osd)
    : logger_(makeLogger("BrightnessController")), osd_(std::move(osd)) {}

void BrightnessController::start() {
  assertMainThread();
  try {
    api_.emplace();
  } catch (const AppError& error) {
    os_log_error(logger_, "Brightness control unavailable: %{public}s", error.what());
    return;
  }
  observe(NS::NotificationCenter::defaultCenter(), NS::ApplicationDidChangeScreenParametersNotification());
  observe(NS::Workspace::sharedWorkspace().notificationCenter(), NS::WorkspaceDidWakeNotification());
  refreshDisplays();
}

void BrightnessController::stop() {
  assertMainThread();
  for (const Observer& observer : observers_) observer.center.removeObserver(observer.token);
  observers_.clear();
  displays_.clear();
}

void BrightnessController::observe(const NS::NotificationCenter& center, CFStringRef name) {
  const auto weak = weak_from_this();
  observers_.push_back({center, center.addObserverForName(name, ^{
                          const auto self = weak.lock();
                          // A notification that is on its way when `stop` comes may still arrive.
                          if (self && !self->observers_.empty()) self->refreshDisplays();
                        })});
}

// ---- Displays ----

void BrightnessController::refreshDisplays() {
  assertMainThread();
  if (!api_) return;
  Channels channels;
  try {
    channels = DDCChannel::externalChannels(*api_, queues_);
  } catch (const AppError& error) {
    os_log_error(logger_, "%{public}s", error.what());
    return;
  }
  for (const auto& [displayID, display] : displays_) display->channel->giveUpReads();
  displays_.clear();
  matchDisplays(channels);
}

// Two monitors that look the same are not told apart by guessing: neither is controlled.
void BrightnessController::matchDisplays(const Channels& channels) {
  const auto displays = externalDisplays();
  for (const auto& [displayID, identity] : displays) {
    const auto isSame = [&identity](const DisplayIdentity& other) { return other == identity; };
    const auto services = std::ranges::count_if(channels, isSame, &Channels::value_type::first);
    if (services != 1) {
      os_log_error(logger_, "Display %u has %ld matching DDC services, skipping it", displayID,
                   static_cast<long>(services));
      continue;
    }
    const auto sharers = std::ranges::count_if(displays, isSame, &OnlineDisplay::identity);
    if (sharers != 1) {
      os_log_error(logger_, "Display %u is one of %ld that match the same DDC service, skipping it", displayID,
                   static_cast<long>(sharers));
      continue;
    }
    const auto display = std::make_shared<ExternalDisplay>();
    display->channel = std::ranges::find_if(channels, isSame, &Channels::value_type::first)->second;
    displays_[displayID] = display;
    readBrightness(display, displayID);
  }
}

void BrightnessController::readBrightness(const std::shared_ptr<ExternalDisplay>& display, std::uint32_t displayID) {
  if (std::exchange(display->isBeingRead, true)) return;
  const auto weakSelf = weak_from_this();
  const std::weak_ptr<ExternalDisplay> weakDisplay = display;
  // The completion comes on the channel's queue.
  display->channel->read(luminance, [weakSelf, weakDisplay, displayID](const DDCChannel::Reading& reading) {
    // A block would take the reference along, not what it refers to.
    const DDCChannel::Reading result = reading;  // NOLINT(performance-unnecessary-copy-initialization)
    dispatch_async(dispatch_get_main_queue(), ^{
      const auto self = weakSelf.lock();
      const auto known = weakDisplay.lock();
      if (self && known) self->brightnessWasRead(*known, displayID, result);
    });
  });
}

void BrightnessController::brightnessWasRead(ExternalDisplay& display, std::uint32_t displayID,
                                             const DDCChannel::Reading& reading) {
  assertMainThread();
  display.isBeingRead = false;
  if (const auto* const error = std::get_if<AppError>(&reading)) {
    os_log_error(logger_, "Reading brightness of display %u failed: %{public}s", displayID, error->what());
    return;
  }
  const auto [current, maximum] = std::get<DDCChannel::Value>(reading);
  if (maximum == 0) {
    os_log_error(logger_, "Display %u reported a maximum brightness of %hu", displayID, maximum);
    return;
  }
  display.maximum = maximum;
  display.steps = stepsFromReading(current, maximum);
  os_log_info(logger_, "Display %u brightness %hu/%hu", displayID, current, maximum);
}

void BrightnessController::readUnreadDisplays() {
  assertMainThread();
  for (const auto& [displayID, display] : displays_) {
    if (!display->steps) readBrightness(display, displayID);
  }
}

// ---- Levels ----

bool BrightnessController::handle(MediaKey key, bool isPressed) {
  assertMainThread();
  if (key != MediaKey::brightnessUp && key != MediaKey::brightnessDown) return false;
  const auto displayID = displayUnderPointer();
  if (!displayID || CGDisplayIsBuiltin(*displayID)) return false;
  const auto known = displays_.find(*displayID);
  if (known == displays_.end()) return false;
  const auto& display = known->second;
  // A monitor that was not ready when it was asked may be by now.
  if (!display->steps) readBrightness(display, *displayID);
  const KeyDecision decision = decide(key, isPressed, display->steps);
  if (decision.steps) {
    set(*display, *decision.steps);
    if (osd_) osd_->showBrightness(*decision.steps, totalSteps, *displayID);
  }
  return decision.isConsumed;
}

void BrightnessController::setSteps(int steps, std::uint32_t displayID) {
  assertMainThread();
  const auto known = displays_.find(displayID);
  if (known == displays_.end() || !known->second->steps) return;
  set(*known->second, std::clamp(steps, 0, totalSteps));
}

void BrightnessController::set(ExternalDisplay& display, int steps) {
  display.steps = steps;
  display.channel->write(luminance, rawFromSteps(steps, display.maximum));
}

std::vector<BrightnessController::DisplaySlider> BrightnessController::sliders() const {
  assertMainThread();
  std::vector<DisplaySlider> sliders;
  for (const NS::Screen& screen : NS::Screen::screens()) {
    const auto displayID = displayIDOf(screen);
    if (!displayID) continue;
    const auto known = displays_.find(*displayID);
    const auto steps = known == displays_.end() ? std::nullopt : known->second->steps;
    if (steps) sliders.push_back({*displayID, {screen.localizedName(), *steps, totalSteps}});
  }
  return sliders;
}
