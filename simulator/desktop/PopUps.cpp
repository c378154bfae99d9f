#include "simulator/desktop/PopUps.h"

#include "simulator/kernel/Call.h"
#include "simulator/system/ObjCRuntime.h"

namespace simulator {

id sharedPopUpManager(Class type) {
  const Call call("OSDManager.sharedManager", Call::On::mainThread);
  if (call.fault()) return nullptr;
  static objc_object* const manager = [type] {
    auto* const made = new objc_object(type);
    made->makeImmortal();
    return made;
  }();
  return manager;
}

void showPopUp(id manager, const PopUp& popUp) {
  const Call call("OSDManager.showImage", Call::On::mainThread);
  live<objc_object>(manager, "OSDManager.showImage");
  call.machine.trace.call("OSDManager.showImage")
      .number("image", popUp.image)
      .number("display", popUp.display)
      .number("priority", popUp.priority)
      .number("fade", popUp.fade)
      .number("filled", popUp.filled)
      .number("total", popUp.total)
      .flag("locked", popUp.locked);
}

}  // namespace simulator
