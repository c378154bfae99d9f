// The system below the frameworks: child processes, files, locks, the log, disk images and code signatures.
#include <Security/Security.h>
#include <dispatch/dispatch.h>
#include <fcntl.h>
#include <os/lock.h>
#include <os/log.h>
#include <signal.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <set>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "platform/CF.h"
#include "platform/UnfairLock.h"
#include "tests/conformance/Common.h"
#include "tests/conformance/Machine.h"

extern char** environ;

namespace {

namespace fs = std::filesystem;

using claims::contentOf;
using claims::Folder;

void write(const fs::path& file, const std::string& text = "content") { std::ofstream(file) << text; }

// What a child is started with.
struct Spawn {
  posix_spawnattr_t* attributes = nullptr;
  posix_spawn_file_actions_t* actions = nullptr;
  std::vector<std::string> environment;
};

// Starts a program with these words behind its name: 0, or the error.
int start(pid_t& child, const std::string& executable, const std::vector<std::string>& words, const Spawn& how = {}) {
  std::vector<std::string> all = {executable};
  all.insert(all.end(), words.begin(), words.end());
  std::vector<char*> arguments;
  for (std::string& word : all) arguments.push_back(word.data());
  arguments.push_back(nullptr);
  std::vector<std::string> own = how.environment;
  std::vector<char*> variables;
  for (std::string& variable : own) variables.push_back(variable.data());
  variables.push_back(nullptr);
  return posix_spawn(&child, executable.c_str(), how.actions, how.attributes, arguments.data(),
                     own.empty() ? environ : variables.data());
}

// The status that a program ends with, as waitpid tells it; minus the error where it cannot be started.
int statusOf(const std::string& executable, const std::vector<std::string>& words, const Spawn& how = {}) {
  pid_t child = 0;
  if (const int error = start(child, executable, words, how)) return -error;
  int status = 0;
  EXPECT_EQ(waitpid(child, &status, 0), child);
  return status;
}
bool succeeds(const std::string& executable, const std::vector<std::string>& words) {
  return statusOf(executable, words) == 0;
}

// What a child tells of itself, line by line.
std::set<std::string> told(const Spawn& how) {
  const Folder folder;
  EXPECT_EQ(statusOf(claims::childProgram(), {folder / "told"}, how), 0);
  std::ifstream file(folder / "told");
  std::set<std::string> lines;
  for (std::string line; std::getline(file, line);) lines.insert(line);
  EXPECT_FALSE(lines.empty());
  return lines;
}
std::string line(const char* what, int number) { return std::string(what) + " " + std::to_string(number); }

// Attributes with these flags, for as long as it lives.
class Attributes {
 public:
  explicit Attributes(int flags) {
    EXPECT_EQ(posix_spawnattr_init(&attributes_), 0);
    EXPECT_EQ(posix_spawnattr_setflags(&attributes_, static_cast<short>(flags)), 0);
  }
  ~Attributes() { posix_spawnattr_destroy(&attributes_); }
  Attributes(const Attributes&) = delete;
  Attributes& operator=(const Attributes&) = delete;
  posix_spawnattr_t* get() { return &attributes_; }

 private:
  posix_spawnattr_t attributes_ = {};
};

// A signal is blocked on this thread, and another ignored by the process, for as long as it lives.
class Signals {
 public:
  Signals() {
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGUSR2);
    pthread_sigmask(SIG_BLOCK, &set, &before_);
    previous_ = signal(SIGUSR1, SIG_IGN);
  }
  ~Signals() {
    signal(SIGUSR1, previous_);
    pthread_sigmask(SIG_SETMASK, &before_, nullptr);
  }
  Signals(const Signals&) = delete;
  Signals& operator=(const Signals&) = delete;

 private:
  sigset_t before_ = {};
  void (*previous_)(int) = nullptr;
};

}  // namespace

// ---- Child processes ----

CLAIM(Processes, EndWithTheirStatus, "waitpid tells the status that a child has ended with.", "man 2 waitpid") {
  const int status = statusOf(claims::childProgram(), {"exit:7"});
  EXPECT_TRUE(WIFEXITED(status));
  EXPECT_EQ(WEXITSTATUS(status), 7);
}

CLAIM(Processes, EndBySignals, "waitpid tells the signal that has ended a child.", "man 2 waitpid") {
  const int status = statusOf(claims::childProgram(), {"signal:9"});
  EXPECT_TRUE(WIFSIGNALED(status));
  EXPECT_EQ(WTERMSIG(status), SIGKILL);
}

CLAIM(Processes, ThatAreMissingAreToldAtOnce, "posix_spawn of a file that is not there answers ENOENT.",
      "man 2 posix_spawn") {
  EXPECT_EQ(statusOf("/usr/bin/no-such-tool", {}), -ENOENT);
}

CLAIM(Processes, ThatAreFoldersAreRefused, "posix_spawn of a folder answers EACCES.",
      "man 2 posix_spawn; man 2 execve") {
  EXPECT_EQ(statusOf("/Applications", {}), -EACCES);
}

CLAIM(Processes, AreWaitedForOnce, "A child that has been waited for is gone: waitpid answers ECHILD.",
      "man 2 waitpid") {
  pid_t child = 0;
  ASSERT_EQ(start(child, claims::childProgram(), {"exit:0"}), 0);
  int status = 0;
  EXPECT_EQ(waitpid(child, &status, 0), child);
  EXPECT_EQ(waitpid(child, &status, 0), -1);
  EXPECT_EQ(errno, ECHILD);
}

CLAIM(Processes, HaveNumbersOfTheirOwn, "A process keeps its number, and a child has another.", "man 2 getpid") {
  EXPECT_GT(getpid(), 0);
  EXPECT_EQ(getpid(), getpid());
  pid_t child = 0;
  ASSERT_EQ(start(child, claims::childProgram(), {"exit:0"}), 0);
  EXPECT_NE(child, getpid());
  int status = 0;
  waitpid(child, &status, 0);
}

CLAIM(Processes, HaveTheEnvironmentThatTheyAreGiven, "A child has the environment that it is given, and no other.",
      "man 2 posix_spawn") {
  Spawn how;
  how.environment = {"CLAIMS=of the child"};
  EXPECT_TRUE(told(how).contains("variable of the child"));
}

CLAIM(Processes, InheritTheMaskOfTheirThread,
      "A child that nothing is said about blocks the signals that its parent's thread blocks.",
      "man 2 posix_spawn; man 2 sigprocmask") {
  const Signals signals;
  EXPECT_TRUE(told({}).contains(line("blocks", SIGUSR2)));
}

CLAIM(Processes, OfWorkersBlockNearlyAllSignals,
      "A child that is started on a thread of Dispatch's, and that nothing is said about, blocks the signals that ask "
      "it to end.",
      "observed: the system's worker threads block them; man 2 posix_spawn") {
  static std::atomic<bool> done;
  static std::set<std::string> lines;
  done = false;
  dispatch_async(dispatch_get_global_queue(QOS_CLASS_DEFAULT, 0), ^{
    lines = told({});
    done = true;
  });
  ASSERT_TRUE(claims::runUntil([] { return done.load(); }));
  for (const int number : {SIGHUP, SIGINT, SIGTERM}) EXPECT_TRUE(lines.contains(line("blocks", number))) << number;
  EXPECT_FALSE(lines.contains(line("blocks", SIGSEGV)));
}

CLAIM(Processes, InheritIgnoredSignals,
      "A child that nothing is said about ignores the signals that its parent ignores.",
      "man 2 posix_spawn; man 2 sigaction") {
  const Signals signals;
  EXPECT_TRUE(told({}).contains(line("ignores", SIGUSR1)));
}

CLAIM(Processes, HaveTheMaskThatTheyAreGiven,
      "With POSIX_SPAWN_SETSIGMASK a child blocks what it is told to, and nothing else.",
      "man 3 posix_spawnattr_setsigmask") {
  const Signals signals;
  Attributes attributes(POSIX_SPAWN_SETSIGMASK);
  sigset_t none;
  sigemptyset(&none);
  posix_spawnattr_setsigmask(attributes.get(), &none);
  Spawn how;
  how.attributes = attributes.get();
  for (const std::string& each : told(how)) EXPECT_FALSE(each.starts_with("blocks ")) << each;
}

CLAIM(Processes, ForgetIgnoredSignalsWhenTold,
      "With POSIX_SPAWN_SETSIGDEF a child no longer ignores the signals that are named.",
      "man 3 posix_spawnattr_setsigdefault") {
  const Signals signals;
  Attributes attributes(POSIX_SPAWN_SETSIGDEF);
  sigset_t all;
  sigemptyset(&all);
  sigaddset(&all, SIGUSR1);
  posix_spawnattr_setsigdefault(attributes.get(), &all);
  Spawn how;
  how.attributes = attributes.get();
  EXPECT_FALSE(told(how).contains(line("ignores", SIGUSR1)));
}

CLAIM(Processes, LeadAGroupWhenTold,
      "With POSIX_SPAWN_SETPGROUP, and no group named, a child leads a process group of its own.",
      "man 3 posix_spawnattr_setpgroup") {
  EXPECT_FALSE(told({}).contains("leads"));
  Attributes attributes(POSIX_SPAWN_SETPGROUP);
  Spawn how;
  how.attributes = attributes.get();
  EXPECT_TRUE(told(how).contains("leads"));
}

CLAIM(Processes, InheritOpenFiles,
      "A child that nothing is said about has the files that are open in its parent, unless they close on exec.",
      "man 2 posix_spawn; man 2 fcntl, FD_CLOEXEC") {
  const int inherited = fcntl(STDERR_FILENO, F_DUPFD, 40);
  const int closed = fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 41);
  const auto lines = told({});
  EXPECT_TRUE(lines.contains(line("has", inherited)));
  EXPECT_FALSE(lines.contains(line("has", closed)));
  close(inherited);
  close(closed);
}

CLAIM(Processes, HaveNoOpenFilesWhenTold,
      "With POSIX_SPAWN_CLOEXEC_DEFAULT a child has the open files that its file actions name, and no other.",
      "man 3 posix_spawnattr_setflags; man 3 posix_spawn_file_actions_addinherit_np") {
  const int open = fcntl(STDERR_FILENO, F_DUPFD, 40);
  Attributes attributes(POSIX_SPAWN_CLOEXEC_DEFAULT);
  posix_spawn_file_actions_t actions = {};
  ASSERT_EQ(posix_spawn_file_actions_init(&actions), 0);
  EXPECT_EQ(posix_spawn_file_actions_addinherit_np(&actions, STDERR_FILENO), 0);
  Spawn how;
  how.attributes = attributes.get();
  how.actions = &actions;
  const auto lines = told(how);
  EXPECT_TRUE(lines.contains(line("has", STDERR_FILENO)));
  EXPECT_FALSE(lines.contains(line("has", open)));
  posix_spawn_file_actions_destroy(&actions);
  close(open);
}

STOPS(Processes, EndThemselves, "abort ends the process.", "man 3 abort") { std::abort(); }

// ---- Files ----

CLAIM(Files, AreMovedOverOthers, "rename puts a file in the place of another.", "man 2 rename") {
  const Folder folder;
  write(folder / "new", "new");
  write(folder / "old", "old");
  EXPECT_EQ(rename((folder / "new").c_str(), (folder / "old").c_str()), 0);
  EXPECT_EQ(contentOf(folder / "old"), "new");
  EXPECT_FALSE(fs::exists(folder / "new"));
}

CLAIM(Files, ThatAreMissingAreNotMoved, "rename of what is not there answers ENOENT.", "man 2 rename") {
  const Folder folder;
  EXPECT_EQ(rename((folder / "a").c_str(), (folder / "b").c_str()), -1);
  EXPECT_EQ(errno, ENOENT);
}

CLAIM(Files, FoldersAreNotMovedOverFullOnes, "rename of a folder over one that is not empty answers ENOTEMPTY.",
      "man 2 rename") {
  const Folder folder;
  EXPECT_EQ(mkdir((folder / "a").c_str(), 0700), 0);
  EXPECT_EQ(mkdir((folder / "b").c_str(), 0700), 0);
  write(folder / "b/file");
  EXPECT_EQ(rename((folder / "a").c_str(), (folder / "b").c_str()), -1);
  EXPECT_EQ(errno, ENOTEMPTY);
}

CLAIM(Files, FoldersAreMadeOnce,
      "mkdir of what is there already answers EEXIST, and in a folder that is not there ENOENT.", "man 2 mkdir") {
  const Folder folder;
  EXPECT_EQ(mkdir((folder / "a").c_str(), 0700), 0);
  EXPECT_EQ(mkdir((folder / "a").c_str(), 0700), -1);
  EXPECT_EQ(errno, EEXIST);
  EXPECT_EQ(mkdir((folder / "b/c").c_str(), 0700), -1);
  EXPECT_EQ(errno, ENOENT);
}

CLAIM(Files, AreRemovedOnce, "remove of what is not there answers ENOENT, and of a folder that is not empty ENOTEMPTY.",
      "man 3 remove") {
  const Folder folder;
  write(folder / "file");
  EXPECT_EQ(remove((folder / "file").c_str()), 0);
  EXPECT_EQ(remove((folder / "file").c_str()), -1);
  EXPECT_EQ(errno, ENOENT);
  fs::create_directories(folder / "full/inner");
  EXPECT_EQ(remove((folder / "full").c_str()), -1);
  EXPECT_EQ(errno, ENOTEMPTY);
}

CLAIM(Files, LinksAreRemovedThemselves,
      "To remove a link leaves alone what it leads to, also with all that is below it.",
      "man 2 unlink; C++20, std::filesystem::remove_all") {
  const Folder folder;
  fs::create_directories(folder / "kept/inner");
  fs::create_directory_symlink(folder / "kept", folder / "link");
  EXPECT_EQ(fs::remove_all(folder / "link"), 1U);
  EXPECT_TRUE(fs::exists(folder / "kept/inner"));
}

CLAIM(Files, FoldersAreRemovedWithAllThatIsInThem,
      "remove_all counts what it has removed, and finds nothing to do the next time.",
      "C++20, std::filesystem::remove_all") {
  const Folder folder;
  fs::create_directories(folder / "a/b/c");
  write(folder / "a/b/file");
  EXPECT_EQ(fs::remove_all(folder / "a"), 4U);
  EXPECT_EQ(fs::remove_all(folder / "a"), 0U);
}

CLAIM(Files, AreReachedThroughTheirFolder, "A file is found and removed by its name in a folder that is open.",
      "man 2 openat; man 2 unlinkat") {
  const Folder folder;
  write(folder / "file");
  const int opened = openat(AT_FDCWD, folder.path().c_str(), O_RDONLY | O_DIRECTORY);
  ASSERT_GE(opened, 0);
  EXPECT_EQ(unlinkat(opened, "file", 0), 0);
  EXPECT_EQ(unlinkat(opened, "file", 0), -1);
  EXPECT_EQ(errno, ENOENT);
  close(opened);
}

CLAIM(Files, TellWhetherTheyCanBeWritten,
      "access answers that the user's own folder may be written, and ENOENT for what is not there.", "man 2 access") {
  const Folder folder;
  EXPECT_EQ(access(folder.path().c_str(), W_OK), 0);
  EXPECT_EQ(access((folder / "file").c_str(), W_OK), -1);
  EXPECT_EQ(errno, ENOENT);
}

CLAIM(Files, TheUserHasATemporaryFolder,
      "confstr tells the user's own temporary folder, with a slash at its end; it is there and can be written.",
      "man 3 confstr, _CS_DARWIN_USER_TEMP_DIR") {
  char path[1024] = {};
  const std::size_t size = confstr(_CS_DARWIN_USER_TEMP_DIR, path, sizeof path);
  ASSERT_GT(size, 1U);
  EXPECT_EQ(size, std::strlen(path) + 1);
  EXPECT_EQ(path[size - 2], '/');
  EXPECT_EQ(access(path, W_OK), 0);
}

// ---- Locks and the log ----

CLAIM(Locks, KeepOthersOut, "An unfair lock is held by one thread at a time.", "os/lock.h, os_unfair_lock_lock") {
  static os_unfair_lock lock;
  lock = OS_UNFAIR_LOCK_INIT;
  static int inside;
  static int overlaps;
  static std::atomic<int> done;
  inside = overlaps = done = 0;
  for (int i = 0; i < 3; ++i) {
    dispatch_async(dispatch_get_global_queue(QOS_CLASS_DEFAULT, 0), ^{
      for (int k = 0; k < 5; ++k) {
        const UnfairLock held(lock);
        if (++inside > 1) ++overlaps;
        std::this_thread::sleep_for(std::chrono::microseconds(100));
        --inside;
      }
      ++done;
    });
  }
  EXPECT_TRUE(claims::runUntil([] { return done == 3; }));
  EXPECT_EQ(overlaps, 0);
}

STOPS(Locks, AreNotTakenTwice, "A thread that takes an unfair lock which it holds is stopped.",
      "os/lock.h, os_unfair_lock_lock") {
  os_unfair_lock lock = OS_UNFAIR_LOCK_INIT;
  os_unfair_lock_lock(&lock);
  os_unfair_lock_lock(&lock);
}

STOPS(Locks, AreGivenBackByTheirHolder, "A thread that gives back an unfair lock which it does not hold is stopped.",
      "os/lock.h, os_unfair_lock_unlock") {
  os_unfair_lock lock = OS_UNFAIR_LOCK_INIT;
  os_unfair_lock_unlock(&lock);
}

CLAIM(Log, TakesMessagesFromAnyThread, "A log takes messages of every level, from any thread.",
      "os/log.h, os_log_create, os_log_error") {
  const os_log_t log = os_log_create("example.dalvane.Conformance", "Claims");
  ASSERT_NE(log, nullptr);
  os_log_info(log, "from the main thread: %d", 1);
  static std::atomic<bool> done;
  done = false;
  dispatch_async(dispatch_get_global_queue(QOS_CLASS_DEFAULT, 0), ^{
    os_log_error(log, "from another: %{public}s", "text");
    done = true;
  });
  EXPECT_TRUE(claims::runUntil([] { return done.load(); }));
}

// ---- Disk images ----

namespace {

// A disk image with a file in it, and where it can be attached.
struct Image {
  Image() {
    fs::create_directories(folder / "content/Some.app/Contents");
    write(folder / "content/Some.app/Contents/file", "in the image");
    fs::create_directory(folder / "mount");
    claims::makeDiskImage(folder / "content", folder / "image.dmg");
  }
  [[nodiscard]] bool attach() const {
    return succeeds("/usr/bin/hdiutil", {"attach", folder / "image.dmg", "-mountpoint", folder / "mount", "-nobrowse",
                                         "-readonly", "-quiet"});
  }
  [[nodiscard]] bool detach() const {
    return succeeds("/usr/bin/hdiutil", {"detach", folder / "mount", "-force", "-quiet"});
  }

  Folder folder;
};

}  // namespace

CLAIM(DiskImages, AreAttachedWhereTheyAreWanted,
      "hdiutil shows an image's content at the mount point that it is given, until it is detached.", "man 1 hdiutil") {
  const Image image;
  ASSERT_TRUE(image.attach());
  EXPECT_EQ(contentOf(image.folder / "mount/Some.app/Contents/file"), "in the image");
  EXPECT_TRUE(image.detach());
  EXPECT_FALSE(fs::exists(image.folder / "mount/Some.app"));
}

CLAIM(DiskImages, CannotBeWritten,
      "What is in an image that is attached read-only cannot be changed: the answer is EROFS.",
      "man 1 hdiutil, -readonly; man 2 intro, EROFS") {
  const Image image;
  ASSERT_TRUE(image.attach());
  EXPECT_EQ(mkdir((image.folder / "mount/new").c_str(), 0700), -1);
  EXPECT_EQ(errno, EROFS);
  EXPECT_EQ(access((image.folder / "mount").c_str(), W_OK), -1);
  EXPECT_EQ(errno, EROFS);
  EXPECT_TRUE(image.detach());
}

CLAIM(DiskImages, DamagedOnesAreRefused, "hdiutil ends with another status than 0 for a file that is no image.",
      "man 1 hdiutil") {
  const Image image;
  write(image.folder / "image.dmg", "no image");
  EXPECT_FALSE(image.attach());
}

CLAIM(DiskImages, CannotBeDetachedWhereTheyAreNot, "hdiutil ends with another status than 0 where nothing is attached.",
      "man 1 hdiutil") {
  const Image image;
  EXPECT_FALSE(image.detach());
}

CLAIM(Copies, AreWhole, "ditto copies a folder with all that is in it: files, their modes, and links as links.",
      "man 1 ditto") {
  const Folder folder;
  fs::create_directories(folder / "from/inner");
  write(folder / "from/inner/file", "copied");
  fs::permissions(folder / "from/inner/file", fs::perms::owner_exec, fs::perm_options::add);
  fs::create_symlink("inner/file", folder / "from/link");
  ASSERT_TRUE(succeeds("/usr/bin/ditto", {folder / "from", folder / "to"}));
  EXPECT_EQ(contentOf(folder / "to/inner/file"), "copied");
  EXPECT_NE(fs::status(folder / "to/inner/file").permissions() & fs::perms::owner_exec, fs::perms::none);
  EXPECT_EQ(fs::read_symlink(folder / "to/link"), "inner/file");
}

CLAIM(Copies, OfNothingFail, "ditto ends with status 1 when there is nothing to copy.", "man 1 ditto") {
  const Folder folder;
  const int status = statusOf("/usr/bin/ditto", {folder / "from", folder / "to"});
  EXPECT_TRUE(WIFEXITED(status));
  EXPECT_EQ(WEXITSTATUS(status), 1);
}

CLAIM(Copies, GoInIntoWhatIsThere, "ditto copies into a folder that is there, and leaves what else is in it.",
      "man 1 ditto") {
  const Folder folder;
  fs::create_directories(folder / "from");
  fs::create_directories(folder / "to");
  write(folder / "from/new");
  write(folder / "to/old");
  ASSERT_TRUE(succeeds("/usr/bin/ditto", {folder / "from", folder / "to"}));
  EXPECT_TRUE(fs::exists(folder / "to/new") && fs::exists(folder / "to/old"));
}

// ---- Code signatures ----

namespace {

// An application whose program is a script, so that its signature lies beside it in files.
struct Application {
  Application() {
    fs::create_directories(contents / "MacOS");
    fs::create_directories(contents / "Resources");
    write(contents / "Info.plist",
          "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" "
          "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n<plist version=\"1.0\"><dict>"
          "<key>CFBundleExecutable</key><string>Some</string>"
          "<key>CFBundleIdentifier</key><string>example.some</string>"
          "<key>CFBundlePackageType</key><string>APPL</string>"
          "<key>CFBundleShortVersionString</key><string>1.0</string></dict></plist>\n");
    write(contents / "MacOS/Some", "#!/bin/sh\n");
    fs::permissions(contents / "MacOS/Some", fs::perms::owner_all);
    write(contents / "Resources/file", "a resource");
  }

  [[nodiscard]] OSStatus check(SecRequirementRef requirement = nullptr) const {
    return claims::validity(bundle, requirement);
  }
  [[nodiscard]] CF::Ref<SecRequirementRef> requirement(OSStatus& status) const {
    return claims::requirementOf(bundle, status);
  }

  Folder folder;
  const fs::path bundle = folder / "Some.app";
  const fs::path contents = bundle / "Contents";
};

void append(const fs::path& file) { std::ofstream(file, std::ios::app) << " "; }

// What the check answers when something is done to a signed application; whoever has signed it.
OSStatus afterwards(void (*change)(const Application& application)) {
  const Application application;
  if (!claims::sign(application.bundle, "").empty()) return -1;
  if (application.check() != errSecSuccess) return -2;
  change(application);
  return application.check();
}

}  // namespace

CLAIM(Signatures, HoldWhileNothingChanges,
      "The signature of a bundle that nobody has changed is valid, strictly and for all architectures.",
      "SecStaticCode.h, SecStaticCodeCheckValidity") {
  const Application application;
  ASSERT_EQ(claims::sign(application.bundle, ""), "");
  EXPECT_EQ(application.check(), errSecSuccess);
}

CLAIM(Signatures, AreMissedWhereThereAreNone, "A bundle that is not signed is told from one whose signature is broken.",
      "CSCommon.h, errSecCSUnsigned") {
  const Application application;
  EXPECT_EQ(application.check(), errSecCSUnsigned);
}

CLAIM(Signatures, CoverTheProgram, "A change of the main executable breaks the signature.",
      "CSCommon.h, errSecCSSignatureFailed") {
  EXPECT_EQ(afterwards([](const Application& application) { append(application.contents / "MacOS/Some"); }),
            errSecCSSignatureFailed);
}

CLAIM(Signatures, CoverTheInfo, "A change of the Info.plist breaks the signature.",
      "CSCommon.h, errSecCSInfoPlistFailed") {
  EXPECT_EQ(afterwards([](const Application& application) { append(application.contents / "Info.plist"); }),
            errSecCSInfoPlistFailed);
}

CLAIM(Signatures, CoverTheResources, "A resource that is changed breaks the signature.",
      "CSCommon.h, errSecCSBadResource") {
  EXPECT_EQ(afterwards([](const Application& application) { append(application.contents / "Resources/file"); }),
            errSecCSBadResource);
}

CLAIM(Signatures, MissWhatIsRemoved, "A resource that is removed breaks the signature.",
      "CSCommon.h, errSecCSBadResource") {
  EXPECT_EQ(afterwards([](const Application& application) { fs::remove(application.contents / "Resources/file"); }),
            errSecCSBadResource);
}

CLAIM(Signatures, SeeWhatIsAdded, "A resource that is added breaks the signature.", "CSCommon.h, errSecCSBadResource") {
  EXPECT_EQ(afterwards([](const Application& application) { write(application.contents / "Resources/more"); }),
            errSecCSBadResource);
}

CLAIM(Signatures, CoverTheirSeals, "A change of the seals themselves breaks the signature.",
      "CSCommon.h, errSecCSResourceDirectoryFailed; assumed for a script") {
  EXPECT_EQ(
      afterwards([](const Application& application) { append(application.contents / "_CodeSignature/CodeResources"); }),
      errSecCSResourceDirectoryFailed);
}

CLAIM(Signatures, SeeWhatLiesBesideTheContents,
      "Checked strictly, a file beside the bundle's contents breaks the signature.",
      "CSCommon.h, errSecCSUnsealedAppRoot; SecStaticCode.h, kSecCSStrictValidate") {
  EXPECT_EQ(afterwards([](const Application& application) { write(application.bundle / "beside"); }),
            errSecCSUnsealedAppRoot);
}

CLAIM(Signatures, SeeLinksThatLeadOut, "Checked strictly, a link that leads out of the bundle breaks the signature.",
      "CSCommon.h, errSecCSInvalidSymlink; that it comes before errSecCSBadResource is assumed") {
  EXPECT_EQ(afterwards([](const Application& application) {
              fs::create_symlink("/etc/hosts", application.contents / "Resources/out");
            }),
            errSecCSInvalidSymlink);
}

CLAIM(Signatures, NeedAProgram, "A bundle whose main executable is gone has no valid signature.",
      "CSCommon.h, errSecCSNoMainExecutable; that it is this error is assumed") {
  EXPECT_EQ(afterwards([](const Application& application) { fs::remove(application.contents / "MacOS/Some"); }),
            errSecCSNoMainExecutable);
}

CLAIM(Signatures, NeedAPlace, "There is no code where nothing is.", "CSCommon.h, errSecCSStaticCodeNotFound") {
  const Application application;
  fs::remove_all(application.bundle);
  EXPECT_EQ(application.check(), errSecCSStaticCodeNotFound);
}

CLAIM(Signatures, SatisfyTheirOwnRequirement, "A signed bundle satisfies its own designated requirement.",
      "SecCode.h, SecCodeCopyDesignatedRequirement; SecStaticCode.h, SecStaticCodeCheckValidity") {
  const Application application;
  if (const std::string reason = claims::sign(application.bundle, "Tessbrook"); !reason.empty()) NOT_TRIED(reason);
  OSStatus status = errSecSuccess;
  const auto requirement = application.requirement(status);
  ASSERT_EQ(status, errSecSuccess);
  EXPECT_EQ(application.check(requirement.get()), errSecSuccess);
}

CLAIM(Signatures, OfOthersDoNotSatisfyIt,
      "A bundle that somebody else has signed does not satisfy the requirement, though its signature is valid.",
      "CSCommon.h, errSecCSReqFailed") {
  const Application application;
  if (const std::string reason = claims::sign(application.bundle, "Tessbrook"); !reason.empty()) NOT_TRIED(reason);
  OSStatus status = errSecSuccess;
  const auto requirement = application.requirement(status);
  ASSERT_EQ(status, errSecSuccess);
  if (const std::string reason = claims::sign(application.bundle, "Mallory"); !reason.empty()) NOT_TRIED(reason);
  EXPECT_EQ(application.check(), errSecSuccess);
  EXPECT_EQ(application.check(requirement.get()), errSecCSReqFailed);
}

CLAIM(Signatures, OfTheNextVersionSatisfyIt,
      "Another version of a bundle that the same signer has signed satisfies the requirement of the one before.",
      "SecCode.h, SecCodeCopyDesignatedRequirement; Apple's Code Signing Guide") {
  const Application application;
  if (const std::string reason = claims::sign(application.bundle, "Tessbrook"); !reason.empty()) NOT_TRIED(reason);
  OSStatus status = errSecSuccess;
  const auto requirement = application.requirement(status);
  ASSERT_EQ(status, errSecSuccess);
  std::string info = contentOf(application.contents / "Info.plist");
  info.replace(info.find("1.0</string>"), 3, "2.0");
  write(application.contents / "Info.plist", info);
  write(application.contents / "MacOS/Some", "#!/bin/sh\nexit 2\n");
  EXPECT_NE(application.check(requirement.get()), errSecSuccess);
  if (const std::string reason = claims::sign(application.bundle, "Tessbrook"); !reason.empty()) NOT_TRIED(reason);
  EXPECT_EQ(application.check(requirement.get()), errSecSuccess);
}

CLAIM(Signatures, StateNoRequirementWithoutThem, "A bundle that is not signed states no designated requirement.",
      "SecCode.h, SecCodeCopyDesignatedRequirement; assumed") {
  const Application application;
  OSStatus status = errSecSuccess;
  const auto requirement = application.requirement(status);
  EXPECT_EQ(status, errSecCSUnsigned);
  EXPECT_FALSE(requirement);
}

CLAIM(Signatures, OfRunningCodeAreFound, "The running program finds its own code, and that its signature is valid.",
      "SecCode.h, SecCodeCopySelf, SecCodeCopyStaticCode") {
  SecCodeRef self = nullptr;
  ASSERT_EQ(SecCodeCopySelf(kSecCSDefaultFlags, &self), errSecSuccess);
  const auto running = CF::adopt(self);
  SecStaticCodeRef onDisk = nullptr;
  ASSERT_EQ(SecCodeCopyStaticCode(running.get(), kSecCSDefaultFlags, &onDisk), errSecSuccess);
  const auto code = CF::adopt(onDisk);
  EXPECT_EQ(SecStaticCodeCheckValidity(code.get(), kSecCSDefaultFlags, nullptr), errSecSuccess);
}

CLAIM(Signatures, FlagsAreChecked, "Flags that a call does not know are refused.", "CSCommon.h, errSecCSInvalidFlags") {
  SecCodeRef self = nullptr;
  EXPECT_EQ(SecCodeCopySelf(1U << 20, &self), errSecCSInvalidFlags);
}
