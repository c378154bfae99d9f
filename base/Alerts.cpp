#include "base/Alerts.h"

#include <CoreFoundation/CoreFoundation.h>

#include <utility>

#include "base/Assertions.h"
#include "platform/Application.h"
#include "platform/CF.h"

namespace {

// Characters as a reader sees them, and the UTF-16 units that they may take: the longest that are in use have 14.
constexpr int mostCharacters = 4000;
constexpr CFIndex mostUnits = CFIndex{mostCharacters} * 16;

constexpr const char* ellipsis = "…";

}  // namespace

std::string textForAlert(const std::string& text) {
  const CF::Ref<CFStringRef> whole = CF::string(text);
  const CFIndex length = CFStringGetLength(whole.get());
  CFIndex end = 0;
  for (int i = 0; i < mostCharacters && end < length; ++i) {
    const CFRange character = CFStringGetRangeOfComposedCharactersAtIndex(whole.get(), end);
    const CFIndex next = character.location + character.length;
    if (next > mostUnits) break;
    end = next;
  }
  return CF::text(whole.get(), end) + (end < length ? ellipsis : "");
}

NS::Alert makeAlert(const std::string& message, const std::string& informative) {
  NS::Alert alert = NS::Alert::make();
  alert.setMessageText(message);
  alert.setInformativeText(informative);
  return alert;
}

// An alert must not be run by a block of the main queue: that queue is serial, and would stand still as long as the
// alert is open. Blocks of the run loop's default mode are performed in no loop of an alert or a menu, so that they are
// also the queue in which alerts wait for each other.
void whenNoAlertIsOpen(std::function<void()> work) {
  assertMainThread();
  const std::function<void()> kept = std::move(work);
  CFRunLoopPerformBlock(CFRunLoopGetMain(), kCFRunLoopDefaultMode, ^{
    kept();
  });
  CFRunLoopWakeUp(CFRunLoopGetMain());
}

void presentAlert(std::weak_ptr<const void> owner, std::function<std::optional<NS::Alert>()> make,
                  std::function<void(long button)> answered) {
  whenNoAlertIsOpen([owner = std::move(owner), make = std::move(make), answered = std::move(answered)] {
    const auto alert = owner.expired() ? std::nullopt : make();
    if (!alert) return;
    NS::Application::sharedApplication().activate();
    const long button = alert->runModal();
    const auto alive = owner.lock();
    if (alive && answered) answered(button);
  });
}
