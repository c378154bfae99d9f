// What is fuzzed: functions of one input of any bytes, which stop the process where what must hold does not.
#pragma once

#include <functional>
#include <string_view>

namespace fuzz {

class Target {
 public:
  using Function = void (*)(std::string_view input);

  // Each target is one object that lives as long as the process.
  Target(const char* name, Function function);
  // The one of that name; null when there is none.
  static const Target* find(std::string_view name);

  void run(std::string_view input) const { function_(input); }

 private:
  const char* name_;
  Function function_;
  const Target* next_;
};

// Stops the process, saying what does not hold, unless it does.
void require(bool holds, const char* what);

// Takes an input apart, value by value; when it is used up, everything is 0 or empty.
class Input {
 public:
  explicit Input(std::string_view bytes) : rest_(bytes) {}

  [[nodiscard]] bool isUsedUp() const { return rest_.empty(); }
  template <typename T>
  T number() {
    T value = 0;
    for (const char byte : take(sizeof(T))) value = static_cast<T>(value << 8 | static_cast<unsigned char>(byte));
    return value;
  }
  bool truth() { return (number<unsigned char>() & 1) != 0; }
  // Up to that many bytes.
  std::string_view take(std::size_t size) {
    const std::string_view taken = rest_.substr(0, size);
    rest_.remove_prefix(taken.size());
    return taken;
  }
  // What comes before the next null character, which is left out.
  std::string_view text() {
    const std::string_view taken = take(rest_.find('\0'));
    take(1);
    return taken;
  }
  std::string_view rest() { return take(rest_.size()); }

 private:
  std::string_view rest_;
};

// A machine that is kept from one input to the next, as making one takes longer than what is to be seen. There is one
// in a process, of one clock on which no time is lost. Nothing of it is recorded.
//
// Runs `task` on the main thread of a program there, and lets ten seconds pass.
void onMachine(const std::function<void()>& task);

}  // namespace fuzz
