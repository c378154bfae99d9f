// dalvane-desk: see `usage`.
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <iostream>
#include <map>
#include <optional>
#include <set>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "desk/Desk.h"
#include "desk/Explore.h"
#include "desk/Pictures.h"
#include "desk/Seat.h"
#include "desk/Serve.h"
#include "desk/Tour.h"
#include "desk/campaign/Campaign.h"
#include "desk/campaign/Failures.h"

namespace {

constexpr std::string_view usage =
    "dalvane-desk play [--seed N] FILE...   plays scenario files; the trace goes to standard output\n"
    "dalvane-desk explore [--preemptions N] FILE...\n"
    "                                       plays them under every schedule with up to N (2) preemptions\n"
    "dalvane-desk campaign --seeds A..B --days N [--jobs N]\n"
    "                                       plays lives of a desk with every kind of bad luck, N days for each seed, "
    "in N "
    "(1)\n"
    "                                       processes, and checks what must be so whatever happens\n"
    "dalvane-desk campaign --failures all|short [--jobs N]\n"
    "                                       plays a day again for each call of the platform that it makes, with that "
    "call\n"
    "                                       failing, and for pairs of them\n"
    "dalvane-desk campaign --replay FILE [--seed N]\n"
    "                                       checks the same of a scenario\n"
    "dalvane-desk tour [--trace] [--wav FILE]\n"
    "                                       a guided run of what Dalvane does; with the raw trace, if you like, and "
    "with\n"
    "                                       what the speaker plays written to a WAV file\n"
    "dalvane-desk serve [--port N]           a seat in front of the simulated Mac: a page in the browser, at port N "
    "(4417)\n"
    "                                       of this computer\n"
    "dalvane-desk icon FILE.svg|FILE.png [--scale N]\n"
    "                                       draws the program's image in the menu bar, N (1) pixels for a point\n"
    "dalvane-desk menu SCENARIO FILE.svg|FILE.png [--scale N] [--dark]\n"
    "                                       plays a scenario and draws the status menu, opening it if it is closed,\n"
    "                                       with N (2) pixels for a point\n";

int misused(const std::string& reason) {
  std::cerr << "dalvane-desk: " << reason << "\n" << usage;
  return 2;
}

// A number of decimal digits up to `most`; none: the text is something else.
std::optional<std::uint64_t> number(std::string_view text, std::uint64_t most) {
  std::uint64_t value = 0;
  const char* const last = text.data() + text.size();
  const auto [end, error] = std::from_chars(text.data(), last, value);
  if (error != std::errc{} || end != last || value > most) return std::nullopt;
  return value;
}

// The files that a command is given, and its one option, which takes a value.
struct FilesAndOption {
  std::vector<std::string> files;
  std::optional<std::string> value;
  std::string problem;  // empty: none
};
FilesAndOption filesAnd(const std::string& option, const std::vector<std::string>& arguments) {
  FilesAndOption result;
  for (std::size_t i = 1; i < arguments.size(); ++i) {
    if (arguments[i] != option) {
      result.files.push_back(arguments[i]);
    } else if (++i < arguments.size()) {
      result.value = arguments[i];
    } else {
      result.problem = option + " needs a value";
    }
  }
  if (result.problem.empty() && result.files.empty()) result.problem = "a scenario file is missing";
  return result;
}

int playCommand(const std::vector<std::string>& arguments) {
  const FilesAndOption given = filesAnd("--seed", arguments);
  if (!given.problem.empty()) return misused(given.problem);
  const auto seed = given.value ? simulator::Seed::parse(*given.value) : simulator::Seed();
  if (!seed) return misused("\"" + *given.value + "\" is no seed");
  return play(given.files, *seed, std::cout, std::cerr);
}

int exploreCommand(const std::vector<std::string>& arguments) {
  const FilesAndOption given = filesAnd("--preemptions", arguments);
  if (!given.problem.empty()) return misused(given.problem);
  const auto preemptions = number(given.value.value_or("2"), SIZE_MAX);
  if (!preemptions) return misused("\"" + *given.value + "\" is no number of preemptions");
  return explore(dalvaneProgram(), given.files, *preemptions, std::cout, std::cerr,
                 isatty(STDERR_FILENO) != 0 ? &std::cerr : nullptr);
}

// What `campaign` is given.
struct CampaignArguments {
  std::map<std::string, std::string> values;  // by option
  std::string kind;                           // the option that says what is played
  campaign::Options options;
  std::uint64_t seed = 1;
  std::string problem;  // empty: none
};

// Each way to call it, and what goes with it.
const std::map<std::string, std::set<std::string>> campaignKinds = {
    {"--seeds", {"--days", "--jobs"}}, {"--failures", {"--jobs"}}, {"--replay", {"--seed"}}};

bool isCampaignOption(const std::string& option) {
  return std::ranges::any_of(
      campaignKinds, [&option](const auto& kind) { return kind.first == option || kind.second.contains(option); });
}

// Reads which there are; what is wrong with that, or nothing.
std::string takeOptions(CampaignArguments& given, const std::vector<std::string>& arguments) {
  for (std::size_t i = 1; i < arguments.size(); i += 2) {
    const std::string& option = arguments[i];
    if (!isCampaignOption(option)) return "\"" + option + "\" is nothing that campaign knows";
    if (i + 1 == arguments.size()) return "\"" + option + "\" needs a value";
    if (!given.values.emplace(option, arguments[i + 1]).second) return option + " is given twice";
    if (!campaignKinds.contains(option)) continue;
    if (!given.kind.empty()) return option + " does not go with " + given.kind;
    given.kind = option;
  }
  if (given.kind.empty()) return "campaign needs --seeds A..B";
  for (const auto& [option, value] : given.values) {
    if (option != given.kind && !campaignKinds.at(given.kind).contains(option))
      return option + " does not go with " + given.kind;
  }
  return given.kind == "--seeds" && !given.values.contains("--days") ? "campaign needs --days N" : "";
}

// Reads a value; what is wrong with it, or nothing.
std::string takeValue(CampaignArguments& given, const std::string& option, const std::string& value) {
  if (option == "--failures") return value == "all" || value == "short" ? "" : "--failures needs \"all\" or \"short\"";
  if (option == "--replay") return {};
  if (option == "--seed") {
    const auto seed = number(value, UINT32_MAX);
    given.seed = seed.value_or(1);
    return seed ? "" : "\"" + value + "\" is no seed";
  }
  if (option == "--seeds") {
    const auto dots = value.find("..");
    const auto first = number(value.substr(0, dots), UINT32_MAX);
    const auto last = dots == value.npos ? first : number(value.substr(dots + 2), UINT32_MAX);
    if (!first || !last || *last < *first) return "--seeds needs numbers A..B, A not above B";
    given.options.firstSeed = *first;
    given.options.lastSeed = *last;
    return {};
  }
  const auto count = number(value, 1'000'000);
  if (!count || *count == 0) return option + " needs a number above 0";
  if (option == "--days") given.options.days = *count;
  if (option == "--jobs") given.options.jobs = static_cast<unsigned>(*count);
  return {};
}

CampaignArguments campaignArguments(const std::vector<std::string>& arguments) {
  CampaignArguments given;
  given.problem = takeOptions(given, arguments);
  for (const auto& [option, value] : given.values) {
    if (given.problem.empty()) given.problem = takeValue(given, option, value);
  }
  return given;
}

int campaignCommand(const std::vector<std::string>& arguments) {
  const CampaignArguments given = campaignArguments(arguments);
  if (!given.problem.empty()) return misused(given.problem);
  const campaign::Streams streams = {
      .out = std::cout, .errors = std::cerr, .progress = isatty(STDERR_FILENO) != 0 ? &std::cerr : nullptr};
  const std::string& value = given.values.at(given.kind);
  if (given.kind == "--replay") return campaign::replay(dalvaneProgram(), value, given.seed, streams);
  if (given.kind == "--seeds") return campaign::run(dalvaneProgram(), given.options, streams);
  return campaign::failures(dalvaneProgram(), {.isShort = value == "short", .jobs = given.options.jobs}, streams);
}

// What a command that draws is given.
struct PictureArguments {
  std::vector<std::string> files;
  double scale = 1;
  bool isDark = false;
  std::string problem;  // empty: none
};
PictureArguments pictureArguments(const std::vector<std::string>& arguments, std::size_t files, double scale) {
  PictureArguments result;
  result.scale = scale;
  for (std::size_t i = 1; i < arguments.size(); ++i) {
    const std::string& argument = arguments[i];
    if (argument == "--dark" && files == 2) {
      result.isDark = true;
    } else if (argument == "--scale") {
      const std::string number = ++i < arguments.size() ? arguments[i] : "";
      const char* const last = number.data() + number.size();
      const auto [end, error] = std::from_chars(number.data(), last, result.scale);
      if (error != std::errc{} || end != last || !(result.scale > 0) || result.scale > 64) {
        result.problem = "--scale needs a number above 0 and up to 64";
      }
    } else {
      result.files.push_back(argument);
    }
  }
  if (result.problem.empty() && result.files.size() != files) {
    result.problem = files == 1 ? "one file is needed, for the picture" : "two files are needed: scenario and picture";
  }
  return result;
}

int iconCommand(const std::vector<std::string>& arguments) {
  const PictureArguments given = pictureArguments(arguments, 1, 1);
  if (!given.problem.empty()) return misused(given.problem);
  return drawIcon(given.files[0], given.scale, std::cerr);
}

int menuCommand(const std::vector<std::string>& arguments) {
  const PictureArguments given = pictureArguments(arguments, 2, 2);
  if (!given.problem.empty()) return misused(given.problem);
  return drawMenu(given.files[0], given.files[1], given.scale, given.isDark, std::cerr);
}

int serveCommand(const std::vector<std::string>& arguments) {
  ServeOptions options;
  for (std::size_t i = 1; i < arguments.size(); ++i) {
    if (arguments[i] != "--port") return misused("\"" + arguments[i] + "\" is nothing that serve knows");
    const auto port = ++i < arguments.size() ? number(arguments[i], 65535) : std::nullopt;
    if (!port) return misused("--port needs a number from 0 (any that is free) to 65535");
    options.port = static_cast<int>(*port);
  }
  const auto isSeed = [](std::string_view text) { return simulator::Seed::parse(text).has_value(); };
  return serve(options, isSeed, std::cout, std::cerr);
}

// The machine behind the page, in its own process; its connection is standard input. Not for people.
int seatCommand(const std::vector<std::string>& arguments) {
  const auto seed = arguments.size() == 3 ? simulator::Seed::parse(arguments[1]) : std::nullopt;
  if (!seed) return misused("\"seat\" is a command of the server's own");
  const bool isFurnished = arguments[2] == "furnished";
  // What the machine starts must neither read nor write on the connection.
  const int connection = fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 3);
  const int nothing = open("/dev/null", O_RDWR | O_CLOEXEC);
  if (connection < 0 || nothing < 0 || dup2(nothing, STDIN_FILENO) < 0) return misused("there is no connection");
  return seat({.seed = *seed, .isFurnished = isFurnished, .isLive = isFurnished}, connection, connection);
}

}  // namespace

int main(int argc, char** argv) {
  std::ios::sync_with_stdio(false);
  const std::vector<std::string> arguments(argv + 1, argv + argc);
  if (arguments.empty()) return misused("a command is missing");
  if (arguments[0] == "--help") {
    std::cout << usage;
    return 0;
  }
  if (arguments[0] == "tour") {
    TourOptions options;
    for (std::size_t i = 1; i < arguments.size(); ++i) {
      if (arguments[i] == "--trace") {
        options.trace = true;
      } else if (arguments[i] == "--wav") {
        if (++i == arguments.size()) return misused("--wav needs a file");
        options.waveFile = arguments[i];
      } else {
        return misused("\"" + arguments[i] + "\" is nothing the tour knows");
      }
    }
    try {
      return tour(std::cout, options);
    } catch (const std::runtime_error& error) {
      return misused(error.what());
    }
  }
  if (arguments[0] == "campaign") return campaignCommand(arguments);
  if (arguments[0] == "explore") return exploreCommand(arguments);
  if (arguments[0] == "play") return playCommand(arguments);
  if (arguments[0] == "serve") return serveCommand(arguments);
  if (arguments[0] == "seat") return seatCommand(arguments);
  if (arguments[0] == "icon") return iconCommand(arguments);
  if (arguments[0] == "menu") return menuCommand(arguments);
  return misused("unknown command \"" + arguments[0] + "\"");
}
