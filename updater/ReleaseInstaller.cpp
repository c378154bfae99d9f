#include "updater/ReleaseInstaller.h"

#include <CoreFoundation/CoreFoundation.h>
#include <Security/Security.h>
#include <dispatch/dispatch.h>
#include <limits.h>

#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include "base/Assertions.h"
#include "platform/CF.h"
#include "platform/URLSession.h"
#include "platform/UUID.h"
#include "updater/ChildProcess.h"

namespace {

namespace fs = std::filesystem;

// The places that one install works in.
struct WorkingDirectory {
  fs::path path = fs::temp_directory_path() / ("dalvane-update-" + NS::UUID::make().UUIDString());
  fs::path mountPoint = path / "mnt";
  fs::path image = path / "Dalvane.dmg";
};

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

// Runs a program to its end; throws when it cannot be started or ends with a status other than 0.
void run(const std::string& executable, const std::vector<std::string>& arguments) {
  const int status = waitForExit(launch(executable, arguments));
  if (status == 0) return;
  throw AppError(fs::path(executable).filename().string() + " " + (arguments.empty() ? "" : arguments.front()) +
                 " exited with status " + std::to_string(status));
}

// A disk image attached at a mount point; detached at the end of the scope.
class AttachedImage {
 public:
  explicit AttachedImage(const WorkingDirectory& directory) : mountPoint_(directory.mountPoint) {
    run("/usr/bin/hdiutil",
        {"attach", directory.image, "-mountpoint", mountPoint_, "-nobrowse", "-readonly", "-quiet"});
  }
  AttachedImage(const AttachedImage&) = delete;
  AttachedImage& operator=(const AttachedImage&) = delete;
  ~AttachedImage() {
    static_cast<void>(attempt([this] {
      run("/usr/bin/hdiutil", {"detach", mountPoint_, "-force", "-quiet"});
      return true;
    }));
  }

  // The one application at the image's top level; throws when there is not exactly one.
  [[nodiscard]] fs::path application() const {
    std::vector<fs::path> applications;
    for (const fs::directory_entry& entry : fs::directory_iterator(mountPoint_)) {
      if (entry.path().extension() == ".app") applications.push_back(entry.path());
    }
    if (applications.size() != 1) {
      throw AppError("The update image should hold one app, it holds " + std::to_string(applications.size()));
    }
    return applications.front();
  }

 private:
  fs::path mountPoint_;
};

// Where the running application's bundle is.
fs::path installedApplication() {
  const CF::Ref<CFURLRef> url = CF::adopt(CFBundleCopyBundleURL(CFBundleGetMainBundle()));
  UInt8 path[PATH_MAX];
  if (!url || !CFURLGetFileSystemRepresentation(url.get(), true, path, sizeof path)) {
    fatalError("The main bundle has no location");
  }
  return reinterpret_cast<const char*>(path);
}

[[noreturn]] void fail(const std::string& what, OSStatus status) {
  throw AppError(what + " (" + std::to_string(status) + ")");
}

// Throws unless `application` is validly signed and satisfies the designated requirement of the copy that is running,
// which ties it to the same signer and the same bundle identifier.
void requireSameSigner(const fs::path& application) {
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
  const CF::Ref<SecRequirementRef> requirement = CF::adopt(designated);
  if (status != errSecSuccess || !requirement) fail("Reading this app's signing requirement failed", status);

  const std::string path = application.string();
  const CF::Ref<CFURLRef> url = CF::adopt(CFURLCreateFromFileSystemRepresentation(
      kCFAllocatorDefault, reinterpret_cast<const UInt8*>(path.data()), static_cast<CFIndex>(path.size()), true));
  SecStaticCodeRef candidate = nullptr;
  status = SecStaticCodeCreateWithPath(url.get(), kSecCSDefaultFlags, &candidate);
  const CF::Ref<SecStaticCodeRef> update = CF::adopt(candidate);
  if (status != errSecSuccess || !update) fail("Reading the update's signature failed", status);

  status =
      SecStaticCodeCheckValidity(update.get(), kSecCSCheckAllArchitectures | kSecCSStrictValidate, requirement.get());
  if (status != errSecSuccess) fail("The downloaded update is not signed by Tessbrook", status);
}

// Copies `application` over `installed`, which is kept beside its place until the copy has succeeded and put back when
// it fails.
void replace(const fs::path& installed, const fs::path& application) {
  fs::path backup = installed;
  backup += ".bak";
  fs::remove_all(backup);
  fs::rename(installed, backup);
  try {
    run("/usr/bin/ditto", {application, installed});
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
  requireSameSigner(application);
  fs::path installed = installedApplication();
  replace(installed, application);
  return installed;
}

}  // namespace

void ReleaseInstaller::install(const Release& release, std::function<void(Outcome<fs::path>)> completion) {
  const Outcome<WorkingDirectory> made = attempt([] {
    WorkingDirectory directory;
    fs::create_directories(directory.mountPoint);
    return directory;
  });
  if (const auto* error = std::get_if<AppError>(&made)) {
    completion(*error);
    return;
  }
  const auto handler = [directory = value(made), completion = std::move(completion)](
                           const std::string& location, const NS::URLResponse&, const NS::Error& error) {
    // The file is gone when this handler has returned, so it is moved here; what is left may block only elsewhere.
    const Outcome<fs::path> image = attempt([&] {
      if (error) throw AppError(error.localizedDescription());
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
