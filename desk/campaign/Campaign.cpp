#include "desk/campaign/Campaign.h"

#include <filesystem>
#include <fstream>
#include <iomanip>
#include <map>
#include <optional>
#include <utility>

#include "desk/Children.h"
#include "desk/campaign/Attempt.h"
#include "desk/campaign/Life.h"
#include "desk/campaign/Run.h"

namespace campaign {
namespace {

// ---- One seed ----

// In the child: lives day by day, and tells the parent of each ("D…").
void live(const simulator::Program& program, std::uint64_t seed, std::uint64_t days, const Tell& tell) {
  attempt(program, seed, tell, [&](Run& run) {
    Life life(seed);
    for (std::uint64_t day = 0; day < days; ++day) {
      const Lines lines = life.day();
      if (!run.play(lines)) return;
      tell("D" + std::to_string(lines.size()));
    }
  });
}

Lines linesOf(std::uint64_t seed, std::size_t count) {
  Life life(seed);
  Lines lines;
  while (lines.size() < count) {
    for (std::string& line : life.day()) lines.push_back(std::move(line));
  }
  lines.resize(count);
  return lines;
}

// ---- All of them ----

class Campaign {
 public:
  Campaign(const simulator::Program& program, const Options& options, const Streams& streams)
      : program_(program), options_(options), streams_(streams), progress_(streams) {}

  int run() {
    playAll();
    progress_.clear();
    if (!misunderstood_.empty()) {
      streams_.errors << misunderstood_ << "\n";
      return 2;
    }
    streams_.out << days_ << " days, " << lines_ << " lines, " << seeds_ << " seeds, " << allInvariants().size() + 1
                 << " invariants, in " << std::fixed << std::setprecision(1) << progress_.seconds() << " s\n";
    if (!broken_) return 0;
    const auto& [seed, breach] = *broken_;
    report(program_,
           {.name = "campaign-" + std::to_string(seed),
            .seed = seed,
            .lines = linesOf(seed, breach.lines),
            .breach = breach},
           options_.folder, streams_);
    return 1;
  }

 private:
  void playAll() {
    Children children;
    std::uint64_t started = 0;
    while ((started < seeds_ || children.count() > 0) && !broken_ && misunderstood_.empty()) {
      while (started < seeds_ && children.count() < options_.jobs) {
        const std::uint64_t seed = options_.firstSeed + started++;
        children.start(seed, patience, [this, seed](const Tell& tell) { live(program_, seed, options_.days, tell); });
      }
      children.wait([this](std::size_t seed, const std::string& text) { told(seed, text); },
                    [this](std::size_t seed, int status) { ended(seed, status); });
    }
  }

  void told(std::uint64_t seed, const std::string& text) {
    if (text[0] == 'B' && !broken_) broken_ = {seed, Breach::of(text.substr(1))};
    if (text[0] == 'E') misunderstood_ = "seed " + std::to_string(seed) + ": " + text.substr(1);
    if (text[0] != 'D') return;
    const auto count = std::stoull(text.substr(1));
    ++days_;
    lines_ += count;
    played_[seed] += count;
    progress_.show(days_, options_.days * seeds_, "days");
  }

  void ended(std::uint64_t seed, int status) {
    if (status == 0 || broken_) return;
    // It was in the middle of a day.
    broken_ = {seed, crash(status, linesOfNextDay(seed))};
  }

  std::size_t linesOfNextDay(std::uint64_t seed) {
    Life life(seed);
    std::size_t lines = 0;
    while (lines <= played_[seed]) lines += life.day().size();
    return lines;
  }

  const simulator::Program& program_;
  const Options& options_;
  const Streams& streams_;
  const std::uint64_t seeds_ = options_.lastSeed - options_.firstSeed + 1;
  Progress progress_;
  std::uint64_t days_ = 0;
  std::uint64_t lines_ = 0;
  std::map<std::uint64_t, std::size_t> played_;
  std::optional<std::pair<std::uint64_t, Breach>> broken_;
  std::string misunderstood_;
};

}  // namespace

int run(const simulator::Program& program, const Options& options, const Streams& streams) {
  return Campaign(program, options, streams).run();
}

int replay(const simulator::Program& program, const std::string& file, std::uint64_t seed, const Streams& streams) {
  std::ifstream in(file);
  if (!in || std::filesystem::is_directory(file)) {
    streams.errors << file << ":1: the file cannot be read\n";
    return 2;
  }
  Lines lines;
  for (std::string line; std::getline(in, line);) lines.push_back(line);
  const Outcome outcome = playOnce(program, seed, lines, file);
  if (!outcome.misunderstood.empty()) {
    streams.errors << outcome.misunderstood << "\n";
    return 2;
  }
  if (!outcome.breach) {
    streams.out << "Every invariant holds.\n";
    return 0;
  }
  describe(*outcome.breach, seed, streams);
  return 1;
}

}  // namespace campaign
