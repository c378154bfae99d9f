#include "simulator/kernel/Scheduler.h"

#include <algorithm>
#include <exception>
#include <limits>
#include <utility>

namespace simulator {

struct Scheduler::Thread {
  enum class State { ready, running, blocked };

  std::string name;
  std::uint64_t cause = 0;
  State state = State::ready;
  bool done = false;
  int keptRunning = 0;           // how often `keepRunning` was asked for
  Schedule::Rank rank;           // among those that are ready
  std::unique_ptr<Fiber> fiber;  // on the deterministic clock
  std::thread host;              // on the live clock
  std::condition_variable resumed;
};

namespace {

thread_local Scheduler::Thread* currentThread = nullptr;
thread_local int lockDepth = 0;

}  // namespace

// ---- The lock ----

Scheduler::Lock::Lock(Scheduler& scheduler) : scheduler_(scheduler) {
  if (scheduler_.clock_ == Clock::live && lockDepth++ == 0) scheduler_.mutex_.lock();
}

Scheduler::Lock::~Lock() {
  if (scheduler_.clock_ == Clock::live && --lockDepth == 0) scheduler_.mutex_.unlock();
}

Scheduler::Unlock::Unlock(Scheduler& scheduler) : scheduler_(scheduler), depth_(std::exchange(lockDepth, 0)) {
  if (depth_ > 0) scheduler_.mutex_.unlock();
}

Scheduler::Unlock::~Unlock() {
  if (depth_ > 0) scheduler_.mutex_.lock();
  lockDepth = depth_;
}

// ---- The machine ----

Scheduler::Scheduler(Clock clock, const Seed& seed)
    : clock_(clock), schedule_(seed), powerOn_(std::chrono::steady_clock::now()) {
  if (clock_ == Clock::live) timerThread_ = std::thread([this] { runTimers(); });
}

Scheduler::~Scheduler() {
  threadsEnded_ = nullptr;
  endThreads();
  runReady();
  if (clock_ != Clock::live) return;
  {
    const Lock lock(*this);
    stopping_ = true;
    timersChanged_.notify_all();
  }
  timerThread_.join();
  for (const auto& thread : threads_) {
    if (thread->host.joinable()) thread->host.join();
  }
}

Time Scheduler::now() const {
  if (clock_ == Clock::deterministic) return now_;
  return std::chrono::duration_cast<Time>(std::chrono::steady_clock::now() - powerOn_);
}

std::uint64_t Scheduler::random(std::uint64_t n) {
  const Lock lock(*this);
  return schedule_.random(n);
}

std::uint64_t Scheduler::cause() const { return currentThread ? currentThread->cause : cause_; }

std::size_t Scheduler::choose(std::size_t n) {
  const Lock lock(*this);
  return schedule_.choose(n);
}

// ---- The program's threads ----

Scheduler::Thread* Scheduler::current() { return currentThread; }

std::string_view Scheduler::currentName() { return currentThread ? std::string_view(currentThread->name) : ""; }

void Scheduler::spawn(std::string name, std::function<void()> body) {
  const Lock lock(*this);
  ++wakeUps_;
  threads_.push_back(std::make_unique<Thread>());
  Thread& thread = *threads_.back();
  thread.name = std::move(name);
  thread.cause = cause();
  auto guarded = [body = std::move(body)] {
    try {
      body();
    } catch (const ProcessEnd&) {
      // The process ended; the thread's frames have given back what they held.
    }
  };
  if (clock_ == Clock::deterministic) {
    thread.fiber = std::make_unique<Fiber>(std::move(guarded));
    ready_.push_back(&thread);
    return;
  }
  thread.state = Thread::State::running;
  ++running_;
  thread.host = std::thread([this, &thread, guarded = std::move(guarded)] {
    currentThread = &thread;
    guarded();
    const Lock ended(*this);
    thread.done = true;
    --running_;
    if (ending_) after(Duration::zero(), Waiting::work, [this] { removeFinished(); });
    idle_.notify_all();
  });
}

void Scheduler::keepRunning(bool keep) {
  if (currentThread) currentThread->keptRunning += keep ? 1 : -1;
}

// Which thread runs next: 0 is the one that runs now, if it could go on; then come those that are ready.
std::size_t Scheduler::pick(Thread* running) {
  if (!schedule_.ranks()) return schedule_.choose(ready_.size() + (running ? 1 : 0));
  ranks_.clear();
  if (running) ranks_.push_back(&running->rank);
  for (Thread* const thread : ready_) ranks_.push_back(&thread->rank);
  return schedule_.pick(ranks_, running != nullptr);
}

// Suspends the running thread, which stays ready, for that thread, or for whichever is chosen.
void Scheduler::suspendFor(Thread* next) {
  Thread* const self = currentThread;
  next_ = next;
  self->state = Thread::State::ready;
  ready_.push_back(self);
  self->fiber->suspend();
}

void Scheduler::preempt() {
  if (clock_ == Clock::live || !currentThread || currentThread->keptRunning > 0) return;
  ++points_;
  if (raceIsDue()) return suspendFor(nullptr);
  if (ready_.empty()) return;
  const std::size_t chosen = pick(currentThread);
  if (chosen > 0) suspendFor(ready_[chosen - 1]);
}

bool Scheduler::yield() {
  if (clock_ == Clock::live || !currentThread || ready_.empty() || currentThread->keptRunning > 0) return false;
  schedule_.yield(currentThread->rank);
  suspendFor(nullptr);
  return true;
}

void Scheduler::block() {
  Thread* const self = currentThread;
  if (!self) std::terminate();  // only threads of the program block
  const auto leave = [this] {
    // While the frames unwind already, destructors must get through.
    if (ending_ && std::uncaught_exceptions() == 0) throw ProcessEnd{};
  };
  if (ending_) return leave();
  self->state = Thread::State::blocked;
  if (clock_ == Clock::deterministic) {
    self->fiber->suspend();
  } else {
    std::unique_lock<std::mutex> lock(mutex_, std::adopt_lock);
    --running_;
    idle_.notify_all();
    self->resumed.wait(lock, [self] { return self->state == Thread::State::running; });
    lock.release();
  }
  leave();
}

void Scheduler::makeReady(Thread* thread) {
  const Lock lock(*this);
  if (thread->done || thread->state != Thread::State::blocked) return;
  ++wakeUps_;
  if (clock_ == Clock::deterministic) {
    thread->cause = cause();
    thread->state = Thread::State::ready;
    ready_.push_back(thread);
  } else {
    thread->state = Thread::State::running;
    ++running_;
    thread->resumed.notify_one();
  }
}

void Scheduler::sleep(Duration duration, Waiting waiting, Counting counting) {
  const Lock lock(*this);
  Thread* const self = currentThread;
  bool over = false;
  const auto wake = [this, self, &over] {
    over = true;
    makeReady(self);
  };
  const TimerID timer = after(duration, waiting, wake, counting);
  try {
    while (!over && !ending_) block();
  } catch (...) {
    cancel(timer);
    throw;
  }
  cancel(timer);
}

void Scheduler::race(std::function<void()> action) {
  if (clock_ == Clock::live) {
    const Lock lock(*this);
    return action();
  }
  // What happens at a time may have happened earlier, because everything was at rest.
  const auto once = [shared = std::make_shared<std::function<void()>>(std::move(action))] {
    if (const auto happens = std::exchange(*shared, nullptr)) happens();
  };
  const auto logarithmic = [this](std::uint64_t doublings) { return random(std::uint64_t{2} << random(doublings)); };
  if (random(2) == 0) {
    races_.emplace(points_ + 1 + logarithmic(12), once);
  } else {
    after(std::chrono::microseconds(logarithmic(20)), Waiting::background, once);
    races_.emplace(std::numeric_limits<std::uint64_t>::max(), once);
  }
}

bool Scheduler::raceIsDue() const { return !races_.empty() && races_.begin()->first <= points_; }

bool Scheduler::runNextRace() {
  if (races_.empty()) return false;
  const auto action = std::move(races_.begin()->second);
  races_.erase(races_.begin());
  action();
  return true;
}

void Scheduler::finishRaces() {
  while (runNextRace()) {
  }
}

void Scheduler::endThreads() {
  const Lock lock(*this);
  ending_ = true;
  for (const auto& thread : threads_) makeReady(thread.get());
}

// ---- What time does ----

Scheduler::TimerID Scheduler::after(Duration delay, Waiting waiting, std::function<void()> action, Counting counting) {
  return at(now() + std::max(delay, Duration::zero()), delay, waiting, std::move(action), counting);
}

Scheduler::TimerID Scheduler::at(Time time, Duration asked, Waiting waiting, std::function<void()> action,
                                 Counting counting) {
  const Lock lock(*this);
  const TimerID id{time, nextTimer_++};
  const bool counts = waiting == Waiting::work && asked < longWait;
  timers_.emplace(id, Timer{counts, counting, cause(), std::move(action)});
  if (counts) ++counted_;
  timersChanged_.notify_all();
  return id;
}

std::map<Scheduler::TimerID, Scheduler::Timer>::iterator Scheduler::dropTimer(
    std::map<TimerID, Timer>::iterator timer) {
  if (timer->second.counts) --counted_;
  idle_.notify_all();
  return timers_.erase(timer);
}

void Scheduler::cancel(TimerID id) {
  const Lock lock(*this);
  auto timer = timers_.find(id);
  if (timer == timers_.end() && slept_ > Duration::zero()) {
    // Its time may have been moved.
    timer = std::ranges::find_if(timers_, [id](const auto& each) { return each.first.second == id.second; });
  }
  if (timer != timers_.end()) dropTimer(timer);
}

void Scheduler::fireDue() {
  while (!timers_.empty() && timers_.begin()->first.first <= now()) {
    const auto timer = timers_.begin();
    const auto action = std::move(timer->second.action);
    cause_ = timer->second.cause;
    dropTimer(timer);
    ++happenings_;
    action();
  }
}

std::optional<Time> Scheduler::nextTimer(std::span<const TimerID> except) const {
  for (const auto& [id, timer] : timers_) {
    const auto isSame = [number = id.second](const TimerID& each) { return each.second == number; };
    if (std::ranges::none_of(except, isSame)) return id.first;
  }
  return std::nullopt;
}

// The live clock's hand.
void Scheduler::runTimers() {
  const Lock hold(*this);
  std::unique_lock<std::mutex> lock(mutex_, std::adopt_lock);
  while (!stopping_) {
    fireDue();
    if (timers_.empty()) {
      timersChanged_.wait(lock);
    } else {
      timersChanged_.wait_until(lock, powerOn_ + timers_.begin()->first.first);
    }
  }
  lock.release();
}

// ---- Driven from outside ----

void Scheduler::resume(Thread& thread) {
  ++happenings_;
  thread.state = Thread::State::running;
  currentThread = &thread;
  thread.fiber->resume();
  currentThread = nullptr;
  thread.done = thread.fiber->done();
}

// Takes the processor away from a thread that was about to run, for a while.
bool Scheduler::holdsBack(Thread& thread) {
  constexpr std::uint64_t oneIn = 32;
  constexpr std::uint64_t longest = 5'000'000;  // ns: an unlucky time slice
  if (ending_ || schedule_.random(oneIn) > 0) return false;
  thread.state = Thread::State::blocked;
  after(Duration(schedule_.random(longest)), Waiting::work, [this, held = &thread] {
    // It may have ended meanwhile, with its process.
    if (std::ranges::any_of(threads_, [held](const auto& each) { return each.get() == held; })) makeReady(held);
  });
  return true;
}

void Scheduler::removeFinished() {
  std::erase_if(threads_, [](const auto& thread) {
    if (!thread->done) return false;
    if (thread->host.joinable()) thread->host.join();
    return true;
  });
  if (ending_ && threads_.empty()) {
    ending_ = false;  // the next process starts afresh
    if (threadsEnded_) threadsEnded_();
  }
}

void Scheduler::runReady() {
  if (clock_ == Clock::live) {
    const Lock hold(*this);
    std::unique_lock<std::mutex> lock(mutex_, std::adopt_lock);
    idle_.wait(lock, [this] { return running_ == 0 && (timers_.empty() || timers_.begin()->first.first > now()); });
    lock.release();
    return;
  }
  fireDue();
  if (!ready_.empty()) schedule_.beginBurst();
  bool finished = false;
  for (;;) {
    const bool isAtRest = ready_.empty() && counted_ == 0;
    if ((raceIsDue() || isAtRest) && runNextRace()) {
      fireDue();
      continue;
    }
    if (ready_.empty()) break;
    ++points_;
    Thread* const thread = next_ ? std::exchange(next_, nullptr) : ready_[pick(nullptr)];
    std::erase(ready_, thread);
    if (rough_ && holdsBack(*thread)) continue;
    resume(*thread);
    finished |= thread->done;
  }
  if (finished) removeFinished();
}

// Moves time to the first timer.
void Scheduler::runNext() {
  now_ = std::max(now_, timers_.begin()->first.first);
  runReady();
}

void Scheduler::advance(Duration duration) {
  if (clock_ == Clock::live) {
    std::this_thread::sleep_until(powerOn_ + now() + duration);
    return;
  }
  // What the Mac sleeps meanwhile comes on top.
  const Time awake = uptime() + duration;
  const auto until = [&] { return awake + slept_; };
  ++happenings_;
  runReady();
  if (timeWillMove_) timeWillMove_(until());
  while (!timers_.empty() && timers_.begin()->first.first <= until()) {
    runNext();
    if (timeWillMove_) timeWillMove_(until());
  }
  now_ = until();
}

void Scheduler::sleepThrough(Duration duration) {
  std::map<TimerID, Timer> moved;
  for (auto& [id, timer] : timers_) {
    const Duration delay = timer.counting == Counting::uptime ? duration : Duration::zero();
    moved.emplace(TimerID{id.first + delay, id.second}, std::move(timer));
  }
  timers_ = std::move(moved);
  slept_ += duration;
  now_ += duration;
}

bool Scheduler::settle() {
  constexpr Duration limit = std::chrono::hours(24);
  if (clock_ == Clock::live) {
    const Lock hold(*this);
    std::unique_lock<std::mutex> lock(mutex_, std::adopt_lock);
    idle_.wait(lock, [this] { return running_ == 0 && counted_ == 0; });
    lock.release();
    return true;
  }
  const Time until = uptime() + limit;
  ++happenings_;
  runReady();
  while (counted_ > 0) {
    if (uptime() > until) return false;
    if (timeWillMove_) timeWillMove_(until + slept_);
    runNext();
  }
  return true;
}

// ---- Wait queues ----

void WaitQueue::wait() {
  Scheduler::Thread* const self = Scheduler::current();
  waiting_.push_back(self);
  try {
    scheduler_.block();
  } catch (...) {
    std::erase(waiting_, self);
    throw;
  }
  std::erase(waiting_, self);  // still there when the process ends
}

void WaitQueue::notifyOne() {
  if (waiting_.empty()) return;
  Scheduler::Thread* const thread = waiting_.front();
  waiting_.erase(waiting_.begin());
  scheduler_.makeReady(thread);
}

void WaitQueue::notifyAll() {
  for (Scheduler::Thread* const thread : std::exchange(waiting_, {})) scheduler_.makeReady(thread);
}

}  // namespace simulator
