
#include <memory>

#include "app/AppDelegate.h"
#include "base/Assertions.h"
#include "platform/Application.h"

int main() {
  assertMainThread();
  const auto application = NS::Application::sharedApplication();
  const auto delegate = std::make_shared<AppDelegate>();
  application.setDelegate(delegate.get());
  application.run();
  return 0;
}
