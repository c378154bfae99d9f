#include "platform/UserDefaults.h"

#import <Foundation/Foundation.h>

namespace NS {

static NSUserDefaults* object(const UserDefaults& defaults) { return (__bridge NSUserDefaults*)defaults.get(); }

UserDefaults UserDefaults::standardUserDefaults() {
  return UserDefaults(CF::retain((__bridge CFTypeRef)NSUserDefaults.standardUserDefaults));
}

CF::Ref<CFTypeRef> UserDefaults::objectForKey(const std::string& key) const {
  return CF::adopt((__bridge_retained CFTypeRef)[object(*this) objectForKey:@(key.c_str())]);
}

bool UserDefaults::boolForKey(const std::string& key) const { return [object(*this) boolForKey:@(key.c_str())]; }

void UserDefaults::setInteger(long value, const std::string& key) const {
  [object(*this) setInteger:value forKey:@(key.c_str())];
}

void UserDefaults::setBool(bool value, const std::string& key) const {
  [object(*this) setBool:value forKey:@(key.c_str())];
}

}  // namespace NS
