// Work that is done in child processes, so that it does not matter how the program fails: each tells its parent texts.
#pragma once

#include <signal.h>
#include <sys/types.h>

#include <cstddef>
#include <filesystem>
#include <functional>
#include <map>
#include <string>
#include <string_view>

// Tells the parent a text of one line.
using Tell = std::function<void(std::string_view)>;

// Each has a folder for its temporary files, a machine's among them, which is removed when it has ended, in whatever
// way. So are all that are left when this process is told to end (INT and TERM, which wait for that meanwhile).
class Children {
 public:
  // Throws std::system_error.
  Children();
  // Ends those that are left.
  ~Children();
  Children(const Children&) = delete;
  Children& operator=(const Children&) = delete;

  // Starts a child that does `work` and then ends. One that tells nothing for `patience` seconds is ended; 0 lets it
  // take its time. `number` is what the child is called by below; it must be free. Throws std::system_error.
  void start(std::size_t number, unsigned patience, const std::function<void(const Tell&)>& work);
  [[nodiscard]] std::size_t count() const { return children_.size(); }

  // Waits until a child tells something or has ended, and calls `told` or `ended`; the latter with how it ended: 0 when
  // it came to the end of its work, otherwise the status of its exit or 128 and the signal.
  void wait(const std::function<void(std::size_t number, const std::string& text)>& told,
            const std::function<void(std::size_t number, int status)>& ended);

 private:
  struct Child {
    pid_t process;
    int pipe;
    std::filesystem::path folder;
    std::string buffer;
  };

  int end(std::size_t number);
  void endAll();

  std::map<std::size_t, Child> children_;
  sigset_t before_ = {};  // the signals that were blocked
  int stops_ = -1;        // can be read when this process is told to end
};
