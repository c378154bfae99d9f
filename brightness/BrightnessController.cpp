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

// Empty on any error.
std::vector<CGDirectDisplayID> externalDisplays() {
  std::uint32_t count = 0;
  if (CGGetOnlineDisplayList(0, nullptr, &count) != kCGErrorSuccess) return {};
  std::vector<CGDirectDisplayID> displays(count);
  std::uint32_t stored = 0;
  if (CGGetOnlineDisplayList(count, displays.data(), &stored) != kCGErrorSuccess) return {};
  displays.resize(std::min(count, stored));  // one may have gone between the two calls
  std::erase_if(displays, [](CGDirectDisplayID display) { return CGDisplayIsBuiltin(display) != 0; });
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
                          if (const auto self = weak.lock()) self->refreshDisplays();
                        })});
}

// ---- Displays ----

void BrightnessController::refreshDisplays() {
  assertMainThread();
  if (!api_) return;
  std::vector<DDCChannel::IdentifiedChannel> channels;
  try {
    channels = DDCChannel::externalChannels(*api_);
  } catch (const AppError& error) {
    os_log_error(logger_, "%{public}s", error.what());
    return;
  }
  std::map<std::uint32_t, std::shared_ptr<ExternalDisplay>> found;
  for (const CGDirectDisplayID displayID : externalDisplays()) {
    const auto matches = [identity = DisplayIdentity::ofDisplay(displayID)](const auto& channel) {
      return channel.first == identity;
    };
    const auto count = std::ranges::count_if(channels, matches);
    if (count != 1) {
      // Two monitors that look the same are not told apart by guessing: neither is controlled.
      os_log_error(logger_, "Display %u has %ld matching DDC services, skipping it", displayID,
                   static_cast<long>(count));
      continue;
    }
    const auto display = std::make_shared<ExternalDisplay>();
    display->channel = std::ranges::find_if(channels, matches)->second;
    found[displayID] = display;
    readBrightness(display, displayID);
  }
  displays_ = std::move(found);
}

void BrightnessController::readBrightness(const std::shared_ptr<ExternalDisplay>& display, std::uint32_t displayID) {
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
                                             const DDCChannel::Reading& reading) const {
  assertMainThread();
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

BrightnessController::ExternalDisplay* BrightnessController::controllable(std::uint32_t displayID) const {
  const auto display = displays_.find(displayID);
  return display != displays_.end() && display->second->steps ? display->second.get() : nullptr;
}

// ---- Levels ----

bool BrightnessController::handle(MediaKey key, bool isPressed) {
  assertMainThread();
  if (key != MediaKey::brightnessUp && key != MediaKey::brightnessDown) return false;
  const auto displayID = displayUnderPointer();
  if (!displayID || CGDisplayIsBuiltin(*displayID)) return false;
  ExternalDisplay* const display = controllable(*displayID);
  const KeyDecision decision = decide(key, isPressed, display ? display->steps : std::nullopt);
  if (decision.steps) {
    set(*display, *decision.steps);
    if (osd_) osd_->showBrightness(*decision.steps, totalSteps, *displayID);
  }
  return decision.isConsumed;
}

void BrightnessController::setSteps(int steps, std::uint32_t displayID) {
  assertMainThread();
  if (ExternalDisplay* const display = controllable(displayID)) set(*display, std::clamp(steps, 0, totalSteps));
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
    const ExternalDisplay* const display = controllable(*displayID);
    if (!display || !display->steps) continue;
    sliders.push_back({*displayID, {screen.localizedName(), *display->steps, totalSteps}});
  }
  return sliders;
}
