#include "osd/NativeOSD.h"

#include <CoreGraphics/CoreGraphics.h>
#include <dlfcn.h>
#include <objc/runtime.h>

#include <string>

#include "base/AppError.h"
#include "base/Assertions.h"

namespace {

constexpr const char* framework = "/System/Library/PrivateFrameworks/OSD.framework/OSD";

// Images of the pop-up service.
constexpr std::int64_t brightnessImage = 1;
constexpr std::int64_t volumeImage = 3;
constexpr std::int64_t mutedVolumeImage = 4;

constexpr std::uint32_t priority = 500;
constexpr std::uint32_t millisecondsUntilFade = 1000;

constexpr const char* sharedManagerMessage = "sharedManager";
constexpr const char* showImageMessage =
    "showImage:onDisplayID:priority:msecUntilFade:filledChiclets:totalChiclets:locked:";
using ShowImage = void (*)(id, SEL, std::int64_t image, std::uint32_t displayID, std::uint32_t priority,
                           std::uint32_t msecUntilFade, std::uint32_t filledChiclets, std::uint32_t totalChiclets,
                           BOOL locked);

// A class answers a message that it lacks with an exception, which nothing here could catch.
void requireResponse(Class type, const char* message) {
  if (class_respondsToSelector(type, sel_registerName(message))) return;
  throw AppError(std::string("OSDManager does not respond to ") + message);
}

std::uint32_t chiclets(int steps) {
  if (steps < 0) fatalError("A pop-up cannot show a negative number of steps");
  return static_cast<std::uint32_t>(steps);
}

}  // namespace

NativeOSD::NativeOSD() {
  // The handle is never closed: the classes of a framework stay for the life of the process.
  if (!dlopen(framework, RTLD_LAZY)) throw AppError(std::string("Loading OSD.framework: ") + dlerror());
  const Class managerClass = objc_lookUpClass("OSDManager");
  if (!managerClass) throw AppError("OSDManager class not found");
  const id receiver = reinterpret_cast<id>(managerClass);
  requireResponse(object_getClass(receiver), sharedManagerMessage);
  const SEL selector = sel_registerName(sharedManagerMessage);
  const auto sharedManager =
      reinterpret_cast<id (*)(id, SEL)>(class_getMethodImplementation(object_getClass(receiver), selector));
  const id manager = sharedManager(receiver, selector);
  if (!manager) throw AppError("OSDManager.sharedManager returned nil");
  requireResponse(object_getClass(manager), showImageMessage);
  manager_ = NS::Object::retain(reinterpret_cast<CFTypeRef>(manager));
}

void NativeOSD::showVolume(int filledSteps, int totalSteps, bool muted) const {
  showImage(muted ? mutedVolumeImage : volumeImage, CGMainDisplayID(), filledSteps, totalSteps);
}

void NativeOSD::showBrightness(int filledSteps, int totalSteps, std::uint32_t displayID) const {
  showImage(brightnessImage, displayID, filledSteps, totalSteps);
}

void NativeOSD::showImage(std::int64_t image, std::uint32_t displayID, int filledSteps, int totalSteps) const {
  assertMainThread();
  const id manager = reinterpret_cast<id>(const_cast<void*>(manager_.get()));
  const SEL selector = sel_registerName(showImageMessage);
  const auto show = reinterpret_cast<ShowImage>(class_getMethodImplementation(object_getClass(manager), selector));
  show(manager, selector, image, displayID, priority, millisecondsUntilFade, chiclets(filledSteps),
       chiclets(totalSteps), false);
}
