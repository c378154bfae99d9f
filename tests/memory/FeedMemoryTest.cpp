// How much memory the decoding of a feed takes.
#include <gtest/gtest.h>

#include <exception>
#include <memory>
#include <string>
#include <string_view>

#include "tests/support/FeedText.h"
#include "tests/support/HeapMeter.h"
#include "updater/Release.h"

namespace {

// The most that is in use at once while the document is decoded, apart from the document.
std::size_t peakOfDecoding(const std::string& document) {
  // The machine keeps the storage of dead objects for a while: it is to have its full share before anything is
  // measured.
  static const bool warm = decodeNewestRelease(feedText(10000)).has_value();
  EXPECT_TRUE(warm);
  const std::size_t before = heap::inUse();
  heap::resetPeak();
  try {
    EXPECT_TRUE(decodeNewestRelease(document));
  } catch (const std::exception&) {
    // Nonsense may be refused.
  }
  return heap::peak() - before;
}

}  // namespace

TEST(FeedMemory, TheMeterMeters) {
  const std::size_t before = heap::inUse();
  heap::resetPeak();
  volatile std::size_t size = 100000;
  void* const block = ::operator new(size);
  const std::size_t during = heap::inUse();
  ::operator delete(block);
  const std::size_t after = heap::inUse();
  EXPECT_GE(during - before, 100000U);
  EXPECT_GE(heap::peak() - before, 100000U);
  EXPECT_EQ(after, before);
}

TEST(FeedMemory, DoesNotGrowWithTheNumberOfReleases) {
  const std::string document = feedText(100000);
  const std::size_t few = peakOfDecoding(feedText(10));
  const std::size_t many = peakOfDecoding(document);
  RecordProperty("few", static_cast<int>(few));
  RecordProperty("many", static_cast<int>(many));
  EXPECT_GT(document.size(), 30'000'000U);
  EXPECT_LE(many, few + 1024);
  EXPECT_LE(many, 16U * 1024);
}

TEST(FeedMemory, DoesNotGrowWithWhatIsIgnored) {
  const std::string good = feedText(1);
  std::string many = good;
  std::string list = "\"extra\":[";
  for (int i = 0; i < 100000; ++i) list += "[[1,2],3],";
  many.insert(2, list + "0],");
  EXPECT_LE(peakOfDecoding(many), peakOfDecoding(good) + 1024);
  // A text is held while it is read, in a buffer that grows by doubling; what it is in is not.
  constexpr std::size_t length = 1'000'000;
  std::string nested = good;
  nested.insert(2, "\"extra\":[[\"" + std::string(length, 'x') + "\",\"" + std::string(length, 'y') + "\"]],");
  EXPECT_LE(peakOfDecoding(nested), 5 * length);
}

// The reader holds a text or a number while it reads it, and what it has read since the last one: what it holds at most
// is in proportion to the document, which is there too. Members that are texts and numbers leave nothing behind.
TEST(FeedMemory, IsBoundedWhateverTheDocumentHolds) {
  constexpr std::size_t size = 4'000'000;
  for (const Nonsense& kind : nonsense) {
    const std::string document = feedWithNonsense(kind, size);
    EXPECT_LE(peakOfDecoding(document), 8 * document.size()) << kind.name;
    const bool hasMembers = std::string_view(kind.repeated).find('"') != std::string_view::npos;
    if (hasMembers && !std::string_view(kind.name).ends_with("in objects")) {
      EXPECT_LE(peakOfDecoding(document), 16U * 1024) << kind.name;
    }
  }
}
