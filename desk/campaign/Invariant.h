// What must be so whatever happens around the program, as a person could check it from outside.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "desk/campaign/World.h"

namespace campaign {

class Invariant {
 public:
  Invariant(std::string_view name, std::string_view sentence) : name_(name), sentence_(sentence) {}
  virtual ~Invariant() = default;
  Invariant(const Invariant&) = delete;
  Invariant& operator=(const Invariant&) = delete;

  [[nodiscard]] std::string_view name() const { return name_; }
  [[nodiscard]] std::string_view sentence() const { return sentence_; }

  // A record has come; the world knows of it.
  virtual void see(const World&, const Record&) {}
  // An output's speaker has played a cycle.
  virtual void hear(const World&, std::int64_t /*output*/, float /*level*/, bool /*direct*/) {}
  // A step is over.
  virtual void look(const World&) {}

  // What was seen that must not be; none: nothing yet.
  [[nodiscard]] const std::optional<std::string>& breach() const { return breach_; }

 protected:
  // The first one counts.
  void isBroken(std::string how) {
    if (!breach_) breach_ = std::move(how);
  }

 private:
  const std::string_view name_;
  const std::string_view sentence_;
  std::optional<std::string> breach_;
};

using Invariants = std::vector<std::unique_ptr<Invariant>>;

// All of them.
Invariants allInvariants();

// By room.
void addDisplayInvariants(Invariants& all);
void addKeyInvariants(Invariants& all);
void addSoundInvariants(Invariants& all);
void addSystemInvariants(Invariants& all);

}  // namespace campaign
