// The application's place on the desktop: its launch, its event loop and its end.
#pragma once

#include "simulator/machine/Part.h"

namespace NS {
class ApplicationDelegate;
}

namespace simulator {

class Machine;

class Application : public Part {
 public:
  explicit Application(Machine& machine);

  // The user quits the program; nothing happens when it does not run.
  void quit();

  void setDelegate(NS::ApplicationDelegate* delegate) { delegate_ = delegate; }
  [[noreturn]] void run();
  [[noreturn]] void terminate();

  void processEnded(Leaks& leaks) override;

 private:
  Machine& machine_;
  NS::ApplicationDelegate* delegate_ = nullptr;
};

}  // namespace simulator
