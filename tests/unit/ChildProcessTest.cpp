// What a child process gets of the program: really started children tell what they see of themselves.
#include <dispatch/dispatch.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <set>
#include <string>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

#include "desk/Desk.h"
#include "simulator/kernel/Call.h"
#include "simulator/system/SystemRoot.h"
#include "tests/support/Lines.h"
#include "tests/support/Play.h"
#include "tests/support/Seat.h"
#include "updater/ChildProcess.h"

extern char** environ;

namespace {

namespace fs = std::filesystem;

// What a child tells of itself.
struct Child {
  bool started = false;
  std::uint64_t blocked = 0;  // signals, a bit each: bit 0 is signal 1
  std::uint64_t ignored = 0;
  bool leadsGroup = false;
  std::set<int> files;
  std::string variable;  // of the environment: CHILD_PROCESS_TEST
};

constexpr std::uint64_t bit(int signal) { return std::uint64_t{1} << (signal - 1); }

// What a shell tells of itself. Of its signals it tells nothing, as it clears its mask: that is up to a copying
// program.
const std::string script = R"script(
  exec 3>"$0"
  test "$(cut -d ' ' -f 5 /proc/$$/stat)" = $$ && echo leads group >&3
  for file in /proc/$$/fd/*; do test -e $file && echo file "${file##*/}" >&3; done
  echo variable "$CHILD_PROCESS_TEST" >&3
)script";

// Runs `work` as the program, on its main thread or on a worker thread, until the process has ended and its children
// with it.
void runProgram(bool onWorker, const std::function<void()>& work) {
  simulator::Program program = dalvaneProgram();
  program.main = [onWorker, &work] {
    if (!onWorker) {
      work();
      return 0;
    }
    __block bool done = false;
    const std::function<void()>* const pointer = &work;
    dispatch_async(dispatch_get_global_queue(QOS_CLASS_UTILITY, 0), ^{
      (*pointer)();
      done = true;
    });
    while (!done) std::this_thread::sleep_for(std::chrono::milliseconds(1));
    return 0;
  };
  Seat seat(program, 1);
  seat.play(lines::launch + lines::settle);
  EXPECT_TRUE(seat.shutDown());
}

using Start = std::function<void(const std::string& executable, const std::vector<std::string>& arguments)>;

// What children that `start` starts tell of themselves.
Child childOf(bool onWorker, const Start& start) {
  const fs::path folder = fs::path(testing::TempDir()) / ("child-" + std::to_string(getpid()));
  fs::create_directories(folder);
  runProgram(onWorker, [&] {
    start("/bin/sh", {"-c", script, folder / "told"});
    fs::copy_file("/usr/bin/cp", simulator::Call::unguarded().part<simulator::SystemRoot>().below("/Applications/cp"));
    start("/Applications/cp", {"/proc/self/status", folder / "status"});
  });
  Child child;
  std::ifstream told(folder / "told");
  for (std::string line; std::getline(told, line);) {
    if (line == "leads group") child.leadsGroup = true;
    if (line.starts_with("file ")) child.files.insert(std::stoi(line.substr(5)));
    if (line.starts_with("variable ")) child.variable = line.substr(9);
  }
  child.files.erase(3);  // the shell's own, to tell us
  std::ifstream status(folder / "status");
  for (std::string what; status >> what;) {
    if (what == "SigBlk:") status >> std::hex >> child.blocked;
    if (what == "SigIgn:") status >> std::hex >> child.ignored;
    if (what == "SigIgn:") child.started = true;
  }
  fs::remove_all(folder);
  return child;
}

// This process ignores a signal, has a file open and a variable in its environment.
class ChildProcessTest : public testing::Test {
 protected:
  ChildProcessTest() {
    setenv("CHILD_PROCESS_TEST", "of the program", 1);
    const int opened = open("/dev/null", O_RDONLY | O_CLOEXEC);
    file_ = fcntl(opened, F_DUPFD, 50);  // well above those of anybody else; not closed by an exec
    close(opened);
  }
  ~ChildProcessTest() override {
    close(file_);
    signal(SIGUSR1, previous_);
    unsetenv("CHILD_PROCESS_TEST");
  }

  const sighandler_t previous_ = signal(SIGUSR1, SIG_IGN);
  int file_ = -1;
};

constexpr auto plainly = [](const std::string& executable, const std::vector<std::string>& arguments) {
  std::vector<char*> words{const_cast<char*>(executable.c_str())};
  for (const std::string& word : arguments) words.push_back(const_cast<char*>(word.c_str()));
  words.push_back(nullptr);
  pid_t child = 0;
  EXPECT_EQ(posix_spawn(&child, executable.c_str(), nullptr, nullptr, words.data(), environ), 0);
};

}  // namespace

// What a child gets that nothing was said about.
TEST_F(ChildProcessTest, APlainChildInheritsWhatItsThreadHas) {
  for (const bool onWorker : {false, true}) {
    const Child child = childOf(onWorker, plainly);
    EXPECT_TRUE(child.started);
    EXPECT_EQ(child.blocked & bit(SIGTERM), onWorker ? bit(SIGTERM) : 0U);
    EXPECT_EQ(child.blocked & (bit(SIGSEGV) | bit(SIGPIPE)), 0U);
    EXPECT_EQ(child.ignored & bit(SIGUSR1), bit(SIGUSR1));
    EXPECT_FALSE(child.leadsGroup);
    EXPECT_TRUE(child.files.contains(file_));
    EXPECT_EQ(child.variable, "of the program");
  }
}

TEST_F(ChildProcessTest, AChildHasNothingButTheEnvironmentAndTheStandardFiles) {
  for (const bool onWorker : {false, true}) {
    const Child child = childOf(onWorker, launch);
    EXPECT_TRUE(child.started);
    EXPECT_EQ(child.blocked, 0U);
    EXPECT_EQ(child.ignored & bit(SIGUSR1), 0U);
    EXPECT_TRUE(child.leadsGroup);
    EXPECT_EQ(child.files, (std::set{0, 1, 2}));
    EXPECT_EQ(child.variable, "of the program");
  }
}

TEST_F(ChildProcessTest, AStandardFileThatIsClosedStaysClosed) {
  const Child child = childOf(false, [](const std::string& executable, const std::vector<std::string>& arguments) {
    const int kept = fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 50);
    close(STDIN_FILENO);
    launch(executable, arguments);
    dup2(kept, STDIN_FILENO);
    close(kept);
  });
  EXPECT_TRUE(child.started);
  EXPECT_EQ(child.files, (std::set{1, 2}));
}

// On the live clock the other threads go on meanwhile: here a child ends only after another thread has called the
// machine.
TEST(ChildProcess, NobodyElseWaitsForIt) {
  int status = -1;
  const auto program = [&status] {
    const fs::path applications = simulator::Call::unguarded().part<simulator::SystemRoot>().below("/Applications");
    const fs::path tool = applications / "patient";
    std::ofstream(tool)
        << "#!/bin/sh\ncd " << applications
        << "; touch begun; for i in $(seq 100); do test -e go && exit 0; sleep 0.03; done; exit 1";
    fs::permissions(tool, fs::perms::owner_all);
    __block bool ended = false;
    int* const told = &status;
    dispatch_async(dispatch_get_global_queue(QOS_CLASS_UTILITY, 0), ^{
      *told = waitForExit(launch("/Applications/patient", {}));
      ended = true;
    });
    while (!fs::exists(applications / "begun")) std::this_thread::sleep_for(std::chrono::milliseconds(1));
    EXPECT_GT(getpid(), 0);
    std::ofstream(applications / "go") << "";
    while (!ended) std::this_thread::sleep_for(std::chrono::milliseconds(1));
    return 0;
  };
  playScenario(lines::launch + lines::settle, 1, simulator::Clock::live, {.setUp = {}, .program = program});
  EXPECT_EQ(status, 0);
}

// The full names of the system's tools mean the system's, whatever is in the words of the script.
TEST(ChildProcess, AShellKnowsTheSystemsToolsByTheirFullNames) {
  const fs::path told = fs::path(testing::TempDir()) / ("told-" + std::to_string(getpid()));
  runProgram(false, [&] {
    const pid_t self = getpid();  // no process of the host
    launch("/bin/sh", {"-c",
                       "/bin/kill -0 \"$0\" && echo \"/usr/bin/open '/bin/kill'\" > \"$1\"; "
                       "/bin/kill -0 499 2>/dev/null || echo gone >> \"$1\"; "
                       "/bin/sh -c '/bin/kill -0 \"$0\"' \"$0\" && /usr/bin/printf '%s' \"$2\" >> \"$1\"",
                       std::to_string(self), told, "it's /bin/kill"});
    // The shell asks for this process, which must not have ended.
    std::string text;
    for (int tries = 0; tries < 5000 && !text.ends_with("it's /bin/kill"); ++tries) {
      poll(nullptr, 0, 1);  // on the host's clock
      std::ifstream file(told);
      text.assign(std::istreambuf_iterator<char>(file), {});
    }
    EXPECT_EQ(text, "/usr/bin/open '/bin/kill'\ngone\nit's /bin/kill");
  });
  fs::remove(told);
}

TEST_F(ChildProcessTest, WhatCannotBeStartedSaysWhy) {
  const std::pair<const char*, std::string> cases[] = {
      {"posix_spawn", "/usr/bin/open: Cannot allocate memory"},
      {"posix_spawnattr_init", "posix_spawnattr_init: Cannot allocate memory"},
      {"posix_spawn_file_actions_init", "posix_spawn_file_actions_init: Cannot allocate memory"}};
  for (const auto& [call, text] : cases) {
    runProgram(false, [&] {
      simulator::Call::unguarded().faults.fail(call, ENOMEM, 1, 1);
      try {
        launch("/usr/bin/open", {});
        ADD_FAILURE() << call;
      } catch (const std::system_error& error) {
        EXPECT_EQ(error.what(), text);
      }
    });
  }
}
