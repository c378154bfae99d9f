// The machine's clock and the program's threads.
//
// On the deterministic clock time is virtual and the program's threads are fibers of the host thread that drives the
// machine: one runs at a time, and the run's schedule chooses among those that are ready. On the live clock time is
// real and each is a thread of the host. Everything else is the same: a thread runs, is ready, or is blocked until
// something makes it ready, and `Timer`s are what time itself does.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "simulator/kernel/Fiber.h"
#include "simulator/kernel/Schedule.h"

namespace simulator {

using Duration = std::chrono::nanoseconds;
using Time = std::chrono::nanoseconds;  // since power-on

enum class Clock { deterministic, live };

// Whether `settle` waits for something that time will do.
enum class Waiting {
  work,        // it does, when the wait is shorter than `longWait`
  background,  // it does not: periodic timers and running audio
};

// Which clock a wait counts on.
enum class Counting {
  uptime,      // stands still while the Mac sleeps
  continuous,  // goes on
};

// Thrown through the frames of the program's threads when its process ends, so that they give back what they hold.
// Not a std::exception: the program has no business catching it.
struct ProcessEnd {};

class Scheduler {
 public:
  static constexpr Duration longWait = std::chrono::seconds(10);

  struct Thread;
  using TimerID = std::pair<Time, std::uint64_t>;

  Scheduler(Clock clock, const Seed& seed);
  ~Scheduler();
  Scheduler(const Scheduler&) = delete;
  Scheduler& operator=(const Scheduler&) = delete;

  [[nodiscard]] Clock clock() const { return clock_; }
  // The continuous clock, which is the machine's own, and the one that leaves out what the Mac has slept.
  [[nodiscard]] Time now() const;
  [[nodiscard]] Time uptime() const { return now() - slept_; }
  // The clock on the wall: the continuous one and what the user has set it forward by.
  [[nodiscard]] Time wallTime() const { return now() + wallClockForward_.load(); }
  void setWallClockForward(Duration by) { wallClockForward_ = wallClockForward_.load() + by; }
  // A number from 0 to n - 1 (n >= 1) from the run's seed.
  std::uint64_t random(std::uint64_t n);
  // What the present moment goes back to: the number that was set last by whoever drives the machine, in the thread or
  // at the moment that led here. Threads and timers inherit it from who made them, and a thread that waits from who
  // wakes it. On the deterministic clock alone; it changes nothing about the run.
  [[nodiscard]] std::uint64_t cause() const;
  void setCause(std::uint64_t cause) { cause_ = cause; }
  // A choice from the run's seed among n things (n >= 1) that may happen in any order.
  std::size_t choose(std::size_t n);
  // How many possibilities each choice had, on a run whose seed gives the choices themselves.
  [[nodiscard]] const std::vector<std::uint32_t>& choices() const { return schedule_.choices(); }

  // The machine's lock: held while the machine's state is looked at or changed. It may be taken again by its holder.
  // On the deterministic clock nothing else runs meanwhile and it costs nothing.
  class Lock {
   public:
    explicit Lock(Scheduler& scheduler);
    ~Lock();
    Lock(const Lock&) = delete;
    Lock& operator=(const Lock&) = delete;

   private:
    Scheduler& scheduler_;
  };
  // Gives the lock up, however often it is held, around a call into the program.
  class Unlock {
   public:
    explicit Unlock(Scheduler& scheduler);
    ~Unlock();
    Unlock(const Unlock&) = delete;
    Unlock& operator=(const Unlock&) = delete;

   private:
    Scheduler& scheduler_;
    int depth_;
  };

  // ---- The program's threads ----

  // Starts a thread of the program.
  void spawn(std::string name, std::function<void()> body);
  // The thread that asks, if it is one of the program's; otherwise null.
  static Thread* current();
  // The asking thread's name; empty for what is none of the program's.
  static std::string_view currentName();
  // A point where another thread may be chosen. Never throws.
  void preempt();
  // The same for a thread that cannot go on before another has done something: false when no other is ready.
  bool yield();
  // Until it is taken back, `preempt` chooses no other thread than the calling one. Nests; without effect outside the
  // program's threads.
  static void keepRunning(bool keep);
  // Blocks the calling thread for that long. Throws ProcessEnd when the process ends meanwhile.
  void sleep(Duration duration, Waiting waiting = Waiting::work, Counting counting = Counting::uptime);
  // Blocks the calling thread until `makeReady`. Throws ProcessEnd when the process ends meanwhile.
  void block();
  void makeReady(Thread* thread);

  // Has `action` happen in the middle of what runs: outside the program's threads, after a seeded number of points
  // where another thread may be chosen (as often among the next two as among the next few thousand), and at the latest
  // when the machine comes to rest. On the live clock, where threads run by themselves, at once.
  void race(std::function<void()> action);
  // Whatever is still to happen so happens now.
  void finishRaces();

  // Makes every thread of the program end, by ProcessEnd at the next place where it blocks.
  void endThreads();
  [[nodiscard]] bool ending() const { return ending_; }
  // Called outside the program's threads when the last of them has ended after `endThreads`.
  void setThreadsEnded(std::function<void()> action) { threadsEnded_ = std::move(action); }

  // Rough: now and then a thread that is ready is held back for up to 5 ms, so that time and other threads overtake it,
  // as on a Mac that is busy. Without effect on the live clock.
  void setRough(bool rough) { rough_ = rough; }

  // ---- What time does ----

  // Calls `action`, with the machine's lock held and outside the program's threads, once `delay` has passed.
  TimerID after(Duration delay, Waiting waiting, std::function<void()> action, Counting counting = Counting::uptime);
  // The same, at a time on the machine's clock; `asked` is the wait that counts for `settle`.
  TimerID at(Time time, Duration asked, Waiting waiting, std::function<void()> action,
             Counting counting = Counting::uptime);
  void cancel(TimerID timer);

  // ---- Leaving out what is known ----

  // Called on the deterministic clock whenever time is about to move: nothing is ready then, and up to `until` nothing
  // happens but what timers do.
  void setTimeWillMove(std::function<void(Time until)> action) { timeWillMove_ = std::move(action); }
  // When the first timer but these is due.
  [[nodiscard]] std::optional<Time> nextTimer(std::span<const TimerID> except) const;
  // Whatever happened so far, counted: timers that were due, threads that went on, and that time was let pass.
  [[nodiscard]] std::uint64_t happenings() const { return happenings_; }
  // How often a thread of the program has begun, or has gone on after it was blocked.
  [[nodiscard]] std::uint64_t wakeUps() const { return wakeUps_; }

  // ---- Driven from outside the program ----

  // Lets everything run that is ready at this instant.
  void runReady();
  void advance(Duration duration);
  // The Mac sleeps that long: nothing runs, and what waits on its uptime has as long to wait afterwards as before. For
  // the deterministic clock alone: real time cannot be slept through.
  void sleepThrough(Duration duration);
  // Lets time pass until nothing is due but what `Waiting` and `longWait` leave out. False when it gave up because
  // the program was still busy after a day.
  [[nodiscard]] bool settle();

 private:
  struct Timer {
    bool counts;  // for settle
    Counting counting;
    std::uint64_t cause;
    std::function<void()> action;
  };

  void resume(Thread& thread);
  std::size_t pick(Thread* running);
  void suspendFor(Thread* next);
  bool holdsBack(Thread& thread);
  [[nodiscard]] bool raceIsDue() const;
  bool runNextRace();
  void fireDue();
  void removeFinished();
  void addTimer(TimerID id, Timer timer);
  std::map<TimerID, Timer>::iterator dropTimer(std::map<TimerID, Timer>::iterator timer);
  void runNext();
  void runTimers();

  const Clock clock_;
  Schedule schedule_;
  std::vector<std::unique_ptr<Thread>> threads_;
  std::vector<Thread*> ready_;  // in the order in which they became ready
  Thread* next_ = nullptr;      // chosen already
  std::vector<Schedule::Rank*> ranks_;
  bool rough_ = false;
  std::map<TimerID, Timer> timers_;
  std::uint64_t nextTimer_ = 0;
  std::size_t counted_ = 0;                                    // timers that settle waits for
  std::uint64_t cause_ = 0;                                    // outside the program's threads
  std::uint64_t points_ = 0;                                   // where another thread could have been chosen
  std::multimap<std::uint64_t, std::function<void()>> races_;  // by the point at which they happen
  bool ending_ = false;
  std::function<void()> threadsEnded_;
  std::function<void(Time until)> timeWillMove_;
  std::uint64_t happenings_ = 0;
  std::uint64_t wakeUps_ = 0;
  Time now_{0};
  Duration slept_{0};
  std::atomic<Duration> wallClockForward_{Duration::zero()};

  // The live clock's own.
  std::mutex mutex_;
  std::chrono::steady_clock::time_point powerOn_;
  std::condition_variable timersChanged_;
  std::condition_variable idle_;
  std::size_t running_ = 0;
  bool stopping_ = false;
  std::thread timerThread_;
};

// Threads that wait for one thing. Used with the machine's lock held.
class WaitQueue {
 public:
  explicit WaitQueue(Scheduler& scheduler) : scheduler_(scheduler) {}

  // Blocks until notified. Throws ProcessEnd when the process ends meanwhile.
  void wait();
  void notifyOne();
  void notifyAll();

 private:
  Scheduler& scheduler_;
  std::vector<Scheduler::Thread*> waiting_;
};

}  // namespace simulator
