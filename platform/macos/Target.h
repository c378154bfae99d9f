// Targets of controls and menu items, for actions that are closures.
#pragma once

#import <Foundation/Foundation.h>

#include <functional>

@interface DalvaneTarget : NSObject
- (instancetype)initWithAction:(std::function<void()>)action;
- (void)perform:(id)sender;
@end

namespace NS {

// AppKit refers to targets and delegates weakly, so the object that has one is made to keep it.
void keep(id owner, id kept);

}  // namespace NS
