#include "tests/support/Seat.h"

#include <cstdio>
#include <cstdlib>
#include <map>
#include <sstream>
#include <utility>

#include "desk/Desk.h"
#include "simulator/software/Applications.h"
#include "simulator/system/Certificates.h"
#include "simulator/system/FileContent.h"
#include "simulator/system/SystemRoot.h"
#include "tests/support/Lines.h"

namespace fs = std::filesystem;
using nlohmann::json;

namespace {

simulator::Options options(std::vector<json>& records, std::uint64_t seed, simulator::Clock clock) {
  return {.clock = clock,
          .seed = seed,
          .trace = [&records](std::string_view line) { records.push_back(json::parse(line)); },
          .fatal =
              [&records] {
                std::fprintf(stderr, "%s\n", records.back().dump().c_str());
                std::_Exit(1);
              }};
}

}  // namespace

Seat::Seat(std::uint64_t seed, simulator::Clock clock)
    : machine_(dalvaneProgram(), options(records_, seed, clock)), scenario_(machine_) {}

Seat::Seat(simulator::Program program, std::uint64_t seed)
    : machine_(std::move(program), options(records_, seed, simulator::Clock::deterministic)), scenario_(machine_) {}

void Seat::play(std::string_view lines) {
  std::istringstream stream{std::string(lines)};
  for (std::string line; std::getline(stream, line);) {
    if (!line.empty()) scenario_.perform(line);
  }
}

void Seat::publishUpdate(const json& image, const std::string& address) {
  const json release = {{"version", "1.4.0"},
                        {"date", "2025-03-02"},
                        {"dmg_url", address},
                        {"size_bytes", 4812345},
                        {"notes", "Fixes volume keys after sleep."}};
  json members = {{"version", "1.4.0"}};
  members.update(image);
  play(lines::bundle({{"version", "1.3.9"}}) + lines::feed({{"releases", json::array({release})}}) +
       lines::image(updateAddress, members));
}

void Seat::launchAndCheck() { play(lines::launch + lines::advance(10) + lines::settle); }

std::vector<json> Seat::takeRecords() { return std::exchange(records_, {}); }

json Seat::snapshot() { return json::parse(machine_.snapshot().dump()); }

std::string Seat::updateItem() {
  play(lines::menu(true));
  const json menu = snapshot()["menu"];
  play(lines::menu(false));
  for (std::size_t i = 1; i < menu.size(); ++i) {
    if (menu[i - 1]["title"] != "Start at Login") continue;
    return menu[i]["title"].get<std::string>() + (menu[i]["enabled"] == true ? "" : " (disabled)");
  }
  return "";
}

std::string Seat::installedBundle() {
  return digestOf("/" + machine_.part<simulator::Applications>()
                            .bundle()
                            .lexically_relative(machine_.part<simulator::SystemRoot>().path())
                            .string());
}

std::string Seat::digestOf(const std::string& place) {
  const fs::path bundle = machine_.part<simulator::SystemRoot>().below(place);
  if (!fs::exists(bundle)) return "";
  std::map<std::string, std::string> content;
  for (const auto& entry : fs::recursive_directory_iterator(bundle)) {
    const fs::path& path = entry.path();
    std::string& kept = content[path.lexically_relative(bundle)];
    if (entry.is_symlink()) {
      kept = "link " + fs::read_symlink(path).string();
    } else if (entry.is_directory()) {
      kept = "folder";
    } else {
      kept = "file " + simulator::readFile(path);
    }
    kept += " " + std::to_string(static_cast<unsigned>(entry.symlink_status().permissions()));
  }
  std::string all;
  for (const auto& [path, kept] : content) all += path + "\n" + simulator::sha256(kept) + "\n";
  return simulator::sha256(all);
}

std::vector<json> recordsOf(const std::vector<json>& records, std::string_view what) {
  std::vector<json> found;
  for (const json& record : records) {
    if (record["what"] == what) found.push_back(record);
  }
  return found;
}

std::vector<json> callsOf(const std::vector<json>& records, std::string_view api) {
  std::vector<json> found;
  for (const json& record : recordsOf(records, "call")) {
    if (record["api"] == api) found.push_back(record);
  }
  return found;
}

std::vector<std::string> errorsIn(const std::vector<json>& records) {
  std::vector<std::string> texts;
  for (const json& record : recordsOf(records, "log")) {
    if (record["level"] == "error" && record["category"] == "Updater") texts.push_back(record["text"]);
  }
  return texts;
}

std::vector<std::string> alertsIn(const std::vector<json>& records) {
  std::vector<std::string> texts;
  for (const json& record : recordsOf(records, "alert")) {
    texts.push_back(record["message"].get<std::string>() + ": " + record["informative"].get<std::string>());
  }
  return texts;
}
