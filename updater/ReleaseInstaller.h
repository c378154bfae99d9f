// Replaces the installed application by a release.
#pragma once

#include <filesystem>
#include <functional>

#include "updater/Outcome.h"
#include "updater/Release.h"

// A namespace without instances.
class ReleaseInstaller {
 public:
  ReleaseInstaller() = delete;

  // Fails at once where the running application's bundle cannot be replaced. Otherwise:
  // Downloads the release's disk image over HTTPS, mounts it, requires the one application in it to satisfy the running
  // application's designated requirement, puts it in the running application's place, and requires the same of the
  // copy. `completion` gets the installed application's location or the error, once, on the caller's thread or a
  // background queue. By then the image is detached and the working directory gone. After an error the installed
  // application is the old one, except when only the removal of its backup failed, or when putting it back did: the
  // backup then stays beside its place, and the next install begins with putting it back.
  static void install(const Release& release, std::function<void(Outcome<std::filesystem::path>)> completion);
};
