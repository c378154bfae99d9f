// Tries the claims, on the machine that it was built for:
//
//   dalvane-conformance [--desk] [--apart [--patience SECONDS]] [--report FILE]
//                       [--write-claims FILE | --check-claims FILE] [--reports FOLDER] [GoogleTest's arguments]
//
// With --desk also those that need a monitor, sound and a person. With --apart each is tried in a process of its own,
// so that what becomes of one does not become of the others; one that needs nobody gets so many seconds (120). --report
// writes what came of it, anew after every claim. --write-claims, on the simulated Mac, writes the document that has
// all claims; --check-claims fails when it would be another, when the simulated Mac offers a function that no claim
// calls, and when a claim was not tried. Reports that were kept are read from --reports, which is
// tests/conformance/reports where nothing else is said. (--alone FILE is how such a process is started: it leaves its
// claim's result in that file.)
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <functional>
#include <iostream>
#include <iterator>
#include <optional>
#include <sstream>
#include <string_view>
#include <utility>

#include "tests/conformance/Apart.h"
#include "tests/conformance/Report.h"

namespace claims {

std::vector<Claim>& all() {
  static std::vector<Claim> claims;
  return claims;
}

bool add(const Claim& claim) {
  all().push_back(claim);
  return true;
}

namespace {

bool atDesk = false;
// The program to be started for each claim; empty where all are tried in this process.
std::string apart;
double patience = 120;

// Keeps what came of each claim, and then does what is to be done after every one.
class Recorder : public testing::EmptyTestEventListener {
 public:
  Recorder(Results& results, std::function<void()> afterEach) : results_(results), afterEach_(std::move(afterEach)) {}

 private:
  void OnTestEnd(const testing::TestInfo& test) override {
    const testing::TestResult& result = *test.result();
    Result::Kind kind = result.Failed()    ? Result::Kind::failed
                        : result.Skipped() ? Result::Kind::notTried
                                           : Result::Kind::held;
    std::string text;
    for (int i = 0; i < result.total_part_count(); ++i) {
      const testing::TestPartResult& part = result.GetTestPartResult(i);
      if (part.passed()) continue;
      // Of what is skipped the reason alone; of what failed where, which the claim's own process has said.
      if (kind == Result::Kind::failed && part.file_name() && apart.empty()) {
        text += std::string(part.file_name()) + ":" + std::to_string(part.line_number()) + ": ";
      }
      std::string_view message = part.message();
      constexpr std::string_view unsaid = "Failed\n";
      if (!apart.empty() && message.starts_with(unsaid)) message.remove_prefix(unsaid.size());
      text += std::string(message) + "\n";
    }
    while (!text.empty() && text.back() == '\n') text.pop_back();
    results_[std::string(test.test_suite_name()) + "." + test.name()] = {kind, text};
    afterEach_();
  }

  Results& results_;
  std::function<void()> afterEach_;
};

std::string today() {
  const std::time_t now = std::time(nullptr);
  std::array<char, 16> text = {};
  std::strftime(text.data(), text.size(), "%Y-%m-%d", std::localtime(&now));
  return text.data();
}

bool write(const std::string& path, const std::string& text) {
  std::ofstream file(path);
  file << text;
  file.close();
  if (!file) std::cerr << path << " cannot be written\n";
  return static_cast<bool>(file);
}

// Whether every claim was tried, each function that is offered has a claim, and the document is as it should be.
bool check(const std::string& path, const std::string& document, const Results& results) {
  bool isComplete = true;
  for (const auto& [name, result] : results) {
    if (result.kind != Result::Kind::notTried) continue;
    std::cerr << "FAILED: " << name << " was not tried: " << result.text << '\n';
    isComplete = false;
  }
  for (const auto& [function, callers] : functions()) {
    if (!callers.empty()) continue;
    std::cerr << "FAILED: no claim calls " << function << ", which the simulated Mac offers\n";
    isComplete = false;
  }
  std::ifstream file(path);
  if (std::string(std::istreambuf_iterator<char>(file), {}) != document) {
    std::cerr << "FAILED: " << path << " is not what dalvane-conformance --write-claims writes\n";
    isComplete = false;
  }
  return isComplete;
}

}  // namespace

// What this process has been given, for claims about child processes.
int tell(const char* path) {
  std::ostringstream file;
  sigset_t blocked;
  pthread_sigmask(SIG_BLOCK, nullptr, &blocked);
  for (int number = 1; number < 32; ++number) {
    struct sigaction action = {};
    if (sigaction(number, nullptr, &action) == 0 && action.sa_handler == SIG_IGN) file << "ignores " << number << '\n';
    if (sigismember(&blocked, number) == 1) file << "blocks " << number << '\n';
  }
  constexpr int mostFiles = 64;
  for (int number = 0; number < mostFiles; ++number) {
    struct stat status = {};
    if (fstat(number, &status) == 0) file << "has " << number << '\n';
  }
  if (getpgrp() == getpid()) file << "leads\n";
  const char* const variable = std::getenv("CLAIMS");
  file << "variable " << (variable ? variable : "") << '\n';
  return write(path, file.str()) ? 0 : 1;
}

void tryOut(const Claim& claim) {
  if (claim.kind == Claim::Kind::desk && !atDesk) NOT_TRIED("not asked: it needs somebody at the desk (--desk)");
  if (apart.empty()) return carryOut(claim);
  const Result result = tryApart(claim, apart, patience);
  if (result.kind == Result::Kind::notTried) NOT_TRIED(result.text);
  if (result.kind == Result::Kind::failed) ADD_FAILURE() << result.text;
}

}  // namespace claims

int main(int argc, char** argv) {
  if (const std::string_view word = argc == 2 ? argv[1] : ""; word.starts_with('/')) {
    return claims::tell(argv[1]);
  } else if (word.starts_with("exit:")) {
    return std::atoi(argv[1] + word.find(':') + 1);
  } else if (word.starts_with("signal:")) {
    return raise(std::atoi(argv[1] + word.find(':') + 1));
  }
  testing::InitGoogleTest(&argc, argv);
  std::optional<std::string> reportFile;
  std::optional<std::string> writtenFile;
  std::optional<std::string> checkedFile;
  std::optional<std::string> resultFile;
  std::optional<std::string> seconds;
  std::optional<std::string> keptFolder;
  for (int i = 1; i < argc; ++i) {
    const std::string_view argument = argv[i];
    auto* const value = argument == "--report"         ? &reportFile
                        : argument == "--write-claims" ? &writtenFile
                        : argument == "--check-claims" ? &checkedFile
                        : argument == "--alone"        ? &resultFile
                        : argument == "--patience"     ? &seconds
                        : argument == "--reports"      ? &keptFolder
                                                       : nullptr;
    if (argument == "--desk") {
      claims::atDesk = true;
    } else if (argument == "--apart") {
      claims::apart = argv[0];
    } else if (value && i + 1 < argc) {
      *value = argv[++i];
    } else {
      std::cerr << "usage: dalvane-conformance [--desk] [--apart [--patience SECONDS]] [--report FILE] "
                   "[--write-claims FILE | --check-claims FILE] [--reports FOLDER]\n";
      return 2;
    }
  }
  if (seconds) claims::patience = std::atof(seconds->c_str());
  if (claims::apart.empty()) claims::begin(claims::atDesk);
  bool isFine = true;
  claims::Results results;
  const auto writeReport = [&] {
    if (!reportFile) return;
    isFine &= claims::write(*reportFile, claims::report(claims::description(), claims::today(), results));
  };
  testing::UnitTest::GetInstance()->listeners().Append(
      new claims::Recorder(results, writeReport));  // GoogleTest's to delete
  isFine &= RUN_ALL_TESTS() == 0;
  writeReport();
  if (resultFile) {
    isFine &= results.size() == 1 && claims::write(*resultFile, claims::written(results.begin()->second));
  }
  if (writtenFile || checkedFile) {
    const std::string document =
        claims::document(claims::keptReports(keptFolder.value_or(CLAIMS_REPORTS)), claims::functions());
    if (claims::functions().empty()) {
      std::cerr << "The document is written on the simulated Mac, which knows what it offers.\n";
      return 2;
    }
    isFine &= writtenFile ? claims::write(*writtenFile, document) : claims::check(*checkedFile, document, results);
  }
  return isFine ? 0 : 1;
}
