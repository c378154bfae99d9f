// The program's process: started, ended, and what it left behind.
#pragma once

#include <functional>
#include <map>
#include <string>
#include <utility>

#include "simulator/kernel/Part.h"
#include "simulator/kernel/Scheduler.h"

namespace simulator {

class Machine;

// The program that is installed on the machine.
struct Program {
  std::function<int()> main;
  std::string name;            // the bundle's, without its ending
  std::string identifier;      // CFBundleIdentifier
  std::string version;         // CFBundleShortVersionString
  std::string publisher = {};  // who signs it
  std::string feedURL = {};    // where its releases are published
};

class Process {
 public:
  Process(Machine& machine, Program program);

  [[nodiscard]] const Program& program() const { return program_; }
  [[nodiscard]] bool running() const { return running_; }
  [[nodiscard]] bool onMainThread() const;

  // Starts the program; nothing happens when it runs already.
  void launch();
  // Ends the process from one of its threads.
  [[noreturn]] void exit(int status);
  // Ends it from outside, as pulling the plug does.
  void kill();

  // What the program says of itself before it stops itself, and how it is found when it does.
  void setLastWords(std::string words) { lastWords_ = std::move(words); }
  [[nodiscard]] const std::string& lastWords() const { return lastWords_; }

  // What processes that have ended left alive.
  [[nodiscard]] const Leaks& leaks() const { return leaks_; }

 private:
  void end();
  void cleanUp();

  Machine& machine_;
  Program program_;
  bool running_ = false;
  bool ending_ = false;
  Scheduler::Thread* mainThread_ = nullptr;
  std::string lastWords_;
  Leaks leaks_;
};

}  // namespace simulator
