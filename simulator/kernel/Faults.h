// Calls of the platform that are told to fail.
#pragma once

#include <cstdint>
#include <functional>
#include <initializer_list>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>

namespace simulator {

class Faults {
 public:
  // Each part of the machine says which of its calls can be made to fail.
  void declare(std::initializer_list<const char*> calls);
  [[nodiscard]] bool knows(std::string_view call) const { return calls_.contains(call); }

  // Makes calls of `call` answer `status`: the `nth` from now (1: the next) and as many as `times` from there on.
  // Faults of the same call add up.
  void fail(std::string_view call, std::int32_t status, std::uint64_t nth, std::uint64_t times);
  // Has the world do something in the middle of a call of `call`, the `nth` from now and as many as `times` from there
  // on: after the call began, before it has looked at anything.
  void interrupt(std::string_view call, std::function<void()> action, std::uint64_t nth, std::uint64_t times);
  // Takes back what calls of `call` were still to fail with.
  void mend(std::string_view call);
  // Whether calls of `call` are still to fail or to be interrupted.
  [[nodiscard]] bool isPending(std::string_view call) const { return faults_.contains(call); }
  // From now on calls are counted by their names; before, none are.
  void startCounting() { isCounting_ = true; }
  [[nodiscard]] const std::map<std::string, std::uint64_t, std::less<>>& counted() const { return counted_; }

  // A function is called, whether it can fail or not.
  void note(std::string_view call) {
    if (isCounting_) counted_.try_emplace(std::string(call));
  }
  // Counts one call, and does what was to happen in it; the status it is to fail with, if it is.
  std::optional<std::int32_t> take(std::string_view call);

 private:
  struct Fault {
    std::optional<std::int32_t> status;
    std::function<void()> interruption;
    std::uint64_t skip;
    std::uint64_t times;
  };

  std::set<std::string, std::less<>> calls_;
  std::multimap<std::string, Fault, std::less<>> faults_;
  bool isCounting_ = false;
  std::map<std::string, std::uint64_t, std::less<>> counted_;
};

}  // namespace simulator
