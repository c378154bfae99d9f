#include "simulator/privacy/AudioCapture.h"

#include <Block.h>
#include <dispatch/dispatch.h>

#include <map>
#include <string>
#include <utility>

#include "simulator/foundation/CoreFoundation.h"
#include "simulator/foundation/Dispatch.h"
#include "simulator/kernel/Call.h"
#include "simulator/kernel/Commands.h"

namespace simulator {
namespace {

constexpr const char* preflightCall = "TCCAccessPreflight";
constexpr const char* requestCall = "TCCAccessRequest";

// How long the user thinks.
constexpr Duration userReads = std::chrono::seconds(1);

void requireAudioCapture(CFStringRef service, const char* call) {
  const std::string& name = textOf(service, call);
  if (name != "kTCCServiceAudioCapture") fatal(std::string(call) + ": the service \"" + name + "\" is not simulated");
}

}  // namespace

AudioCapture::AudioCapture(Machine& machine, Dispatch& dispatch) : machine_(machine), dispatch_(dispatch) {
  machine.faults.declare({preflightCall, requestCall});
}

long AudioCapture::preflight(CFStringRef service) {
  requireAudioCapture(service, preflightCall);
  return static_cast<long>(permission_);
}

void AudioCapture::request(CFStringRef service, Completion completion) {
  requireAudioCapture(service, requestCall);
  if (permission_ != Permission::undetermined) return tell(Block_copy(completion), isAuthorized());
  waiting_.push_back(Block_copy(completion));
  if (waiting_.size() > 1) return;
  machine_.trace.record("prompt").text("for", "capture");
  prompt_ = machine_.scheduler.after(userReads, Waiting::work, [this] { userAnswers(); });
}

void AudioCapture::refuse(Completion completion) { tell(Block_copy(completion), false); }

void AudioCapture::userAnswers() {
  prompt_.reset();
  permission_ = answer_ ? Permission::authorized : Permission::denied;
  for (const Completion completion : std::exchange(waiting_, {})) tell(completion, answer_);
}

// Takes over `completion`.
void AudioCapture::tell(Completion completion, bool granted) {
  dispatch_.submit(*dispatch_get_global_queue(QOS_CLASS_DEFAULT, 0), Block_copy(^{
    completion(granted);
  }));
  Block_release(completion);  // the block above has its own reference
}

void AudioCapture::addCommands(Commands& commands) {
  commands.add("capture", [this](Arguments& line) -> Action {
    static const std::map<std::string, Permission> permissions = {
        {"authorized", Permission::authorized},
        {"denied", Permission::denied},
        {"undetermined", Permission::undetermined},
    };
    std::optional<Permission> permission;
    if (line.has("permission")) {
      const auto found = permissions.find(line.text("permission"));
      if (found == permissions.end()) {
        line.fail("member \"permission\" must be \"authorized\", \"denied\" or \"undetermined\"");
      }
      permission = found->second;
    }
    const bool answer = line.flag("answer", true);
    return [this, permission, answer] {
      const Scheduler::Lock lock(machine_.scheduler);
      permission_ = permission.value_or(permission_);
      answer_ = answer;
    };
  });
}

void AudioCapture::processEnded(Leaks&) {
  // The question goes from the screen with the process that asked it.
  if (prompt_) machine_.scheduler.cancel(*std::exchange(prompt_, std::nullopt));
  for (const Completion completion : std::exchange(waiting_, {})) Block_release(completion);
}

long tccAccessPreflight(CFStringRef service, CFDictionaryRef) {
  const Call call(preflightCall);
  const auto fault = call.fault();
  const long result = fault ? *fault : call.part<simulator::AudioCapture>().preflight(service);
  call.machine.trace.call(preflightCall, result).text("service", textOf(service, preflightCall));
  return result;
}

void tccAccessRequest(CFStringRef service, CFDictionaryRef, void (^completion)(bool granted)) {
  const Call call(requestCall);
  const auto fault = call.fault();
  call.machine.trace.call(requestCall, fault.value_or(0)).text("service", textOf(service, requestCall));
  // A request that cannot be made is answered with a refusal, and nobody is asked.
  if (fault) return call.part<simulator::AudioCapture>().refuse(completion);
  call.part<simulator::AudioCapture>().request(service, completion);
}

}  // namespace simulator
