#include <dispatch/dispatch.h>

#include <memory>

#include "app/AppDelegate.h"
#include "platform/Application.h"

int main() {
  dispatch_assert_queue(dispatch_get_main_queue());
  const auto application = NS::Application::sharedApplication();
  const auto delegate = std::make_shared<AppDelegate>();
  application.setDelegate(delegate.get());
  application.run();
  return 0;
}
