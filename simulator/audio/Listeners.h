// Who is to be told when a property of an audio object changes.
#pragma once

#include <CoreAudio/CoreAudio.h>

#include <functional>
#include <vector>

#include "simulator/kernel/Scheduler.h"

namespace simulator {

class Dispatch;

class PropertyListeners {
 public:
  explicit PropertyListeners(Dispatch& dispatch) : dispatch_(dispatch) {}
  ~PropertyListeners() { clear(); }
  PropertyListeners(const PropertyListeners&) = delete;
  PropertyListeners& operator=(const PropertyListeners&) = delete;

  // Keeps the queue and a copy of the block until the matching `remove`.
  void add(AudioObjectID object, const AudioObjectPropertyAddress& address, dispatch_queue_t queue,
           AudioObjectPropertyListenerBlock block);
  // False when there is none with that object, address, queue and block.
  bool remove(AudioObjectID object, const AudioObjectPropertyAddress& address, dispatch_queue_t queue,
              AudioObjectPropertyListenerBlock block);
  void clear();
  // The same but for those of one object.
  void clearExcept(AudioObjectID object);
  [[nodiscard]] std::size_t count() const { return listeners_.size(); }

  // Forgets those of one object, which is gone.
  void clear(AudioObjectID object);

  // Each listener is called on its queue, some time later, but not before `delay` has passed.
  void notify(AudioObjectID object, const AudioObjectPropertyAddress& address, Duration delay);

 private:
  struct Listener {
    AudioObjectID object;
    AudioObjectPropertyAddress address;
    dispatch_queue_t queue;                  // retained
    AudioObjectPropertyListenerBlock block;  // copied
  };
  static void release(const Listener& listener);
  void clearIf(const std::function<bool(const Listener&)>& isToGo);

  Dispatch& dispatch_;
  std::vector<Listener> listeners_;
};

}  // namespace simulator
