// Notification centres: the process's own and the workspace's.
#pragma once

#include <CoreFoundation/CoreFoundation.h>

#include <list>
#include <string>

#include "simulator/kernel/Object.h"
#include "simulator/kernel/Part.h"

namespace simulator {

class Machine;
class RunLoop;

class NotificationCenters : public Part {
 public:
  enum Which { defaultCenter, workspaceCenter };

  NotificationCenters(Machine& machine, RunLoop& runLoop);

  // Tells the observers of `name`, on the main thread's queue.
  void post(Which center, CFStringRef name);
  // The same now, and as often as twice more within half a second, as after a sleep.
  void postBurst(Which center, CFStringRef name);

  // The token, owned by the caller. The observation lasts until it is removed.
  Object* addObserver(Which center, CFStringRef name, void (^block)());
  void removeObserver(Which center, const Object* token);

  void addCommands(Commands& commands) override;
  void didWake() override;
  void processWillEnd(Leaks& leaks) override;
  void processEnded(Leaks& leaks) override;

 private:
  struct Observer;
  void drop(std::list<Observer*>::iterator observer);

  Machine& machine_;
  RunLoop& runLoop_;
  std::list<Observer*> observers_;  // retained
};

}  // namespace simulator
