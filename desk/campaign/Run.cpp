#include "desk/campaign/Run.h"

#include <filesystem>
#include <sstream>
#include <utility>

#include "simulator/audio/Audio.h"
#include "simulator/mac/Mac.h"
#include "simulator/mac/Scenario.h"

using nlohmann::json;

namespace campaign {

std::string Breach::text() const {
  return json({{"name", name}, {"sentence", sentence}, {"how", how}, {"lines", lines}, {"trace", trace}})
      .dump(-1, ' ', false, json::error_handler_t::replace);
}

Breach Breach::of(const std::string& text) {
  const json read = json::parse(text);
  return {.name = read["name"],
          .sentence = read["sentence"],
          .how = read["how"],
          .lines = read["lines"],
          .trace = read["trace"]};
}

Run::Run(const simulator::Program& program, const simulator::Seed& seed, Invariants invariants,
         std::function<void(const Breach&)> broken)
    : invariants_(std::move(invariants)), broken_(std::move(broken)) {
  const auto stops = [this] {
    tell({.name = keepsGoing,
          .sentence = keepsGoingSentence,
          .how = trace_.empty() ? "" : trace_.back(),
          .lines = given_,
          .trace = {}});
    std::_Exit(1);
  };
  const auto trace = [this](std::string_view line) { take(line); };
  mac_ = std::make_unique<simulator::Mac>(
      program,
      simulator::Options{.clock = simulator::Clock::deterministic, .seed = seed, .trace = trace, .fatal = stops});
  world_ = std::make_unique<World>(*mac_);
  scenario_ = std::make_unique<simulator::Scenario>(*mac_);
  scenario_->forgive();
  mac_->part<simulator::Audio>().setMeter([this](std::int64_t output, float level, bool direct) {
    for (const auto& invariant : invariants_) invariant->hear(*world_, output, level, direct);
  });
}

Run::~Run() = default;

void Run::take(std::string_view line) {
  constexpr std::size_t kept = 60;
  trace_.emplace_back(line);
  if (trace_.size() > kept) trace_.pop_front();
  if (!world_ || !World::concerns(line)) return;
  json members = json::parse(line);
  Record record{.time = mac_->scheduler.now(), .what = members["what"], .members = std::move(members)};
  if (record.what == "do" && !world_->makesSense(record["line"])) return;
  world_->see(record);
  for (const auto& invariant : invariants_) invariant->see(*world_, record);
}

bool Run::play(const std::vector<std::string>& lines, const std::function<void()>& goesOn, const std::string& file) {
  constexpr std::size_t often = 1000;  // lines
  std::string text;
  for (const std::string& line : lines) text += line + "\n";
  std::istringstream in(text);
  scenario_->add(in, file, std::filesystem::path(file).parent_path());
  given_ = lines_ + lines.size();
  scenario_->play([this, &goesOn](std::size_t count) {
    const std::size_t before = std::exchange(lines_, lines_ + count);
    if (goesOn && before / often != lines_ / often) goesOn();
    return look();
  });
  if (lines_ == 0) throw simulator::ScenarioError(file + ":1: there is nothing to play");
  return !isBroken_;
}

bool Run::finish() {
  if (isBroken_) return false;
  static_cast<void>(mac_->shutDown());
  return look();
}

bool Run::look() {
  world_->endStep();
  for (const auto& invariant : invariants_) invariant->look(*world_);
  for (const auto& invariant : invariants_) {
    if (!isBroken_ && invariant->breach()) tell(*invariant);
  }
  return !isBroken_;
}

void Run::tell(const Invariant& invariant) {
  tell({.name = std::string(invariant.name()),
        .sentence = std::string(invariant.sentence()),
        .how = *invariant.breach(),
        .lines = lines_,
        .trace = {}});
}

void Run::tell(Breach breach) {
  isBroken_ = true;
  for (const std::string& line : trace_) breach.trace += line + "\n";
  broken_(breach);
}

}  // namespace campaign
