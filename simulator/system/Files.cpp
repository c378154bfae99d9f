// The program's changes to files. The linker hands its calls of the C++ file operations to us: they are recorded, can
// be told to fail, find attached images read-only, and do nothing once the process has ended.
#include "simulator/system/Files.h"

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <initializer_list>
#include <string>
#include <system_error>

#include "simulator/kernel/Call.h"
#include "simulator/system/SystemRoot.h"
#include "simulator/system/Volumes.h"

namespace fs = std::filesystem;

// The names are those that the C++ library gives its functions.
void realRename(const fs::path& from, const fs::path& to) asm("__real__ZNSt10filesystem6renameERKNS_7__cxx114pathES3_");
void wrappedRename(const fs::path& from,
                   const fs::path& to) asm("__wrap__ZNSt10filesystem6renameERKNS_7__cxx114pathES3_");

std::uintmax_t realRemoveAll(const fs::path& path) asm("__real__ZNSt10filesystem10remove_allERKNS_7__cxx114pathE");
std::uintmax_t wrappedRemoveAll(const fs::path& path) asm("__wrap__ZNSt10filesystem10remove_allERKNS_7__cxx114pathE");

std::uintmax_t realRemoveAllOr(const fs::path& path, std::error_code& error) asm(
    "__real__ZNSt10filesystem10remove_allERKNS_7__cxx114pathERSt10error_code");
std::uintmax_t wrappedRemoveAllOr(const fs::path& path, std::error_code& error) asm(
    "__wrap__ZNSt10filesystem10remove_allERKNS_7__cxx114pathERSt10error_code");

bool realCreateDirectories(const fs::path& path) asm(
    "__real__ZNSt10filesystem18create_directoriesERKNS_7__cxx114pathE");
bool wrappedCreateDirectories(const fs::path& path) asm(
    "__wrap__ZNSt10filesystem18create_directoriesERKNS_7__cxx114pathE");

// The constructor that lists a directory; it throws when `error` is null. Compilers call it under either of two names.
#define LISTING_CONSTRUCTOR(which) \
  "_ZNSt10filesystem7__cxx1118directory_iterator" which "ERKNS0_4pathENS_17directory_optionsEPSt10error_code"
void realList(fs::directory_iterator* self, const fs::path& path, fs::directory_options options,
              std::error_code* error) asm("__real_" LISTING_CONSTRUCTOR("C1"));
void wrappedList1(fs::directory_iterator* self, const fs::path& path, fs::directory_options options,
                  std::error_code* error) asm("__wrap_" LISTING_CONSTRUCTOR("C1"));
void wrappedList2(fs::directory_iterator* self, const fs::path& path, fs::directory_options options,
                  std::error_code* error) asm("__wrap_" LISTING_CONSTRUCTOR("C2"));

namespace simulator {

thread_local int MachineAtWork::depth_ = 0;

void declareFileFaults(Faults& faults) {
  faults.declare({"rename", "remove_all", "create_directories", "directory_iterator"});
}

}  // namespace simulator

namespace {

using simulator::Call;
using simulator::Machine;
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
  for (const fs::path& point : simulator::Volumes(call.part<simulator::SystemRoot>().path()).mountPoints()) {
    if (isBelow(path, point)) return path.lexically_normal() == point ? EBUSY : EROFS;
    if (isBelow(point, path)) return EBUSY;
  }
  return 0;
}

// What the call has been told to fail with, or else what stands against it.
std::error_code errorOf(const Call& call, std::initializer_list<fs::path> changed) {
  int number = call.fault().value_or(0);
  for (const fs::path& path : changed) {
    if (number == 0) number = obstacle(call, path);
  }
  return {number, std::system_category()};
}

}  // namespace

void wrappedRename(const fs::path& from, const fs::path& to) {
  if (!fromProgram()) return realRename(from, to);
  const Call call("rename");
  std::error_code error = errorOf(call, {from, to});
  if (!error) {
    const simulator::MachineAtWork work;
    fs::rename(from, to, error);
  }
  call.machine.trace.call("rename", error.value()).text("from", from.string()).text("to", to.string());
  if (error) throw fs::filesystem_error("cannot rename", from, to, error);
}

std::uintmax_t wrappedRemoveAllOr(const fs::path& path, std::error_code& error) {
  if (!fromProgram()) return realRemoveAllOr(path, error);
  const Call call("remove_all");
  std::uintmax_t count = 0;
  error.clear();
  // Removing what is not there changes nothing and always succeeds.
  if (!fs::exists(fs::symlink_status(path)) && !call.machine.scheduler.ending()) return 0;
  error = errorOf(call, {path});
  if (!error) {
    const simulator::MachineAtWork work;
    count = realRemoveAllOr(path, error);
  }
  call.machine.trace.call("remove_all", error.value()).text("path", path.string());
  return error ? static_cast<std::uintmax_t>(-1) : count;
}

std::uintmax_t wrappedRemoveAll(const fs::path& path) {
  if (!fromProgram()) return realRemoveAll(path);
  std::error_code error;
  const std::uintmax_t count = wrappedRemoveAllOr(path, error);
  if (error) throw fs::filesystem_error("cannot remove all", path, error);
  return count;
}

bool wrappedCreateDirectories(const fs::path& path) {
  if (!fromProgram()) return realCreateDirectories(path);
  const Call call("create_directories");
  if (const std::error_code error = errorOf(call, {path})) {
    throw fs::filesystem_error("cannot create directories", path, error);
  }
  const simulator::MachineAtWork work;
  return realCreateDirectories(path);
}

void wrappedList1(fs::directory_iterator* self, const fs::path& path, fs::directory_options options,
                  std::error_code* error) {
  if (!fromProgram() || error) return realList(self, path, options, error);
  const Call call("directory_iterator");
  if (const auto told = call.fault()) {
    throw fs::filesystem_error("directory iterator cannot open directory", path,
                               std::error_code(*told, std::system_category()));
  }
  realList(self, path, options, error);
}

void wrappedList2(fs::directory_iterator* self, const fs::path& path, fs::directory_options options,
                  std::error_code* error) {
  wrappedList1(self, path, options, error);
}
