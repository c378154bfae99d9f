#include "simulator/displays/Registry.h"

#include <cstring>
#include <string_view>
#include <utility>

#include "simulator/foundation/CoreFoundation.h"
#include "simulator/kernel/Call.h"

namespace simulator {
namespace {

// Depth-first, parents before children.
void flatten(const std::vector<std::shared_ptr<const RegistryEntry>>& from,
             std::vector<std::shared_ptr<const RegistryEntry>>& into) {
  for (const auto& entry : from) {
    into.push_back(entry);
    flatten(entry->children, into);
  }
}

}  // namespace

Registry::Registry(Machine& machine) {
  machine.faults.declare({"IORegistryGetRootEntry", "IORegistryEntryCreateIterator", "IOIteratorNext",
                          "IOIteratorIsValid", "IORegistryEntryGetName", "IORegistryEntryCreateCFProperty",
                          "IOObjectRelease", "IOAVServiceCreateWithService", "IOAVServiceWriteI2C",
                          "IOAVServiceReadI2C"});
}

void Registry::setDisplay(std::uint32_t display, std::shared_ptr<const RegistryEntry> entries) {
  displays_[display] = std::move(entries);
  if (!isReplaced_) ++generation_;
}

void Registry::removeDisplay(std::uint32_t display) {
  displays_.erase(display);
  if (!isReplaced_) ++generation_;
}

void Registry::replaceAll(std::vector<std::shared_ptr<const RegistryEntry>> entries) {
  replaced_ = std::move(entries);
  isReplaced_ = true;
  ++generation_;
}

io_object_t Registry::add(Handle handle) {
  const io_object_t name = nextHandle_;
  nextHandle_ += 0x100;  // port names look like this
  handles_.emplace(name, std::move(handle));
  return name;
}

Registry::Handle& Registry::find(io_object_t handle, const char* call) {
  const auto found = handles_.find(handle);
  if (found == handles_.end()) fatal(std::string(call) + " was given a released I/O object");
  return found->second;
}

io_object_t Registry::root() {
  auto root = std::make_shared<RegistryEntry>();
  root->name = "Root";
  return add({std::move(root), nullptr});
}

std::vector<std::shared_ptr<const RegistryEntry>> Registry::below(const RegistryEntry& entry) const {
  std::vector<std::shared_ptr<const RegistryEntry>> entries;
  if (entry.name != "Root") {
    flatten(entry.children, entries);
  } else if (isReplaced_) {
    flatten(replaced_, entries);
  } else {
    auto platform = std::make_shared<RegistryEntry>();
    platform->name = "J516cAP";
    for (const auto& [id, shown] : displays_) platform->children.push_back(shown);
    flatten({std::move(platform)}, entries);
  }
  return entries;
}

io_iterator_t Registry::iterator(io_object_t entry) {
  const auto& from = find(entry, "IORegistryEntryCreateIterator");
  if (!from.entry) fatal("IORegistryEntryCreateIterator was given an object that is no registry entry");
  auto iteration = std::make_unique<Iteration>();
  iteration->from = from.entry;
  const io_iterator_t made = add({nullptr, std::move(iteration)});
  reset(made);
  return made;
}

Registry::Iteration& Registry::iteration(io_iterator_t iterator, const char* call) {
  const auto& handle = find(iterator, call);
  if (!handle.iteration) fatal(std::string(call) + " was given an object that is no iterator");
  return *handle.iteration;
}

io_object_t Registry::next(io_iterator_t iterator) {
  Iteration& walk = iteration(iterator, "IOIteratorNext");
  if (walk.generation != generation_ || walk.next == walk.entries.size()) return IO_OBJECT_NULL;
  return add({walk.entries[walk.next++], nullptr});
}

bool Registry::isValid(io_iterator_t iterator) {
  return iteration(iterator, "IOIteratorIsValid").generation == generation_;
}

void Registry::reset(io_iterator_t iterator) {
  Iteration& walk = iteration(iterator, "IOIteratorReset");
  walk.entries = below(*walk.from);
  walk.next = 0;
  walk.generation = generation_;
}

std::shared_ptr<const RegistryEntry> Registry::entry(io_object_t handle, const char* call) const {
  const auto found = handles_.find(handle);
  if (found == handles_.end()) fatal(std::string(call) + " was given a released I/O object");
  if (!found->second.entry) fatal(std::string(call) + " was given an object that is no registry entry");
  return found->second.entry;
}

void Registry::release(io_object_t handle) {
  find(handle, "IOObjectRelease");
  handles_.erase(handle);
}

void Registry::processEnded(Leaks& leaks) {
  for (const auto& [name, handle] : handles_) ++leaks[handle.iteration ? "I/O iterator" : "I/O registry entry"];
  handles_.clear();
}

}  // namespace simulator

// ---- The calls ----

using simulator::Call;

extern "C" {

extern const mach_port_t kIOMainPortDefault = 0;

io_registry_entry_t IORegistryGetRootEntry(mach_port_t) {
  const Call call("IORegistryGetRootEntry");
  return call.fault() ? IO_OBJECT_NULL : call.part<simulator::Registry>().root();
}

kern_return_t IORegistryEntryCreateIterator(io_registry_entry_t entry, const io_name_t plane, IOOptionBits options,
                                            io_iterator_t* iterator) {
  const Call call("IORegistryEntryCreateIterator");
  *iterator = IO_OBJECT_NULL;
  if (const auto status = call.fault()) return *status;
  if (entry == IO_OBJECT_NULL) return kIOReturnBadArgument;
  if (std::string_view(plane) != kIOServicePlane || options != kIORegistryIterateRecursively) {
    simulator::fatal("IORegistryEntryCreateIterator: only recursive walks of the service plane are simulated");
  }
  *iterator = call.part<simulator::Registry>().iterator(entry);
  return KERN_SUCCESS;
}

io_object_t IOIteratorNext(io_iterator_t iterator) {
  const Call call("IOIteratorNext");
  return call.fault() ? IO_OBJECT_NULL : call.part<simulator::Registry>().next(iterator);
}

void IOIteratorReset(io_iterator_t iterator) {
  const Call call("IOIteratorReset");
  call.part<simulator::Registry>().reset(iterator);
}

boolean_t IOIteratorIsValid(io_iterator_t iterator) {
  const Call call("IOIteratorIsValid");
  const bool isValid = call.part<simulator::Registry>().isValid(iterator);
  return isValid && !call.fault();
}

kern_return_t IORegistryEntryGetName(io_registry_entry_t entry, io_name_t name) {
  const Call call("IORegistryEntryGetName");
  const auto named = call.part<simulator::Registry>().entry(entry, "IORegistryEntryGetName");
  // What is in the buffer after a failure is anyone's guess: it may be the name.
  std::strncpy(name, named->name.c_str(), sizeof(io_name_t) - 1);
  name[sizeof(io_name_t) - 1] = '\0';
  return call.fault().value_or(KERN_SUCCESS);
}

CFTypeRef IORegistryEntryCreateCFProperty(io_registry_entry_t entry, CFStringRef key, CFAllocatorRef, IOOptionBits) {
  const Call call("IORegistryEntryCreateCFProperty");
  const auto owner = call.part<simulator::Registry>().entry(entry, "IORegistryEntryCreateCFProperty");
  if (call.fault()) return nullptr;
  const auto property = owner->properties.find(simulator::textOf(key, "IORegistryEntryCreateCFProperty"));
  return property == owner->properties.end() ? nullptr : simulator::createPropertyList(*property);
}

kern_return_t IOObjectRelease(io_object_t object) {
  const Call call("IOObjectRelease");
  // Also a release that is told to fail gives the reference up: the program could not try again.
  call.part<simulator::Registry>().release(object);
  return call.fault().value_or(KERN_SUCCESS);
}

}  // extern "C"
