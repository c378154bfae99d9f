// What the pure parts reach of a machine that is not there: a place for the last words before a process ends, and host
// names in other scripts, which ICU translates and nothing here.
#include <os/log.h>
#include <unicode/uidna.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "simulator/kernel/Call.h"

struct os_log_s {};

extern "C" {

os_log_s _os_log_default;

void _os_log_simulated(os_log_t, os_log_type_t, const char* format, ...) { std::fprintf(stderr, "%s\n", format); }

UIDNA* uidna_openUTS46(std::uint32_t, UErrorCode*) { return nullptr; }

std::int32_t uidna_nameToASCII_UTF8(const UIDNA*, const char*, std::int32_t, char*, std::int32_t, UIDNAInfo*,
                                    UErrorCode*) {
  std::abort();  // not without an object of the function above
}

}  // extern "C"

void simulator::fatal(std::string_view text) {
  std::fprintf(stderr, "%s\n", std::string(text).c_str());
  std::abort();
}
