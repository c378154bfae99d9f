// dalvane-desk: see `usage`.
#include <charconv>
#include <iostream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "desk/Desk.h"
#include "desk/Tour.h"

namespace {

constexpr std::string_view usage =
    "dalvane-desk play [--seed N] FILE...   plays scenario files; the trace goes to standard output\n"
    "dalvane-desk tour [--trace] [--wav FILE]\n"
    "                                       a guided run of what Dalvane does; with the raw trace, if you like, and "
    "with\n"
    "                                       what the speaker plays written to a WAV file\n";

int misused(const std::string& reason) {
  std::cerr << "dalvane-desk: " << reason << "\n" << usage;
  return 2;
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
  if (arguments[0] != "play") return misused("unknown command \"" + arguments[0] + "\"");

  std::uint64_t seed = 1;
  std::vector<std::string> files;
  for (std::size_t i = 1; i < arguments.size(); ++i) {
    if (arguments[i] != "--seed") {
      files.push_back(arguments[i]);
      continue;
    }
    if (++i == arguments.size()) return misused("--seed needs a number");
    const std::string& text = arguments[i];
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), seed);
    if (error != std::errc{} || end != text.data() + text.size()) return misused("\"" + text + "\" is no seed");
  }
  if (files.empty()) return misused("a scenario file is missing");
  return play(files, seed, std::cout, std::cerr);
}
