// NSImage. Main thread only.
#pragma once

#include "platform/Object.h"

namespace NS {

class Image : public Object {
 public:
  Image() noexcept = default;

 private:
  using Object::Object;
};

}  // namespace NS
