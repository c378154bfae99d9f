
#include <memory>

#include "app/AppDelegate.h"
#include "base/Assertions.h"
#include "platform/Application.h"

// What nobody catches ends the program, and the system reports it.
int main() {  // NOLINT(bugprone-exception-escape)
  assertMainThread();
  const auto application = NS::Application::sharedApplication();
  const auto delegate = std::make_shared<AppDelegate>();
  application.setDelegate(delegate.get());
  application.run();
  return 0;
}
