// The program's changes to files. The C++ library makes them through functions of the C library, which are the
// machine's here: a program's own definitions go before those of shared libraries. They are recorded, can be told to
// fail, find attached images read-only, and do nothing once the process has ended.
#include "simulator/system/Files.h"

#include <fcntl.h>
#include <stdio.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <filesystem>
#include <initializer_list>
#include <string>
#include <utility>

#include "simulator/kernel/Call.h"
#include "simulator/system/SystemRoot.h"
#include "simulator/system/Volumes.h"

namespace fs = std::filesystem;

namespace simulator {

thread_local int MachineAtWork::depth_ = 0;

void declareFileFaults(Faults& faults) {
  faults.declare({"rename", "remove", "remove_all", "create_directories", "directory_iterator", "access"});
}

}  // namespace simulator

namespace {

using simulator::Call;
using simulator::Scheduler;

// Whether the call comes from the program: the machine uses the same functions.
bool fromProgram() { return Scheduler::current() && Call::isPossible() && !simulator::MachineAtWork::here(); }

bool isBelow(const fs::path& path, const fs::path& folder) {
  const fs::path normal = path.lexically_normal();
  return std::mismatch(folder.begin(), folder.end(), normal.begin(), normal.end()).first == folder.end();
}

// What stands against a change of `path`, if anything: the errno that the system would answer.
int obstacle(const Call& call, const fs::path& path) {
  if (call.machine.scheduler.ending()) return EIO;
  const simulator::MachineAtWork work;
  const auto& root = call.part<simulator::SystemRoot>();
  if (root.isSystem(path)) return EPERM;
  for (const fs::path& point : simulator::Volumes(root.path()).mountPoints()) {
    if (isBelow(path, point)) return path.lexically_normal() == point ? EBUSY : EROFS;
    if (isBelow(point, path)) return EBUSY;
  }
  return 0;
}

bool isMountPoint(const Call& call, const fs::path& path) {
  const simulator::MachineAtWork work;
  return std::ranges::any_of(simulator::Volumes(call.part<simulator::SystemRoot>().path()).mountPoints(),
                             [&](const fs::path& point) { return path.lexically_normal() == point; });
}

// What the call has been told to fail with, or else what stands against it.
int errorOf(const Call& call, std::initializer_list<const char*> changed) {
  int error = call.fault().value_or(0);
  for (const char* const path : changed) {
    if (error == 0) error = obstacle(call, path);
  }
  return error;
}

// The end of a C function.
int ended(int error) {
  if (error == 0) return 0;
  errno = error;
  return -1;
}

// What std::filesystem::remove_all is removing on this thread. It opens the path, empties what it opened if that is a
// folder, and removes the path itself; no other thread may be chosen meanwhile.
thread_local std::string removing;

// One step of it, by the result of its C function. The record is written with the last one, or the one that fails.
int afterStep(int result, bool isLast) {
  const int error = result == -1 ? errno : 0;
  if (isLast || error != 0) {
    simulator::Machine& machine = Call::unguarded();
    const Scheduler::Lock lock(machine.scheduler);
    machine.trace.call("remove_all", error).text("path", std::exchange(removing, ""));
  }
  return ended(error) == 0 ? result : -1;
}

int realOpenat(int folder, const char* path, int flags, mode_t mode) {
  return static_cast<int>(syscall(SYS_openat, folder, path, flags, mode));
}

int realRemove(const char* path) {
  const int result = unlink(path);
  return result == -1 && errno == EISDIR ? rmdir(path) : result;
}

int beginRemoving(const char* path, int flags) {
  const Call call("remove_all");
  removing.clear();
  // Removing what is not there changes nothing and always succeeds.
  if (!fs::exists(fs::symlink_status(path)) && !call.machine.scheduler.ending()) return ended(ENOENT);
  removing = path;
  if (const int error = errorOf(call, {path})) return afterStep(ended(error), true);
  const int opened = realOpenat(AT_FDCWD, path, flags, 0);
  return opened == -1 && (errno == ENOTDIR || errno == ELOOP) ? -1 : afterStep(opened, false);
}

}  // namespace

extern "C" {

int rename(const char* from, const char* to) noexcept {
  if (!fromProgram()) return renameat(AT_FDCWD, from, AT_FDCWD, to);
  const Call call("rename");
  int error = errorOf(call, {from, to});
  if (error == 0 && renameat(AT_FDCWD, from, AT_FDCWD, to) == -1) error = errno;
  call.machine.trace.call("rename", error).text("from", from).text("to", to);
  return ended(error);
}

// It is the Mac's rules that decide, not what the host lets its user do.
int access(const char* path, int mode) noexcept {
  if (!fromProgram()) return faccessat(AT_FDCWD, path, mode, 0);
  const Call call("access");
  int error = call.fault().value_or(0);
  if (error == 0 && (mode & W_OK) != 0) error = obstacle(call, path);
  if (error == EBUSY) error = isMountPoint(call, path) ? EROFS : 0;
  if (error == 0 && faccessat(AT_FDCWD, path, mode, 0) == -1) error = errno;
  return ended(error);
}

int mkdir(const char* path, mode_t mode) noexcept {
  if (!fromProgram()) return mkdirat(AT_FDCWD, path, mode);
  const Call call("create_directories");
  if (const int error = errorOf(call, {path})) return ended(error);
  return mkdirat(AT_FDCWD, path, mode);
}

// A folder is opened to be listed or, where a link must not be followed, to be removed.
int openat(int folder, const char* path, int flags, ...) {
  va_list more;
  va_start(more, flags);
  const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(more, mode_t) : 0;
  va_end(more);
  if (folder != AT_FDCWD || (flags & O_DIRECTORY) == 0 || !fromProgram()) return realOpenat(folder, path, flags, mode);
  if ((flags & O_NOFOLLOW) != 0) return beginRemoving(path, flags);
  const Call call("directory_iterator");
  if (const auto told = call.fault()) return ended(*told);
  return realOpenat(folder, path, flags, mode);
}

int unlinkat(int folder, const char* name, int flags) noexcept {
  const bool removes = fromProgram() && !removing.empty();
  if (removes && Call::unguarded().scheduler.ending()) return afterStep(ended(EIO), false);
  const int result = static_cast<int>(syscall(SYS_unlinkat, folder, name, flags));
  return removes ? afterStep(result, false) : result;
}

int remove(const char* path) noexcept {
  if (!fromProgram()) return realRemove(path);
  if (removing == path) return afterStep(realRemove(path), true);
  const Call call("remove");
  int error = errorOf(call, {path});
  if (error == 0 && realRemove(path) == -1) error = errno;
  call.machine.trace.call("remove", error).text("path", path);
  return ended(error);
}

}  // extern "C"
