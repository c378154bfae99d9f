// The private on-screen-display framework: the class OSDManager with its pop-up message.
#include <cstdint>

#include "simulator/desktop/PopUps.h"
#include "simulator/system/ObjCRuntime.h"

namespace {

// A class method: the receiver is the class.
id sharedManager(id self, SEL) { return simulator::sharedPopUpManager(reinterpret_cast<Class>(self)); }

void showImage(id self, SEL, std::int64_t image, std::uint32_t display, std::uint32_t priority, std::uint32_t fade,
               std::uint32_t filled, std::uint32_t total, BOOL locked) {
  simulator::showPopUp(self, {image, display, priority, fade, filled, total, locked});
}

const objc_class::Method classMethods[] = {
    {"sharedManager", reinterpret_cast<IMP>(sharedManager), "@16@0:8"},
    {nullptr, nullptr, nullptr},
};
const objc_class::Method instanceMethods[] = {
    {"showImage:onDisplayID:priority:msecUntilFade:filledChiclets:totalChiclets:locked:",
     reinterpret_cast<IMP>(showImage), "v48@0:8q16I24I28I32I36I40B44"},
    {nullptr, nullptr, nullptr},
};

objc_class metaclass = {"OSDManager", classMethods, nullptr};

}  // namespace

extern "C" {
extern objc_class osdManager __asm__("OBJC_CLASS_$_OSDManager");
objc_class osdManager = {"OSDManager", instanceMethods, &metaclass};
}
