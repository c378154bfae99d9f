// A machine with somebody in front of it (Seat.h), in a process of its own, and what is known of it here. Any thread.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <cstdio>
#include <future>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>

#include "desk/Broadcast.h"

class MachineHost {
 public:
  struct Answer {
    int status;  // as in HTTP: 200; 400: the line made no sense; 409: the machine has stopped
    std::string text;
  };

  // `program` is this executable, which plays the machine.
  explicit MachineHost(std::string program);
  ~MachineHost();
  MachineHost(const MachineHost&) = delete;
  MachineHost& operator=(const MachineHost&) = delete;

  // Ends the machine that there is, and starts another: a furnished desk with the clock running, or one with nothing on
  // it whose clock stands. `seed` as in `dalvane-desk play --seed`; it must be one. False: it cannot be started.
  bool begin(bool isFurnished, const std::string& seed);

  // Carries out one scenario line, in which there is no line break.
  Answer perform(const std::string& line) { return ask("do " + line); }
  // What is visible, as JSON.
  Answer state() { return ask("state"); }
  Answer setClock(bool isLive) { return ask(isLive ? "clock live" : "clock paused"); }
  // Somebody listens to the samples, or no longer does.
  void listen(bool begins);

  // What was done so far, as a scenario file. The lines themselves lie in a file without a name, not in memory.
  std::string scenario();

  Broadcast broadcast;

 private:
  using File = std::unique_ptr<std::FILE, int (*)(std::FILE*)>;

  Answer ask(const std::string& command);
  bool send(const std::string& text);
  void stop();
  void read(int connection, pid_t process);
  void receive(std::string_view message);
  void answer(std::string_view text);
  void keep(std::string_view timeAndLine);
  void ended(pid_t process);

  const std::string program_;
  std::mutex beginning_;  // one at a time begins or ends a machine

  std::mutex sending_;  // guards the writing to `connection_`
  int connection_ = -1;
  pid_t process_ = -1;
  std::thread reader_;

  std::mutex mutex_;  // guards what follows
  bool runs_ = false;
  std::string fatal_;
  std::string seed_;
  bool isFurnished_ = true;
  std::uint64_t machines_ = 0;
  std::uint64_t lastID_ = 0;
  struct Asked {
    std::string line;  // empty: it is no line that was asked for
    std::promise<Answer> answer;
  };
  std::map<std::uint64_t, Asked> asked_;  // in their order
  bool isToldOf_ = false;                 // whether the line that is being carried out is among `lines_`
  File lines_;                            // "MS LINE" each
  std::string sinceLast_ = "0";
  int listeners_ = 0;
};
