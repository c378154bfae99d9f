// Claims about the platform: each is one sentence that the program or the simulated Mac relies on, with what it rests
// on, and the code that finds out whether it holds. The same claims are tried on a Mac and on the simulated one; how
// that is done, and what is done by hand, is up to the machine (Machine.h).
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace claims {

struct Claim {
  const char* family;
  const char* name;
  const char* statement;
  const char* source;  // a header with the name, a manual page; "observed" or "assumed" where nobody documents it
  enum class Kind {
    plain,  // its body finds out
    desk,   // its body asks a person
    stops,  // its body is stopped by the system
    ends,   // its body ends the process, having written "as claimed" to standard error
  } kind;
  void (*body)();

  [[nodiscard]] std::string fullName() const { return std::string(family) + "." + name; }
};

// All of them, in the order in which they are read.
std::vector<Claim>& all();

bool add(const Claim& claim);
// What a claim's test does: asks the machine to carry it out.
void tryOut(const Claim& claim);

}  // namespace claims

#define CLAIM_OF_KIND(kind_, family_, name_, statement_, source_)                                           \
  static void claim##family_##name_();                                                                      \
  static const claims::Claim the##family_##name_{                                                           \
      #family_, #name_, statement_, source_, claims::Claim::Kind::kind_, claim##family_##name_};            \
  [[maybe_unused]] static const bool added##family_##name_ = claims::add(the##family_##name_);              \
  TEST(family_, name_) { claims::tryOut(the##family_##name_); } /* NOLINT(modernize-use-trailing-return) */ \
  static void claim##family_##name_()

// CLAIM(CoreFoundation, NumbersCompareByValue, "Two numbers are equal when their values are.", "CFBase.h, CFEqual") {}
#define CLAIM(family, name, statement, source) CLAIM_OF_KIND(plain, family, name, statement, source)
// One that needs a monitor, sound or a person; tried when the program is told that they are there (--desk).
#define DESK_CLAIM(family, name, statement, source) CLAIM_OF_KIND(desk, family, name, statement, source)
// One whose body does not come to its end: the system stops the process in it.
#define STOPS(family, name, statement, source) CLAIM_OF_KIND(stops, family, name, statement, source)
// One whose body ends the process with status 0, having written "as claimed" to standard error on its way.
#define ENDS(family, name, statement, source) CLAIM_OF_KIND(ends, family, name, statement, source)

// Leaves a claim that cannot be tried here, and why: NOT_TRIED("there is no output");
#define NOT_TRIED(reason) GTEST_SKIP() << (reason)
