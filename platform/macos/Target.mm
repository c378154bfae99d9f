#include "platform/macos/Target.h"

#import <objc/runtime.h>

@implementation DalvaneTarget

- (void)perform:(id)sender {
  self.action();
}

@end

void NS::keep(id owner, id kept) {
  static const char key = 0;
  objc_setAssociatedObject(owner, &key, kept, OBJC_ASSOCIATION_RETAIN_NONATOMIC);
}
