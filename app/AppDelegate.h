// The program's spine: owns every long-lived object, starts and stops them in order, and routes the media keys.
#pragma once

#include <memory>

#include "app/MediaKeyTap.h"
#include "brightness/BrightnessController.h"
#include "osd/NativeOSD.h"
#include "platform/Application.h"
#include "platform/Menu.h"
#include "volume/VolumeController.h"

// Main thread only. Made with std::make_shared: closures that outlive a call hold it weakly.
class AppDelegate : public NS::ApplicationDelegate,
                    public NS::MenuDelegate,
                    public std::enable_shared_from_this<AppDelegate> {
 public:
  AppDelegate();

  void applicationDidFinishLaunching() override;
  void applicationWillTerminate() override;
  void menuNeedsUpdate(const NS::Menu& menu) override;

 private:
  static std::shared_ptr<NativeOSD> makeOSD();
  void buildMenu();
  void startKeyTapWhenTrusted();
  void startKeyTap();
  void stopAccessibilityTimer();
  bool handleKey(MediaKey key, bool isPressed, bool isRepeat);

  NS::StatusItem statusItem_;
  NS::MenuItem startAtLoginItem_;
  NS::MenuItem updateItem_;
  std::shared_ptr<VolumeController> volumeController_;
  std::shared_ptr<BrightnessController> brightnessController_;
  std::unique_ptr<MediaKeyTap> keyTap_;
  CF::Ref<CFRunLoopTimerRef> accessibilityTimer_;  // while the permission is polled for
};
