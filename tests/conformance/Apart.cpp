#include "tests/conformance/Apart.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <thread>
#include <vector>

namespace claims {
namespace {

using Clock = std::chrono::steady_clock;
constexpr auto pause = std::chrono::milliseconds(10);

// A file's name that no other process has at this time.
std::filesystem::path resultFile() {
  return std::filesystem::temp_directory_path() / ("claims-" + std::to_string(getpid()) + ".result");
}

// Begins the program with these words. Without the terminal it leads a group, so that it can be ended with all that it
// has begun, and what it prints is dropped.
pid_t begin(std::vector<std::string> words, bool withTerminal) {
  std::vector<char*> arguments;
  for (std::string& word : words) arguments.push_back(word.data());
  arguments.push_back(nullptr);
  const pid_t child = fork();
  if (child != 0) return child;
  // Nothing but what may be called between fork and exec.
  if (!withTerminal) {
    setpgid(0, 0);
    const int nowhere = open("/dev/null", O_RDWR);
    dup2(nowhere, STDIN_FILENO);
    dup2(nowhere, STDOUT_FILENO);
  }
  execv(arguments[0], arguments.data());
  _exit(127);
}

// Waits until the process has ended, at most so long; its status. Null when it was ended for taking longer.
std::optional<int> wait(pid_t child, std::optional<double> seconds) {
  const Clock::time_point began = Clock::now();
  int status = 0;
  for (;;) {
    const pid_t ended = waitpid(child, &status, WNOHANG);
    if (ended == child || (ended == -1 && errno != EINTR)) return status;
    if (seconds && std::chrono::duration<double>(Clock::now() - began).count() > *seconds) break;
    std::this_thread::sleep_for(pause);
  }
  kill(-child, SIGKILL);
  kill(child, SIGKILL);  // it may not lead its group yet
  waitpid(child, &status, 0);
  return std::nullopt;
}

std::string howItEnded(int status) {
  return WIFSIGNALED(status)
             ? std::string("by signal ") + std::to_string(WTERMSIG(status)) + ", " + strsignal(WTERMSIG(status))
             : "with status " + std::to_string(WEXITSTATUS(status));
}

const char* wordOf(Result::Kind kind) {
  return kind == Result::Kind::held ? "held" : kind == Result::Kind::failed ? "failed" : "not tried";
}

}  // namespace

Result tryApart(const Claim& claim, const std::string& program, double patience) {
  const bool isOfDesk = claim.kind == Claim::Kind::desk;
  const std::filesystem::path file = resultFile();
  std::filesystem::remove(file);
  std::vector<std::string> words = {program, "--alone", file, "--gtest_brief=1", "--gtest_filter=" + claim.fullName()};
  if (isOfDesk) words.emplace_back("--desk");
  const pid_t child = begin(words, isOfDesk);
  if (child == -1) return {Result::Kind::failed, std::string("no process can be made: ") + std::strerror(errno)};
  const std::optional<int> status = wait(child, isOfDesk ? std::nullopt : std::optional(patience));
  std::ifstream stream(file);
  const bool hasTold = stream.is_open();
  const std::string text(std::istreambuf_iterator<char>(stream), {});
  stream.close();
  std::filesystem::remove(file);
  if (!status) return {Result::Kind::failed, "it did not come to its end, and was ended"};
  if (!hasTold) return {Result::Kind::failed, "its process ended " + howItEnded(*status)};
  Result result = parseResult(text);
  // What goes wrong once it is over is the claim's too.
  if (result.kind != Result::Kind::failed && WIFSIGNALED(*status)) {
    result = {Result::Kind::failed, "its process ended afterwards " + howItEnded(*status)};
  }
  return result;
}

std::string written(const Result& result) { return std::string(wordOf(result.kind)) + "\n" + result.text; }

Result parseResult(const std::string& text) {
  const std::size_t end = text.find('\n');
  const std::string word = text.substr(0, end);
  const std::string rest = end == std::string::npos ? "" : text.substr(end + 1);
  for (const auto kind : {Result::Kind::held, Result::Kind::failed, Result::Kind::notTried}) {
    if (word == wordOf(kind)) return {kind, rest};
  }
  return {Result::Kind::failed, "its process left half a result"};
}

}  // namespace claims
