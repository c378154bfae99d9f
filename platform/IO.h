// An owning reference to an I/O Kit object.
#pragma once

#include <IOKit/IOKitLib.h>

#include <utility>

namespace IO {

// Owns one reference to a registry entry or an iterator, and releases it. Usable from any thread.
class Object {
 public:
  Object() noexcept = default;
  explicit Object(io_object_t object) noexcept : object_(object) {}
  Object(Object&& other) noexcept : object_(std::exchange(other.object_, IO_OBJECT_NULL)) {}
  Object& operator=(Object&& other) noexcept {
    std::swap(object_, other.object_);
    return *this;
  }
  Object(const Object&) = delete;
  Object& operator=(const Object&) = delete;
  ~Object() {
    if (object_ != IO_OBJECT_NULL) IOObjectRelease(object_);
  }

  [[nodiscard]] io_object_t get() const noexcept { return object_; }
  explicit operator bool() const noexcept { return object_ != IO_OBJECT_NULL; }

 private:
  io_object_t object_ = IO_OBJECT_NULL;
};

}  // namespace IO
