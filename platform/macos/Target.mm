#include "platform/macos/Target.h"

#import <objc/runtime.h>

@implementation DalvaneTarget {
  std::function<void()> _action;
}

- (instancetype)initWithAction:(std::function<void()>)action {
  if ((self = [super init])) _action = std::move(action);
  return self;
}

- (void)perform:(id)sender {
  // A copy, since the action may give its sender another one.
  const auto action = _action;
  action();
}

@end

void NS::keep(id owner, id kept) {
  static const char key = 0;
  objc_setAssociatedObject(owner, &key, kept, OBJC_ASSOCIATION_RETAIN_NONATOMIC);
}
