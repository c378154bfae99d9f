// The mouse that drags a slider. Main thread; it calls into the program.
#pragma once

#include "platform/CF.h"

namespace simulator {

class Machine;
struct SliderObject;

class SliderMouse {
 public:
  explicit SliderMouse(Machine& machine) : machine_(machine) {}

  // Presses the button on the slider's knob, unless it is held there already. The action is sent as the slider's
  // tracking sends it, if it is continuous: for the press, for each move, and for the release.
  void press(SliderObject& slider);
  // Both without effect while no slider is held.
  void moveTo(double value);
  void release();
  // The program has ended.
  void letGo() { held_ = {}; }

 private:
  void send(bool atTheEnd);

  Machine& machine_;
  CF::Ref<CFTypeRef> held_;
};

}  // namespace simulator
