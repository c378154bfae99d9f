// What is stopped, or gone, owns nothing of the system's any more.
#include <gtest/gtest.h>

#include <functional>
#include <map>
#include <memory>
#include <string>

#include "app/MediaKeyTap.h"
#include "simulator/kernel/Object.h"
#include "tests/support/Program.h"
#include "updater/Updater.h"

namespace {

using Owned = std::map<std::string, std::size_t>;

// What wakes the main thread, and what events come through.
Owned owned() {
  Owned all = simulator::liveObjects();
  std::erase_if(all, [](const auto& kind) {
    return kind.first != "CFMachPort" && kind.first != "CFRunLoopSource" && kind.first != "CFRunLoopTimer";
  });
  return all;
}

}  // namespace

TEST(Stop, OfAKeyTap) {
  runProgram([] {
    const Owned before = owned();
    MediaKeyTap tap([](MediaKey, bool, bool) { return false; }, [] {});
    for (int i = 0; i < 2; ++i) {
      EXPECT_TRUE(tap.start());
      EXPECT_NE(owned(), before);
      tap.stop();
      EXPECT_EQ(owned(), before);
    }
  });
}

TEST(Stop, OfAnUpdater) {
  runProgram([] {
    const Owned before = owned();
    auto updater = std::make_shared<Updater>();
    for (int i = 0; i < 2; ++i) {
      updater->start();
      EXPECT_NE(owned(), before);
      updater->stop();
      EXPECT_EQ(owned(), before);
    }
    updater->start();
    updater.reset();
    EXPECT_EQ(owned(), before);
  });
}
