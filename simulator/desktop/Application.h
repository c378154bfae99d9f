// The application's place on the desktop: its launch, its event loop and its end.
#pragma once

#include "simulator/kernel/Part.h"

namespace NS {
class ApplicationDelegate;
}

namespace simulator {

class Alerts;
class Machine;
class MenuBar;
class RunLoop;

class Application : public Part {
 public:
  Application(Machine& machine, RunLoop& runLoop, MenuBar& menuBar, Alerts& alerts);

  // The user quits the program; nothing happens when it does not run, and nothing while an alert is open.
  void quit();

  void setDelegate(NS::ApplicationDelegate* delegate) { delegate_ = delegate; }
  [[noreturn]] void run();
  void terminate();  // comes back while an alert is open

  void processEnded(Leaks& leaks) override;

 private:
  Machine& machine_;
  RunLoop& runLoop_;
  MenuBar& menuBar_;
  Alerts& alerts_;
  NS::ApplicationDelegate* delegate_ = nullptr;
};

}  // namespace simulator
