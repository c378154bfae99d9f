#include "desk/campaign/Report.h"

#include <fstream>
#include <iomanip>
#include <utility>

#include "desk/campaign/Attempt.h"

namespace campaign {
namespace {

// What is found until then is short enough, or depends on too much.
constexpr double mostSecondsOfSearch = 120;
// The displays, the outputs and the launch.
constexpr std::size_t linesOfSetUp = 20;

// False when it could not be written.
bool save(const std::string& file, const Lines& lines, const Breach& breach, std::uint64_t seed) {
  std::ofstream out(file);
  out << "// " << breach.sentence << "\n// " << breach.how << "\n// dalvane-desk campaign --replay " << file
      << " --seed " << seed << "\n";
  for (const std::string& line : lines) out << line << "\n";
  return static_cast<bool>(out.flush());
}

}  // namespace

void Progress::show(std::uint64_t done, std::uint64_t all, const char* unit) {
  const double now = seconds();
  if (!out_ || now < shownAt_ + 0.5) return;
  shownAt_ = now;
  const double speed = static_cast<double>(done) / now;
  *out_ << "\r" << done << " of " << all << " " << unit << ", " << std::fixed << std::setprecision(0) << speed
        << " a second, " << static_cast<double>(all - done) / speed << " s left   " << std::flush;
}

void Progress::clear() const {
  if (out_) *out_ << "\r" << std::string(78, ' ') << "\r" << std::flush;
}

double Progress::seconds() const {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - begun_).count();
}

void describe(const Breach& breach, std::uint64_t seed, const Streams& streams) {
  streams.out << "BROKEN: " << breach.name << "\n  " << breach.sentence << "\n  " << breach.how << "\n  seed " << seed
              << ", after " << breach.lines << " lines\nThe trace around it:\n"
              << breach.trace;
}

void report(const simulator::Program& program, const Finding& finding, const std::string& folder,
            const Streams& streams) {
  describe(finding.breach, finding.seed, streams);
  streams.out << "Looking for the shortest scenario that shows it…" << std::endl;
  const Progress search(streams);
  Breach shortest = finding.breach;
  const auto shows = [&](const Lines& lines) {
    if (search.seconds() > mostSecondsOfSearch) return false;
    const Outcome outcome = playOnce(program, finding.seed, lines);
    if (!outcome.breach || outcome.breach->name != finding.breach.name) return false;
    shortest = *outcome.breach;
    return true;
  };
  // It is kept whatever becomes of the search.
  const std::string file = folder + "/" + finding.name + "-" + finding.breach.name + ".scenario";
  const auto keep = [&](const Lines& lines) { return save(file, lines, shortest, finding.seed); };
  Lines lines = finding.lines;
  bool isKept = keep(lines);
  const bool isShownAgain = shows(lines);
  if (isShownAgain) {
    lines = shrink(std::move(lines), linesOfSetUp, shows);
    isKept = keep(lines);
    streams.out << shortest.how << "\nThe trace around it now:\n" << shortest.trace;
  } else {
    streams.out << "It does not show when its lines are played again.\n";
  }
  if (!isKept) streams.errors << file << ": the file cannot be written\n";
  streams.out << "The scenario" << (isKept ? ", in " + file : "") << ":\n";
  // Those that show nothing are many.
  if (isKept && !isShownAgain) lines = {"…"};
  for (const std::string& line : lines) streams.out << line << "\n";
}

}  // namespace campaign
