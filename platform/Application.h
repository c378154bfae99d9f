// NSApplication and its delegate. Main thread only.
#pragma once

#include "platform/Object.h"

namespace NS {

// The application-delegate role of NSApplicationDelegate.
class ApplicationDelegate {
 public:
  virtual ~ApplicationDelegate() = default;
  virtual void applicationDidFinishLaunching() = 0;
  virtual void applicationWillTerminate() = 0;
};

class Application : public Object {
 public:
  static Application sharedApplication();

  // The delegate is not retained: it must live until the application ends.
  void setDelegate(ApplicationDelegate* delegate) const;
  // Runs the main event loop. As AppKit's, it does not return: the application ends in `terminate`.
  void run() const;
  // Tells the delegate, then ends the process. While an alert is open it does nothing and comes back.
  void terminate() const;
  // Brings the application to the front.
  void activate() const;

 private:
  using Object::Object;
};

}  // namespace NS
