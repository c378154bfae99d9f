#include "platform/Error.h"

#import <Foundation/Foundation.h>

namespace NS {

std::string Error::localizedDescription() const { return ((__bridge NSError*)get()).localizedDescription.UTF8String; }

}  // namespace NS
