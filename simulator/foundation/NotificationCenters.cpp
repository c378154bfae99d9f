#include "simulator/foundation/NotificationCenters.h"

#include <Block.h>

#include <algorithm>
#include <cmath>
#include <memory>

#include "platform/NotificationCenter.h"
#include "simulator/foundation/CoreFoundation.h"
#include "simulator/foundation/RunLoop.h"
#include "simulator/kernel/Call.h"
#include "simulator/kernel/Commands.h"

namespace simulator {

struct NotificationCenters::Observer : Object {
  std::string_view kind() const override { return "notification observer"; }
  ~Observer() override {
    if (block) Block_release(block);
  }

  Which center = defaultCenter;
  std::string name;
  void (^block)() = nullptr;
};

NotificationCenters::NotificationCenters(Machine& machine, RunLoop& runLoop) : machine_(machine), runLoop_(runLoop) {}

void NotificationCenters::post(Which center, CFStringRef name) {
  const Scheduler::Lock lock(machine_.scheduler);
  for (Observer* const observer : observers_) {
    if (observer->center != center || observer->name != textOf(name, "NSNotification")) continue;
    retain(observer, "NSNotification");
    const std::shared_ptr<Observer> told(observer, [](Observer* each) { release(each, "NSNotification"); });
    // Delivered on the main operation queue, which runs its operations on the main queue. Nobody says that one which is
    // on its way is taken back when the observer is removed.
    runLoop_.postToMainQueue(this, [told] { told->block(); });
  }
}

Object* NotificationCenters::addObserver(Which center, CFStringRef name, void (^block)()) {
  auto* const observer = new Observer;
  observer->center = center;
  observer->name = textOf(name, "NSNotificationCenter.addObserverForName");
  observer->block = Block_copy(block);
  retain(observer, "NSNotificationCenter.addObserverForName");
  observers_.push_back(observer);
  return observer;
}

void NotificationCenters::drop(std::list<Observer*>::iterator observer) {
  Observer* const dropped = *observer;
  observers_.erase(observer);
  release(dropped, "NSNotificationCenter.removeObserver");
}

void NotificationCenters::removeObserver(Which center, const Object* token) {
  const auto found =
      std::ranges::find_if(observers_, [&](const Observer* each) { return each == token && each->center == center; });
  if (found != observers_.end()) drop(found);
}

void NotificationCenters::addCommands(Commands& commands) {
  commands.add("wake", [this](Arguments&) -> Action {
    return [this] { post(workspaceCenter, NS::WorkspaceDidWakeNotification()); };
  });
}

void NotificationCenters::postBurst(Which center, CFStringRef name) {
  constexpr std::uint64_t most = 3;
  constexpr std::uint64_t within = 500'000'000;  // ns
  for (std::uint64_t more = machine_.scheduler.random(most); more > 0; --more) {
    machine_.scheduler.after(Duration(machine_.scheduler.random(within)), Waiting::work,
                             [this, center, name] { post(center, name); });
  }
  post(center, name);
}

void NotificationCenters::didWake() { postBurst(workspaceCenter, NS::WorkspaceDidWakeNotification()); }

void NotificationCenters::processWillEnd(Leaks& leaks) {
  if (!observers_.empty()) leaks["notification observer"] += observers_.size();
}

void NotificationCenters::processEnded(Leaks&) {
  while (!observers_.empty()) drop(observers_.begin());
}

}  // namespace simulator

// ---- The calls ----

namespace NS {
namespace {

using simulator::Call;
using simulator::NotificationCenters;

struct CenterObject : simulator::Object {
  explicit CenterObject(NotificationCenters::Which center) : which(center) { makeImmortal(); }
  std::string_view kind() const override { return "NSNotificationCenter"; }
  const NotificationCenters::Which which;
};

struct WorkspaceObject : simulator::Object {
  WorkspaceObject() { makeImmortal(); }
  std::string_view kind() const override { return "NSWorkspace"; }
};

CF::Ref<CFTypeRef> centerObject(NotificationCenters::Which which) {
  static auto* const own = new CenterObject(NotificationCenters::defaultCenter);
  static auto* const workspace = new CenterObject(NotificationCenters::workspaceCenter);
  return CF::retain(static_cast<CFTypeRef>(which == NotificationCenters::defaultCenter ? own : workspace));
}

}  // namespace

NotificationCenter NotificationCenter::defaultCenter() {
  return NotificationCenter(centerObject(NotificationCenters::defaultCenter));
}

Object NotificationCenter::addObserverForName(CFStringRef name, void (^block)()) const {
  const Call call("NSNotificationCenter.addObserverForName");
  const auto which = simulator::live<CenterObject>(get(), "NSNotificationCenter.addObserverForName").which;
  return Object::adopt(call.part<simulator::NotificationCenters>().addObserver(which, name, block));
}

void NotificationCenter::removeObserver(const Object& token) const {
  const Call call("NSNotificationCenter.removeObserver");
  const auto which = simulator::live<CenterObject>(get(), "NSNotificationCenter.removeObserver").which;
  call.part<simulator::NotificationCenters>().removeObserver(
      which, &simulator::live(token.get(), "NSNotificationCenter.removeObserver"));
}

Workspace Workspace::sharedWorkspace() {
  static auto* const workspace = new WorkspaceObject;
  return Workspace(CF::retain(static_cast<CFTypeRef>(workspace)));
}

NotificationCenter Workspace::notificationCenter() const {
  return NotificationCenter(centerObject(NotificationCenters::workspaceCenter));
}

CFStringRef ApplicationDidChangeScreenParametersNotification() {
  return CFSTR("NSApplicationDidChangeScreenParametersNotification");
}

CFStringRef WorkspaceDidWakeNotification() { return CFSTR("NSWorkspaceDidWakeNotification"); }

}  // namespace NS
