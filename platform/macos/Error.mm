#include "platform/Error.h"

#include "platform/macos/Text.h"

namespace NS {

std::string Error::localizedDescription() const {
  @autoreleasepool {
    return text(((__bridge NSError*)get()).localizedDescription);
  }
}

}  // namespace NS
