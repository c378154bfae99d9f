// Disk images of applications, published on the network.
#pragma once

#include "simulator/kernel/Part.h"

namespace simulator {

class Applications;
class Machine;
class URLLoading;

class Publishing : public Part {
 public:
  Publishing(Machine& machine, Applications& applications, URLLoading& network)
      : machine_(machine), applications_(applications), network_(network) {}

  void addCommands(Commands& commands) override;

 private:
  Machine& machine_;
  Applications& applications_;
  URLLoading& network_;
};

}  // namespace simulator
