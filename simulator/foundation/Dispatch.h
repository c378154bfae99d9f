// Dispatch queues and the worker threads that serve them.
#pragma once

#include <dispatch/dispatch.h>

#include <deque>
#include <set>
#include <string>

#include "simulator/kernel/Object.h"
#include "simulator/kernel/Part.h"
#include "simulator/kernel/Scheduler.h"

struct dispatch_queue_s : simulator::Object {
  enum class Type { main, concurrent, serial };

  dispatch_queue_s(Type which, std::string name) : type(which), label(std::move(name)) {}
  std::string_view kind() const override { return "dispatch queue"; }

  const Type type;
  const std::string label;
  std::deque<dispatch_block_t> blocks;
  bool serving = false;  // a worker has it, or it waits for one
};

namespace simulator {

class Machine;
class RunLoop;

class Dispatch : public Part {
 public:
  Dispatch(Machine& machine, RunLoop& runLoop);

  // Takes over `block`, which has been copied.
  void submit(dispatch_queue_s& queue, dispatch_block_t block);
  // The same at a time as the program has it.
  void submitAfter(dispatch_time_t when, dispatch_queue_s& queue, dispatch_block_t block);

  // The user sets the clock on the wall.
  void setClockForward(Duration by);

  void addCommands(Commands& commands) override;
  void processEnded(Leaks& leaks) override;

 private:
  void enqueue(dispatch_queue_s& queue);
  void work();
  void serve(dispatch_queue_s& queue);

  struct Delayed {
    dispatch_time_t when;
    dispatch_queue_s* queue;
    dispatch_block_t block;
    Scheduler::TimerID timer;
  };
  void arm(Delayed& delayed);

  Machine& machine_;
  RunLoop& runLoop_;
  std::deque<dispatch_queue_s*> waiting_;  // queues that have blocks and no worker; retained
  std::deque<Delayed> delayed_;
  std::size_t idleWorkers_ = 0;
  WaitQueue idle_;
};

}  // namespace simulator
