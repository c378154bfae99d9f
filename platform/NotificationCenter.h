// NSNotificationCenter, NSWorkspace and the notifications that are observed.
#pragma once

#include "platform/Object.h"

namespace NS {

class NotificationCenter : public Object {
 public:
  NotificationCenter() noexcept = default;
  static NotificationCenter defaultCenter();

  // Observes `name` from any sender, delivered on the main operation queue. The centre keeps the block until the
  // returned token is removed.
  [[nodiscard]] Object addObserverForName(CFStringRef name, void (^block)()) const;
  void removeObserver(const Object& token) const;

 private:
  friend class Workspace;
  using Object::Object;
};

class Workspace : public Object {
 public:
  static Workspace sharedWorkspace();

  [[nodiscard]] NotificationCenter notificationCenter() const;

 private:
  using Object::Object;
};

CFStringRef ApplicationDidChangeScreenParametersNotification();
CFStringRef WorkspaceDidWakeNotification();

}  // namespace NS
