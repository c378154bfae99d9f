#include "simulator/system/ChildProcesses.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <fstream>
#include <nlohmann/json.hpp>
#include <set>
#include <system_error>

#include "simulator/kernel/Call.h"
#include "simulator/kernel/Object.h"
#include "simulator/system/FileContent.h"
#include "simulator/system/Files.h"
#include "simulator/system/HostProcesses.h"
#include "simulator/system/SystemRoot.h"
#include "simulator/system/Volumes.h"

extern "C" {

pid_t __real_waitpid(pid_t child, int* status, int options);
pid_t __wrap_waitpid(pid_t child, int* status, int options);
pid_t __real_getpid(void);
pid_t __wrap_getpid(void);

}  // extern "C"

namespace simulator {
namespace {

namespace fs = std::filesystem;

// What the run of a tool takes.
constexpr Duration runTime = std::chrono::milliseconds(200);

constexpr const char* shell = "/bin/sh";

// What posix_spawn's attributes and file actions are made of.
struct SpawnAttributes : Object {
  // POSIX leaves open which mask they begin with.
  SpawnAttributes() { sigfillset(&settings.mask); }
  std::string_view kind() const override { return "posix_spawnattr_t"; }
  SpawnSettings settings;
};
struct SpawnFileActions : Object {
  std::string_view kind() const override { return "posix_spawn_file_actions_t"; }
  std::vector<int> inherited;
};

// The signals that are blocked in the calling thread of the program. The system's worker threads block all but those
// that tell of a fault of their own.
sigset_t blockedSignals(const Machine& machine) {
  sigset_t blocked;
  pthread_sigmask(SIG_SETMASK, nullptr, &blocked);
  if (machine.process.onMainThread()) return blocked;
  sigfillset(&blocked);
  for (const int signal : {SIGILL, SIGTRAP, SIGFPE, SIGKILL, SIGBUS, SIGSEGV, SIGSYS, SIGPIPE, SIGSTOP, SIGPROF}) {
    sigdelset(&blocked, signal);
  }
  return blocked;
}

// Whether the process of the host has ended; waits for it unless told not to.
bool hasEnded(pid_t host, int options, int* status = nullptr) {
  for (;;) {
    const pid_t ended = __real_waitpid(host, status, options);
    if (ended != -1 || errno != EINTR) return ended != 0;
  }
}

int waitForHost(pid_t host) {
  int status = 0;
  hasEnded(host, 0, &status);
  return status;
}

// The status that people know: what the program exited with, or the number of the signal that ended it.
int exitOf(int status) { return WIFSIGNALED(status) ? WTERMSIG(status) : WEXITSTATUS(status); }

std::string listOf(const Trace& trace, const std::vector<std::string>& texts) {
  std::string list = "[";
  for (const std::string& text : texts) list += (list.size() > 1 ? "," : "") + trace.quote(text);
  return list + "]";
}

}  // namespace

ChildProcesses::ChildProcesses(Machine& machine, SystemRoot& root, Open open)
    : machine_(machine), root_(root), open_(std::move(open)) {
  machine.faults.declare({"posix_spawn", "posix_spawnattr_init", "posix_spawnattr_setflags",
                          "posix_spawnattr_setsigdefault", "posix_spawnattr_setsigmask",
                          "posix_spawn_file_actions_init", "posix_spawn_file_actions_addinherit_np", "waitpid",
                          "hdiutil", "hdiutil attach", "hdiutil detach", "ditto"});
  declareFileFaults(machine.faults);
}

ChildProcesses::~ChildProcesses() {
  for (const auto& [identifier, child] : children_) {
    if (child.host != 0) survivors_.push_back(child.host);
  }
  for (const pid_t host : survivors_) {
    // What a shell has started ends with it, if it leads a group.
    kill(getpgid(host) == host ? -host : host, SIGKILL);
    waitForHost(host);
  }
}

fs::path ChildProcesses::processFile(pid_t identifier) const {
  return root_.below("/var/run/processes") / std::to_string(identifier);
}

pid_t ChildProcesses::programIdentifier() {
  if (!program_) {
    program_ = ++lastIdentifier_;
    const MachineAtWork work;
    fs::create_directories(processFile(*program_).parent_path());
    writeFile(processFile(*program_), "");
  }
  return *program_;
}

std::optional<int> ChildProcesses::takeFault(const std::string& tool, const std::vector<std::string>& arguments) {
  const auto take = [this](const std::string& name) {
    return machine_.faults.knows(name) ? machine_.faults.take(name) : std::nullopt;
  };
  const auto whole = take(tool);
  const auto verb = arguments.empty() ? std::nullopt : take(tool + " " + arguments.front());
  return whole ? whole : verb;
}

pid_t ChildProcesses::start(const std::string& executable, const std::vector<std::string>& arguments,
                            std::vector<std::string> environment, const SpawnSettings& settings, int& error) {
  programIdentifier();  // the program is older than its children
  const fs::path host = root_.below(executable);
  if (!fs::is_regular_file(host)) error = fs::exists(host) ? EACCES : ENOENT;

  std::vector<std::string> words{executable};
  words.insert(words.end(), arguments.begin(), arguments.end());
  std::erase_if(environment, [](const std::string& variable) { return variable.starts_with("PATH="); });
  environment.push_back("PATH=" + root_.below("/usr/bin").string() + ":" + root_.below("/bin").string() +
                        ":/usr/bin:/bin");
  environment.push_back("SIMULATED_ROOT=" + root_.path().string());
  environment.push_back("SIMULATED_HOST=" + std::to_string(__real_getpid()));
  if (const auto told = takeFault(host.filename().string(), arguments)) {
    environment.push_back("SIMULATED_FAULT=" + std::to_string(*told));
  }

  Child child;
  if (error == 0) {
    HostProcess process;
    process.path = host.string();
    process.words = std::move(words);
    process.environment = std::move(environment);
    process.ownGroup = (settings.flags & POSIX_SPAWN_SETPGROUP) != 0;
    process.blocked = (settings.flags & POSIX_SPAWN_SETSIGMASK) != 0 ? settings.mask : blockedSignals(machine_);
    if ((settings.flags & POSIX_SPAWN_SETSIGDEF) != 0) {
      process.reset = settings.defaults;
    } else {
      sigemptyset(&process.reset);
    }
    process.closeOthers = (settings.flags & POSIX_SPAWN_CLOEXEC_DEFAULT) != 0;
    process.passed = settings.inherited;
    error = startOnHost(process, child.host);
  }
  auto record = machine_.trace.call("posix_spawn", error);
  record.text("executable", executable).json("arguments", listOf(machine_.trace, arguments));
  if (error != 0) {
    record.json("exit", "null");
    return 0;
  }
  if (executable == shell) {
    record.json("exit", "null");  // it does not end while the program runs
  } else {
    const Scheduler::Unlock unlock(machine_.scheduler);
    child.status = waitForHost(child.host);
    child.host = 0;
    record.number("exit", exitOf(child.status));
  }
  const pid_t identifier = ++lastIdentifier_;
  children_[identifier] = child;
  return identifier;
}

std::optional<int> ChildProcesses::wait(pid_t identifier) {
  {
    const Scheduler::Lock lock(machine_.scheduler);
    const auto child = children_.find(identifier);
    if (child == children_.end() || machine_.scheduler.ending()) return std::nullopt;
    if (child->second.host != 0) fatal("waitpid: waiting for a shell is not simulated");
  }
  try {
    machine_.scheduler.sleep(runTime);
  } catch (const ProcessEnd&) {
    // The process has ended in the middle of the call. A C function does not throw, so the thread ends at the next
    // place where it blocks.
    return std::nullopt;
  }
  const Scheduler::Lock lock(machine_.scheduler);
  const int status = children_.at(identifier).status;
  children_.erase(identifier);
  return status;
}

void ChildProcesses::processEnded(Leaks&) {
  if (program_) fs::remove(processFile(*program_));
  program_.reset();
  for (const auto& [identifier, child] : children_) {
    if (child.host != 0) survivors_.push_back(child.host);
  }
  children_.clear();
  if (!survivors_.empty()) machine_.scheduler.after(runTime, Waiting::work, [this] { waitForSurvivors(); });
}

// On the live clock nobody else is kept waiting.
void ChildProcesses::waitForSurvivors() {
  const bool isLive = machine_.scheduler.clock() == Clock::live;
  std::erase_if(survivors_, [isLive](pid_t host) { return hasEnded(host, isLive ? WNOHANG : 0); });
  if (survivors_.empty()) return openWhatWasAsked();
  constexpr Duration soon = std::chrono::milliseconds(5);
  machine_.scheduler.after(soon, Waiting::work, [this] { waitForSurvivors(); });
}

// Carries out what open(1) was asked for: the installed application is launched, as it now is.
void ChildProcesses::openWhatWasAsked() {
  const fs::path requests = root_.below("/var/run/opened");
  std::ifstream lines(requests);
  for (std::string path; std::getline(lines, path);) {
    machine_.trace.record("open").text("path", path);
    open_(path);
  }
  std::error_code ignored;
  fs::remove(requests, ignored);
}

void ChildProcesses::snapshot(nlohmann::ordered_json& state) {
  auto volumes = nlohmann::ordered_json::array();
  const std::string& root = root_.path().string();
  for (const fs::path& point : Volumes(root).mountPoints()) volumes.push_back(point.string().substr(root.size()));
  state["volumes"] = volumes;
  std::set<std::string> temporary;
  for (const auto& entry : fs::directory_iterator(root_.temporaryDirectory())) {
    temporary.insert(entry.path().filename().string());
  }
  state["temporary"] = temporary;
}

}  // namespace simulator

// ---- The calls ----

using simulator::Call;
using simulator::live;
using simulator::Scheduler;
using simulator::SpawnAttributes;
using simulator::SpawnFileActions;

extern "C" {

int posix_spawn(pid_t* child, const char* path, const posix_spawn_file_actions_t* actions,
                const posix_spawnattr_t* attributes, char* const argv[], char* const envp[]) {
  const Call call("posix_spawn");
  if (call.machine.scheduler.ending()) return EAGAIN;
  std::vector<std::string> arguments;
  for (char* const* word = argv + 1; *word; ++word) arguments.emplace_back(*word);
  std::vector<std::string> environment;
  for (char* const* variable = envp; *variable; ++variable) environment.emplace_back(*variable);
  simulator::SpawnSettings settings;
  int error = call.fault().value_or(0);
  if (attributes) settings = live<SpawnAttributes>(*attributes, "posix_spawn").settings;
  if (actions) settings.inherited = live<SpawnFileActions>(*actions, "posix_spawn").inherited;
  for (const int file : settings.inherited) {
    if (fcntl(file, F_GETFD) == -1) error = errno;
  }
  const pid_t started =
      call.part<simulator::ChildProcesses>().start(path, arguments, std::move(environment), settings, error);
  if (error == 0 && child) *child = started;
  return error;
}

int posix_spawnattr_init(posix_spawnattr_t* attributes) {
  const Call call("posix_spawnattr_init");
  if (const auto told = call.fault()) return *told;
  *attributes = new SpawnAttributes;
  return 0;
}

int posix_spawnattr_destroy(posix_spawnattr_t* attributes) {
  simulator::release(&live<SpawnAttributes>(*attributes, "posix_spawnattr_destroy"), "posix_spawnattr_destroy");
  return 0;
}

int posix_spawnattr_setflags(posix_spawnattr_t* attributes, short flags) {
  const Call call("posix_spawnattr_setflags");
  if (const auto told = call.fault()) return *told;
  constexpr int known =
      POSIX_SPAWN_SETPGROUP | POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_CLOEXEC_DEFAULT;
  if ((flags & ~known) != 0) simulator::fatal("posix_spawnattr_setflags: other flags are not simulated");
  live<SpawnAttributes>(*attributes, "posix_spawnattr_setflags").settings.flags = flags;
  return 0;
}

int posix_spawnattr_setsigdefault(posix_spawnattr_t* attributes, const sigset_t* signals) {
  const Call call("posix_spawnattr_setsigdefault");
  if (const auto told = call.fault()) return *told;
  live<SpawnAttributes>(*attributes, "posix_spawnattr_setsigdefault").settings.defaults = *signals;
  return 0;
}

int posix_spawnattr_setsigmask(posix_spawnattr_t* attributes, const sigset_t* signals) {
  const Call call("posix_spawnattr_setsigmask");
  if (const auto told = call.fault()) return *told;
  live<SpawnAttributes>(*attributes, "posix_spawnattr_setsigmask").settings.mask = *signals;
  return 0;
}

int posix_spawn_file_actions_init(posix_spawn_file_actions_t* actions) {
  const Call call("posix_spawn_file_actions_init");
  if (const auto told = call.fault()) return *told;
  *actions = new SpawnFileActions;
  return 0;
}

int posix_spawn_file_actions_destroy(posix_spawn_file_actions_t* actions) {
  constexpr const char* name = "posix_spawn_file_actions_destroy";
  simulator::release(&live<SpawnFileActions>(*actions, name), name);
  return 0;
}

int posix_spawn_file_actions_addinherit_np(posix_spawn_file_actions_t* actions, int file) {
  constexpr const char* name = "posix_spawn_file_actions_addinherit_np";
  const Call call(name);
  if (const auto told = call.fault()) return *told;
  live<SpawnFileActions>(*actions, name).inherited.push_back(file);
  return 0;
}

pid_t __wrap_waitpid(pid_t child, int* status, int options) {
  if (!Scheduler::current()) return __real_waitpid(child, status, options);
  if (options != 0) simulator::fatal("waitpid: options are not simulated");
  simulator::ChildProcesses* children = nullptr;
  std::optional<std::int32_t> told;
  {
    const Call call("waitpid");
    told = call.fault();
    children = &call.part<simulator::ChildProcesses>();
  }
  const auto ended = told ? std::nullopt : children->wait(child);
  if (!ended) {
    errno = told.value_or(ECHILD);
    return -1;
  }
  if (status) *status = *ended;
  return child;
}

pid_t __wrap_getpid(void) {
  if (!Scheduler::current()) return __real_getpid();
  const Call call("getpid");
  return call.part<simulator::ChildProcesses>().programIdentifier();
}

}  // extern "C"
