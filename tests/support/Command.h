// Another program, run by a test.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

class Command {
 public:
  // Starts the program that `words` begins with, with the rest as its arguments; `input` is what it reads. The test
  // fails when there is no such program.
  explicit Command(const std::vector<std::string>& words, const std::string& input = {});
  ~Command();
  Command(const Command&) = delete;
  Command& operator=(const Command&) = delete;

  // Waits for its end. What it wrote to its two outputs, as it came.
  std::string output();
  // The same; its exit status, or 128 and more for a signal.
  int status();

 private:
  pid_t process_ = -1;
  int read_ = -1;
  int status_ = -1;
  std::string output_;
};
