// The vocabulary of scenarios: what each line's `do` means, and how its members are read.
#pragma once

#include <CoreGraphics/CoreGraphics.h>

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <limits>
#include <map>
#include <nlohmann/json.hpp>
#include <optional>
#include <set>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace simulator {

// A scenario line that cannot be understood, or that makes no sense where it stands.
struct ScenarioError : std::runtime_error {
  using std::runtime_error::runtime_error;
};

// What a line does.
using Action = std::function<void()>;

struct Line {
  std::string name;  // its `do`
  Action action;
  bool races;  // it happens in the middle of what the lines before it started
};

// The members of a line's JSON object, each read once under its name. What is not as it should be throws
// ScenarioError, with the member named.
class Arguments {
 public:
  // `where` is put before messages: "monitor." for a nested object. `folder` is where the scenario's file is; empty for
  // the working directory.
  explicit Arguments(nlohmann::json members, std::string where = {}, std::filesystem::path folder = {});

  [[nodiscard]] bool has(const char* name) const { return members_.contains(name); }

  std::string text(const char* name);
  std::string text(const char* name, const char* otherwise);
  // A file's; a relative one begins in the folder.
  std::filesystem::path path(const char* name);
  bool truth(const char* name, bool otherwise);  // also 0 or 1
  bool flag(const char* name);
  bool flag(const char* name, bool otherwise);
  double number(const char* name);
  double number(const char* name, double otherwise);
  // Seconds, from 0 to a billion.
  std::chrono::nanoseconds duration(const char* name);

  // An integer that `T` can hold.
  template <typename T>
  T integer(const char* name) {
    const nlohmann::json& value = member(name);
    if (!value.is_number_integer() || (value.is_number_unsigned() && value.get<std::uint64_t>() > INT64_MAX)) {
      wrongType(name, "an integer");
    }
    const auto wide = value.get<std::int64_t>();
    if (wide < std::int64_t{std::numeric_limits<T>::min()} ||
        (sizeof(T) < 8 && wide > static_cast<std::int64_t>(std::numeric_limits<T>::max()))) {
      wrongType(name, "in the range of its type");
    }
    return static_cast<T>(wide);
  }
  template <typename T>
  std::optional<T> optionalInteger(const char* name) {
    return has(name) ? std::optional(integer<T>(name)) : std::nullopt;
  }
  std::uint16_t unsigned16(const char* name) { return integer<std::uint16_t>(name); }
  std::optional<std::uint16_t> optionalUnsigned16(const char* name) { return optionalInteger<std::uint16_t>(name); }
  std::uint32_t unsigned32(const char* name) { return integer<std::uint32_t>(name); }
  std::uint32_t unsigned32(const char* name, std::uint32_t otherwise) {
    return optionalInteger<std::uint32_t>(name).value_or(otherwise);
  }
  std::optional<std::uint32_t> optionalUnsigned32(const char* name) { return optionalInteger<std::uint32_t>(name); }
  // 64 bits, written as a signed or as an unsigned number.
  std::int64_t bits64(const char* name);
  // A count of one or more.
  std::uint64_t count(const char* name, std::uint64_t otherwise);

  CGPoint point(const char* name);     // [x, y]
  CGRect rectangle(const char* name);  // [x, y, width, height]
  std::optional<Arguments> object(const char* name);
  std::vector<Arguments> objects(const char* name);
  std::vector<std::string> texts(const char* name);  // none where the member is missing
  nlohmann::json json(const char* name);
  nlohmann::json jsonObject(const char* name);
  nlohmann::json json(const char* name, nlohmann::json otherwise);
  void ignore(const char* name) { used_.insert(name); }
  [[nodiscard]] const std::filesystem::path& folder() const { return folder_; }

  // Refuses members that nothing has read: they would be mistakes without effect.
  void finish() const;
  [[noreturn]] void fail(const std::string& reason) const;

 private:
  const nlohmann::json& member(const char* name);
  [[noreturn]] void wrongType(const char* name, const char* expected) const;
  std::vector<double> numbers(const char* name, std::size_t count);

  nlohmann::json members_;
  std::string where_;
  std::filesystem::path folder_;
  std::set<std::string, std::less<>> used_;
};

class Commands {
 public:
  using Parser = std::function<Action(Arguments& line)>;

  void add(const char* name, Parser parser) { parsers_[name] = std::move(parser); }
  // `folder` is where the paths in the line begin.
  [[nodiscard]] Line parse(std::string_view line, const std::filesystem::path& folder = {}) const;

 private:
  std::map<std::string, Parser, std::less<>> parsers_;
};

}  // namespace simulator
