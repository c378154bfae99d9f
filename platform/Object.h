// The root of the C++ face of AppKit and Foundation.
//
// Every class in namespace NS stands for the Objective-C class of the same name and holds one owned reference to an
// object of it. Copying a handle shares the object, as assigning an Objective-C pointer does. Members are named after
// the methods they forward to and do nothing else. AppKit's classes are for the main thread only.
//
// On the Mac each member that sends a message has an autorelease pool of its own: members are also called from event
// taps, timers and Dispatch, around which nothing drains one, and C++ has no words for it.
#pragma once

#include <utility>

#include "platform/CF.h"

namespace NS {

class Object {
 public:
  Object() noexcept = default;

  // Owns `object` (an Objective-C object whose reference the caller gives away).
  static Object adopt(CFTypeRef object) noexcept {
    Object result;
    result.object_ = CF::adopt(object);
    return result;
  }

  // Shares `object`, which the caller was lent.
  static Object retain(CFTypeRef object) noexcept {
    Object result;
    result.object_ = CF::retain(object);
    return result;
  }

  // The Objective-C object, not retained.
  [[nodiscard]] CFTypeRef get() const noexcept { return object_.get(); }
  explicit operator bool() const noexcept { return static_cast<bool>(object_); }
  friend bool operator==(const Object& a, const Object& b) noexcept { return a.get() == b.get(); }

 protected:
  explicit Object(CF::Ref<CFTypeRef> object) noexcept : object_(std::move(object)) {}

 private:
  CF::Ref<CFTypeRef> object_;
};

}  // namespace NS
