// The record of everything that crosses the line between the program and the machine: one JSON object a line.
#pragma once

#include <cstdint>
#include <functional>
#include <span>
#include <string>
#include <string_view>

#include "simulator/kernel/Scheduler.h"

namespace simulator {

class Trace {
 public:
  using Sink = std::function<void(std::string_view line)>;

  // Without a sink nothing is recorded.
  Trace(Scheduler& scheduler, Sink sink) : scheduler_(scheduler), sink_(std::move(sink)) {}

  // One record in the making; it is written when it goes out of scope.
  class Record {
   public:
    Record(Record&& other) noexcept;
    Record& operator=(Record&&) = delete;
    Record(const Record&) = delete;
    Record& operator=(const Record&) = delete;
    ~Record();

    Record& text(std::string_view key, std::string_view value);
    Record& number(std::string_view key, std::int64_t value);
    Record& real(std::string_view key, double value);
    Record& flag(std::string_view key, bool value);
    // Bytes as lower-case hex pairs with spaces.
    Record& bytes(std::string_view key, std::span<const std::uint8_t> value);
    // A value that is JSON already.
    Record& json(std::string_view key, std::string_view value);

   private:
    friend class Trace;
    explicit Record(Trace* trace) : trace_(trace) {}
    void key(std::string_view key);

    Trace* trace_;  // null: nothing is recorded
    std::string line_;
    std::string suffix_ = "}";
    bool first_ = false;
  };

  // A record of the given kind.
  Record record(std::string_view what);
  // A call that changes something outside the program; the members added are its arguments.
  Record call(std::string_view api, std::int64_t status = 0);

  // Paths below this folder are written without it.
  void setRoot(std::string root) { root_ = std::move(root); }
  // From when the program's process ends until its remains are cleared away, what it does is no longer seen.
  void setMuted(bool muted) { muted_ = muted; }

  // The text as a JSON string, with the root folder taken out.
  [[nodiscard]] std::string quote(std::string_view text) const;

 private:
  void write(std::string_view line);

  Scheduler& scheduler_;
  Sink sink_;
  std::string root_;
  bool muted_ = false;
};

}  // namespace simulator
