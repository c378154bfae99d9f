#include "app/AppDelegate.h"

#include <ApplicationServices/ApplicationServices.h>
#include <dispatch/dispatch.h>
#include <objc/objc.h>
#include <os/log.h>

#include <string>

#include "app/StatusIcon.h"
#include "base/Alerts.h"
#include "base/AppError.h"
#include "base/Assertions.h"
#include "base/Log.h"
#include "platform/AppService.h"
#include "platform/CFCollections.h"

namespace {

// Seconds between two looks at the Accessibility permission.
constexpr CFTimeInterval accessibilityPollInterval = 2.0;

os_log_t logger() {
  static const os_log_t log = makeLogger("AppDelegate");
  return log;
}

bool isTrustedAfterPrompt() {
  const auto options = CF::dictionary({{kAXTrustedCheckOptionPrompt, CF::value(true)}});
  return AXIsProcessTrustedWithOptions(options.get());
}

}  // namespace

AppDelegate::AppDelegate()
    : startAtLoginItem_("Start at Login", nullptr, ""), updateItem_("Check for Updates…", nullptr, "") {
  updater_ = std::make_shared<Updater>();
  const auto osd = makeOSD();
  volumeController_ = std::make_shared<VolumeController>(osd);
  brightnessController_ = std::make_shared<BrightnessController>(osd);
}

std::shared_ptr<NativeOSD> AppDelegate::makeOSD() {
  try {
    return std::make_shared<NativeOSD>();
  } catch (const AppError& error) {
    os_log_error(logger(), "Native pop-up unavailable: %{public}s", error.what());
    return nullptr;
  }
}

void AppDelegate::applicationDidFinishLaunching() {
  assertMainThread();
  buildMenu();
  makeKeyTap();
  startKeyTapWhenTrusted();
  volumeController_->start();
  brightnessController_->start();
  updater_->setOnChange([weak = weak_from_this()] {
    if (const auto self = weak.lock()) self->updaterChanged();
  });
  refreshUpdateItem();
  updater_->start();
}

void AppDelegate::buildMenu() {
  const auto menu = NS::Menu::make();
  menu.setDelegate(this);
  menu.setAutoenablesItems(false);
  const auto weak = weak_from_this();
  startAtLoginItem_.setTargetAction([weak] {
    if (const auto self = weak.lock()) self->toggleStartAtLogin();
  });
  updateItem_.setTargetAction([weak] {
    if (const auto self = weak.lock()) self->updateItemClicked();
  });
  const NS::MenuItem versionItem("Version " + updater_->currentVersion(), nullptr, "");
  versionItem.setEnabled(false);
  menu.addItem(startAtLoginItem_);
  menu.addItem(updateItem_);
  menu.addItem(NS::MenuItem::separatorItem());
  menu.addItem(versionItem);
  menu.addItem(NS::MenuItem("Quit Dalvane", sel_registerName("terminate:"), "q"));
  makeStatusItem(menu);
}

void AppDelegate::makeStatusItem(const NS::Menu& menu) {
  statusItem_ = NS::StatusBar::systemStatusBar().statusItemWithLength(NS::SquareStatusItemLength);
  if (const auto button = statusItem_.button()) button.setImage(StatusIcon::make());
  statusItem_.setMenu(menu);
}

void AppDelegate::makeKeyTap() {
  const auto weak = weak_from_this();
  const auto handler = [weak](MediaKey key, bool isPressed, bool isRepeat) {
    const auto self = weak.lock();
    return self && self->handleKey(key, isPressed, isRepeat);
  };
  const auto switchedOff = [weak] {
    // The tap must not be removed before its callback has returned.
    dispatch_async(dispatch_get_main_queue(), ^{
      if (const auto self = weak.lock()) self->checkKeyTap();
    });
  };
  keyTap_ = std::make_unique<MediaKeyTap>(handler, switchedOff);
  wakeObserver_ =
      NS::Workspace::sharedWorkspace().notificationCenter().addObserverForName(NS::WorkspaceDidWakeNotification(), ^{
        if (const auto self = weak.lock()) self->checkKeyTap();
      });
}

void AppDelegate::startKeyTapWhenTrusted() {
  if (isTrustedAfterPrompt()) {
    startKeyTap();
  } else {
    waitForAccessibility();
  }
}

void AppDelegate::waitForAccessibility() {
  os_log_info(logger(), "Waiting for Accessibility permission");
  const auto weak = weak_from_this();
  const auto poll = ^(CFRunLoopTimerRef) {
    assertMainThread();
    const auto self = weak.lock();
    if (!self || !AXIsProcessTrusted()) return;
    self->stopAccessibilityTimer();
    self->startKeyTap();
  };
  accessibilityTimer_ = CF::adopt(
      CFRunLoopTimerCreateWithHandler(kCFAllocatorDefault, CFAbsoluteTimeGetCurrent() + accessibilityPollInterval,
                                      accessibilityPollInterval, 0, 0, poll));
  if (!accessibilityTimer_) return;  // without it there are no keys, but still the menu
  // In the common modes the poll also goes on while a menu is open.
  CFRunLoopAddTimer(CFRunLoopGetMain(), accessibilityTimer_.get(), kCFRunLoopCommonModes);
}

// The system does not tell that the permission was taken away, and leaves a tap that lost it dead for good.
void AppDelegate::checkKeyTap() {
  assertMainThread();
  if (accessibilityTimer_) return;  // there is no tap, and the permission is polled for
  const bool isTrusted = AXIsProcessTrusted();
  if (isTrusted && !keyTap_->isDead()) return;
  keyTap_->stop();
  if (isTrusted) {
    startKeyTap();
  } else {
    waitForAccessibility();
  }
}

void AppDelegate::stopAccessibilityTimer() {
  if (accessibilityTimer_) CFRunLoopTimerInvalidate(accessibilityTimer_.get());
  accessibilityTimer_ = {};
}

void AppDelegate::startKeyTap() {
  // A refusal is final: the user has granted the permission, so trying again would not help.
  if (keyTap_->start()) {
    os_log_info(logger(), "Media key tap installed");
  } else {
    os_log_error(logger(), "Could not install the media key tap");
  }
}

bool AppDelegate::handleKey(MediaKey key, bool isPressed, bool isRepeat) {
  assertMainThread();
  const bool isTaken = key > MediaKey::mute ? brightnessController_->handle(key, isPressed)
                                            : volumeController_->handle(key, isPressed, isRepeat);
  if (isTaken) moveSliders();
  return isTaken;
}

// Brings the rows up to date with what a key has changed.
void AppDelegate::moveSliders() {
  if (volumeSliderView_) {
    if (const auto state = volumeController_->sliderState()) volumeSliderView_->setSteps(state->steps);
  }
  if (brightnessSliderViews_.empty()) return;
  for (const auto& [displayID, state] : brightnessController_->sliders()) {
    const auto view = brightnessSliderViews_.find(displayID);
    if (view != brightnessSliderViews_.end()) view->second->setSteps(state.steps);
  }
}

void AppDelegate::applicationWillTerminate() {
  assertMainThread();
  stopAccessibilityTimer();
  if (wakeObserver_) NS::Workspace::sharedWorkspace().notificationCenter().removeObserver(wakeObserver_);
  wakeObserver_ = {};
  if (keyTap_) keyTap_->stop();
  updater_->stop();
  volumeController_->stop();
  brightnessController_->stop();
}

void AppDelegate::menuNeedsUpdate(const NS::Menu& menu) {
  checkKeyTap();
  brightnessController_->readUnreadDisplays();
  const bool opensAtLogin = NS::AppService::mainAppService().status() == NS::AppServiceStatus::Enabled;
  startAtLoginItem_.setState(opensAtLogin ? NS::ControlStateValue::On : NS::ControlStateValue::Off);
  // AppKit also asks when it looks for key equivalents. In the open menu a slider may just be held by the mouse.
  if (menuIsOpen_) return;
  for (const NS::MenuItem& item : sliderItems_) menu.removeItem(item);
  makeSliderItems();
  for (std::size_t i = 0; i < sliderItems_.size(); ++i) menu.insertItem(sliderItems_[i], static_cast<long>(i));
}

void AppDelegate::menuWillOpen(const NS::Menu&) { menuIsOpen_ = true; }

void AppDelegate::menuDidClose(const NS::Menu&) { menuIsOpen_ = false; }

void AppDelegate::makeSliderItems() {
  sliderItems_.clear();
  volumeSliderView_.reset();
  brightnessSliderViews_.clear();
  if (const auto state = volumeController_->sliderState()) makeVolumeItems(*state);
  if (const auto sliders = brightnessController_->sliders(); !sliders.empty()) makeBrightnessItems(sliders);
  if (!sliderItems_.empty()) sliderItems_.push_back(NS::MenuItem::separatorItem());
}

void AppDelegate::makeVolumeItems(const SliderState& state) {
  sliderItems_.push_back(NS::MenuItem::sectionHeaderWithTitle("Volume"));
  volumeSliderView_ = SliderMenuItemView::make(state, "speaker.wave.2.fill", [weak = weak_from_this()](int steps) {
    if (const auto self = weak.lock()) self->volumeController_->setSteps(steps);
  });
  addSliderItem(*volumeSliderView_);
}

void AppDelegate::makeBrightnessItems(const std::vector<BrightnessController::DisplaySlider>& sliders) {
  sliderItems_.push_back(NS::MenuItem::sectionHeaderWithTitle("Brightness"));
  for (const auto& [displayID, state] : sliders) {
    const auto changed = [weak = weak_from_this(), id = displayID](int steps) {
      if (const auto self = weak.lock()) self->brightnessController_->setSteps(steps, id);
    };
    const auto view = SliderMenuItemView::make(state, "sun.max.fill", changed);
    brightnessSliderViews_[displayID] = view;
    addSliderItem(*view);
  }
}

void AppDelegate::addSliderItem(const SliderMenuItemView& view) {
  const NS::MenuItem item("", nullptr, "");
  item.setView(view);
  sliderItems_.push_back(item);
}

void AppDelegate::toggleStartAtLogin() {
  const NS::AppService service = NS::AppService::mainAppService();
  NS::Error error;
  const bool changed = service.status() == NS::AppServiceStatus::Enabled ? service.unregisterAndReturnError(error)
                                                                         : service.registerAndReturnError(error);
  // The tick follows when the menu next opens.
  const auto openSettings = [service] {
    // Where the user has to allow it first, that is made easy.
    if (service.status() == NS::AppServiceStatus::RequiresApproval) NS::AppService::openSystemSettingsLoginItems();
  };
  if (changed) return openSettings();
  presentAlert(
      weak_from_this(), [error] { return NS::Alert::alertWithError(error); }, [openSettings](long) { openSettings(); });
}

void AppDelegate::refreshUpdateItem() {
  const Updater::State& state = updater_->state();
  std::string title = "Check for Updates…";
  bool enabled = true;
  if (const auto* available = std::get_if<Updater::Available>(&state)) {
    title = "Update to " + textForAlert(available->release.version) + "…";
  } else if (std::holds_alternative<Updater::Checking>(state)) {
    title = "Checking for Updates…";
    enabled = false;
  } else if (std::holds_alternative<Updater::Installing>(state)) {
    title = "Installing Update…";
    enabled = false;
  }
  updateItem_.setTitle(title);
  updateItem_.setEnabled(enabled);
}

void AppDelegate::updateItemClicked() {
  if (const auto* available = std::get_if<Updater::Available>(&updater_->state())) {
    confirmInstall(available->release);
    return;
  }
  pendingReport_ = PendingReport::check;
  updater_->check();
}

// One question at a time, about what is offered when its turn comes. What is asked for while it is open comes after it.
void AppDelegate::confirmInstall(const Release& release) {
  if (std::exchange(releaseToConfirm_, release)) return;
  // What the user has seen is installed, whatever the updater finds or looks for while the alert is open.
  const auto shown = std::make_shared<Release>();
  const auto make = [this, shown] {
    const auto* available = std::get_if<Updater::Available>(&updater_->state());
    if (available) releaseToConfirm_ = available->release;
    *shown = *releaseToConfirm_;
    return makeInstallQuestion(*shown);
  };
  presentAlert(weak_from_this(), make, [this, shown](long button) {
    const Release asked = *std::exchange(releaseToConfirm_, std::nullopt);
    if (button == NS::AlertFirstButtonReturn) {
      pendingReport_ = PendingReport::install;
      updater_->install(*shown);
    } else if (asked.version != shown->version) {
      confirmInstall(asked);
    }
  });
}

NS::Alert AppDelegate::makeInstallQuestion(const Release& release) const {
  const std::string version = "You have version " + updater_->currentVersion() + ".";
  NS::Alert alert = makeAlert("Dalvane " + textForAlert(release.version) + " is available",
                              release.notes.empty() ? version : textForAlert(release.notes) + "\n\n" + version);
  alert.addButtonWithTitle("Install and Relaunch");
  alert.addButtonWithTitle("Later");
  return alert;
}

void AppDelegate::updaterChanged() {
  refreshUpdateItem();
  if (!pendingReport_) return;
  const Updater::State& state = updater_->state();
  if (*pendingReport_ == PendingReport::install) {
    if (const auto* failed = std::get_if<Updater::Failed>(&state)) {
      report("Could not install the update", failed->description);
    }
    return;
  }
  if (const auto* available = std::get_if<Updater::Available>(&state)) {
    pendingReport_.reset();
    confirmInstall(available->release);
  } else if (const auto* failed = std::get_if<Updater::Failed>(&state)) {
    report("Could not check for updates", failed->description);
  } else if (std::holds_alternative<Updater::UpToDate>(state)) {
    report("Dalvane is up to date", "Version " + updater_->currentVersion() + " is the newest version.");
  }
}

void AppDelegate::report(const std::string& message, const std::string& informative) {
  pendingReport_.reset();
  presentAlert(weak_from_this(), [message = message, informative = informative] {
    return makeAlert(message, textForAlert(informative));
  });
}
