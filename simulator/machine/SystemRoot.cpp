#include "simulator/machine/SystemRoot.h"

#include <unistd.h>

#include <cstdlib>
#include <system_error>

#include "simulator/machine/Machine.h"
#include "simulator/services/Files.h"

namespace simulator {
namespace fs = std::filesystem;

namespace {

// Where the folder is made: in memory where the host has such a place, since it lives as long as the machine, unless
// the user of the host wants it elsewhere.
fs::path parentFolder() {
  const fs::path memory = "/dev/shm";
  if (!std::getenv("TMPDIR") && access(memory.c_str(), W_OK | X_OK) == 0) return memory;
  // Paths are compared name by name, from the host's root.
  return fs::canonical(fs::temp_directory_path());
}

}  // namespace

SystemRoot::SystemRoot() {
  std::string pattern = (parentFolder() / "dalvane-mac-XXXXXX").string();
  if (!mkdtemp(pattern.data())) throw std::system_error(errno, std::generic_category(), "mkdtemp " + pattern);
  path_ = pattern;
  // The build lays the system's files out below SIMULATED_SYSTEM as they lie on a Mac; each machine gets its own
  // links, so that one of them can be removed.
  const fs::path system = SIMULATED_SYSTEM;
  for (const auto& entry : fs::recursive_directory_iterator(system)) {
    const fs::path link = path_ / fs::relative(entry.path(), system);
    if (entry.is_directory()) {
      fs::create_directories(link);
    } else {
      fs::create_symlink(entry.path(), link);
    }
  }
}

SystemRoot::~SystemRoot() { remove(); }

void SystemRoot::remove() const {
  std::error_code ignored;
  const MachineAtWork work;
  fs::remove_all(path_, ignored);
}

fs::path SystemRoot::below(std::string_view path) const { return path_ / fs::path(path).relative_path(); }

bool SystemRoot::removeLibrary(std::string_view library) {
  if (library.starts_with('/')) return fs::remove(below(library));
  for (const auto& entry : fs::recursive_directory_iterator(path_)) {
    if (entry.is_directory()) continue;
    const fs::path& path = entry.path();
    // "OSD", "OSD.framework" and "TCC.framework" name the library as well as its full path does.
    const std::string name(library.ends_with(".framework") ? library.substr(0, library.size() - 10) : library);
    if (path.filename() == name && path.string().find(name + ".framework/") != std::string::npos) {
      return fs::remove(path);
    }
  }
  return false;
}

}  // namespace simulator
