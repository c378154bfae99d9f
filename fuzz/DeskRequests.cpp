// Requests to the desk page's server: headers, bodies, and lines for the machine behind it. Beyond not crashing: only
// requests to the two names of this server, from its own page or none, are let in; each command of a seat is answered
// once, with 200 or 400, in its order; a line is told as done exactly when it was answered with 200; and all that is
// told is JSON.
#include <sys/mman.h>
#include <unistd.h>

#include <cstdlib>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>
#include <vector>

#include "desk/Broadcast.h"
#include "desk/Requests.h"
#include "desk/Seat.h"
#include "fuzz/Target.h"

using nlohmann::json;

namespace {

void checkHeaders(fuzz::Input& input) {
  std::vector<std::string> values[2];
  for (auto& each : values) {
    for (auto count = input.number<unsigned char>() % 3; count > 0; --count) each.emplace_back(input.text());
  }
  const auto& [hosts, origins] = values;
  if (!isForThisDesk(hosts, origins, 4417)) return;
  fuzz::require(
      hosts == std::vector<std::string>{"127.0.0.1:4417"} || hosts == std::vector<std::string>{"localhost:4417"},
      "a request is let in by the server's name");
  fuzz::require(origins.empty() || origins == std::vector<std::string>{"http://" + hosts[0]},
                "a request is let in from the server's page");
}

void checkBeginning(std::string_view body) {
  const auto beginning = beginningOf(body);
  if (!beginning) return;
  const json again = {{"furnished", beginning->isFurnished}, {"seed", beginning->seed}};
  fuzz::require(json::parse(body) == again, "a machine begins as it was asked for");
}

void checkPlace(std::string_view id) {
  static Broadcast broadcast;
  static const bool isFilled = [] {
    broadcast.begin();
    for (std::uint64_t i = 0; i < 10; ++i) broadcast.add(i, "{}");
    return true;
  }();
  static_cast<void>(isFilled);
  const Broadcast::Place place = broadcast.placeAfter(id);
  fuzz::require(place.machine == broadcast.placeAtEnd().machine && place.next <= broadcast.placeAtEnd().next,
                "a listener begins where there is something, or at the end");
}

// ---- The seat ----

// What only takes long, or ends the process as it may: with a program, rules can be broken.
bool isForSeat(const std::string& line) {
  const json object = json::parse(line, nullptr, false);
  if (!object.is_object()) return true;
  const auto what = object.find("do");
  if (what == object.end() || !what->is_string()) return true;
  if (*what == "launch" || *what == "bundle" || *what == "image" || *what == "feed") return false;
  const auto seconds = object.find("seconds");
  return seconds == object.end() || !seconds->is_number() || seconds->get<double>() <= 3;
}

// A file in memory.
class File {
 public:
  File() : file_(memfd_create("fuzz", 0)) { fuzz::require(file_ >= 0, "there is room for a file"); }
  File(const File&) = delete;
  File& operator=(const File&) = delete;
  ~File() { close(file_); }
  [[nodiscard]] int get() const { return file_; }
  void write(const std::string& text) const {
    fuzz::require(::write(file_, text.data(), text.size()) == static_cast<ssize_t>(text.size()),
                  "a file can be written");
    lseek(file_, 0, SEEK_SET);
  }
  [[nodiscard]] std::string content() const {
    std::string text(static_cast<std::size_t>(lseek(file_, 0, SEEK_END)), '\0');
    fuzz::require(pread(file_, text.data(), text.size(), 0) == static_cast<ssize_t>(text.size()), "a file can be read");
    return text;
  }

 private:
  int file_;
};

void checkSeat(fuzz::Input& input) {
  std::string commands;
  std::size_t asked = 0;
  while (!input.isUsedUp() && asked < 12) {
    const std::string line = lineOf(input.text());
    if (!isForSeat(line)) continue;
    commands += std::to_string(asked + 1) + " do " + line + "\n";
    commands += std::to_string(asked + 2) + " state\n";
    asked += 2;
  }
  const File in;
  const File out;
  in.write(commands);
  fuzz::require(seat({.seed = {}, .isFurnished = false, .isLive = false}, in.get(), out.get()) == 0,
                "a seat ends well");

  std::istringstream messages(out.content());
  std::size_t answered = 0;
  std::size_t done = 0;
  std::size_t accepted = 0;
  for (std::string message; std::getline(messages, message);) {
    std::istringstream words(message.substr(1));
    std::uint64_t number = 0;
    std::string rest;
    if (message[0] == 'Q') {
      int status = 0;
      words >> number >> status;
      fuzz::require(number == ++answered && (status == 200 || status == 400), "each command is answered, in its order");
      if (number % 2 == 1 && status == 200) ++accepted;
      if (number % 2 == 0) fuzz::require(status == 200, "the state can always be told");
    } else if (message[0] == 'D' || message[0] == 'R') {
      words >> number;
      std::getline(words, rest);
      fuzz::require(json::accept(rest), "lines and records are JSON");
      if (message[0] == 'D') ++done;
    } else if (message[0] == 'S' || message[0] == 'P') {
      fuzz::require(json::accept(message.substr(1)), "states are JSON");
    }
  }
  fuzz::require(answered == asked, "each command is answered");
  fuzz::require(done == accepted, "a line is told as done when it was");
}

const fuzz::Target target("DeskRequests", [](std::string_view bytes) {
  fuzz::Input input(bytes);
  switch (input.number<unsigned char>()) {
    case 'h':
      return checkHeaders(input);
    case 'b':
      return checkBeginning(input.rest());
    case 'p':
      return checkPlace(input.rest());
    default:
      return checkSeat(input);
  }
});

}  // namespace
