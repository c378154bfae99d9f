#include "tests/support/Command.h"

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <utility>

Command::Command(const std::vector<std::string>& words, const std::string& input) {
  std::array<int, 2> pipe{};
  const int in = memfd_create("input", 0);
  EXPECT_TRUE(in >= 0 && ::pipe(pipe.data()) == 0);
  EXPECT_EQ(write(in, input.data(), input.size()), static_cast<ssize_t>(input.size()));
  lseek(in, 0, SEEK_SET);
  process_ = fork();
  if (process_ == 0) {
    std::vector<char*> arguments;
    for (const std::string& word : words) arguments.push_back(const_cast<char*>(word.c_str()));
    arguments.push_back(nullptr);
    dup2(in, 0);
    dup2(pipe[1], 1);
    dup2(pipe[1], 2);
    close(pipe[0]);
    close(pipe[1]);
    execvp(arguments[0], arguments.data());
    _exit(127);
  }
  close(in);
  close(pipe[1]);
  read_ = pipe[0];
}

Command::~Command() { (void)status(); }

std::string Command::output() {
  (void)status();
  return output_;
}

int Command::status() {
  if (process_ < 0) return status_;
  std::array<char, 4096> buffer{};
  for (ssize_t count = 0; (count = read(read_, buffer.data(), buffer.size())) > 0;) {
    output_.append(buffer.data(), static_cast<std::size_t>(count));
  }
  close(read_);
  int ended = 0;
  waitpid(std::exchange(process_, -1), &ended, 0);
  status_ = WIFEXITED(ended) ? WEXITSTATUS(ended) : 128 + WTERMSIG(ended);
  EXPECT_NE(status_, 127) << "there is no such program";
  return status_;
}
