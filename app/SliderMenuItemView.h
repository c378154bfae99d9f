// A row of the status menu: a caption, and under it a symbol and a slider with a tick mark for each step.
#pragma once

#include <functional>
#include <memory>
#include <string>

#include "base/SliderState.h"
#include "platform/Controls.h"
#include "platform/View.h"

// Main thread only. The slider's action holds the row weakly: one that its owner has let go does nothing any more,
// also while its slider is being dragged.
class SliderMenuItemView : public NS::View {
 public:
  // Called with the new level when the user has moved the slider to another step.
  using OnChange = std::function<void(int steps)>;

  // A row, laid out, with its frame set: as wide as a menu is at least, and as high as it needs to be. A symbol that
  // the system does not know leaves its place empty.
  static std::shared_ptr<SliderMenuItemView> make(const SliderState& state, const std::string& symbolName,
                                                  OnChange onChange);

  SliderMenuItemView(const SliderMenuItemView&) = delete;
  SliderMenuItemView& operator=(const SliderMenuItemView&) = delete;

  // Shows a level that something else has changed. Never calls `onChange`.
  void setSteps(int steps);

 private:
  SliderMenuItemView(const SliderState& state, const std::string& symbolName, OnChange onChange);
  void prepareSlider(const SliderState& state) const;
  void layOut(const SliderState& state, const std::string& symbolName) const;
  void sliderChanged();

  const NS::Slider slider_;
  const OnChange onChange_;
  int lastSteps_;  // what was last shown, or reported
};
