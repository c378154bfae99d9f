#include "simulator/desktop/Application.h"

#include <cstdint>

#include "platform/Application.h"
#include "simulator/desktop/Alerts.h"
#include "simulator/desktop/MenuBar.h"
#include "simulator/foundation/RunLoop.h"
#include "simulator/kernel/Call.h"
#include "simulator/kernel/Object.h"

namespace simulator {
namespace {

constexpr std::int64_t userCanceledErr = -128;  // MacErrors.h

}  // namespace

Application::Application(Machine& machine, RunLoop& runLoop, MenuBar& menuBar, Alerts& alerts)
    : machine_(machine), runLoop_(runLoop), menuBar_(menuBar), alerts_(alerts) {}

void Application::quit() {
  if (!machine_.process.running()) return;
  menuBar_.close();
  runLoop_.post(this, defaultMode | modalPanelMode, [this] { terminate(); });
}

void Application::run() {
  runLoop_.post(this, defaultMode, [this] {
    if (delegate_) delegate_->applicationDidFinishLaunching();
  });
  for (;;) runLoop_.runOnce(defaultMode);
}

// While a modal window is open an application cannot be terminated, and its delegate is not asked either (NSWindow.h).
void Application::terminate() {
  if (alerts_.isOpen()) {
    machine_.trace.call("NSApplication.terminate", userCanceledErr);
    return;
  }
  if (delegate_) delegate_->applicationWillTerminate();
  machine_.process.exit(0);
}

void Application::processEnded(Leaks&) { delegate_ = nullptr; }

}  // namespace simulator

// ---- The calls ----

namespace NS {
namespace {

using simulator::Call;

struct ApplicationObject : simulator::Object {
  ApplicationObject() { makeImmortal(); }
  std::string_view kind() const override { return "NSApplication"; }
};

}  // namespace

Application Application::sharedApplication() {
  const Call call("NSApplication.sharedApplication", Call::On::mainThread);
  static auto* const application = new ApplicationObject;
  return Application(CF::retain(static_cast<CFTypeRef>(application)));
}

void Application::setDelegate(ApplicationDelegate* delegate) const {
  const Call call("NSApplication.setDelegate", Call::On::mainThread);
  call.part<simulator::Application>().setDelegate(delegate);
}

void Application::run() const {
  simulator::Machine& machine = Call("NSApplication.run", Call::On::mainThread).machine;
  machine.part<simulator::Application>().run();
}

void Application::terminate() const {
  simulator::Machine& machine = Call("NSApplication.terminate", Call::On::mainThread).machine;
  machine.part<simulator::Application>().terminate();
}

void Application::activate() const {
  const Call call("NSApplication.activate", Call::On::mainThread);
  call.machine.trace.call("NSApplication.activate");
}

}  // namespace NS
