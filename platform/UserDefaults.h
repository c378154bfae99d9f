// NSUserDefaults. Usable from any thread.
#pragma once

#include <string>

#include "platform/Object.h"

namespace NS {

class UserDefaults : public Object {
 public:
  // The preferences of the running program.
  static UserDefaults standardUserDefaults();

  // The value stored under `key`, a property-list object of any type; null when there is none.
  [[nodiscard]] CF::Ref<CFTypeRef> objectForKey(const std::string& key) const;
  // False when there is none; a number is true unless it is 0, a text when it is "YES" or "1".
  [[nodiscard]] bool boolForKey(const std::string& key) const;

  void setInteger(long value, const std::string& key) const;
  void setBool(bool value, const std::string& key) const;

 private:
  using Object::Object;
};

}  // namespace NS
