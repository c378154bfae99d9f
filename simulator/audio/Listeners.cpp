#include "simulator/audio/Listeners.h"

#include <Block.h>

#include <algorithm>
#include <utility>

#include "simulator/foundation/Dispatch.h"

namespace simulator {
namespace {

bool same(const AudioObjectPropertyAddress& a, const AudioObjectPropertyAddress& b) {
  return a.mSelector == b.mSelector && a.mScope == b.mScope && a.mElement == b.mElement;
}

}  // namespace

void PropertyListeners::add(AudioObjectID object, const AudioObjectPropertyAddress& address, dispatch_queue_t queue,
                            AudioObjectPropertyListenerBlock block) {
  dispatch_retain(queue);
  listeners_.push_back({object, address, queue, Block_copy(block)});
}

bool PropertyListeners::remove(AudioObjectID object, const AudioObjectPropertyAddress& address, dispatch_queue_t queue,
                               AudioObjectPropertyListenerBlock block) {
  const auto found = std::ranges::find_if(listeners_, [&](const Listener& each) {
    return each.object == object && same(each.address, address) && each.queue == queue && each.block == block;
  });
  if (found == listeners_.end()) return false;
  const Listener removed = *found;
  listeners_.erase(found);
  release(removed);
  return true;
}

void PropertyListeners::clear() {
  for (const Listener& each : std::exchange(listeners_, {})) release(each);
}

void PropertyListeners::clear(AudioObjectID object) {
  clearIf([object](const Listener& each) { return each.object == object; });
}

void PropertyListeners::clearExcept(AudioObjectID object) {
  clearIf([object](const Listener& each) { return each.object != object; });
}

void PropertyListeners::clearIf(const std::function<bool(const Listener&)>& isToGo) {
  for (const Listener& each : std::exchange(listeners_, {})) {
    if (!isToGo(each)) {
      listeners_.push_back(each);
    } else {
      release(each);
    }
  }
}

void PropertyListeners::release(const Listener& listener) {
  Block_release(listener.block);
  dispatch_release(listener.queue);
}

void PropertyListeners::notify(AudioObjectID object, const AudioObjectPropertyAddress& address, Duration delay) {
  for (const Listener& each : listeners_) {
    if (each.object != object || !same(each.address, address)) continue;
    // The call that is on its way keeps the block, also when the listener is removed meanwhile.
    const AudioObjectPropertyListenerBlock block = each.block;
    const AudioObjectPropertyAddress changed = address;
    const dispatch_block_t call = Block_copy(^{
      block(1, &changed);
    });
    if (delay > Duration::zero()) {
      dispatch_.submitAfter(dispatch_time(DISPATCH_TIME_NOW, delay.count()), *each.queue, call);
    } else {
      dispatch_.submit(*each.queue, call);
    }
  }
}

}  // namespace simulator
