// One published release, as the release feed describes it.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "platform/URL.h"

struct Release {
  std::string version;         // ordered by ReleaseFeed::isNewer
  std::string date;            // kept as text, never parsed
  NS::URL dmgURL;              // where the disk image is downloaded from
  std::int64_t sizeBytes = 0;  // of the disk image, as published
  std::string notes;           // release notes for the user; may be empty
};

// Decodes a feed document, a JSON array of release objects with the newest first, and returns that one; none when the
// array is empty. All five keys are required and strictly typed, in every element; further keys are ignored, and of a
// key that an element has more than once the first counts, as for the Mac's own decoder. Like there too, an address is
// encoded where it holds what none may hold. Throws the JSON decoder's error (nlohmann::json::exception) when the
// document is anything else. The time is in proportion to the document, and of the elements only the first is kept, so
// the memory needed does not grow with their number. Usable from any thread.
std::optional<Release> decodeNewestRelease(std::string_view document);
