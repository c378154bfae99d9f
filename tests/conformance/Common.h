// What claims of several families need: folders and files, loadable libraries, and code signatures.
#pragma once

#include <CoreFoundation/CoreFoundation.h>
#include <Security/Security.h>
#include <dlfcn.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <system_error>

#include "platform/CF.h"

namespace claims {

// ---- Folders and files ----

// A folder that goes with its object.
class Folder {
 public:
  Folder() {
    std::string pattern = (std::filesystem::temp_directory_path() / "claims-XXXXXX").string();
    path_ = mkdtemp(pattern.data());
  }
  ~Folder() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  Folder(const Folder&) = delete;
  Folder& operator=(const Folder&) = delete;

  [[nodiscard]] std::filesystem::path operator/(const char* name) const { return path_ / name; }
  [[nodiscard]] const std::filesystem::path& path() const { return path_; }

 private:
  std::filesystem::path path_;
};

inline std::string contentOf(const std::filesystem::path& file) {
  std::ifstream stream(file);
  return {std::istreambuf_iterator<char>(stream), {}};
}

// ---- Loadable libraries ----

inline constexpr const char* ioKit = "/System/Library/Frameworks/IOKit.framework/IOKit";
inline constexpr const char* tcc = "/System/Library/PrivateFrameworks/TCC.framework/Versions/A/TCC";
inline constexpr const char* osd = "/System/Library/PrivateFrameworks/OSD.framework/OSD";

// A function of a loadable library, or null.
template <typename Function>
Function functionOf(const char* library, const char* name) {
  void* const handle = dlopen(library, RTLD_NOW);
  return handle ? reinterpret_cast<Function>(dlsym(handle, name)) : nullptr;
}

// TCCAccessPreflight.
using Preflight = long (*)(CFStringRef service, CFDictionaryRef options);

// ---- Code signatures ----

// The code of a bundle, and whether it has been found.
inline CF::Ref<SecStaticCodeRef> codeAt(const std::filesystem::path& bundle, OSStatus& status) {
  const std::string& path = bundle.native();
  const auto url = CF::adopt(CFURLCreateFromFileSystemRepresentation(
      kCFAllocatorDefault, reinterpret_cast<const UInt8*>(path.data()), static_cast<CFIndex>(path.size()), true));
  SecStaticCodeRef made = nullptr;
  status = SecStaticCodeCreateWithPath(url.get(), kSecCSDefaultFlags, &made);
  return CF::adopt(made);
}

// Whether its signature is valid, strictly and for all architectures, and satisfies the requirement, if there is one.
inline OSStatus validity(const std::filesystem::path& bundle, SecRequirementRef requirement = nullptr) {
  OSStatus status = errSecSuccess;
  const auto code = codeAt(bundle, status);
  if (status != errSecSuccess) return status;
  return SecStaticCodeCheckValidity(code.get(), kSecCSCheckAllArchitectures | kSecCSStrictValidate, requirement);
}

// Its designated requirement, and whether it states one.
inline CF::Ref<SecRequirementRef> requirementOf(const std::filesystem::path& bundle, OSStatus& status) {
  const auto code = codeAt(bundle, status);
  SecRequirementRef made = nullptr;
  if (status == errSecSuccess) status = SecCodeCopyDesignatedRequirement(code.get(), kSecCSDefaultFlags, &made);
  return CF::adopt(made);
}

}  // namespace claims
