// Targets of controls and menu items, for actions that are closures.
#pragma once

#import <Foundation/Foundation.h>

#include <functional>

@interface DalvaneTarget : NSObject
// Read as a copy, since the action may give its sender another one.
@property(nonatomic) std::function<void()> action;
- (void)perform:(id)sender;
@end

namespace NS {

// AppKit refers to targets and delegates weakly, so the object that has one is made to keep it.
void keep(id owner, id kept);

}  // namespace NS
