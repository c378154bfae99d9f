// Claims that come to every end that a claim can come to, and a machine that does nothing: for tests/conformance/frame,
// which checks that each is told as what it is.
#include <signal.h>
#include <unistd.h>

#include <cstdlib>

#include "tests/conformance/Machine.h"

CLAIM(Ends, Well, "One that holds.", "nothing") { EXPECT_TRUE(true); }

CLAIM(Ends, Badly, "One that does not hold.", "nothing") { EXPECT_EQ(1, 2) << "one | two"; }

CLAIM(Ends, Untried, "One that cannot be tried.", "nothing") { NOT_TRIED("there is no reason"); }

CLAIM(Ends, ByASignal, "One that crashes.", "nothing") {
  signal(SIGTERM, SIG_DFL);
  raise(SIGTERM);
}

CLAIM(Ends, ByASignalAfterwards, "One whose process crashes once it is over.", "nothing") {
  std::atexit([] { raise(SIGTERM); });
}

CLAIM(Ends, WithoutAWord, "One that ends its process.", "nothing") { _exit(3); }

CLAIM(Ends, Never, "One that goes on for ever.", "nothing") {
  for (;;) pause();
}

DESK_CLAIM(Ends, AtTheDesk, "One that asks.", "nothing") {
  char answer = 0;
  EXPECT_EQ(read(STDIN_FILENO, &answer, 1), 1);
  EXPECT_EQ(answer, 'y');
}

namespace claims {

void begin(bool) {}
void carryOut(const Claim& claim) { claim.body(); }
Description description() { return {"no system", "no hardware"}; }
std::map<std::string, std::set<std::string>> functions() { return {{"aFunction", {"Ends.Well"}}}; }

}  // namespace claims
