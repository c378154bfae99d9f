// The preferences of the program: a property-list file that outlives its processes.
#pragma once

#include <CoreFoundation/CoreFoundation.h>

#include <filesystem>
#include <nlohmann/json.hpp>
#include <string>

#include "simulator/kernel/Part.h"

namespace simulator {

class Machine;

class Preferences : public Part {
 public:
  // Kept in a file of `folder`, which is made when it is needed.
  Preferences(Machine& machine, std::filesystem::path folder);

  // Null when there is none.
  [[nodiscard]] const nlohmann::json* value(const std::string& key) const;
  // Null removes it.
  void set(const std::string& key, nlohmann::json value);

  void addCommands(Commands& commands) override;
  void processEnded(Leaks& leaks) override;
  void snapshot(nlohmann::ordered_json& state) override;

 private:
  [[nodiscard]] std::filesystem::path file() const;
  void load();
  void save() const;

  Machine& machine_;
  const std::filesystem::path folder_;
  nlohmann::json values_ = nlohmann::json::object();
};

}  // namespace simulator
