// A plausible life of a desk, from a seed: working days and nights, with every kind of bad luck.
#pragma once

#include <cstdint>
#include <map>
#include <nlohmann/json.hpp>
#include <random>
#include <set>
#include <string>
#include <vector>

namespace campaign {

class Life {
 public:
  explicit Life(std::uint64_t seed);

  // The lines of the next day; the first begins with what is on the desk and the program's launch.
  std::vector<std::string> day();

 private:
  using Json = nlohmann::json;
  struct Monitor;
  struct Output;

  // ---- Dice ----

  std::uint64_t upTo(std::uint64_t n) { return random_() % (n + 1); }
  bool oneIn(std::uint64_t n) { return random_() % n == 0; }
  template <typename Choices>
  const auto& oneOf(const Choices& choices) {
    return choices[random_() % std::size(choices)];
  }

  // Things that happen, one after the other, each any of `kinds`.
  using Happening = void (Life::*)();
  template <typename Kinds>
  void someOf(const Kinds& kinds, std::uint64_t count) {
    for (; count > 0; --count) (this->*oneOf(kinds))();
  }

  // ---- Lines ----

  void say(const char* what, Json members = Json::object());
  // The same, and perhaps in the middle of what is going on.
  void mayRace(const char* what, Json members = Json::object());
  void wait(double atMost);
  void settle() { say("settle"); }

  // ---- What is on the desk ----

  void furnish();
  void connect(int display);
  void disconnect(int display);
  void addOutput(int output);
  void pointAt(int display);
  // One of those that are connected; there must be one.
  int someDisplay();
  void pointSomewhere();

  // ---- What happens ----

  void episode();
  void pressBrightness();
  void pressVolume();
  void pressKeys(const std::vector<std::string>& keys);
  void useMenu();
  void plug();
  void wakeInStorms();
  void changeOutput();
  void playSomething();
  void changePermission();
  void monitorMisbehaves();
  void callsFail();
  void callsOfAnUpdateFail();
  void publish();
  void update();
  void leaveAlertOpen();
  void toggleLogin();
  void relaunch();
  void disturbKeys();
  void changeTemper();
  void interruptACall();
  void mirror();
  void setClock();
  void sendRawEvents();
  void everythingAtOnce();
  // So that what is to be known can be known again.
  void recover();
  void night();

  std::mt19937_64 random_;
  std::vector<std::string> lines_;
  bool isFurnished_ = false;
  std::set<int> connected_;
  std::set<int> outputs_;
  int version_ = 0;
};

}  // namespace campaign
