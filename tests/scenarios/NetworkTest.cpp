// A network that is slow, and one that remembers: what a program sees of a session's idle time-out and of its cache.
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "platform/URLSession.h"
#include "tests/support/Lines.h"
#include "tests/support/Play.h"
#include "tests/support/Program.h"
#include "tests/support/Seat.h"

using namespace lines;

namespace {

using nlohmann::json;
using Texts = std::vector<std::string>;

const std::string address = "https://releases.dalvane.example/some.dmg";

json releases(const std::string& version) {
  return json::array({{{"version", version},
                       {"date", "2025-03-02"},
                       {"dmg_url", "https://releases.dalvane.example/x.dmg"},
                       {"size_bytes", 1},
                       {"notes", ""}}});
}

// What a program reads at `address` under a cache policy; the time between is let pass by `between`.
class Reader {
 public:
  explicit Reader(NS::URLRequestCachePolicy policy) : policy_(policy), seat_(application([this] { read(); }), 1) {}

  std::string readAfter(const std::string& between) {
    seat_.play(between + launch + settle);
    seat_.play(quit);
    return body_;
  }

 private:
  void read() {
    const NS::URL url = NS::URL::URLWithString(address, false);
    const auto request = NS::URLRequest::requestWithURL(url, policy_, 15);
    NS::URLSession::sharedSession()
        .dataTaskWithRequest(request,
                             [this](const NS::Data& data, const NS::URLResponse&, const NS::Error& error) {
                               body_ = error ? error.localizedDescription() : std::string(data.bytes(), data.length());
                             })
        .resume();
  }

  NS::URLRequestCachePolicy policy_;
  std::string body_;
  Seat seat_;
};

std::string publish(const std::string& body, json more = json::object()) {
  more["body"] = body;
  return image(address, more);
}

}  // namespace

TEST(URLSessionCache, KeepsAnAnswerForAsLongAsItsHostSays) {
  using Policy = NS::URLRequestCachePolicy;
  for (const bool usesCache : {true, false}) {
    Reader reader(usesCache ? Policy::UseProtocolCachePolicy : Policy::ReloadIgnoringLocalCacheData);
    EXPECT_EQ(reader.readAfter(publish("old", {{"cache-control", "private, max-age=60"}})), "old");
    EXPECT_EQ(reader.readAfter(publish("new") + advance(50)), usesCache ? "old" : "new");
    EXPECT_EQ(reader.readAfter(advance(20)), "new");
    EXPECT_EQ(reader.readAfter(publish("newer")), "newer");  // nothing was said of keeping that one
    EXPECT_EQ(reader.readAfter(publish("a", {{"cache-control", "no-store, max-age=60"}})), "a");
    EXPECT_EQ(reader.readAfter(publish("b", {{"status", 500}, {"cache-control", "max-age=60"}})), "b");
    EXPECT_EQ(reader.readAfter(publish("c")), "c");  // neither of them was kept
  }
}

TEST(URLSessionCache, TheUpdaterIsNotMisledByIt) {
  Seat seat;
  seat.play(bundle({{"version", "1.3.9"}}) +
            feed({{"releases", releases("1.3.9")}, {"cache-control", "max-age=604800"}}) + launch + advance(11));
  EXPECT_EQ(seat.updateItem(), "Check for Updates…");
  seat.play(feed({{"releases", releases("1.4.0")}}) + answer("Later") + click("Check for Updates…") + settle);
  EXPECT_EQ(seat.updateItem(), "Update to 1.4.0…");
  EXPECT_TRUE(seat.shutDown());
}

// The time-out is one of waiting for the next piece, not for the whole.
TEST(URLSessionTimeout, BeginsAnewWithEveryPiece) {
  const auto drip = [](int pieces, double pause) { return json{{"pieces", pieces}, {"pause", pause}}; };
  Seat seat;
  seat.play(bundle({{"version", "1.3.9"}}) + launch +
            feed({{"releases", releases("1.4.0")}, {"drip", drip(20, 14.9)}}) + answer("Later") +
            click("Check for Updates…") + advance(280));
  EXPECT_EQ(seat.updateItem(), "Checking for Updates… (disabled)");
  seat.play(advance(20) + settle);
  EXPECT_EQ(seat.updateItem(), "Update to 1.4.0…");
  seat.takeRecords();

  seat.play(feed({{"releases", releases("1.4.0")}, {"drip", drip(20, 15)}}) + advance(21600));
  EXPECT_EQ(errorsIn(seat.takeRecords()), Texts{"Update check failed: The request timed out."});
  EXPECT_EQ(seat.updateItem(), "Check for Updates…");
  EXPECT_TRUE(seat.shutDown());
}

// An image may take hours, as long as something comes every minute.
TEST(URLSessionTimeout, ASlowDownloadIsInstalled) {
  for (const bool comes : {true, false}) {
    Seat seat;
    seat.play(bundle({{"version", "1.3.9"}}) + feed({{"releases", releases("1.4.0")}}) +
              image("https://releases.dalvane.example/x.dmg",
                    {{"version", "1.4.0"}, {"drip", {{"pieces", 200}, {"pause", comes ? 59 : 60}}}}) +
              launch + advance(11) + answer("Install and Relaunch") + click("Update to 1.4.0…"));
    EXPECT_EQ(seat.snapshot()["bundle"]["version"], "1.3.9");
    seat.play(advance(12000) + settle);
    EXPECT_EQ(seat.snapshot()["bundle"]["version"], comes ? "1.4.0" : "1.3.9");
    EXPECT_EQ(errorsIn(seat.takeRecords()), comes ? Texts{} : Texts{"Update install failed: The request timed out."});
    EXPECT_TRUE(seat.shutDown());
  }
}

TEST(URLSessionTimeout, ABodyThatBreaksOffBetweenPiecesIsLost) {
  Seat seat;
  seat.play(launch +
            feed({{"releases", releases("1.4.0")}, {"break-after", 40}, {"drip", {{"pieces", 4}, {"pause", 5}}}}) +
            advance(60));
  EXPECT_EQ(errorsIn(seat.takeRecords()), Texts{"Update check failed: The network connection was lost."});
  EXPECT_TRUE(seat.shutDown());
}

TEST(URLSession, LinesThatMakeNoSenseAreRefused) {
  const std::pair<json, std::string> cases[] = {
      {{{"drip", {{"pieces", 0}}}}, R"(member "drip.pieces" must be )"},
      {{{"drip", {{"pause", -1}}}}, R"(member "pause" must be from 0 to a million seconds)"},
      {{{"drip", {{"size", 1}}}}, R"(unknown member "drip.size")"},
      {{{"delay", 1e7}}, R"(member "delay" must be from 0 to a million seconds)"},
      {{{"cache-control", "a\r\nb: c"}}, R"(member "cache-control" must be one line)"}};
  for (const auto& [members, problem] : cases) {
    const Played played = playScenario(feed(members));
    EXPECT_EQ(played.status, 2);
    EXPECT_NE(played.error.find(problem), std::string::npos) << played.error;
  }
}
