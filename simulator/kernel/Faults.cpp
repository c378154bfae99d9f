#include "simulator/kernel/Faults.h"

#include <utility>
#include <vector>

namespace simulator {

void Faults::declare(std::initializer_list<const char*> calls) { calls_.insert(calls.begin(), calls.end()); }

void Faults::fail(std::string_view call, std::int32_t status, std::uint64_t nth, std::uint64_t times) {
  faults_.emplace(std::string(call), Fault{status, {}, nth - 1, times});
}

void Faults::interrupt(std::string_view call, std::function<void()> action, std::uint64_t nth, std::uint64_t times) {
  faults_.emplace(std::string(call), Fault{{}, std::move(action), nth - 1, times});
}

void Faults::mend(std::string_view call) {
  std::erase_if(faults_, [call](const auto& each) { return each.first == call && each.second.status; });
}

std::optional<std::int32_t> Faults::take(std::string_view call) {
  if (isCounting_) ++counted_[std::string(call)];
  if (faults_.empty()) return std::nullopt;
  std::optional<std::int32_t> status;
  std::vector<std::function<void()>> interruptions;
  const auto [first, last] = faults_.equal_range(call);
  for (auto fault = first; fault != last;) {
    if (fault->second.skip > 0) {
      --fault->second.skip;
    } else {
      if (!status) status = fault->second.status;
      if (fault->second.interruption) interruptions.push_back(fault->second.interruption);
      if (--fault->second.times == 0) {
        fault = faults_.erase(fault);
        continue;
      }
    }
    ++fault;
  }
  for (const auto& interruption : interruptions) interruption();
  return status;
}

}  // namespace simulator
