// Puts a release at the head of the release feed, and reads the outcome as an installed program will:
//
//   dalvane-feed NEW_FEED VERSION DATE URL IMAGE NOTES [FEED]
//
// IMAGE is the disk image and NOTES a text; FEED is the feed so far, and left out for the first release.
#include <cstdint>
#include <exception>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <nlohmann/json.hpp>
#include <optional>
#include <stdexcept>
#include <string>

#include "updater/Release.h"
#include "updater/ReleaseFeed.h"

namespace {

std::string contentOf(const char* file) {
  std::ifstream in(file, std::ios::binary);
  if (!in) throw std::runtime_error(std::string("cannot be read: ") + file);
  return {std::istreambuf_iterator<char>(in), {}};
}

void require(bool holds, const std::string& otherwise) {
  if (!holds) throw std::runtime_error(otherwise);
}

std::string feedWith(char** arguments, const std::string& before) {
  using Document = nlohmann::ordered_json;
  const std::string version = arguments[1];
  const auto size = static_cast<std::int64_t>(std::filesystem::file_size(arguments[4]));
  std::string notes = contentOf(arguments[5]);
  while (notes.ends_with('\n')) notes.pop_back();
  Document releases = {{{"version", version},
                        {"date", arguments[2]},
                        {"dmg_url", arguments[3]},
                        {"size_bytes", size},
                        {"notes", notes}}};
  const std::optional<Release> newest = decodeNewestRelease(before);
  require(!newest || ReleaseFeed::isNewer(version, newest->version),
          "version " + version + " is not newer than " + (newest ? newest->version : "") + ", which is in the feed");
  for (const auto& release : Document::parse(before)) releases.push_back(release);

  const std::string feed = releases.dump(2) + "\n";
  const std::optional<Release> read = decodeNewestRelease(feed);
  if (!read) throw std::runtime_error("the program reads the feed as an empty one");
  require(read->version == version && read->date == arguments[2] && read->sizeBytes == size && read->notes == notes &&
              read->dmgURL.absoluteString() == arguments[3],
          "the program reads the entry as something else");
  require(read->dmgURL.scheme() == "https", "the program would not download from " + std::string(arguments[3]));
  return feed;
}

}  // namespace

int main(int count, char** arguments) {
  if (count != 7 && count != 8) {
    std::cerr << "usage: dalvane-feed NEW_FEED VERSION DATE URL IMAGE NOTES [FEED]\n";
    return 2;
  }
  try {
    const std::string feed = feedWith(arguments + 1, count == 8 ? contentOf(arguments[7]) : "[]");
    std::ofstream out(arguments[1], std::ios::binary);
    out << feed;
    out.close();
    require(!out.fail(), std::string("cannot be written: ") + arguments[1]);
    return 0;
  } catch (const std::exception& error) {
    std::cerr << "dalvane-feed: " << error.what() << '\n';
    return 1;
  }
}
