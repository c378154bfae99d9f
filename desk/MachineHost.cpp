#include "desk/MachineHost.h"

#include <poll.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <charconv>
#include <cstdlib>
#include <nlohmann/json.hpp>
#include <utility>

namespace {

constexpr std::uint64_t crashesWithin = 1000;  // ms after it has last told the time
constexpr std::chrono::seconds endsWithin{3};  // a machine that is told to; then it is made to

// The text up to the next space, which it is taken off with.
std::string_view wordOf(std::string_view& text) {
  const auto end = std::min(text.find(' '), text.size());
  const std::string_view word = text.substr(0, end);
  text.remove_prefix(std::min(end + 1, text.size()));
  return word;
}

std::uint64_t numberOf(std::string_view text) {
  std::uint64_t number = 0;
  std::from_chars(text.data(), text.data() + text.size(), number);
  return number;
}

// "12.034" for 12034 ms.
std::string secondsOf(std::uint64_t milliseconds) {
  std::string text = std::to_string(milliseconds / 1000);
  if (milliseconds % 1000 == 0) return text;
  const std::string fraction = std::to_string(1000 + milliseconds % 1000).substr(1);
  return text + "." + fraction.substr(0, fraction.find_last_not_of('0') + 1);
}

std::string advanceBy(std::uint64_t milliseconds) {
  return R"({"do":"advance","seconds":)" + secondsOf(milliseconds) + "}\n";
}

// Starts the program with the other end of the connection; answers its process, or -1.
pid_t start(const std::string& program, const std::string& seed, bool isFurnished, int& connection) {
  std::array<int, 2> ends{};
  if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()) != 0) return -1;
  const std::array<const char*, 5> arguments = {program.c_str(), "seat", seed.c_str(),
                                                isFurnished ? "furnished" : "bare", nullptr};
  const pid_t process = fork();
  if (process == 0) {
    // Between fork and exec only what is safe after one of many threads has been copied.
    setpgid(0, 0);  // what interrupts the server ends the machine by its connection
    signal(SIGPIPE, SIG_DFL);
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
    dup2(ends[1], STDIN_FILENO);
    dup2(STDERR_FILENO, STDOUT_FILENO);
    execv(program.c_str(), const_cast<char* const*>(arguments.data()));
    _exit(127);
  }
  close(ends[1]);
  if (process < 0) {
    close(ends[0]);
    return -1;
  }
  connection = ends[0];
  return process;
}

}  // namespace

MachineHost::MachineHost(std::string program) : program_(std::move(program)), lines_(nullptr, std::fclose) {}

MachineHost::~MachineHost() {
  broadcast.end();
  const std::lock_guard lock(beginning_);
  stop();
}

bool MachineHost::begin(bool isFurnished, const std::string& seed) {
  const std::lock_guard lock(beginning_);
  stop();
  int connection = -1;
  {
    const std::lock_guard state(mutex_);
    lines_.reset(std::tmpfile());
    if (!lines_) return false;
    fatal_.clear();
    seed_ = seed;
    isFurnished_ = isFurnished;
    sinceLast_ = "0";
  }
  broadcast.begin();
  const pid_t process = start(program_, seed, isFurnished, connection);
  if (process < 0) return false;
  {
    const std::lock_guard state(mutex_);
    runs_ = true;
    ++machines_;
    broadcast.setStatus(
        nlohmann::json({{"machine", machines_}, {"runs", true}, {"furnished", isFurnished}, {"seed", seed}}).dump());
  }
  {
    const std::lock_guard sending(sending_);
    connection_ = connection;
    process_ = process;
  }
  bool isHeard = false;
  {
    const std::lock_guard state(mutex_);
    isHeard = listeners_ > 0;
  }
  if (isHeard) send("0 listen on\n");
  broadcast.publish();
  reader_ = std::thread([this, connection, process] { read(connection, process); });
  return true;
}

// Ends the machine, if there is one. Somebody may be waiting to write to it, so the connection goes first.
void MachineHost::stop() {
  if (!reader_.joinable()) return;
  shutdown(connection_, SHUT_WR);
  const auto until = std::chrono::steady_clock::now() + endsWithin;
  int status = 0;
  pid_t over = 0;
  while ((over = waitpid(process_, &status, WNOHANG)) == 0 && std::chrono::steady_clock::now() < until) {
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  if (over == 0) {
    kill(process_, SIGKILL);
    waitpid(process_, &status, 0);
  }
  reader_.join();
  const std::lock_guard sending(sending_);
  close(std::exchange(connection_, -1));
}

bool MachineHost::send(const std::string& text) {
  const std::lock_guard lock(sending_);
  for (std::string_view rest = text; !rest.empty();) {
    const ssize_t sent = ::send(connection_, rest.data(), rest.size(), MSG_NOSIGNAL);
    if (sent < 0 && errno == EINTR) continue;
    if (sent <= 0) return false;
    rest.remove_prefix(static_cast<std::size_t>(sent));
  }
  return true;
}

MachineHost::Answer MachineHost::ask(const std::string& command) {
  std::future<Answer> answered;
  std::uint64_t id = 0;
  {
    const std::lock_guard lock(mutex_);
    if (!runs_) return {409, "the machine has stopped: " + fatal_};
    id = ++lastID_;
    Asked& asked = asked_[id];
    if (command.starts_with("do ")) asked.line = command.substr(3);
    answered = asked.answer.get_future();
  }
  // If it cannot be sent, the machine is at its end, and so will be the promise.
  send(std::to_string(id) + " " + command + "\n");
  return answered.get();
}

void MachineHost::listen(bool begins) {
  bool changes = false;
  {
    const std::lock_guard lock(mutex_);
    listeners_ += begins ? 1 : -1;
    changes = listeners_ == (begins ? 1 : 0);
    if (!runs_) return;
  }
  if (changes) send(begins ? "0 listen on\n" : "0 listen off\n");
}

void MachineHost::read(int connection, pid_t process) {
  std::string unread;
  std::array<char, 65536> buffer;
  for (;;) {
    const ssize_t size = ::read(connection, buffer.data(), buffer.size());
    if (size < 0 && errno == EINTR) continue;
    if (size <= 0) break;
    unread.append(buffer.data(), static_cast<std::size_t>(size));
    std::size_t begin = 0;
    for (std::size_t end = 0; (end = unread.find('\n', begin)) != std::string::npos; begin = end + 1) {
      receive(std::string_view(unread).substr(begin, end - begin));
    }
    unread.erase(0, begin);
    broadcast.publish();
  }
  ended(process);
}

void MachineHost::receive(std::string_view message) {
  const std::string_view kind = wordOf(message);
  if (kind == "R") {
    const std::uint64_t cause = numberOf(wordOf(message));
    broadcast.add(cause, message);
    constexpr std::string_view fatal = R"("what":"fatal","text":)";
    const auto at = message.find(fatal);
    if (at == std::string_view::npos || at > 48) return;
    const std::lock_guard lock(mutex_);
    fatal_ = nlohmann::json::parse(message)["text"].get<std::string>();
  } else if (kind == "S") {
    broadcast.setState(message);
  } else if (kind == "P") {
    broadcast.setPulse(message);
  } else if (kind == "A") {
    broadcast.addSound(message);
  } else if (kind == "Q") {
    answer(message);
  } else if (kind == "D" || kind == "T") {
    const std::lock_guard lock(mutex_);
    sinceLast_ = kind == "D" ? "0" : std::string(message);
    if (kind != "D") return;
    isToldOf_ = true;
    keep(message);
  }
}

void MachineHost::answer(std::string_view text) {
  const std::uint64_t id = numberOf(wordOf(text));
  const auto status = static_cast<int>(numberOf(wordOf(text)));
  const std::lock_guard lock(mutex_);
  const auto waiting = asked_.find(id);
  if (waiting == asked_.end()) return;
  waiting->second.answer.set_value({status, std::string(text)});
  asked_.erase(waiting);
  isToldOf_ = false;
}

void MachineHost::keep(std::string_view timeAndLine) {
  if (std::fwrite(timeAndLine.data(), 1, timeAndLine.size(), lines_.get()) == timeAndLine.size()) {
    std::fputc('\n', lines_.get());
  }
}

void MachineHost::ended(pid_t process) {
  siginfo_t how{};
  waitid(P_PID, static_cast<id_t>(process), &how, WEXITED | WNOWAIT);
  const std::lock_guard lock(mutex_);
  runs_ = false;
  if (fatal_.empty()) {
    fatal_ = how.si_code == CLD_EXITED ? "its process ended with status " + std::to_string(how.si_status)
                                       : "its process was ended by signal " + std::to_string(how.si_status);
  }
  if (how.si_code != CLD_EXITED) {
    // It had no last words: what it was at is what it did last, or it happened a little later than it last said.
    if (!asked_.empty() && !asked_.begin()->second.line.empty() && !isToldOf_) {
      keep(sinceLast_ + " " + asked_.begin()->second.line);
      sinceLast_ = "0";
    } else {
      sinceLast_ = std::to_string(numberOf(sinceLast_) + crashesWithin);
    }
  }
  broadcast.setStatus(
      nlohmann::json(
          {{"machine", machines_}, {"runs", false}, {"furnished", isFurnished_}, {"seed", seed_}, {"reason", fatal_}})
          .dump());
  broadcast.publish();
  for (auto& [id, asked] : std::exchange(asked_, {}))
    asked.answer.set_value({409, "the machine has stopped: " + fatal_});
}

std::string MachineHost::scenario() {
  const std::lock_guard lock(mutex_);
  std::string text =
      "// Saved from the desk. Played again, it is the same run: dalvane-desk play --seed " + seed_ + " FILE\n";
  std::fflush(lines_.get());
  std::rewind(lines_.get());
  char* line = nullptr;
  std::size_t room = 0;
  for (ssize_t size = 0; (size = getline(&line, &room, lines_.get())) > 0;) {
    std::string_view rest(line, static_cast<std::size_t>(size - 1));
    const std::uint64_t after = numberOf(wordOf(rest));
    // A line that may come in the middle of the one before belongs to this moment nevertheless.
    if (after > 0 || rest.find(R"("race":)") != std::string_view::npos) text += advanceBy(after);
    text.append(rest).append("\n");
  }
  std::free(line);
  std::fseek(lines_.get(), 0, SEEK_END);
  if (const std::uint64_t last = numberOf(sinceLast_); last > 0) text += advanceBy(last);
  return text;
}
