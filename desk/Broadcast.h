// What many listeners follow: the latest records of a machine, and what is visible now. Any thread.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <mutex>
#include <string>
#include <string_view>

// Only so many records are kept, so what there is does not grow, however slow a listener is: each has its own place in
// the one row, and one that has fallen out of it at its end is told so. Of what is visible each gets the newest.
class Broadcast {
 public:
  static constexpr std::size_t mostRecords = 16384;
  static constexpr std::size_t mostBytes = std::size_t{8} << 20;

  // Where a listener is.
  struct Place {
    std::uint64_t machine = 0;
    std::uint64_t next = 0;  // the record
    std::uint64_t state = 0;
    std::uint64_t pulse = 0;
    std::uint64_t status = 0;
    std::uint64_t sound = 0;
  };
  enum class Kind { records, everything, sound };

  // A new machine: its records begin anew.
  void begin();
  void add(std::uint64_t cause, std::string_view record);
  void setState(std::string_view json);
  void setPulse(std::string_view json);
  // Whether the machine runs, and if not, why.
  void setStatus(std::string_view json);
  // Samples; only the last second or so of them is kept.
  void addSound(std::string_view samples);
  // What was added since is there for everybody.
  void publish();
  // Everybody is told that there is no more.
  void end();

  // Where somebody begins who has heard everything up to the record with that id; an empty or unknown one: nothing.
  Place placeAfter(std::string_view id);
  // Where somebody begins who wants nothing of what was.
  Place placeAtEnd();
  // What there is behind that place, as server-sent events, once there is something or after that time; the place moves
  // on. False when the listener has fallen behind, or there is no more.
  bool next(Kind kind, Place& place, std::chrono::milliseconds wait, std::string& events);

 private:
  struct Record {
    std::uint64_t cause;
    std::string text;
  };
  struct Latest {
    std::uint64_t version = 0;
    std::string text;
    void set(std::string_view value) { ++version, text = value; }
  };

  bool collect(Kind kind, Place& place, std::string& events);
  static void append(std::string& events, const char* name, const Latest& latest, std::uint64_t& seen);

  std::mutex mutex_;
  std::condition_variable published_;
  bool isOver_ = false;
  std::uint64_t machine_ = 0;
  std::deque<Record> records_;
  std::uint64_t first_ = 0;  // number of the first that is kept
  std::size_t bytes_ = 0;
  Latest state_;
  Latest pulse_;
  Latest status_;
  std::deque<std::string> sound_;
  std::uint64_t firstSound_ = 1;
};
