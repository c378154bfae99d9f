// Checks for updates and installs them.
#pragma once

#include <CoreFoundation/CoreFoundation.h>
#include <os/log.h>

#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <variant>

#include "platform/CF.h"
#include "updater/Outcome.h"
#include "updater/Release.h"

// Owns the periodic check and the state that the status menu shows. Main thread only. Made with std::make_shared.
class Updater : public std::enable_shared_from_this<Updater> {
 public:
  struct Idle {};      // nothing has happened yet
  struct Checking {};  // a check is running
  struct UpToDate {};  // the last check found no newer release
  struct Available {   // the last check found this newer release
    Release release;
  };
  struct Installing {};  // an install is running
  struct Failed {        // the last check or install failed
    std::string description;
  };
  using State = std::variant<Idle, Checking, UpToDate, Available, Installing, Failed>;

  // Reads the running version; a bundle without one stops the program.
  Updater();
  Updater(const Updater&) = delete;
  Updater& operator=(const Updater&) = delete;
  ~Updater();

  [[nodiscard]] const std::string& currentVersion() const { return currentVersion_; }
  [[nodiscard]] const State& state() const { return state_; }
  // Called after every change of the state.
  void setOnChange(std::function<void()> onChange) { onChange_ = std::move(onChange); }

  // Checks 10 seconds from now and then every six hours.
  void start();
  // Ends the periodic check, not a first check that is still to come. Safe to call more than once.
  void stop();

  // Looks for a newer release; does nothing during a check or an install.
  void check();
  // Installs the available release and relaunches; does nothing in any other state.
  void install();

 private:
  void setState(State state);
  void checked(const Outcome<Release>& latest);
  void installed(const Outcome<std::filesystem::path>& application);
  // Starts the shell process that reopens the application once this one has ended, and ends this one.
  static void relaunch(const std::filesystem::path& application);

  std::string currentVersion_;
  std::function<void()> onChange_;
  State state_ = Idle{};
  os_log_t logger_;
  CF::Ref<CFRunLoopTimerRef> timer_;
};
