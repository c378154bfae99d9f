#include "desk/Children.h"

#include <poll.h>
#include <sys/signalfd.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <system_error>
#include <vector>

#include "simulator/system/SystemRoot.h"

namespace {

void writeAll(int pipe, std::string_view text) {
  while (!text.empty()) {
    const ssize_t written = ::write(pipe, text.data(), text.size());
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) std::_Exit(3);  // nobody wants to know
    text.remove_prefix(static_cast<std::size_t>(written));
  }
}

int statusOf(pid_t process) {
  int status = 0;
  while (waitpid(process, &status, 0) == -1 && errno == EINTR) {
  }
  return WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
}

}  // namespace

Children::Children() {
  sigset_t stops;
  sigemptyset(&stops);
  for (const int each : {SIGINT, SIGTERM}) {
    struct sigaction now;
    if (sigaction(each, nullptr, &now) == 0 && now.sa_handler != SIG_IGN) sigaddset(&stops, each);
  }
  stops_ = signalfd(-1, &stops, SFD_CLOEXEC);
  if (stops_ < 0) throw std::system_error(errno, std::generic_category(), "signalfd");
  pthread_sigmask(SIG_BLOCK, &stops, &before_);
}

Children::~Children() {
  endAll();
  close(stops_);
  pthread_sigmask(SIG_SETMASK, &before_, nullptr);
}

// How it has ended.
int Children::end(std::size_t number) {
  const Child& child = children_.at(number);
  close(child.pipe);
  const int status = statusOf(child.process);
  std::error_code ignored;
  std::filesystem::remove_all(child.folder, ignored);
  children_.erase(number);
  return status;
}

void Children::endAll() {
  while (!children_.empty()) {
    const auto& [number, child] = *children_.begin();
    kill(child.process, SIGKILL);
    end(number);
  }
}

void Children::start(std::size_t number, unsigned patience, const std::function<void(const Tell&)>& work) {
  std::string folder = (simulator::SystemRoot::parentFolder() / "dalvane-desk-XXXXXX").string();
  if (!mkdtemp(folder.data())) throw std::system_error(errno, std::generic_category(), "mkdtemp " + folder);
  int ends[2];
  if (pipe(ends) != 0) throw std::system_error(errno, std::generic_category(), "pipe");
  const pid_t process = fork();
  if (process < 0) throw std::system_error(errno, std::generic_category(), "fork");
  if (process == 0) {
    close(ends[0]);
    for (const auto& [other, child] : children_) close(child.pipe);
    close(stops_);
    pthread_sigmask(SIG_SETMASK, &before_, nullptr);
    setenv("TMPDIR", folder.c_str(), 1);
    signal(SIGPIPE, SIG_IGN);
    alarm(patience);
    work([pipe = ends[1], patience](std::string_view text) {
      alarm(patience);
      writeAll(pipe, std::string(text) + "\n");
    });
    std::_Exit(0);
  }
  close(ends[1]);
  children_.emplace(number, Child{.process = process, .pipe = ends[0], .folder = folder, .buffer = {}});
}

void Children::wait(const std::function<void(std::size_t number, const std::string& text)>& told,
                    const std::function<void(std::size_t number, int status)>& ended) {
  std::vector<pollfd> waited;
  std::vector<std::size_t> numbers;
  for (const auto& [number, child] : children_) {
    waited.push_back({.fd = child.pipe, .events = POLLIN, .revents = 0});
    numbers.push_back(number);
  }
  waited.push_back({.fd = stops_, .events = POLLIN, .revents = 0});
  while (poll(waited.data(), waited.size(), -1) < 0 && errno == EINTR) {
  }
  if (waited.back().revents != 0) {
    endAll();
    pthread_sigmask(SIG_SETMASK, &before_, nullptr);  // now it ends
  }
  for (std::size_t i = 0; i < numbers.size(); ++i) {
    if (waited[i].revents == 0) continue;
    Child& child = children_.at(numbers[i]);
    char buffer[65536];
    const ssize_t size = ::read(child.pipe, buffer, sizeof buffer);
    if (size < 0 && errno == EINTR) continue;
    if (size > 0) {
      child.buffer.append(buffer, static_cast<std::size_t>(size));
      for (auto end = child.buffer.find('\n'); end != child.buffer.npos; end = child.buffer.find('\n')) {
        const std::string text = child.buffer.substr(0, end);
        child.buffer.erase(0, end + 1);
        told(numbers[i], text);
      }
      continue;
    }
    ended(numbers[i], end(numbers[i]));
  }
}
