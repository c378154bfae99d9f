// A seat in front of a machine in this process: line by line, with a look at its files and its trace in between.
#pragma once

#include <cstdint>
#include <filesystem>
#include <initializer_list>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>
#include <vector>

#include "simulator/mac/Mac.h"
#include "simulator/mac/Scenario.h"

// Where tests of the updater have their image.
inline const std::string updateAddress = "https://downloads.dalvane.example/Dalvane-1.4.0.dmg";

class Seat {
 public:
  explicit Seat(std::uint64_t seed = 1, simulator::Clock clock = simulator::Clock::deterministic);
  Seat(simulator::Program program, std::uint64_t seed);

  // Carries scenario lines out.
  void play(std::string_view lines);
  // Lines that tests of the updater begin with: version 1.3.9 runs, 1.4.0 is published with that address, and its image
  // is as further members of the `image` line say ({{"signer", nullptr}}).
  void publishUpdate(const nlohmann::json& image = nlohmann::json::object(),
                     const std::string& address = updateAddress);
  // Launches the program and lets its first check take place.
  void launchAndCheck();

  // What has been recorded since the last call.
  std::vector<nlohmann::json> takeRecords();
  // The current snapshot, as the record has it.
  nlohmann::json snapshot();
  // The title of the update item, with " (disabled)" after it when it cannot be chosen.
  std::string updateItem();
  // A digest of every file, folder and link of the bundle at that place in the system; empty when there is none.
  std::string digestOf(const std::string& bundle);
  // The same of the installed bundle.
  std::string installedBundle();
  // True when nothing was left alive.
  bool shutDown() { return machine_.shutDown(); }

  simulator::Mac& machine() { return machine_; }

 private:
  std::vector<nlohmann::json> records_;
  simulator::Mac machine_;
  simulator::Scenario scenario_;
};

// Those of the records that are of one kind, and those that are calls of one function.
std::vector<nlohmann::json> recordsOf(const std::vector<nlohmann::json>& records, std::string_view what);
std::vector<nlohmann::json> callsOf(const std::vector<nlohmann::json>& records, std::string_view api);
// The texts that the updater logged at error level, and the alerts as "message: informative text".
std::vector<std::string> errorsIn(const std::vector<nlohmann::json>& records);
std::vector<std::string> alertsIn(const std::vector<nlohmann::json>& records);
