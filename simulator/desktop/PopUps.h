// The service that shows the system's volume and brightness pop-ups. Programs reach it through the private
// on-screen-display library.
#pragma once

#include <objc/objc.h>

#include <cstdint>

namespace simulator {

struct PopUp {
  std::int64_t image;
  std::uint32_t display;
  std::uint32_t priority;
  std::uint32_t fade;  // milliseconds
  std::uint32_t filled;
  std::uint32_t total;
  bool locked;
};

// The service's shared manager, an object of the given class.
id sharedPopUpManager(Class type);
void showPopUp(id manager, const PopUp& popUp);

}  // namespace simulator
