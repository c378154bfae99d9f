#include "tests/conformance/Report.h"

#include <algorithm>
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

// The claims by family, each family where its first claim stands.
std::vector<std::pair<std::string, std::vector<Claim>>> families() {
  std::vector<std::pair<std::string, std::vector<Claim>>> found;
  for (const Claim& claim : all()) {
    auto family = std::ranges::find(found, claim.family, &std::pair<std::string, std::vector<Claim>>::first);
    if (family == found.end()) family = found.insert(found.end(), {claim.family, {}});
    family->second.push_back(claim);
  }
  std::ranges::sort(found, {}, &std::pair<std::string, std::vector<Claim>>::first);
  return found;
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
       << ", not tried: " << count(Result::Kind::notTried) << "\n\n"
       << "| Claim | | |\n|---|---|---|\n";
  for (const auto& [name, result] : results) {
    text << "| " << name << " | " << word(result.kind) << " | " << cell(result.text) << " |\n";
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
  text << "# What is claimed about the Mac\n\n"
          "Written by `dalvane-conformance --write-claims docs/claims.md`; a test fails when it is not what that "
          "writes.\n\n"
          "Each claim is a sentence that Dalvane or its simulated Mac relies on, and a test of `tests/conformance/` "
          "that finds\n"
          "out whether it holds. Each is tried on the simulated Mac by `./test`, and on a Mac by the same command "
          "there\n"
          "([contributing.md](contributing.md) says how). The last column has the real system on which it was last "
          "seen to hold,\n"
          "from the reports in `tests/conformance/reports/`. *Observed* is what is known of macOS though no document "
          "says it, and\n"
          "*assumed* what is not even that; neither is certain. *Desk* marks what is "
          "tried only\n"
          "where there are a monitor, sound and a person.\n\n"
       << all().size() << " claims.\n";
  for (const auto& [family, members] : families()) {
    text << "\n## " << family << "\n\n| Claim | | Rests on | Last held |\n|---|---|---|---|\n";
    for (const Claim& claim : members) {
      text << "| " << claim.name << (claim.kind == Claim::Kind::desk ? " (desk)" : "") << " | " << cell(claim.statement)
           << " | " << cell(claim.source) << " | " << cell(lastHeld(claim)) << " |\n";
    }
  }
  text << "\n## What the simulated Mac offers\n\n"
          "Every function that it defines for programs, with the claims in which it is called.\n\n"
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
  return text.str();
}

}  // namespace claims
