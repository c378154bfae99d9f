#include "tests/conformance/Report.h"

#include <algorithm>
#include <cctype>
#include <fstream>
#include <iterator>
#include <sstream>

namespace claims {
namespace {

// A text as a cell of a table: on one line, and without what would end the cell.
std::string cell(const std::string& text) {
  std::string result;
  for (const char c : text) {
    if (c == '|') result += '\\';
    result += c == '\n' ? ' ' : c;
  }
  return result;
}

const char* word(Result::Kind kind) {
  switch (kind) {
    case Result::Kind::held:
      return "held";
    case Result::Kind::failed:
      return "**failed**";
    case Result::Kind::notTried:
      return "not tried";
  }
  return "";
}

// The claims by family, in the order of the alphabet; in each those last that need a person.
std::vector<std::pair<std::string, std::vector<Claim>>> families() {
  std::vector<std::pair<std::string, std::vector<Claim>>> found;
  for (const bool ofDesk : {false, true}) {
    for (const Claim& claim : all()) {
      if ((claim.kind == Claim::Kind::desk) != ofDesk) continue;
      auto family = std::ranges::find(found, claim.family, &std::pair<std::string, std::vector<Claim>>::first);
      if (family == found.end()) family = found.insert(found.end(), {claim.family, {}});
      family->second.push_back(claim);
    }
  }
  std::ranges::sort(found, {}, &std::pair<std::string, std::vector<Claim>>::first);
  return found;
}

std::string lowered(std::string text) {
  std::ranges::transform(text, text.begin(), [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return text;
}

const char* const machineLine = "- Machine: ";
const char* const dateLine = "- Date: ";
const char* const simulated = "the simulated Mac";

}  // namespace

std::string report(const Description& machine, const std::string& date, const Results& results) {
  const auto count = [&](Result::Kind kind) {
    return std::ranges::count_if(results, [kind](const auto& result) { return result.second.kind == kind; });
  };
  std::ostringstream text;
  text << "# What holds of Dalvane's claims\n\n"
       << machineLine << machine.system << ", " << machine.hardware << '\n'
       << dateLine << date << '\n'
       << "- Held: " << count(Result::Kind::held) << ", failed: " << count(Result::Kind::failed)
       << ", not tried: " << count(Result::Kind::notTried) << '\n';
  // What somebody has to look at comes first.
  for (const auto kind : {Result::Kind::failed, Result::Kind::notTried, Result::Kind::held}) {
    if (count(kind) == 0) continue;
    text << "\n| Claim | | |\n|---|---|---|\n";
    for (const auto& [name, result] : results) {
      if (result.kind != kind) continue;
      const auto claim = std::ranges::find(all(), name, &Claim::fullName);
      const std::string said = kind == Result::Kind::failed && claim != all().end()
                                   ? std::string("\"") + claim->statement + "\" " + result.text
                                   : result.text;
      text << "| " << name << " | " << word(kind) << " | " << cell(said) << " |\n";
    }
  }
  return text.str();
}

KeptReport parseReport(const std::string& text) {
  KeptReport kept;
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) {
    if (line.starts_with(machineLine)) kept.machine = line.substr(std::string(machineLine).size());
    if (line.starts_with(dateLine)) kept.date = line.substr(std::string(dateLine).size());
    const std::size_t end = line.find(" | held |");
    if (line.starts_with("| ") && end != std::string::npos) kept.held.insert(line.substr(2, end - 2));
  }
  return kept;
}

std::vector<KeptReport> keptReports(const std::filesystem::path& folder) {
  std::vector<KeptReport> reports;
  if (!std::filesystem::exists(folder)) return reports;
  for (const auto& entry : std::filesystem::directory_iterator(folder)) {
    std::ifstream file(entry.path());
    KeptReport kept = parseReport({std::istreambuf_iterator<char>(file), {}});
    if (!kept.machine.starts_with(simulated)) reports.push_back(std::move(kept));
  }
  std::ranges::sort(reports, {}, &KeptReport::date);
  return reports;
}

std::string document(const std::vector<KeptReport>& reports,
                     const std::map<std::string, std::set<std::string>>& functions) {
  const auto lastHeld = [&](const Claim& claim) -> std::string {
    const auto last = std::find_if(reports.rbegin(), reports.rend(),
                                   [&](const KeptReport& each) { return each.held.contains(claim.fullName()); });
    return last == reports.rend() ? "never" : last->machine + ", " + last->date;
  };
  std::ostringstream text;
  text
      << "# What is claimed about the Mac\n\n"
         "Dalvane and its simulated Mac take "
      << all().size()
      << " things for granted about macOS. Each is a sentence "
         "here, and a piece of\ncode in `tests/conformance/` that finds out whether it holds.\n\n"
         "**You have a Mac?** Then you can find out:\n\n"
         "    ./test           # what needs nobody; takes some minutes, and asks nothing\n"
         "    ./test --desk    # also what is marked *desk*: with a monitor, sound, and you, who are told what to "
         "do\n\n"
         "The answer is in `build/macos/claims.md`. Attach it to an issue, also when everything held: "
         "[contributing.md](contributing.md#the-claims-about-the-platform)\nhas the rest. To try one, name it: `./test "
         "'--gtest_filter=Audio.ThisProcessHasAnObject'`.\n\n"
         "*Rests on* has the header or manual page that says so. *Observed* is what is known of macOS though no "
         "document "
         "says it,\nand *assumed* what is not even that; neither is certain. *Held* has the real system on which a "
         "claim was last seen to hold, from\nthe reports in `tests/conformance/reports/`.\n\n"
         "This page is written by `dalvane-conformance --write-claims docs/claims.md`; a test fails when it is not "
         "what "
         "that writes.\n\n";
  const auto found = families();
  for (const auto& [family, members] : found) {
    text << (family == found.front().first ? "" : " · ") << '[' << family << "](#" << lowered(family) << ") "
         << members.size();
  }
  text << '\n';
  for (const auto& [family, members] : found) {
    text << "\n## " << family << "\n\n| | Rests on | Held |\n|---|---|---|\n";
    for (const Claim& claim : members) {
      text << "| " << cell(claim.statement) << "<br>`" << claim.fullName() << '`'
           << (claim.kind == Claim::Kind::desk ? " *desk*" : "") << " | " << cell(claim.source) << " | "
           << cell(lastHeld(claim)) << " |\n";
    }
  }
  text << "\n## What the simulated Mac offers\n\n"
          "Every function that it defines for programs, with the claims in which it is called.\n\n"
          "<details><summary>"
       << functions.size()
       << " functions</summary>\n\n"
          "| Function | Called in |\n|---|---|\n";
  for (const auto& [function, callers] : functions) {
    constexpr std::ptrdiff_t shown = 3;
    const auto total = static_cast<std::ptrdiff_t>(callers.size());
    text << "| `" << cell(function) << "` | ";
    auto caller = callers.begin();
    for (std::ptrdiff_t i = 0; i < std::min(total, shown); ++i) text << (i > 0 ? ", " : "") << *caller++;
    if (total > shown) text << " and " << total - shown << " more";
    text << " |\n";
  }
  text << "\n</details>\n";
  return text.str();
}

}  // namespace claims
