// Broken assumptions stop the program.
#include <dispatch/dispatch.h>
#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "app/AppDelegate.h"
#include "app/SliderMenuItemView.h"
#include "base/Alerts.h"
#include "brightness/BrightnessController.h"
#include "desk/Desk.h"
#include "tests/support/Lines.h"
#include "tests/support/Program.h"
#include "tests/support/Seat.h"
#include "updater/Updater.h"
#include "volume/VolumeController.h"

using namespace lines;

namespace {

void offTheMainThread(const std::function<void()>& call) {
  dispatch_async(dispatch_get_global_queue(QOS_CLASS_DEFAULT, 0), ^{
    call();
  });
  std::this_thread::sleep_for(std::chrono::milliseconds(10));
}

// Calls that belong on the main thread, each of an object that is new there.
struct Misplaced {
  const char* name;
  std::function<void()> body;
};

// `prepare` has the object on the main thread first.
template <typename Object, typename Call>
Misplaced misplaced(const char* name, Call call, const std::function<void(Object&)>& prepare = {}) {
  return {name, [call, prepare] {
            const auto object = [] {
              if constexpr (std::is_constructible_v<Object, std::nullptr_t>) {
                return std::make_shared<Object>(nullptr);
              } else {
                return std::make_shared<Object>();
              }
            }();
            if (prepare) prepare(*object);
            offTheMainThread([&] { call(*object); });
          }};
}

const std::vector<Misplaced>& misplacedCalls() {
  using Volume = VolumeController;
  using Brightness = BrightnessController;
  static const std::vector<Misplaced> all = {
      // What is running already, or has nothing to work with, is asked no further.
      misplaced<Volume>("VolumeController::start", [](Volume& o) { o.start(); }, {[](Volume& o) { o.start(); }}),
      misplaced<Volume>("VolumeController::stop", [](Volume& o) { o.stop(); }),
      misplaced<Volume>("VolumeController::sliderState", [](Volume& o) { static_cast<void>(o.sliderState()); }),
      misplaced<Volume>("VolumeController::handle", [](Volume& o) { o.handle(MediaKey::mute, true, false); }),
      misplaced<Volume>("VolumeController::setSteps", [](Volume& o) { o.setSteps(1); }),
      misplaced<Brightness>("BrightnessController::start", [](Brightness& o) { o.start(); }),
      misplaced<Brightness>("BrightnessController::stop", [](Brightness& o) { o.stop(); }),
      misplaced<Brightness>("BrightnessController::readUnreadDisplays", [](Brightness& o) { o.readUnreadDisplays(); }),
      misplaced<Brightness>("BrightnessController::handle", [](Brightness& o) { o.handle(MediaKey::mute, true); }),
      misplaced<Brightness>("BrightnessController::setSteps", [](Brightness& o) { o.setSteps(1, 2); }),
      misplaced<Brightness>("BrightnessController::sliders", [](Brightness& o) { static_cast<void>(o.sliders()); }),
      misplaced<Updater>("Updater::start", [](Updater& o) { o.start(); }),
      misplaced<Updater>("Updater::check", [](Updater& o) { o.check(); }),
      misplaced<Updater>("Updater::install", [](Updater& o) { o.install({}); }),
      misplaced<AppDelegate>("AppDelegate::applicationDidFinishLaunching",
                             [](AppDelegate& o) { o.applicationDidFinishLaunching(); }),
      {"AppDelegate::menuNeedsUpdate",
       [] {
         const auto delegate = std::make_shared<AppDelegate>();
         const auto menu = NS::Menu::make();
         offTheMainThread([&] { delegate->menuNeedsUpdate(menu); });
       }},
      {"SliderMenuItemView::make",
       [] { offTheMainThread([] { SliderMenuItemView::make({"Left", 1, 16}, "sun.max.fill", {}); }); }},
      {"SliderMenuItemView::setSteps",
       [] {
         const auto row = SliderMenuItemView::make({"Left", 1, 16}, "sun.max.fill", {});
         offTheMainThread([&row] { row->setSteps(1); });
       }},
      {"whenNoAlertIsOpen", [] { offTheMainThread([] { whenNoAlertIsOpen([] {}); }); }},
      {"main", [] { offTheMainThread([] { dalvaneProgram().main(); }); }},
  };
  return all;
}

}  // namespace

TEST(BrokenAssumptionsDeathTest, CallsOffTheMainThreadStopTheProgram) {
  for (const auto& [name, body] : misplacedCalls()) {
    // Without the private functions of the system the brightness controller comes to no other call.
    const std::string scenario = missingSymbol("IOAVServiceCreateWithService") + launch + settle;
    EXPECT_EXIT(Seat(programOf(body), 1).play(scenario), testing::ExitedWithCode(1), "dispatch_assert_queue") << name;
  }
}
