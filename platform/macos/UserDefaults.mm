#include "platform/UserDefaults.h"

#include "platform/macos/Text.h"

namespace NS {

static NSUserDefaults* object(const UserDefaults& defaults) { return (__bridge NSUserDefaults*)defaults.get(); }

UserDefaults UserDefaults::standardUserDefaults() {
  @autoreleasepool {
    return UserDefaults(CF::retain((__bridge CFTypeRef)NSUserDefaults.standardUserDefaults));
  }
}

CF::Ref<CFTypeRef> UserDefaults::objectForKey(const std::string& key) const {
  @autoreleasepool {
    return CF::adopt((__bridge_retained CFTypeRef)[object(*this) objectForKey:string(key)]);
  }
}

bool UserDefaults::boolForKey(const std::string& key) const {
  @autoreleasepool {
    return [object(*this) boolForKey:string(key)];
  }
}

void UserDefaults::setInteger(long value, const std::string& key) const {
  @autoreleasepool {
    [object(*this) setInteger:value forKey:string(key)];
  }
}

void UserDefaults::setBool(bool value, const std::string& key) const {
  @autoreleasepool {
    [object(*this) setBool:value forKey:string(key)];
  }
}

}  // namespace NS
