// The unified log: what the program logs, as a user would read it.
#include <os/log.h>

#include <cctype>
#include <cstdarg>
#include <map>
#include <mutex>
#include <string>
#include <string_view>
#include <utility>

#include "simulator/kernel/Call.h"

struct os_log_s {
  std::string subsystem;
  std::string category;
};

os_log_s _os_log_default;

namespace simulator {

namespace {

std::string_view levelName(os_log_type_t type) {
  switch (type) {
    case OS_LOG_TYPE_INFO:
      return "info";
    case OS_LOG_TYPE_DEBUG:
      return "debug";
    case OS_LOG_TYPE_ERROR:
      return "error";
    case OS_LOG_TYPE_FAULT:
      return "fault";
    default:
      return "default";
  }
}

// Fills the arguments in as the log does: a string that is not marked public is not shown.
std::string formatted(const char* format, va_list arguments) {
  std::string text;
  for (const char* at = format; *at; ++at) {
    if (*at != '%') {
      text += *at;
      continue;
    }
    if (*++at == '%') {
      text += '%';
      continue;
    }
    bool isPublic = false;
    if (*at == '{') {
      const char* const end = std::string_view(at).find('}') + at;
      isPublic = std::string_view(at, end).find("public") != std::string_view::npos;
      at = end + 1;
    }
    int longs = 0;
    for (; *at == 'l' || *at == 'h' || *at == 'z' || std::isdigit(static_cast<unsigned char>(*at)); ++at) {
      if (*at == 'l' || *at == 'z') ++longs;
    }
    switch (*at) {
      case 's': {
        const char* const string = va_arg(arguments, const char*);
        text += !isPublic ? "<private>" : string ? string : "(null)";
        break;
      }
      case 'd':
      case 'i':
        text += std::to_string(longs ? va_arg(arguments, long) : va_arg(arguments, int));
        break;
      case 'u':
        text += std::to_string(longs ? va_arg(arguments, unsigned long) : va_arg(arguments, unsigned int));
        break;
      default:
        fatal(std::string("os_log: the conversion %") + *at + " is not simulated");
    }
  }
  return text;
}

}  // namespace
}  // namespace simulator

using simulator::Call;

extern "C" {

// The same object for the same names, and never deallocated, as the header says.
os_log_t os_log_create(const char* subsystem, const char* category) {
  static std::mutex mutex;
  static auto* const logs = new std::map<std::pair<std::string, std::string>, os_log_t>;
  const std::lock_guard lock(mutex);
  os_log_t& log = (*logs)[{subsystem, category}];
  if (!log) log = new os_log_s{subsystem, category};
  return log;
}

void _os_log_simulated(os_log_t log, os_log_type_t type, const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  const std::string text = simulator::formatted(format, arguments);
  va_end(arguments);
  if (!Call::isPossible()) return;
  simulator::Machine& machine = Call::unguarded();
  machine.scheduler.preempt();
  const simulator::Scheduler::Lock lock(machine.scheduler);
  if (type == OS_LOG_TYPE_FAULT) machine.process.setLastWords(text);
  machine.trace.record("log")
      .text("subsystem", log->subsystem)
      .text("category", log->category)
      .text("level", simulator::levelName(type))
      .text("text", text);
}

// The program stops itself.
[[noreturn]] void __real_abort(void);
[[noreturn]] void __wrap_abort(void);
void __wrap_abort(void) {
  if (!simulator::Scheduler::current()) __real_abort();
  simulator::Machine& machine = Call::unguarded();
  const simulator::Scheduler::Lock lock(machine.scheduler);
  const std::string& words = machine.process.lastWords();
  simulator::fatal(words.empty() ? "abort() was called" : words);
}

}  // extern "C"
