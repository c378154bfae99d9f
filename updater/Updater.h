// Checks for updates and installs them.
#pragma once

#include <CoreFoundation/CoreFoundation.h>
#include <os/log.h>

#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <utility>
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

  // Checks 10 seconds from now, slept through or not, and then every six hours in which the Mac was awake. Of the
  // latter one that is due while a menu or an alert is open waits until it is closed.
  void start();
  // Ends the periodic check, not a first check that is still to come. What is under way ends without consequence. Safe
  // to call more than once.
  void stop();

  // Looks for a newer release; does nothing during a check or an install.
  void check();
  // Installs `release`, which a check has found and the user has seen, and relaunches. Another check that is under way
  // is forgotten. Does nothing before the first check or during an install.
  void install(Release release);

 private:
  // Numbers what is begun, so that the answer to something that is no longer waited for is known as such.
  using Task = std::uint64_t;

  void stopTimer();
  Task begin(State state);
  void setState(State state);
  void checked(Task task, const Outcome<Release>& latest);
  void installed(Task task, const Outcome<std::filesystem::path>& application);
  // Starts the shell process that reopens the application once this one has ended, and ends this one.
  static void relaunch(const std::filesystem::path& application);

  std::string currentVersion_;
  std::function<void()> onChange_;
  State state_ = Idle{};
  Task task_ = 0;  // the one that is waited for
  os_log_t logger_;
  CF::Ref<CFRunLoopTimerRef> timer_;
};
