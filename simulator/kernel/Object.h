// The counted objects of Core Foundation and of the Objective-C runtime.
#pragma once

#include <atomic>
#include <cstddef>
#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace simulator {

// A platform object that lives as long as it is referenced. Made with one reference, which its maker owns.
class Object {
 public:
  Object();
  virtual ~Object();
  Object(const Object&) = delete;
  Object& operator=(const Object&) = delete;

  // Its class, as a leak report names it: "CFString", "NSMenu".
  [[nodiscard]] virtual std::string_view kind() const = 0;
  // What the object has to do when its last reference goes, while it is whole.
  virtual void willDie() {}

  // Lives for ever: constants and the system's shared objects.
  void makeImmortal();

  // Keeps the storage of dead objects for a while, so that a stale pointer is told from a new object.
  static void operator delete(void* storage);

 private:
  friend void retain(const void* object, const char* call);
  friend bool release(const void* object, const char* call);
  friend std::map<std::string, std::size_t> liveObjects();
  friend void forgetLiveObjects();
  std::atomic<long> references_{1};
};

// The object behind a reference that the program handed to `call`; anything but a live object is fatal.
Object& live(const void* object, const char* call);
[[noreturn]] void wrongType(const char* call, const Object& object);
// The same as the type that the call is for; another kind of object is fatal.
template <typename T>
T& live(const void* object, const char* call) {
  T* const typed = dynamic_cast<T*>(&live(object, call));
  if (!typed) {
    wrongType(call, live(object, call));
  }
  return *typed;
}

// Whether there is such an object.
bool isLive(const void* object);

void retain(const void* object, const char* call);
// True when this was the last reference.
bool release(const void* object, const char* call);

// Calls `visit` for every live object.
void forEachObject(const std::function<void(Object&)>& visit);
template <typename T>
std::vector<T*> liveObjectsOf() {
  std::vector<T*> found;
  forEachObject([&found](Object& object) {
    if (auto* const typed = dynamic_cast<T*>(&object)) found.push_back(typed);
  });
  return found;
}

// Objects that somebody still owns, by kind.
std::map<std::string, std::size_t> liveObjects();
// Counts them no more: they have been reported.
void forgetLiveObjects();

}  // namespace simulator
