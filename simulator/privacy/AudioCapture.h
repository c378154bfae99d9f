// The user's consent to recording the system's audio. Programs reach it through the private consent library.
#pragma once

#include <CoreFoundation/CoreFoundation.h>

#include <optional>
#include <vector>

#include "simulator/kernel/Part.h"
#include "simulator/kernel/Scheduler.h"

namespace simulator {

class Machine;
class Dispatch;

class AudioCapture : public Part {
 public:
  AudioCapture(Machine& machine, Dispatch& dispatch);

  [[nodiscard]] bool isAuthorized() const { return permission_ == Permission::authorized; }

  // 0: authorized, 1: denied, 2: the user has not been asked.
  long preflight(CFStringRef service);
  // Asks the user, if that is open, and tells `completion` on a thread of its own. Questions that are asked while one
  // is on the screen share its answer.
  void request(CFStringRef service, void (^completion)(bool granted));
  // Tells `completion` that access is not granted, without asking.
  void refuse(void (^completion)(bool granted));

  void addCommands(Commands& commands) override;
  void processEnded(Leaks& leaks) override;

 private:
  enum class Permission { authorized, denied, undetermined };
  using Completion = void (^)(bool granted);

  void tell(Completion completion, bool granted);
  void userAnswers();

  Machine& machine_;
  Dispatch& dispatch_;
  Permission permission_ = Permission::authorized;
  bool answer_ = true;                        // what the user will say
  std::vector<Completion> waiting_;           // for the user's answer; copied
  std::optional<Scheduler::TimerID> prompt_;  // while the user is asked
};

// What the consent library's functions do.
long tccAccessPreflight(CFStringRef service, CFDictionaryRef options);
void tccAccessRequest(CFStringRef service, CFDictionaryRef options, void (^completion)(bool granted));

}  // namespace simulator
