#include "desk/campaign/Failures.h"

#include <cerrno>
#include <chrono>
#include <iomanip>
#include <map>
#include <nlohmann/json.hpp>
#include <set>
#include <sstream>
#include <stdexcept>

#include "desk/campaign/Attempt.h"
#include "simulator/mac/Mac.h"

using nlohmann::json;

namespace campaign {
namespace {

// A call that is to fail: which, and which of its occurrences.
struct Failure {
  std::string call;
  std::uint64_t nth;
};
using Failing = std::vector<Failure>;

// What a desk begins with.
constexpr const char* desk = R"(
{"do":"display","id":1,"name":"Built-in","builtin":true,"frame":[0,0,1512,982]}
{"do":"display","id":2,"name":"Left","frame":[2000,0,1000,1000],"vendor":1,"product":2,"serial":3,"monitor":{"current":50,"maximum":100}}
{"do":"output","id":11,"uid":"UID-11","name":"Television","inputs":1,"default":true}
{"do":"output","id":12,"uid":"UID-12","name":"Receiver"}
{"do":"play","process":"Music","output":11,"tone":0,"level":0.25}
{"do":"pointer","at":[2500,500]}
)";
// Sound that is turned down, moved to another output and back, and turned up again.
constexpr const char* sound = R"(
{"do":"launch"}
{"do":"settle"}
{"do":"key","key":"volumeDown"}
{"do":"settle"}
{"do":"default-output","id":12}
{"do":"settle"}
{"do":"default-output","id":11}
{"do":"settle"}
{"do":"key","key":"volumeUp"}
{"do":"settle"}
)";
// An update that is found and installed.
constexpr const char* update = R"(
{"do":"feed","releases":[{"version":"9.0.1","date":"2026-01-01","dmg_url":"https://releases.dalvane.example/Dalvane.dmg","size_bytes":1,"notes":"New."}]}
{"do":"image","url":"https://releases.dalvane.example/Dalvane.dmg","version":"9.0.1"}
{"do":"launch"}
{"do":"settle"}
{"do":"click","item":"Check for Updates…"}
{"do":"settle"}
{"do":"advance","seconds":20}
{"do":"launch"}
{"do":"settle"}
)";
// Everything else that a day has.
constexpr const char* day = R"(
{"do":"accessibility","granted":false}
{"do":"capture","permission":"undetermined"}
{"do":"launch"}
{"do":"advance","seconds":3}
{"do":"accessibility","granted":true}
{"do":"advance","seconds":3}
{"do":"settle"}
{"do":"key","key":"brightnessUp"}
{"do":"advance","seconds":1}
{"do":"key","key":"volumeDown","hold":0.7}
{"do":"advance","seconds":1}
{"do":"key","key":"mute"}
{"do":"advance","seconds":1}
{"do":"key","key":"mute"}
{"do":"settle"}
{"do":"menu","open":true}
{"do":"slide","row":"Left","to":3}
{"do":"slide","row":"Television","to":16}
{"do":"advance","seconds":2}
{"do":"slide","row":"Television","to":9}
{"do":"settle"}
{"do":"menu","open":false}
{"do":"display","id":3,"name":"Right","frame":[4000,0,1000,1000],"vendor":1,"product":2,"serial":4,"monitor":{"current":50,"maximum":100}}
{"do":"settle"}
{"do":"display","id":3,"gone":true}
{"do":"settle"}
{"do":"output","id":11,"rate":44100}
{"do":"settle"}
{"do":"restart-audio"}
{"do":"settle"}
{"do":"disable-tap","by":"timeout"}
{"do":"accessibility","granted":false}
{"do":"accessibility","granted":true}
{"do":"sleep","seconds":3600}
{"do":"advance","seconds":5}
{"do":"settle"}
{"do":"click","item":"Start at Login"}
{"do":"settle"}
{"do":"click","item":"Start at Login"}
{"do":"settle"}
{"do":"default-output","id":12}
{"do":"settle"}
{"do":"default-output","id":11}
{"do":"settle"}
)";
// Whatever has failed: after a wake everything works.
constexpr const char* afterwards = R"(
{"do":"launch"}
{"do":"answer","dismiss":true}
{"do":"settle"}
{"do":"wake"}
{"do":"advance","seconds":5}
{"do":"settle"}
{"do":"key","key":"brightnessUp"}
{"do":"advance","seconds":1}
{"do":"key","key":"volumeDown"}
{"do":"advance","seconds":1}
{"do":"settle"}
{"do":"menu","open":true}
{"do":"settle"}
{"do":"menu","open":false}
{"do":"advance","seconds":600}
{"do":"settle"}
{"do":"advance","seconds":30000}
{"do":"quit"}
{"do":"settle"}
)";

Lines linesOf(const std::vector<const char*>& texts) {
  Lines lines;
  for (const char* text : texts) {
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) {
      if (!line.empty()) lines.push_back(line);
    }
  }
  return lines;
}

// What a call fails with: an errno, a tool's exit status, or any number.
int statusOf(const std::string& call) {
  static const std::set<std::string> errnos = {
      "rename", "remove", "remove_all", "create_directories", "directory_iterator", "access", "waitpid",
      "kqueue", "kevent", "confstr"};
  if (errnos.contains(call) || call.starts_with("posix_spawn")) return EIO;
  if (call.starts_with("hdiutil") || call == "ditto") return 1;
  return call.starts_with("NSURLSession") ? -1005 : -1;
}

// The day with those calls failing.
Lines failing(const Lines& lines, const Failing& failing) {
  Lines result;
  for (const auto& [call, nth] : failing) {
    result.push_back(json({{"do", "fail"}, {"call", call}, {"status", statusOf(call)}, {"nth", nth}}).dump());
  }
  result.insert(result.end(), lines.begin(), lines.end());
  return result;
}

class Failures {
 public:
  Failures(const simulator::Program& program, bool isShort, unsigned jobs, const Streams& streams)
      : program_(program), isShort_(isShort), jobs_(jobs), streams_(streams) {}

  int run() {
    const Lines all = linesOf({desk, day, update, afterwards});
    const auto singles = callsOf(all, {});
    std::size_t names = 0;
    for (const auto& [call, nth] : singles) {
      names += nth == 1 ? 1 : 0;
      if (nth == 1 || !isShort_) cases_.push_back({&all, {{call, nth}}});
    }
    const std::size_t single = cases_.size();
    const Lines installing = linesOf({desk, update, afterwards});
    const Lines routing = linesOf({desk, sound, afterwards});
    if (!isShort_) {
      addPairs(installing, linesOf({desk, update}), updateCalls);
      addPairs(routing, linesOf({desk, sound}), routerCalls);
    }
    playAll();
    if (streams_.progress) *streams_.progress << "\r" << std::string(78, ' ') << "\r" << std::flush;
    streams_.out << single << " single failures of " << names << " functions, " << cases_.size() - single << " pairs, "
                 << broken_ << " with a broken invariant, in " << std::fixed << std::setprecision(1)
                 << std::chrono::duration<double>(std::chrono::steady_clock::now() - begun_).count() << " s\n";
    return broken_ == 0 ? 0 : 1;
  }

 private:
  struct Case {
    const Lines* lines;
    Failing failing;
  };

  // The calls that a scenario makes, each as often as it does; all of them, or those of `names`.
  [[nodiscard]] Failing callsOf(const Lines& lines, const std::set<std::string>& names) const {
    Failing calls;
    Children children;
    children.start(0, patience, [&](const Tell& tell) {
      Run run(program_, simulator::Seed(1), {}, [](const Breach&) {});
      run.machine().faults.startCounting();
      run.play(lines);
      run.finish();
      for (const auto& [call, count] : run.machine().faults.counted()) {
        if (run.machine().faults.knows(call)) tell(std::to_string(count) + " " + call);
      }
      run.cutShort();
      std::_Exit(0);
    });
    while (children.count() > 0) {
      children.wait(
          [&](std::size_t, const std::string& text) {
            const auto space = text.find(' ');
            const std::string call = text.substr(space + 1);
            if (!names.empty() && !names.contains(call)) return;
            for (std::uint64_t nth = 1; nth <= std::stoull(text); ++nth) calls.push_back({call, nth});
          },
          [](std::size_t, int status) {
            if (status != 0)
              throw std::runtime_error("the day whose calls are to fail ended with status " + std::to_string(status));
          });
    }
    return calls;
  }

  void addPairs(const Lines& lines, const Lines& first, const std::set<std::string>& names) {
    const Failing calls = callsOf(first, names);
    for (auto one = calls.begin(); one != calls.end(); ++one) {
      for (auto other = one + 1; other != calls.end(); ++other) {
        // The second of two occurrences is counted from where the first is counted from.
        cases_.push_back({&lines, {*one, *other}});
      }
    }
  }

  void playAll() {
    std::map<std::size_t, Outcome> outcomes;
    Children children;
    for (std::size_t next = 0; next < cases_.size() || children.count() > 0;) {
      while (next < cases_.size() && children.count() < jobs_) {
        children.start(next, patience, [this, next](const Tell& tell) {
          attempt(program_, 1, tell, [&](Run& run) { run.play(failing(*cases_[next].lines, cases_[next].failing)); });
        });
        ++next;
      }
      children.wait([&](std::size_t number, const std::string& text) { take(outcomes[number], text); },
                    [&](std::size_t number, int status) {
                      end(outcomes[number], status, cases_[number].lines->size());
                      judge(cases_[number], outcomes[number]);
                      outcomes.erase(number);
                    });
    }
  }

  void judge(const Case& played, const Outcome& outcome) {
    ++played_;
    if (streams_.progress && played_ % 20 == 0) {
      const double passed = std::chrono::duration<double>(std::chrono::steady_clock::now() - begun_).count();
      const auto left = static_cast<double>(cases_.size() - played_);
      *streams_.progress << "\r" << played_ << " of " << cases_.size() << ", " << std::fixed << std::setprecision(0)
                         << left * passed / static_cast<double>(played_) << " s left   " << std::flush;
    }
    if (!outcome.misunderstood.empty()) streams_.errors << outcome.misunderstood << "\n";
    if (!outcome.breach && outcome.misunderstood.empty()) return;
    ++broken_;
    streams_.out << "When these fail:";
    for (const auto& [call, nth] : played.failing) streams_.out << " " << call << " (" << nth << ")";
    streams_.out << "\n";
    if (outcome.breach) describe(streams_.out, *outcome.breach, 1);
  }

  const simulator::Program& program_;
  const bool isShort_;
  const unsigned jobs_;
  const Streams& streams_;
  const std::chrono::steady_clock::time_point begun_ = std::chrono::steady_clock::now();
  std::vector<Case> cases_;
  std::size_t played_ = 0;
  std::size_t broken_ = 0;
};

}  // namespace

int failures(const simulator::Program& program, bool isShort, unsigned jobs, const Streams& streams) {
  return Failures(program, isShort, jobs, streams).run();
}

}  // namespace campaign
