// The program's spine: owns every long-lived object, starts and stops them in order, and routes the media keys.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "app/MediaKeyTap.h"
#include "app/SliderMenuItemView.h"
#include "brightness/BrightnessController.h"
#include "osd/NativeOSD.h"
#include "platform/Alert.h"
#include "platform/Application.h"
#include "platform/Menu.h"
#include "platform/NotificationCenter.h"
#include "platform/Object.h"
#include "updater/Updater.h"
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
  void menuWillOpen(const NS::Menu& menu) override;
  void menuDidClose(const NS::Menu& menu) override;

 private:
  static std::shared_ptr<NativeOSD> makeOSD();
  void buildMenu();
  void makeStatusItem(const NS::Menu& menu);
  void makeSliderItems();
  void makeVolumeItems(const SliderState& state);
  void makeBrightnessItems(const std::vector<BrightnessController::DisplaySlider>& sliders);
  void addSliderItem(const SliderMenuItemView& view);
  void moveSliders();
  void toggleStartAtLogin();
  void refreshUpdateItem();
  void updateItemClicked();
  void confirmInstall(const Release& release);
  [[nodiscard]] NS::Alert makeInstallQuestion(const Release& release) const;
  void updaterChanged();
  // Tells the user what was waited for; nothing more is waited for then.
  void report(const std::string& message, const std::string& informative);
  void makeKeyTap();
  void startKeyTapWhenTrusted();
  void waitForAccessibility();
  void checkKeyTap();
  void startKeyTap();
  void stopAccessibilityTimer();
  bool handleKey(MediaKey key, bool isPressed, bool isRepeat);

  // Which outcome of the updater the user is waiting to be told.
  enum class PendingReport { check, install };

  NS::StatusItem statusItem_;
  NS::MenuItem startAtLoginItem_;
  NS::MenuItem updateItem_;
  bool menuIsOpen_ = false;
  std::vector<NS::MenuItem> sliderItems_;  // the slider rows in the menu, with their headers and the separator
  std::shared_ptr<SliderMenuItemView> volumeSliderView_;                                // null: none is shown
  std::map<std::uint32_t, std::shared_ptr<SliderMenuItemView>> brightnessSliderViews_;  // by display ID
  std::shared_ptr<VolumeController> volumeController_;
  std::shared_ptr<BrightnessController> brightnessController_;
  std::shared_ptr<Updater> updater_;
  std::optional<PendingReport> pendingReport_;
  std::optional<Release> releaseToConfirm_;  // while a question waits for its turn or its answer
  std::unique_ptr<MediaKeyTap> keyTap_;
  CF::Ref<CFRunLoopTimerRef> accessibilityTimer_;  // while the permission is polled for
  NS::Object wakeObserver_;
};
