// The I/O Registry: a tree of entries with properties, and the handles that the program holds on them.
#pragma once

#include <IOKit/IOKitLib.h>

#include <cstdint>
#include <map>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "simulator/kernel/Part.h"

namespace simulator {

class Machine;

// What tells displays apart, as their framebuffers and Core Graphics have it.
struct DisplayIdentity {
  std::uint32_t vendor, product, serial;
  friend bool operator==(const DisplayIdentity&, const DisplayIdentity&) = default;
};

struct RegistryEntry {
  std::string name;
  nlohmann::json properties = nlohmann::json::object();
  std::vector<std::shared_ptr<const RegistryEntry>> children;
  // The display whose monitor the entry's AV service reaches: by its id, or as the nth (from 0) of those that are
  // connected with that identity.
  std::optional<std::uint32_t> display;
  std::optional<std::pair<DisplayIdentity, std::size_t>> reaches;
};

class Registry : public Part {
 public:
  explicit Registry(Machine& machine);

  // The entries that stand for a display, below the root; replaces those it had. Without effect after `replaceAll`.
  void setDisplay(std::uint32_t display, std::shared_ptr<const RegistryEntry> entries);
  void removeDisplay(std::uint32_t display);
  // Replaces everything below the root, in walking order.
  void replaceAll(std::vector<std::shared_ptr<const RegistryEntry>> entries);

  // ---- Handles ----
  io_object_t root();
  io_iterator_t iterator(io_object_t entry);
  // Null at the end of the walk, and as soon as the registry is not what it was when the walk began.
  io_object_t next(io_iterator_t iterator);
  bool isValid(io_iterator_t iterator);
  // Begins the walk anew, over the registry as it is now.
  void reset(io_iterator_t iterator);
  // The entry behind a handle that the program gave to `call`; anything else is fatal.
  std::shared_ptr<const RegistryEntry> entry(io_object_t handle, const char* call) const;
  void release(io_object_t handle);

  void processEnded(Leaks& leaks) override;

 private:
  struct Iteration {
    std::shared_ptr<const RegistryEntry> from;
    std::vector<std::shared_ptr<const RegistryEntry>> entries;  // below it, in walking order
    std::size_t next = 0;
    std::uint64_t generation = 0;
  };
  struct Handle {
    std::shared_ptr<const RegistryEntry> entry;
    std::unique_ptr<Iteration> iteration;
  };

  io_object_t add(Handle handle);
  Handle& find(io_object_t handle, const char* call);
  Iteration& iteration(io_iterator_t iterator, const char* call);
  [[nodiscard]] std::vector<std::shared_ptr<const RegistryEntry>> below(const RegistryEntry& entry) const;

  std::map<std::uint32_t, std::shared_ptr<const RegistryEntry>> displays_;
  std::vector<std::shared_ptr<const RegistryEntry>> replaced_;
  bool isReplaced_ = false;
  std::uint64_t generation_ = 0;
  std::map<io_object_t, Handle> handles_;
  io_object_t nextHandle_ = 0x1003;
};

}  // namespace simulator
