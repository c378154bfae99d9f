#include "updater/ReleaseInstaller.h"

#include <CoreFoundation/CoreFoundation.h>
#include <Security/Security.h>
#include <dispatch/dispatch.h>
#include <limits.h>
#include <strings.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include "platform/CF.h"
#include "platform/URLSession.h"
#include "platform/UUID.h"
#include "updater/ChildProcess.h"

namespace {

namespace fs = std::filesystem;

// The user's own temporary directory, which only the user can write to. It is the system that is asked: the environment
// may name any other, or none.
fs::path temporaryDirectory() {
  char path[PATH_MAX];
  const std::size_t size = confstr(_CS_DARWIN_USER_TEMP_DIR, path, sizeof path);
  if (size == 0 || size > sizeof path) throw AppError("There is no temporary directory");
  return path;
}

// The places that one install works in.
struct WorkingDirectory {
  fs::path path = temporaryDirectory() / ("dalvane-update-" + NS::UUID::make().UUIDString());
  fs::path mountPoint = path / "mnt";
  fs::path image = path / "Dalvane.dmg";
};

void requireHTTPS(const NS::URL& url) {
  if (strcasecmp(url.scheme().c_str(), "https") != 0) throw AppError("The update is not offered over HTTPS");
}

// Removes a directory at the end of the scope. Best effort: what stays is in the temporary directory.
class Removal {
 public:
  explicit Removal(fs::path directory) : directory_(std::move(directory)) {}
  Removal(const Removal&) = delete;
  Removal& operator=(const Removal&) = delete;
  ~Removal() {
    std::error_code ignored;
    fs::remove_all(directory_, ignored);
  }

 private:
  fs::path directory_;
};

// Throws when it cannot be made whole, and leaves nothing of it then.
WorkingDirectory makeWorkingDirectory() {
  WorkingDirectory directory;
  try {
    fs::create_directories(directory.mountPoint);
  } catch (...) {
    const Removal removal(directory.path);
    throw;
  }
  return directory;
}

void requireSuccess(const std::string& executable, const std::vector<std::string>& arguments, int status) {
  if (status == 0) return;
  throw AppError(fs::path(executable).filename().string() + " " + (arguments.empty() ? "" : arguments.front()) +
                 " exited with status " + std::to_string(status));
}

// Runs a program to its end; throws when it cannot be started or ends with a status other than 0.
void run(const std::string& executable, const std::vector<std::string>& arguments) {
  requireSuccess(executable, arguments, waitForExit(launch(executable, arguments)));
}

constexpr const char* hdiutil = "/usr/bin/hdiutil";

// A disk image attached at a mount point; detached at the end of the scope.
class AttachedImage {
 public:
  explicit AttachedImage(const WorkingDirectory& directory) : mountPoint_(directory.mountPoint) {
    const std::vector<std::string> arguments{"attach",    directory.image, "-mountpoint", mountPoint_,
                                             "-nobrowse", "-readonly",     "-quiet"};
    const pid_t attaching = launch(hdiutil, arguments);
    int status = 0;
    try {
      status = waitForExit(attaching);
    } catch (...) {
      detach();  // what has become of it is not known
      throw;
    }
    requireSuccess(hdiutil, arguments, status);
  }
  AttachedImage(const AttachedImage&) = delete;
  AttachedImage& operator=(const AttachedImage&) = delete;
  ~AttachedImage() { detach(); }

  // The one application at the image's top level; throws when there is not exactly one.
  [[nodiscard]] fs::path application() const {
    std::vector<fs::path> applications;
    for (const fs::directory_entry& entry : fs::directory_iterator(mountPoint_)) {
      if (entry.path().extension() == ".app") applications.push_back(entry.path());
    }
    if (applications.size() != 1) {
      throw AppError("The update image should hold one app, it holds " + std::to_string(applications.size()));
    }
    // What a link leads to is not in the image, and could be changed between the check and the copy.
    if (!fs::is_directory(fs::symlink_status(applications.front()))) {
      throw AppError("The app in the update image is not a folder of its own");
    }
    return applications.front();
  }

 private:
  // Best effort: there is nothing else to try.
  void detach() const noexcept {
    static_cast<void>(attempt([this] { run(hdiutil, {"detach", mountPoint_, "-force", "-quiet"}); }));
  }

  fs::path mountPoint_;
};

// Where the running application's bundle is.
fs::path installedApplication() {
  const CF::Ref<CFURLRef> url = CF::adopt(CFBundleCopyBundleURL(CFBundleGetMainBundle()));
  UInt8 path[PATH_MAX];
  if (!url || !CFURLGetFileSystemRepresentation(url.get(), true, path, sizeof path)) {
    throw AppError("The system does not say where Dalvane is");
  }
  return reinterpret_cast<const char*>(path);
}

// Whether the user, or the volume, does not let what lies there be changed. What cannot be found out will be seen.
bool isLocked(const fs::path& path) {
  return access(path.c_str(), W_OK) == -1 && (errno == EACCES || errno == EPERM || errno == EROFS);
}

// Throws where a new version could not take the place of `application`: in its disk image, in a folder of somebody
// else's, and in the copy that macOS runs of an application that was opened where it was downloaded to, which is gone
// afterwards.
void requireReplaceable(const fs::path& application) {
  const bool isTranslocated = std::ranges::find(application, "AppTranslocation") != application.end();
  if (isTranslocated || isLocked(application.parent_path()) || isLocked(application)) {
    throw AppError("Dalvane cannot be updated where it is: it has to be moved to the Applications folder first");
  }
}

[[noreturn]] void fail(const std::string& what, OSStatus status) {
  throw AppError(what + " (" + std::to_string(status) + ")");
}

// The designated requirement of the copy that is running, which names its signer and its bundle identifier.
CF::Ref<SecRequirementRef> ownRequirement() {
  SecCodeRef code = nullptr;
  OSStatus status = SecCodeCopySelf(kSecCSDefaultFlags, &code);
  const CF::Ref<SecCodeRef> self = CF::adopt(code);
  if (status != errSecSuccess || !self) fail("Reading this app's signature failed", status);

  SecStaticCodeRef onDisk = nullptr;
  status = SecCodeCopyStaticCode(self.get(), kSecCSDefaultFlags, &onDisk);
  const CF::Ref<SecStaticCodeRef> installed = CF::adopt(onDisk);
  if (status != errSecSuccess || !installed) fail("Reading this app's signature failed", status);

  SecRequirementRef designated = nullptr;
  status = SecCodeCopyDesignatedRequirement(installed.get(), kSecCSDefaultFlags, &designated);
  CF::Ref<SecRequirementRef> requirement = CF::adopt(designated);
  if (status != errSecSuccess || !requirement) fail("Reading this app's signing requirement failed", status);
  return requirement;
}

// What the Security framework answers about an application, and at which step it went wrong; null: nowhere.
struct Finding {
  const char* failure;
  OSStatus status;
};

// Whether `application` is validly signed and satisfies `requirement`.
Finding examine(const fs::path& application, SecRequirementRef requirement) {
  const std::string path = application.string();
  const CF::Ref<CFURLRef> url = CF::adopt(CFURLCreateFromFileSystemRepresentation(
      kCFAllocatorDefault, reinterpret_cast<const UInt8*>(path.data()), static_cast<CFIndex>(path.size()), true));
  if (!url) throw AppError("Reading the update's signature failed");
  SecStaticCodeRef candidate = nullptr;
  OSStatus status = SecStaticCodeCreateWithPath(url.get(), kSecCSDefaultFlags, &candidate);
  const CF::Ref<SecStaticCodeRef> update = CF::adopt(candidate);
  if (status != errSecSuccess || !update) return {"Reading the update's signature failed", status};

  status = SecStaticCodeCheckValidity(update.get(), kSecCSCheckAllArchitectures | kSecCSStrictValidate, requirement);
  return {status == errSecSuccess ? nullptr : "The downloaded update is not signed by Tessbrook", status};
}

void requireSigned(const fs::path& application, SecRequirementRef requirement) {
  const auto [failure, status] = examine(application, requirement);
  if (failure) fail(failure, status);
}

// Whether a status tells that the code is not as it was signed, and not that it could not be looked at. Those of failed
// system calls are positive.
bool isVerdict(OSStatus status) {
  constexpr std::array<OSStatus, 5> failures = {errSecIO, errSecAllocate, errSecInternalComponent,
                                                errSecCSSignatureNotVerifiable, errSecCSInternalError};
  return status < errSecSuccess && std::ranges::find(failures, status) == failures.end();
}

// Whether `application` is a copy of ours in which nothing is missing or changed. Throws when that cannot be found out:
// what is not whole is removed.
bool isWhole(const fs::path& application, SecRequirementRef requirement) {
  const auto [failure, status] = examine(application, requirement);
  if (failure && !isVerdict(status)) fail("Reading this app's signature failed", status);
  return !failure;
}

bool isThere(const fs::path& path) { return fs::exists(fs::symlink_status(path)); }

// Does away with a backup that an earlier install has left. If that install was cut short, or could not put the backup
// back, the backup may be the last whole copy: then it takes its place again.
void clearBackup(const fs::path& backup, const fs::path& installed, SecRequirementRef requirement) {
  if (!isThere(backup)) return;
  if (isThere(installed) && (isWhole(installed, requirement) || !isWhole(backup, requirement))) {
    fs::remove_all(backup);
    return;
  }
  fs::remove_all(installed);
  fs::rename(backup, installed);
}

// Copies `application` over `installed`, which is kept beside its place until the copy has succeeded and has been found
// to be signed as the application was, and put back when it fails.
void replace(const fs::path& installed, const fs::path& application, SecRequirementRef requirement) {
  fs::path backup = installed;
  backup += ".bak";
  clearBackup(backup, installed, requirement);
  fs::rename(installed, backup);
  try {
    run("/usr/bin/ditto", {application, installed});
    requireSigned(installed, requirement);
  } catch (...) {
    fs::remove_all(installed);
    fs::rename(backup, installed);
    throw;
  }
  fs::remove_all(backup);
}

// The part after the download, which blocks. `image` is where the image was put, or why it could not be.
fs::path installImage(const WorkingDirectory& directory, const Outcome<fs::path>& image) {
  const Removal removal(directory.path);
  static_cast<void>(value(image));
  const AttachedImage attached(directory);
  const fs::path application = attached.application();
  const CF::Ref<SecRequirementRef> requirement = ownRequirement();
  requireSigned(application, requirement.get());
  fs::path installed = installedApplication();
  replace(installed, application, requirement.get());
  return installed;
}

}  // namespace

void ReleaseInstaller::install(const Release& release, std::function<void(Outcome<fs::path>)> completion) {
  const Outcome<WorkingDirectory> made = attempt([&] {
    requireReplaceable(installedApplication());
    requireHTTPS(release.dmgURL);
    return makeWorkingDirectory();
  });
  if (const auto* error = std::get_if<AppError>(&made)) {
    completion(*error);
    return;
  }
  const auto handler = [directory = value(made), completion = std::move(completion)](
                           const std::string& location, const NS::URLResponse& response, const NS::Error& error) {
    // The file is gone when this handler has returned, so it is moved here; what is left may block only elsewhere.
    const Outcome<fs::path> image = attempt([&] {
      if (error) throw AppError(error.localizedDescription());
      // To a host of the local network the system follows a redirect also without TLS.
      requireHTTPS(response.URL());
      fs::rename(location, directory.image);
      return directory.image;
    });
    // The block keeps copies; of what the handler has captured it would only keep the handler's address.
    const WorkingDirectory places = directory;  // NOLINT(performance-unnecessary-copy-initialization)
    const std::function<void(Outcome<fs::path>)> report = completion;
    dispatch_async(dispatch_get_global_queue(QOS_CLASS_UTILITY, 0), ^{
      report(attempt([&] { return installImage(places, image); }));
    });
  };
  NS::URLSession::sharedSession().downloadTaskWithURL(release.dmgURL, handler).resume();
}
