#include "simulator/kernel/Object.h"

#include <deque>
#include <mutex>
#include <unordered_set>

#include "simulator/kernel/Call.h"
#include "simulator/kernel/RealTime.h"

namespace simulator {
namespace {

// Objects outlive a machine when they are constants, so the table is the process's own.
struct Table {
  std::mutex mutex;
  std::unordered_set<const Object*> live;
  std::deque<void*> dead;  // storage of objects that died lately
};

Table& table() {
  static auto* const instance = new Table;
  return *instance;
}

constexpr std::size_t storageKept = 1024;
constexpr long immortal = -1;

}  // namespace

Object::Object() {
  const std::lock_guard lock(table().mutex);
  table().live.insert(this);
}

Object::~Object() {
  const std::lock_guard lock(table().mutex);
  table().live.erase(this);
}

void Object::operator delete(void* storage) {
  const std::lock_guard lock(table().mutex);
  table().dead.push_back(storage);
  if (table().dead.size() > storageKept) {
    ::operator delete(table().dead.front());
    table().dead.pop_front();
  }
}

void Object::makeImmortal() { references_ = immortal; }

Object& live(const void* object, const char* call) {
  auto* const candidate = static_cast<Object*>(const_cast<void*>(object));
  if (!candidate) fatal(std::string(call) + " was given no object");
  {
    const std::lock_guard lock(table().mutex);
    if (table().live.contains(candidate)) return *candidate;
  }
  fatal(std::string(call) + " was given a released object");
}

bool isLive(const void* object) {
  const std::lock_guard lock(table().mutex);
  return table().live.contains(static_cast<const Object*>(object));
}

void wrongType(const char* call, const Object& object) {
  fatal(std::string(call) + " was given an object of type " + std::string(object.kind()));
}

void retain(const void* object, const char* call) {
  if (RealTime::active()) fatal(std::string(call) + " was called on a real-time thread");
  Object& target = live(object, call);
  if (target.references_ != immortal) ++target.references_;
}

bool release(const void* object, const char* call) {
  if (RealTime::active()) fatal(std::string(call) + " was called on a real-time thread");
  Object& target = live(object, call);
  if (target.references_ == immortal || --target.references_ > 0) return false;
  target.willDie();
  delete &target;
  return true;
}

void forEachObject(const std::function<void(Object&)>& visit) {
  const std::lock_guard lock(table().mutex);
  for (const Object* const object : table().live) visit(*const_cast<Object*>(object));
}

std::map<std::string, std::size_t> liveObjects() {
  const std::lock_guard lock(table().mutex);
  std::map<std::string, std::size_t> counts;
  for (const Object* const object : table().live) {
    if (object->references_ != immortal) ++counts[std::string(object->kind())];
  }
  return counts;
}

void forgetLiveObjects() {
  const std::lock_guard lock(table().mutex);
  for (const Object* const object : table().live) const_cast<Object*>(object)->references_ = immortal;
}

}  // namespace simulator
