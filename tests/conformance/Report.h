// What came of trying the claims: the report of a run, and the document that has all of them.
#pragma once

#include <filesystem>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "tests/conformance/Claim.h"
#include "tests/conformance/Machine.h"

namespace claims {

struct Result {
  enum class Kind { held, failed, notTried } kind;
  std::string text;  // the message, or the reason
};

// By the claims' full names.
using Results = std::map<std::string, Result>;

// Of a run, to be attached to an issue.
std::string report(const Description& machine, const std::string& date, const Results& results);

// A report that was kept.
struct KeptReport {
  std::string machine;
  std::string date;
  std::set<std::string> held;
};
KeptReport parseReport(const std::string& text);
// Those of a folder, the oldest first; without those of the simulated Mac.
std::vector<KeptReport> keptReports(const std::filesystem::path& folder);

// docs/claims.md.
std::string document(const std::vector<KeptReport>& reports,
                     const std::map<std::string, std::set<std::string>>& functions);

}  // namespace claims
