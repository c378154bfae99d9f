#include "desk/campaign/Campaign.h"

#include <chrono>
#include <cstdlib>
#include <fstream>
#include <iomanip>
#include <map>
#include <optional>
#include <sstream>

#include "desk/Children.h"
#include "desk/campaign/Attempt.h"
#include "desk/campaign/Life.h"
#include "desk/campaign/Run.h"
#include "desk/campaign/Shrink.h"

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
      : program_(program), options_(options), streams_(streams) {}

  int run() {
    const std::uint64_t seeds = options_.lastSeed - options_.firstSeed + 1;
    std::uint64_t started = 0;
    while ((started < seeds || children_.count() > 0) && !broken_ && misunderstood_.empty()) {
      while (started < seeds && children_.count() < options_.jobs) start(options_.firstSeed + started++);
      children_.wait([this](std::size_t seed, const std::string& text) { told(seed, text); },
                     [this](std::size_t seed, int status) { ended(seed, status); });
    }
    if (streams_.progress) *streams_.progress << "\r" << std::string(78, ' ') << "\r" << std::flush;
    if (!misunderstood_.empty()) {
      streams_.errors << misunderstood_ << "\n";
      return 2;
    }
    streams_.out << days_ << " days, " << lines_ << " lines, " << seeds << " seeds, " << allInvariants().size() + 1
                 << " invariants, in " << std::fixed << std::setprecision(1) << secondsPassed() << " s\n";
    return broken_ ? report() : 0;
  }

 private:
  void start(std::uint64_t seed) {
    children_.start(seed, patience, [this, seed](const Tell& tell) { live(program_, seed, options_.days, tell); });
  }

  void told(std::uint64_t seed, const std::string& text) {
    if (text[0] == 'B' && !broken_) broken_ = {seed, Breach::of(text.substr(1))};
    if (text[0] == 'E') misunderstood_ = "seed " + std::to_string(seed) + ": " + text.substr(1);
    if (text[0] != 'D') return;
    const auto count = std::stoull(text.substr(1));
    ++days_;
    lines_ += count;
    played_[seed] += count;
    showProgress();
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

  [[nodiscard]] double secondsPassed() const {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - begun_).count();
  }

  void showProgress() {
    if (!streams_.progress || secondsPassed() < shownAt_ + 0.5) return;
    shownAt_ = secondsPassed();
    const double all =
        static_cast<double>(options_.days) * static_cast<double>(options_.lastSeed - options_.firstSeed + 1);
    const double done = static_cast<double>(days_);
    *streams_.progress << "\r" << days_ << " of " << std::uint64_t(all) << " days, " << std::fixed
                       << std::setprecision(0) << done / shownAt_ << " a second, " << (all - done) / done * shownAt_
                       << " s left   " << std::flush;
  }

  int report() {
    auto& [seed, breach] = *broken_;
    describe(streams_.out, breach, seed);
    streams_.out << "The trace around it:\n"
                 << breach.trace << "Looking for the shortest scenario that shows it…" << std::endl;
    const double begun = secondsPassed();
    Breach shortest = breach;
    const auto shows = [&, name = breach.name](const Lines& lines) {
      if (secondsPassed() > begun + mostSecondsOfSearch) return false;
      const Outcome outcome = playOnce(program_, seed, lines);
      if (!outcome.breach || outcome.breach->name != name) return false;
      shortest = *outcome.breach;
      return true;
    };
    Lines lines = linesOf(seed, breach.lines);
    // It is kept whatever becomes of the search.
    const std::string file = save(lines, breach, seed);
    if (!shows(lines)) {
      streams_.out << "It does not show when those lines, in " << file << ", are played again.\n";
      return 1;
    }
    lines = shrink(std::move(lines), linesOfSetUp, shows);
    save(lines, shortest, seed);
    streams_.out << shortest.how << "\nThe trace around it now:\n"
                 << shortest.trace << "The scenario, in " << file << ":\n";
    for (const std::string& line : lines) streams_.out << line << "\n";
    return 1;
  }

  std::string save(const Lines& lines, const Breach& breach, std::uint64_t seed) const {
    std::string file = options_.folder + "/campaign-" + std::to_string(seed) + "-" + breach.name + ".scenario";
    std::ofstream out(file);
    out << "// " << breach.sentence << "\n// " << breach.how << "\n// dalvane-desk campaign --replay " << file
        << " --seed " << seed << "\n";
    for (const std::string& line : lines) out << line << "\n";
    return file;
  }

  // What is found until then is short enough, or depends on too much.
  static constexpr double mostSecondsOfSearch = 120;
  // The displays, the outputs and the launch.
  static constexpr std::size_t linesOfSetUp = 20;

  const simulator::Program& program_;
  const Options& options_;
  const Streams& streams_;
  Children children_;
  const std::chrono::steady_clock::time_point begun_ = std::chrono::steady_clock::now();
  std::uint64_t days_ = 0;
  std::uint64_t lines_ = 0;
  std::map<std::uint64_t, std::size_t> played_;
  double shownAt_ = 0;
  std::optional<std::pair<std::uint64_t, Breach>> broken_;
  std::string misunderstood_;
};

}  // namespace

int run(const simulator::Program& program, const Options& options, const Streams& streams) {
  return Campaign(program, options, streams).run();
}

int replay(const simulator::Program& program, const std::string& file, std::uint64_t seed, const Streams& streams) {
  std::ifstream in(file);
  if (!in) {
    streams.errors << file << ":1: the file cannot be read\n";
    return 2;
  }
  Lines lines;
  for (std::string line; std::getline(in, line);) lines.push_back(line);
  const Outcome outcome = playOnce(program, seed, lines);
  if (!outcome.misunderstood.empty()) {
    streams.errors << file << ": " << outcome.misunderstood << "\n";
    return 2;
  }
  if (!outcome.breach) {
    streams.out << "Every invariant holds.\n";
    return 0;
  }
  describe(streams.out, *outcome.breach, seed);
  streams.out << "The trace around it:\n" << outcome.breach->trace;
  return 1;
}

}  // namespace campaign
