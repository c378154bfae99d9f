// Scenario files, played on a machine.
#pragma once

#include <filesystem>
#include <functional>
#include <istream>
#include <string>
#include <vector>

#include "simulator/kernel/Commands.h"

namespace simulator {

class Mac;

class Scenario {
 public:
  // Reads against the vocabulary of `mac`'s parts.
  explicit Scenario(Mac& mac);

  // Adds a file's lines, whose paths begin where it is; all of them are read before any is carried out. Throws
  // ScenarioError, its text beginning with "FILE:LINE: ", at a line that cannot be understood, or when there is no such
  // file.
  void addFile(const std::string& path);
  void add(std::istream& lines, const std::string& name, const std::filesystem::path& folder = {});

  // Carries the lines out in their order. After each, everything runs that is ready at that instant; lines that race
  // happen meanwhile, and at the latest before the next line that is not about time. `afterEach` is called when all has
  // run that a line and those that race with it made ready, with how many lines that were; it answers whether to go on.
  void play(const std::function<bool(std::size_t lines)>& afterEach = {});

  // From now on lines that make no sense where they stand are left out.
  void forgive() { forgives_ = true; }

  // Carries a single line out. Its paths begin in the working directory.
  void perform(const std::string& line);

 private:
  struct Step {
    std::string where;
    std::string line;
    Line parsed;
  };

  [[nodiscard]] Step stepOf(const std::string& where, const std::string& line,
                            const std::filesystem::path& folder) const;
  void begin(const Step& step);
  void carryOut(const Step& step);
  // Lets everything run that is ready, and tells of a mistake that shows in it.
  void finish(const Step& step);

  Mac& mac_;
  Commands commands_;
  std::vector<Step> steps_;
  bool forgives_ = false;
};

}  // namespace simulator
