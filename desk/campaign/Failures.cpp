#include "desk/campaign/Failures.h"

#include <algorithm>
#include <iomanip>
#include <map>
#include <nlohmann/json.hpp>
#include <set>
#include <sstream>
#include <utility>

#include "desk/campaign/Attempt.h"
#include "desk/campaign/Calls.h"
#include "simulator/mac/Mac.h"

using nlohmann::json;

namespace campaign {
namespace {

// A call that is to fail: which, which of its occurrences, and with what.
struct Failure {
  std::string call;
  std::uint64_t nth;
  int status;
};

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
{"do":"key","key":"brightnessUp"}
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
{"do":"login-item","error":"No."}
{"do":"click","item":"Start at Login"}
{"do":"settle"}
{"do":"login-item","approved":false,"error":null}
{"do":"click","item":"Start at Login"}
{"do":"settle"}
{"do":"output","id":13,"uid":"UID-13","name":"Headset","volume":"settable"}
{"do":"default-output","id":13}
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

// The day with those calls failing.
Lines linesWith(const Lines& lines, const std::vector<Failure>& failing) {
  Lines result;
  for (const auto& [call, nth, status] : failing) {
    result.push_back(json({{"do", "fail"}, {"call", call}, {"status", status}, {"nth", nth}}).dump());
  }
  result.insert(result.end(), lines.begin(), lines.end());
  return result;
}

class Failures {
 public:
  Failures(const simulator::Program& program, const FailureOptions& options, const Streams& streams)
      : program_(program), options_(options), streams_(streams), progress_(streams) {}

  int run() {
    const Lines all = linesOf({desk, day, update, afterwards});
    const auto calls = callsOf(all);
    for (const auto& [call, count] : calls) {
      if (count == 0 && !cannotFail().contains(call))
        misunderstood_ =
            "the day calls " + call + ", which cannot be made to fail and is not listed as one that cannot";
      if (count != 0 && cannotFail().contains(call)) misunderstood_ = call + " is listed as one that cannot fail";
    }
    for (const Failure& each : failuresOf(calls)) {
      if (each.nth == 1 || !options_.isShort) cases_.push_back({&all, {each}});
    }
    const std::size_t single = cases_.size();
    const Lines installing = linesOf({desk, update, afterwards});
    const Lines routing = linesOf({desk, sound, afterwards});
    if (!options_.isShort) {
      addPairs(installing, linesOf({desk, update}), updateCalls);
      addPairs(routing, linesOf({desk, sound}), routerCalls);
    }
    if (misunderstood_.empty()) playAll();
    progress_.clear();
    if (!misunderstood_.empty()) {
      streams_.errors << misunderstood_ << "\n";
      return 2;
    }
    const auto unfailing = std::ranges::count_if(calls, [](const auto& call) { return call.second == 0; });
    streams_.out << "The day calls " << calls.size() << " functions, " << unfailing << " of which cannot fail.\n"
                 << single << " single failures of " << std::ssize(calls) - unfailing << " functions, "
                 << cases_.size() - single << " pairs, " << stops_ << " that stop the program on purpose, "
                 << broken_.size() << " with a broken invariant, in " << std::fixed << std::setprecision(1)
                 << progress_.seconds() << " s\n";
    tellOfBroken();
    return broken_.empty() ? 0 : 1;
  }

 private:
  struct Case {
    const Lines* lines;
    std::vector<Failure> failing;
  };

  using Calls = std::map<std::string, std::uint64_t>;

  // The functions that a scenario calls, each with how many of its calls can be made to fail.
  [[nodiscard]] Calls callsOf(const Lines& lines) {
    Calls calls;
    Outcome outcome;
    Children children;
    children.start(0, patience, [&](const Tell& tell) {
      attempt(program_, 1, tell, [&](Run& run) {
        auto& faults = run.machine().faults;
        faults.startCounting();
        run.play(lines);
        run.finish();
        for (const auto& [call, count] : faults.counted()) {
          tell("C" + std::to_string(faults.knows(call) ? count : 0) + " " + call);
        }
      });
    });
    while (children.count() > 0) {
      children.wait(
          [&](std::size_t, const std::string& text) {
            take(outcome, text);
            if (text[0] == 'C') calls.emplace(text.substr(text.find(' ') + 1), std::stoull(text.substr(1)));
          },
          [&](std::size_t, int status) { end(outcome, status, lines.size()); });
    }
    if (!outcome.misunderstood.empty()) misunderstood_ = outcome.misunderstood;
    if (outcome.breach) misunderstood_ = "without a failure too this is broken: " + outcome.breach->name;
    return calls;
  }

  // Every way in which one of them can fail.
  static std::vector<Failure> failuresOf(const Calls& calls) {
    std::vector<Failure> failures;
    for (const auto& [call, count] : calls) {
      for (std::uint64_t nth = 1; nth <= count; ++nth) {
        for (const int status : statusesOf(call)) failures.push_back({call, nth, status});
      }
    }
    return failures;
  }

  void addPairs(const Lines& lines, const Lines& first, const std::set<std::string>& names) {
    Calls calls = callsOf(first);
    std::erase_if(calls, [&names](const auto& call) { return !names.contains(call.first); });
    const auto failures = failuresOf(calls);
    for (auto one = failures.begin(); one != failures.end(); ++one) {
      for (auto other = one + 1; other != failures.end(); ++other) {
        if (one->call == other->call && one->nth == other->nth) continue;
        // The second of two occurrences is counted from where the first is counted from.
        cases_.push_back({&lines, {*one, *other}});
      }
    }
  }

  void playAll() {
    std::map<std::size_t, Outcome> outcomes;
    Children children;
    for (std::size_t next = 0; next < cases_.size() || children.count() > 0;) {
      while (next < cases_.size() && children.count() < options_.jobs) {
        children.start(next, patience, [this, next](const Tell& tell) {
          attempt(program_, 1, tell, [&](Run& run) { run.play(linesWith(*cases_[next].lines, cases_[next].failing)); });
        });
        ++next;
      }
      children.wait([&](std::size_t number, const std::string& text) { take(outcomes[number], text); },
                    [&](std::size_t number, int status) {
                      end(outcomes[number], status, cases_[number].lines->size());
                      judge(number, outcomes[number]);
                      outcomes.erase(number);
                    });
    }
  }

  void judge(std::size_t number, const Outcome& outcome) {
    progress_.show(++played_, cases_.size(), "failures");
    if (!outcome.misunderstood.empty()) misunderstood_ = outcome.misunderstood;
    if (!outcome.breach) return;
    if (outcome.breach->name == keepsGoing && isOnPurpose(cases_[number], outcome.breach->trace)) {
      ++stops_;
    } else {
      broken_.emplace(number, *outcome.breach);
    }
  }

  static bool isOnPurpose(const Case& played, const std::string& trace) {
    return std::ranges::any_of(played.failing,
                               [&](const Failure& each) { return stopFor(each.call, trace) != nullptr; });
  }

  // In full for the first of each call that breaks an invariant: the others show the same.
  void tellOfBroken() {
    std::set<std::pair<std::string, std::string>> told;
    for (const auto& [number, breach] : broken_) {
      const auto& [lines, failing] = cases_[number];
      std::string name = "failures";
      streams_.out << "When these fail:";
      for (const auto& [call, nth, status] : failing) {
        streams_.out << " " << call << " (" << nth << ") with " << status;
        name += "-" + call + "-" + std::to_string(nth);
      }
      streams_.out << "\n";
      if (!told.insert({failing.front().call, breach.name}).second) {
        streams_.out << "BROKEN: " << breach.name << ", as before\n";
        continue;
      }
      std::ranges::replace(name, ' ', '-');
      report(program_, {.name = name, .lines = linesWith(*lines, failing), .breach = breach}, options_.folder,
             streams_);
    }
  }

  const simulator::Program& program_;
  const FailureOptions& options_;
  const Streams& streams_;
  Progress progress_;
  std::vector<Case> cases_;
  std::size_t played_ = 0;
  std::size_t stops_ = 0;
  std::map<std::size_t, Breach> broken_;  // by the number of the case
  std::string misunderstood_;
};

}  // namespace

int failures(const simulator::Program& program, const FailureOptions& options, const Streams& streams) {
  return Failures(program, options, streams).run();
}

}  // namespace campaign
