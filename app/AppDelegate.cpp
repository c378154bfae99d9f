#include "app/AppDelegate.h"

#include <ApplicationServices/ApplicationServices.h>
#include <dispatch/dispatch.h>
#include <objc/objc.h>
#include <os/log.h>

#include <string>

#include "app/AppError.h"
#include "app/Log.h"

namespace {

// Seconds between two looks at the Accessibility permission.
constexpr CFTimeInterval accessibilityPollInterval = 2.0;

os_log_t logger() {
  static const os_log_t log = makeLogger("AppDelegate");
  return log;
}

void assertMainThread() { dispatch_assert_queue(dispatch_get_main_queue()); }

std::string currentVersion() {
  const auto version = CF::cast<CFStringRef>(
      CFBundleGetValueForInfoDictionaryKey(CFBundleGetMainBundle(), CFSTR("CFBundleShortVersionString")),
      CFStringGetTypeID());
  if (!version) fatalError("Info.plist has no CFBundleShortVersionString");
  return CF::text(version.get());
}

bool isTrustedAfterPrompt() {
  const void* key = kAXTrustedCheckOptionPrompt;
  const void* value = kCFBooleanTrue;
  const auto options = CF::adopt(CFDictionaryCreate(kCFAllocatorDefault, &key, &value, 1,
                                                    &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks));
  return AXIsProcessTrustedWithOptions(options.get());
}

}  // namespace

AppDelegate::AppDelegate()
    : startAtLoginItem_("Start at Login", nullptr, ""), updateItem_("Check for Updates…", nullptr, "") {
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
  keyTap_ = std::make_unique<MediaKeyTap>([weak = weak_from_this()](MediaKey key, bool isPressed, bool isRepeat) {
    const auto self = weak.lock();
    return self && self->handleKey(key, isPressed, isRepeat);
  });
  startKeyTapWhenTrusted();
  volumeController_->start();
  brightnessController_->start();
}

void AppDelegate::buildMenu() {
  const auto menu = NS::Menu::make();
  menu.setDelegate(this);
  menu.setAutoenablesItems(false);
  const NS::MenuItem versionItem("Version " + currentVersion(), nullptr, "");
  versionItem.setEnabled(false);
  menu.addItem(startAtLoginItem_);
  menu.addItem(updateItem_);
  menu.addItem(NS::MenuItem::separatorItem());
  menu.addItem(versionItem);
  menu.addItem(NS::MenuItem("Quit Dalvane", sel_registerName("terminate:"), "q"));
  statusItem_ = NS::StatusBar::systemStatusBar().statusItemWithLength(NS::SquareStatusItemLength);
  statusItem_.setMenu(menu);
}

void AppDelegate::startKeyTapWhenTrusted() {
  if (isTrustedAfterPrompt()) {
    startKeyTap();
    return;
  }
  os_log_info(logger(), "Waiting for Accessibility permission");
  stopAccessibilityTimer();
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

void AppDelegate::stopAccessibilityTimer() {
  if (accessibilityTimer_) CFRunLoopTimerInvalidate(accessibilityTimer_.get());
  accessibilityTimer_ = {};
}

void AppDelegate::startKeyTap() {
  if (!keyTap_) return;
  // A refusal is final: the user has granted the permission, so trying again would not help.
  if (keyTap_->start()) {
    os_log_info(logger(), "Media key tap installed");
  } else {
    os_log_error(logger(), "Could not install the media key tap");
  }
}

bool AppDelegate::handleKey(MediaKey key, bool isPressed, bool isRepeat) {
  assertMainThread();
  if (key > MediaKey::mute) return brightnessController_->handle(key, isPressed);
  return volumeController_->handle(key, isPressed, isRepeat);
}

void AppDelegate::applicationWillTerminate() {
  assertMainThread();
  stopAccessibilityTimer();
  if (keyTap_) keyTap_->stop();
  volumeController_->stop();
  brightnessController_->stop();
}

void AppDelegate::menuNeedsUpdate(const NS::Menu&) {}
