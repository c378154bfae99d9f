// Code signing as the program meets it: the objects and calls of the Security framework.
#include <Security/Security.h>

#include <filesystem>
#include <optional>
#include <string>
#include <utility>

#include "simulator/foundation/Foundation.h"
#include "simulator/kernel/Call.h"
#include "simulator/software/Applications.h"
#include "simulator/software/CodeSignature.h"
#include "simulator/system/Files.h"

// Running code and code on disk are told apart by the path: running code is whatever runs.
struct __SecCode : simulator::Object {
  explicit __SecCode(std::optional<std::filesystem::path> place) : path(std::move(place)) {}
  std::string_view kind() const override { return path ? "SecStaticCode" : "SecCode"; }
  const std::optional<std::filesystem::path> path;
};

struct __SecRequirement : simulator::Object {
  explicit __SecRequirement(simulator::CodeRequirement required) : requirement(std::move(required)) {}
  std::string_view kind() const override { return "SecRequirement"; }
  const simulator::CodeRequirement requirement;
};

namespace simulator {
namespace {

// A call of this framework: told to fail, given wrong flags or nowhere to put its result, it ends with a status.
class SecurityCall : public Call {
 public:
  SecurityCall(const char* name, SecCSFlags flags, SecCSFlags allowed, const void* result) : Call(name) {
    if (const auto told = fault()) {
      status = *told;
      handsOver = result != nullptr && status != errSecSuccess;
    } else if ((flags & ~allowed) != 0) {
      status = errSecCSInvalidFlags;
    } else if (!result) {
      status = errSecCSObjectRequired;
    } else {
      handsOver = true;
    }
  }

  CodeStatus status = errSecSuccess;
  // Whether there is a result. That there is none after an error is promised nowhere, and by its type it can be null
  // without one.
  bool handsOver = false;

 private:
  MachineAtWork work_;
};

// Where the code is on disk: running code is where the program's file is by now.
std::filesystem::path placeOf(const __SecCode& code, const Machine& machine) {
  return code.path ? *code.path : machine.part<simulator::Applications>().runningBundle();
}

}  // namespace
}  // namespace simulator

using simulator::live;
using simulator::placeOf;
using simulator::SecurityCall;

extern "C" {

OSStatus SecCodeCopySelf(SecCSFlags flags, SecCodeRef* self) {
  const SecurityCall call("SecCodeCopySelf", flags, kSecCSDefaultFlags, self);
  if (call.handsOver) *self = new __SecCode(std::nullopt);
  return call.status;
}

OSStatus SecCodeCopyStaticCode(SecCodeRef code, SecCSFlags flags, SecStaticCodeRef* staticCode) {
  const SecurityCall call("SecCodeCopyStaticCode", flags, kSecCSDefaultFlags, staticCode);
  if (!call.handsOver) return call.status;
  *staticCode = new __SecCode(placeOf(live<__SecCode>(code, "SecCodeCopyStaticCode"), call.machine));
  return call.status;
}

OSStatus SecCodeCopyDesignatedRequirement(SecStaticCodeRef code, SecCSFlags flags, SecRequirementRef* requirement) {
  const SecurityCall call("SecCodeCopyDesignatedRequirement", flags, kSecCSDefaultFlags, requirement);
  if (!call.handsOver) return call.status;
  simulator::CodeRequirement designated;
  const std::filesystem::path path = placeOf(live<__SecCode>(code, "SecCodeCopyDesignatedRequirement"), call.machine);
  const simulator::CodeStatus status = simulator::Applications::signers().designatedRequirement(path, designated);
  if (status == errSecSuccess) *requirement = new __SecRequirement(designated);
  return call.status != errSecSuccess ? call.status : status;
}

OSStatus SecStaticCodeCreateWithPath(CFURLRef path, SecCSFlags flags, SecStaticCodeRef* staticCode) {
  const SecurityCall call("SecStaticCodeCreateWithPath", flags, kSecCSDefaultFlags, staticCode);
  if (!call.handsOver) return call.status;
  const auto place = simulator::filePath(live<__CFURL>(path, "SecStaticCodeCreateWithPath").text);
  if (!place) return errSecCSStaticCodeNotFound;
  const simulator::CodeStatus status = simulator::CodeSigners::find(*place);
  if (status == errSecSuccess) *staticCode = new __SecCode(std::filesystem::path(*place));
  return call.status != errSecSuccess ? call.status : status;
}

OSStatus SecStaticCodeCheckValidity(SecStaticCodeRef staticCode, SecCSFlags flags, SecRequirementRef requirement) {
  constexpr SecCSFlags known = kSecCSCheckAllArchitectures | kSecCSStrictValidate;
  const SecurityCall call("SecStaticCodeCheckValidity", flags, known, staticCode);
  if (call.status != errSecSuccess) return call.status;
  const std::filesystem::path path = placeOf(live<__SecCode>(staticCode, "SecStaticCodeCheckValidity"), call.machine);
  std::optional<simulator::CodeRequirement> required;
  if (requirement) required = live<__SecRequirement>(requirement, "SecStaticCodeCheckValidity").requirement;
  const simulator::CheckDepth depth{.strict = (flags & kSecCSStrictValidate) != 0,
                                    .allArchitectures = (flags & kSecCSCheckAllArchitectures) != 0};
  return simulator::Applications::signers().check(path, depth, required);
}

}  // extern "C"
