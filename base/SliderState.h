// What a slider row of the status menu shows.
#pragma once

#include <string>

struct SliderState {
  std::string title;   // the caption above the slider
  int steps = 0;       // the level, 0 to totalSteps, unless a monitor lies or somebody else wrote it
  int totalSteps = 0;  // the steps of the full range; 16 throughout this program
  friend bool operator==(const SliderState&, const SliderState&) = default;
};
