#include "simulator/kernel/Trace.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <nlohmann/json.hpp>
#include <utility>

namespace simulator {
namespace {

void appendInteger(std::string& line, std::int64_t value) {
  std::array<char, 24> digits{};
  const auto end = std::to_chars(digits.data(), digits.data() + digits.size(), value).ptr;
  line.append(digits.data(), end);
}

// Seconds as a plain decimal number, exact to the nanosecond.
void appendSeconds(std::string& line, Time time) {
  appendInteger(line, time.count() / 1'000'000'000);
  auto fraction = time.count() % 1'000'000'000;
  if (fraction == 0) return;
  line += '.';
  for (std::int64_t digit = 100'000'000; fraction > 0; digit /= 10) {
    line += static_cast<char>('0' + fraction / digit);
    fraction %= digit;
  }
}

}  // namespace

std::string Trace::quote(std::string_view text) const {
  std::string stripped(text);
  if (!root_.empty()) {
    for (auto at = stripped.find(root_); at != std::string::npos; at = stripped.find(root_, at)) {
      stripped.erase(at, root_.size());
    }
  }
  const bool plain =
      std::ranges::all_of(stripped, [](char c) { return c >= ' ' && c < 0x7f && c != '"' && c != '\\'; });
  if (plain) return '"' + stripped + '"';
  return nlohmann::json(stripped).dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

Trace::Record Trace::record(std::string_view what) {
  if (!sink_ || muted_) return Record(nullptr);
  Record record(this);
  record.line_.reserve(160);
  record.line_ = "{\"t\":";
  appendSeconds(record.line_, scheduler_.now());
  record.text("what", what);
  return record;
}

Trace::Record Trace::call(std::string_view api, std::int64_t status) {
  Record result = record("call");
  if (!result.trace_) return result;
  result.text("api", api);
  if (const std::string_view thread = Scheduler::currentName(); !thread.empty()) result.text("thread", thread);
  result.line_ += ",\"args\":{";
  result.first_ = true;
  result.suffix_ = "},\"status\":" + std::to_string(status) + "}";
  return result;
}

void Trace::write(std::string_view line) {
  const Scheduler::Lock lock(scheduler_);
  sink_(line);
}

Trace::Record::Record(Record&& other) noexcept
    : trace_(std::exchange(other.trace_, nullptr)),
      line_(std::move(other.line_)),
      suffix_(std::move(other.suffix_)),
      first_(other.first_) {}

Trace::Record::~Record() {
  if (!trace_) return;
  line_ += suffix_;
  trace_->write(line_);
}

void Trace::Record::key(std::string_view key) {
  if (!std::exchange(first_, false)) line_ += ',';
  line_ += '"';
  line_ += key;
  line_ += "\":";
}

Trace::Record& Trace::Record::json(std::string_view name, std::string_view value) {
  if (!trace_) return *this;
  key(name);
  line_ += value;
  return *this;
}

Trace::Record& Trace::Record::text(std::string_view name, std::string_view value) {
  return trace_ ? json(name, trace_->quote(value)) : *this;
}

Trace::Record& Trace::Record::number(std::string_view name, std::int64_t value) {
  if (!trace_) return *this;
  key(name);
  appendInteger(line_, value);
  return *this;
}

Trace::Record& Trace::Record::real(std::string_view name, double value) {
  if (!trace_) return *this;
  return json(name, std::isfinite(value) ? nlohmann::json(value).dump() : "null");
}

Trace::Record& Trace::Record::flag(std::string_view name, bool value) { return json(name, value ? "true" : "false"); }

Trace::Record& Trace::Record::bytes(std::string_view name, std::span<const std::uint8_t> value) {
  if (!trace_) return *this;
  constexpr std::string_view digits = "0123456789abcdef";
  std::string hex;
  hex.reserve(value.size() * 3 + 2);
  hex += '"';
  for (const std::uint8_t byte : value) {
    if (hex.size() > 1) hex += ' ';
    hex += digits[byte >> 4];
    hex += digits[byte & 0xf];
  }
  hex += '"';
  return json(name, hex);
}

}  // namespace simulator
