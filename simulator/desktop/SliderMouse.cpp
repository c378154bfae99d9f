#include "simulator/desktop/SliderMouse.h"

#include "simulator/desktop/Views.h"
#include "simulator/kernel/Call.h"

namespace simulator {

void SliderMouse::press(SliderObject& slider) {
  if (held_.get() == &slider) return;
  release();
  held_ = CF::retain(static_cast<CFTypeRef>(&slider));
  send(false);
}

void SliderMouse::moveTo(double value) {
  if (!held_) return;
  {
    const Scheduler::Lock lock(machine_.scheduler);
    live<SliderObject>(held_.get(), "NSSlider").dragTo(value);
  }
  send(false);
}

void SliderMouse::release() {
  if (!held_) return;
  send(true);
  held_ = {};
}

void SliderMouse::send(bool atTheEnd) {
  const auto& slider = live<SliderObject>(held_.get(), "NSSlider");
  // A copy, since the action may give the slider another one.
  const auto action = slider.action;
  if (action && (slider.isContinuous || atTheEnd)) action();
}

}  // namespace simulator
