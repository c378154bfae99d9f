#include "simulator/mac/Mac.h"

#include "simulator/audio/Audio.h"
#include "simulator/desktop/Alerts.h"
#include "simulator/desktop/Application.h"
#include "simulator/desktop/EventStream.h"
#include "simulator/desktop/MenuBar.h"
#include "simulator/displays/Displays.h"
#include "simulator/displays/Registry.h"
#include "simulator/foundation/Dispatch.h"
#include "simulator/foundation/NotificationCenters.h"
#include "simulator/foundation/Preferences.h"
#include "simulator/foundation/RunLoop.h"
#include "simulator/mac/Publishing.h"
#include "simulator/network/URLLoading.h"
#include "simulator/privacy/Accessibility.h"
#include "simulator/privacy/AudioCapture.h"
#include "simulator/software/Applications.h"
#include "simulator/software/LoginItem.h"
#include "simulator/system/ChildProcesses.h"
#include "simulator/system/SystemRoot.h"

namespace simulator {

Mac::Mac(Program program, Options options) : Machine(std::move(program), std::move(options)) {
  faults.declare(
      {"OSDManager.sharedManager", "CFURLCreateFromFileSystemRepresentation", "NSImage.imageWithSystemSymbolName"});
  auto& root = add<SystemRoot>();
  auto& runLoop = add<RunLoop>();
  auto& dispatch = add<Dispatch>(runLoop);
  auto& notifications = add<NotificationCenters>(runLoop);
  auto& registry = add<Registry>();
  add<Displays>(registry, notifications);
  auto& accessibility = add<Accessibility>();
  auto& consent = add<AudioCapture>(dispatch);
  add<Audio>(dispatch, consent);
  add<EventStream>(runLoop, accessibility);
  auto& menuBar = add<MenuBar>(runLoop);
  auto& alerts = add<Alerts>(runLoop);
  add<Preferences>(root.below("/Users/user/Library/Preferences"));
  add<Application>(runLoop, menuBar, alerts);
  auto& applications = add<Applications>(root);
  auto& loading = add<URLLoading>(root);
  add<ChildProcesses>(root, [this, &applications](const std::filesystem::path& path) {
    if (applications.isInstalled(path)) process.launch();
  });
  add<LoginItem>();
  add<Publishing>(applications, loading);
}

bool Mac::shutDown() {
  // Whoever quits closes first what is open: an alert may have others behind it.
  for (int tries = 0; process.running() && tries < 100; ++tries) {
    part<Alerts>().dismiss();
    part<Application>().quit();
    runReady();
    if (process.running() && !scheduler.settle()) fatal("The program does not come to rest");
  }
  if (process.running()) fatal("The program did not quit");
  for (const auto& [kind, count] : process.leaks()) {
    trace.record("leak").text("kind", kind).number("count", static_cast<std::int64_t>(count));
  }
  return process.leaks().empty();
}

}  // namespace simulator
