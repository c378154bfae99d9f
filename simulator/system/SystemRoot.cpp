#include "simulator/system/SystemRoot.h"

#include <ftw.h>
#include <unistd.h>

#include <cstdlib>
#include <system_error>

#include "simulator/kernel/Call.h"

namespace simulator {
namespace fs = std::filesystem;

namespace {

// What the build lays out of the system, as it lies on a Mac.
const fs::path& systemFolder() {
  static const fs::path folder = SIMULATED_SYSTEM;
  return folder;
}

// The names at its top.
const std::set<fs::path>& systemNames() {
  static const std::set<fs::path> names = [] {
    std::set<fs::path> found;
    for (const auto& entry : fs::directory_iterator(systemFolder())) found.insert(entry.path().filename());
    return found;
  }();
  return names;
}

}  // namespace

fs::path SystemRoot::parentFolder() {
  const fs::path memory = "/dev/shm";
  if (!std::getenv("TMPDIR") && access(memory.c_str(), W_OK | X_OK) == 0) return memory;
  // Paths are compared name by name, from the host's root.
  return fs::canonical(fs::temp_directory_path());
}

SystemRoot::SystemRoot(Machine& machine) {
  std::string pattern = (parentFolder() / "simulated-mac-XXXXXX").string();
  if (!mkdtemp(pattern.data())) throw std::system_error(errno, std::generic_category(), "mkdtemp " + pattern);
  path_ = pattern;
  for (const fs::path& name : systemNames()) fs::create_directory_symlink(systemFolder() / name, path_ / name);
  fs::path folder = path_;
  for (const fs::path& name : temporaryDirectory().lexically_relative(path_)) fs::create_directory(folder /= name);
  // It is told to programs in their environment.
  if (const char* const before = std::getenv("TMPDIR")) temporaryDirectoryBefore_ = before;
  setenv("TMPDIR", temporaryDirectory().c_str(), 1);
  machine.trace.setRoot(path_.string());
  machine.faults.declare({"dlopen", "dlsym", "objc_lookUpClass", "confstr"});
}

SystemRoot::~SystemRoot() {
  if (temporaryDirectoryBefore_) {
    setenv("TMPDIR", temporaryDirectoryBefore_->c_str(), 1);
  } else {
    unsetenv("TMPDIR");
  }
  runIsCutShort();
}

void SystemRoot::runIsCutShort() {
  // Half the work of std::filesystem::remove_all, which opens every folder twice.
  const auto removeOne = [](const char* path, const struct stat*, int kind, struct FTW*) {
    return kind == FTW_DP ? rmdir(path) : unlink(path);
  };
  constexpr int openFolders = 16;
  nftw(path_.c_str(), removeOne, openFolders, FTW_DEPTH | FTW_PHYS);
}

fs::path SystemRoot::temporaryDirectory() const { return below("/var/folders/zz/zyxvpxvq6csfxvn_n00000/T"); }

fs::path SystemRoot::below(std::string_view path) const { return path_ / fs::path(path).relative_path(); }

bool SystemRoot::isSystem(const fs::path& path) const {
  const fs::path relative = path.lexically_normal().lexically_relative(path_);
  return !relative.empty() && systemNames().contains(*relative.begin());
}

fs::path SystemRoot::onHost(std::string_view path) const {
  const fs::path here = below(path);
  return isSystem(here) && fs::exists(here) ? systemFolder() / fs::path(path).relative_path() : here;
}

bool SystemRoot::removeLibrary(std::string_view library) {
  // From now on this machine has links of its own to the single files.
  const fs::path libraries = below("/System");
  if (fs::is_symlink(libraries)) {
    fs::remove(libraries);
    fs::create_directory(libraries);
    for (const auto& entry : fs::recursive_directory_iterator(systemFolder() / "System")) {
      const fs::path own = path_ / entry.path().lexically_relative(systemFolder());
      entry.is_directory() ? static_cast<void>(fs::create_directory(own)) : fs::create_symlink(entry.path(), own);
    }
  }
  for (const auto& entry : fs::recursive_directory_iterator(libraries)) {
    // Each lies in a framework, and is named as that is.
    if (entry.is_directory()) continue;
    const std::string name = entry.path().filename();
    fs::path framework = "/" / entry.path().lexically_relative(path_);
    while (framework.extension() != ".framework") framework = framework.parent_path();
    if (library == name || library == framework.filename().string() || library == framework.string() ||
        (library.starts_with(framework.string() + "/") && library.ends_with("/" + name))) {
      return fs::remove(entry.path());
    }
  }
  return false;
}

}  // namespace simulator

// ---- The user's own folders ----

extern "C" {

std::size_t __real_confstr(int name, char* buffer, std::size_t size);
std::size_t __wrap_confstr(int name, char* buffer, std::size_t size);

static std::size_t temporaryDirectoryOf(char* buffer, std::size_t size) {
  const simulator::Call call("confstr");
  const auto told = call.fault();
  if (told && *told != ERANGE) {
    errno = *told;
    return 0;
  }
  std::string path = call.part<simulator::SystemRoot>().temporaryDirectory().string() + "/";
  if (told) path.append(size, '/');  // the same place, but in too many words
  if (size > 0) buffer[path.copy(buffer, size - 1)] = '\0';
  return path.size() + 1;
}

// The thread sanitizer's runtime asks for the C library's version before it can watch any code.
__attribute__((disable_sanitizer_instrumentation)) std::size_t __wrap_confstr(int name, char* buffer,
                                                                              std::size_t size) {
  return name == _CS_DARWIN_USER_TEMP_DIR ? temporaryDirectoryOf(buffer, size) : __real_confstr(name, buffer, size);
}

}  // extern "C"
