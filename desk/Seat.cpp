#include "desk/Seat.h"

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cmath>
#include <cstdlib>
#include <map>
#include <nlohmann/json.hpp>
#include <numbers>
#include <optional>
#include <set>
#include <span>
#include <string_view>
#include <utility>

#include "desk/Desk.h"
#include "simulator/audio/Audio.h"
#include "simulator/displays/Displays.h"
#include "simulator/mac/Mac.h"
#include "simulator/mac/Scenario.h"
#include "simulator/privacy/Accessibility.h"
#include "simulator/privacy/AudioCapture.h"
#include "simulator/system/SystemRoot.h"

using nlohmann::ordered_json;
using std::chrono::milliseconds;

namespace {

using RealClock = std::chrono::steady_clock;

constexpr milliseconds tick{10};         // how often the machine's clock follows the real one
constexpr milliseconds mostBehind{250};  // a machine that cannot keep up is not hurried further than that
constexpr milliseconds betweenStates{16};
constexpr milliseconds betweenPulses{66};
constexpr std::chrono::seconds userReads{1};  // what a question for a permission waits for its answer
constexpr double longestAdvance = 86400;      // s, in one line: nobody waits longer for an answer
constexpr int deepestLine = 32;

constexpr std::size_t wavePoints = 96;
constexpr std::size_t waveFrames = 960;  // 20 ms at 48 kHz

std::string base64(std::string_view bytes) {
  constexpr std::string_view digits = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string text;
  text.reserve((bytes.size() + 2) / 3 * 4);
  for (std::size_t i = 0; i < bytes.size(); i += 3) {
    std::uint32_t group = 0;
    for (std::size_t k = 0; k < 3; ++k) {
      group = group << 8 | (i + k < bytes.size() ? static_cast<unsigned char>(bytes[i + k]) : 0U);
    }
    for (std::size_t k = 0; k < 4; ++k) text += i + k <= bytes.size() ? digits[group >> (18 - 6 * k) & 63] : '=';
  }
  return text;
}

// Everything that is sent to the one who asked, many lines at a time.
class Outbox {
 public:
  explicit Outbox(int file) : file_(file) {}

  void add(std::string_view kind, std::string_view text) {
    waiting_.append(kind).append(" ").append(text).append("\n");
    if (waiting_.size() > (1U << 20)) flush();
  }
  void flush() {
    for (std::string_view rest = waiting_; !rest.empty();) {
      const ssize_t written = write(file_, rest.data(), rest.size());
      if (written < 0 && errno == EINTR) continue;
      if (written <= 0) break;  // nobody reads any more: the commands end, too
      rest.remove_prefix(static_cast<std::size_t>(written));
    }
    waiting_.clear();
  }

 private:
  const int file_;
  std::string waiting_;
};

// The lines that come in.
class Inbox {
 public:
  explicit Inbox(int file) : file_(file) {}

  // Waits that long for a line; none: there is none yet, or no more at all (`isOver`).
  std::optional<std::string> next(milliseconds wait) {
    for (;;) {
      const auto end = unread_.find('\n', searched_);
      if (end != std::string::npos) {
        std::string line = unread_.substr(0, end);
        unread_.erase(0, end + 1);
        searched_ = 0;
        return line;
      }
      searched_ = unread_.size();
      pollfd waiting{.fd = file_, .events = POLLIN, .revents = 0};
      if (poll(&waiting, 1, static_cast<int>(wait.count())) <= 0) return std::nullopt;
      std::array<char, 65536> buffer;
      const ssize_t size = read(file_, buffer.data(), buffer.size());
      if (size < 0 && errno == EINTR) continue;
      if (size <= 0) {
        isOver_ = true;
        return std::nullopt;
      }
      unread_.append(buffer.data(), static_cast<std::size_t>(size));
    }
  }
  [[nodiscard]] bool isOver() const { return isOver_; }

 private:
  const int file_;
  std::string unread_;
  std::size_t searched_ = 0;
  bool isOver_ = false;
};

// What the players of the default output make, as the lines have told them to: the sound before the program.
class Score {
 public:
  void follow(const ordered_json& line) {
    const std::string what = line.value("do", "");
    if (what != "play") return;
    const std::string process = line.value("process", "");
    if (line.value("stop", false)) {
      voices_.erase(process);
      return;
    }
    voices_[process] = {.output = line.value("output", std::int64_t{-1}),
                        .level = line.value("level", 0.5),
                        .tone = line.value("tone", 440.0),
                        .phase = 0};
  }
  [[nodiscard]] bool plays(std::int64_t output) const {
    return std::ranges::any_of(voices_, [output](const auto& each) { return each.second.output == output; });
  }
  std::vector<float> next(std::int64_t output, std::size_t frames, double rate) {
    std::vector<float> sum(frames);
    for (auto& [process, voice] : voices_) {
      if (voice.output != output) continue;
      for (float& sample : sum) {
        sample +=
            static_cast<float>(voice.level * (voice.tone == 0 ? 1 : std::sin(2 * std::numbers::pi * voice.phase)));
        voice.phase = std::fmod(voice.phase + voice.tone / rate, 1.0);
      }
    }
    return sum;
  }
  [[nodiscard]] ordered_json list() const {
    auto list = ordered_json::array();
    for (const auto& [process, voice] : voices_) {
      list.push_back({{"process", process}, {"output", voice.output}, {"level", voice.level}, {"tone", voice.tone}});
    }
    return list;
  }

 private:
  struct Voice {
    std::int64_t output;
    double level;
    double tone;
    double phase;  // in turns
  };
  std::map<std::string, Voice> voices_;
};

// The waves of the default output, before and after the program.
class Scope {
 public:
  void add(const std::vector<float>& before, std::span<const float> samples, std::size_t channels) {
    for (std::size_t i = 0; i < before.size(); ++i) {
      before_.push_back(before[i]);
      after_.push_back(samples[i * channels]);
    }
    const auto surplus = static_cast<std::ptrdiff_t>(before_.size()) - static_cast<std::ptrdiff_t>(2 * waveFrames);
    if (surplus <= 0) return;
    before_.erase(before_.begin(), before_.begin() + surplus);
    after_.erase(after_.begin(), after_.begin() + surplus);
  }
  void clear() { before_.clear(), after_.clear(); }

  // A piece that begins where the wave rises through zero, so that a steady sound is a steady picture; thousandths.
  [[nodiscard]] ordered_json picture() const {
    if (before_.size() < 2 * waveFrames) return nullptr;
    std::size_t first = 1;
    while (first < waveFrames && !(before_[first - 1] < 0 && before_[first] >= 0)) ++first;
    ordered_json before = ordered_json::array();
    ordered_json after = ordered_json::array();
    for (std::size_t i = 0; i < wavePoints; ++i) {
      const std::size_t at = first % waveFrames + i * waveFrames / wavePoints;
      before.push_back(std::lround(before_[at] * 1000));
      after.push_back(std::lround(after_[at] * 1000));
    }
    return {{"before", before}, {"after", after}};
  }

 private:
  std::vector<float> before_;
  std::vector<float> after_;
};

class Seat {
 public:
  Seat(const SeatOptions& options, int commands, int messages)
      : inbox_(commands),
        outbox_(messages),
        isAttended_(options.isFurnished),
        isLive_(options.isLive),
        machine_(dalvaneProgram(), {.clock = simulator::Clock::deterministic,
                                    .seed = options.seed,
                                    .trace = [this](std::string_view line) { record(line); },
                                    .fatal =
                                        [this] {
                                          tellTime();
                                          outbox_.flush();
                                          std::_Exit(1);
                                        }}),
        scenario_(machine_) {}

  int play() {
    machine_.introduce();
    if (isAttended_) {
      for (const std::string& line : furnishing()) perform(line);
    }
    followed_ = RealClock::now();
    do {
      const auto command = inbox_.next(untilNext());
      follow();
      if (command) obey(*command);
      while (const auto another = inbox_.next(milliseconds(0))) {
        // The next one may take its time.
        outbox_.flush();
        obey(*another);
      }
      tell();
      outbox_.flush();
    } while (!inbox_.isOver());
    return 0;
  }

 private:
  struct Answer {
    int status;
    std::string text;
  };

  // ---- Time ----

  // The user is being asked for a permission, and has not said anything yet.
  [[nodiscard]] bool isAsked() const {
    return askedAt_ && machine_.scheduler.now() < *askedAt_ + userReads && machine_.process.running();
  }
  // A question holds the clock: who sits here takes longer to read it than the second that the machine allows.
  [[nodiscard]] bool runs() const { return isLive_ && !isAsked(); }

  [[nodiscard]] milliseconds untilNext() const {
    const auto due = std::chrono::ceil<milliseconds>(followed_ + tick - RealClock::now());
    return std::clamp(due, milliseconds(0), tick);
  }

  // Lets as much time pass as has gone by, in whole milliseconds: those can be written down exactly.
  void follow() {
    const auto passed = std::chrono::floor<milliseconds>(RealClock::now() - followed_);
    followed_ += passed;
    for (milliseconds left = std::min(passed, mostBehind); left.count() > 0 && runs();) {
      const milliseconds step = std::min(left, tick);
      sinceLine_ += step;
      machine_.scheduler.advance(step);
      left -= step;
      leaveNextAlertOpen();
    }
  }

  void tellTime() { outbox_.add("T", std::to_string(sinceLine_.count())); }

  // ---- What is asked for ----

  void obey(const std::string& command) {
    const auto first = command.find(' ');
    const auto second = std::min(command.find(' ', first + 1), command.size());
    const std::string word = command.substr(first + 1, second - first - 1);
    const Answer answer = answerTo(word, command.substr(std::min(second + 1, command.size())));
    outbox_.add("Q", command.substr(0, first) + " " + std::to_string(answer.status) + " " + answer.text);
  }

  Answer answerTo(const std::string& word, const std::string& rest) {
    if (word == "do") {
      const Answer answer = perform(rest);
      leaveNextAlertOpen();
      // What it made visible is told first, so that whoever gets the answer can see it.
      tell(true);
      return answer;
    }
    if (word == "state") return {200, written(state())};
    if (word == "listen") {
      isHeard_ = rest == "on";
      return {200, ""};
    }
    isLive_ = rest == "live";
    pulsed_ = {};
    return {200, ""};
  }

  // A line as it is kept: on one line of text.
  static ordered_json parsed(const std::string& text) {
    const auto shallow = [](int depth, ordered_json::parse_event_t, ordered_json&) {
      if (depth > deepestLine) throw simulator::ScenarioError("the line is nested too deeply");
      return true;
    };
    return ordered_json::parse(text, shallow);
  }
  static std::string written(const ordered_json& json) {
    return json.dump(-1, ' ', false, ordered_json::error_handler_t::replace);
  }

  Answer perform(const std::string& text) {
    try {
      const ordered_json line = parsed(text);
      const std::string what = line.is_object() ? line.value("do", "") : "";
      if (what == "advance" && line.value("seconds", 0.0) > longestAdvance) {
        return {400, "no more than a day can pass at once"};
      }
      hurry(what == "advance" || what == "settle" || what == "sleep");
      begun_ = Begun{.line = written(line), .after = sinceLine_, .record = {}};
      machine_.scheduler.setCause(line_ + 1);
      scenario_.perform(begun_->line);
      tellOfLine();
      hurry(false);
      score_.follow(line);
      if (what == "capture") askedAt_.reset();
      isChanged_ = true;
      return {200, ""};
    } catch (const simulator::ScenarioError& error) {
      return refused(error.what());
    } catch (const nlohmann::json::exception& error) {
      return refused(std::string("this is no scenario line: ") + error.what());
    }
  }

  // A line that made no sense has not happened.
  Answer refused(const std::string& reason) {
    hurry(false);
    begun_.reset();
    return {400, reason};
  }

  // That a line has been carried out, with its record.
  void tellOfLine() {
    if (!begun_) return;
    const Begun line = *std::exchange(begun_, std::nullopt);
    ++line_;
    outbox_.add("D", std::to_string(line.after.count()) + " " + line.line);
    if (!line.record.empty()) outbox_.add("R", std::to_string(line_) + " " + line.record);
    sinceLine_ = {};
  }

  // Who sits here answers alerts by hand: each time that one was left open, the next one is to be, too.
  void leaveNextAlertOpen() {
    if (isAttended_ && std::exchange(alertWasLeftOpen_, false)) perform(R"({"do":"answer","button":null})");
  }

  // ---- What is told ----

  void record(std::string_view line) {
    // The record of a line waits until it is certain that the line makes sense.
    if (begun_ && begun_->record.empty()) {
      begun_->record = line;
      return;
    }
    tellOfLine();
    outbox_.add("R", std::to_string(machine_.scheduler.cause()) + " " + std::string(line));
    isChanged_ = true;
    const auto says = [line](std::string_view text) { return line.find(text) != std::string_view::npos; };
    if (says(R"("what":"alert")") && line.ends_with(R"("answer":null})")) alertWasLeftOpen_ = true;
    if (isAttended_ && says(R"("what":"prompt","for":"capture")")) askedAt_ = machine_.scheduler.now();
  }

  void tell(bool isUrgent = false) {
    const auto now = RealClock::now();
    if (isChanged_ && (isUrgent || now - stated_ >= betweenStates)) {
      stated_ = now;
      isChanged_ = false;
      if (std::string visible = written(state()); visible != visible_) {
        visible_ = std::move(visible);
        outbox_.add("S", visible_);
      }
    }
    if (now - pulsed_ >= betweenPulses) {
      pulsed_ = now;
      outbox_.add("P", written(pulse()));
      tellTime();
    }
  }

  ordered_json state() {
    ordered_json visible = machine_.snapshot();
    auto& speakers = visible["speakers"];
    default_.reset();
    for (auto& speaker : speakers) {
      const auto number = speaker["id"].get<std::int64_t>();
      if (speaker["default"] == true) default_ = number;
      if (listened_.insert(number).second) listenTo(number);
      // The level is of the moment, and comes with the pulse.
      speaker.erase("level");
    }
    auto& seat = visible["seat"];
    seat["displays"] = displays();
    const CGPoint pointer = machine_.part<simulator::Displays>().pointer();
    seat["pointer"] = {pointer.x, pointer.y};
    seat["outputs"] = outputs(speakers);
    seat["players"] = score_.list();
    seat["accessibility"] = machine_.part<simulator::Accessibility>().granted();
    seat["capture"] = machine_.part<simulator::AudioCapture>().isAuthorized();
    seat["asked"] = isAsked() ? ordered_json("capture") : ordered_json();
    seat["attended"] = isAttended_;
    return visible;
  }

  [[nodiscard]] ordered_json displays() const {
    auto list = ordered_json::array();
    for (const simulator::Display& each : machine_.part<simulator::Displays>().all()) {
      list.push_back(
          {{"id", each.id},
           {"name", each.name},
           {"builtin", each.builtin},
           {"frame", {each.frame.origin.x, each.frame.origin.y, each.frame.size.width, each.frame.size.height}},
           {"mirrors", each.mirrors ? ordered_json(*each.mirrors) : ordered_json()},
           {"monitor", each.monitor != nullptr},
           {"brightness", each.monitor ? ordered_json(each.monitor->current()) : ordered_json()},
           {"maximum", each.monitor ? ordered_json(each.monitor->maximum()) : ordered_json()}});
    }
    return list;
  }

  ordered_json outputs(const ordered_json& speakers) {
    auto list = ordered_json::array();
    for (const auto& speaker : speakers) {
      const auto number = speaker["id"].get<std::int64_t>();
      const simulator::OutputSettings& settings = machine_.part<simulator::Audio>().output(number)->settings();
      using Volume = simulator::OutputSettings::Volume;
      list.push_back({{"id", number},
                      {"name", settings.name.value_or("")},
                      {"uid", settings.uid ? ordered_json(*settings.uid) : ordered_json()},
                      {"volume", settings.volume == Volume::none    ? "none"
                                 : settings.volume == Volume::fixed ? "fixed"
                                                                    : "settable"},
                      {"rate", settings.rate},
                      {"channels", settings.channels},
                      {"frames", settings.frames},
                      {"alive", settings.isAlive},
                      {"default", speaker["default"]}});
    }
    return list;
  }

  ordered_json pulse() {
    auto& audio = machine_.part<simulator::Audio>();
    ordered_json beat;
    beat["t"] = static_cast<double>(std::chrono::floor<milliseconds>(machine_.scheduler.now()).count()) / 1000;
    beat["clock"] = isLive_ ? (isAsked() ? "held" : "live") : "paused";
    if (std::exchange(cycles_, 0) == 0 && runs()) scope_.clear();
    auto& levels = beat["levels"] = ordered_json::array();
    for (const std::int64_t number : listened_) {
      simulator::OutputDevice* const output = audio.output(number);
      if (!output) continue;
      const double level = std::min<double>(output->speaker.level(), 10);
      levels.push_back(
          {{"id", number}, {"level", std::round(level * 1000) / 1000}, {"direct", output->speaker.direct()}});
    }
    beat["wave"] = scope_.picture();
    return beat;
  }

  // ---- Sound ----

  void listenTo(std::int64_t number) {
    machine_.part<simulator::Audio>().listen(
        number, [this, number](std::span<const float> samples, std::size_t channels, double rate) {
          if (default_ == number) hear(number, samples, channels, rate);
        });
  }

  // While time passes faster than it can be listened to nobody listens: then cycles like the last are left out.
  void hurry(bool hurries) {
    for (const std::int64_t number : listened_) {
      if (hurries) {
        machine_.part<simulator::Audio>().listen(number, {});
      } else {
        listenTo(number);
      }
    }
  }

  void hear(std::int64_t number, std::span<const float> samples, std::size_t channels, double rate) {
    ++cycles_;
    const std::vector<float> before = score_.next(number, samples.size() / channels, rate);
    scope_.add(before, samples, channels);
    if (!isHeard_) return;
    std::string bytes;
    bytes.reserve(before.size() * 4);
    const auto append = [&bytes](float sample) {
      const auto value = static_cast<std::int16_t>(std::lround(std::clamp(sample, -1.0F, 1.0F) * 32767));
      bytes += static_cast<char>(value & 0xFF);
      bytes += static_cast<char>(value >> 8 & 0xFF);
    };
    for (std::size_t i = 0; i < before.size(); ++i) {
      append(before[i]);
      append(samples[i * channels]);
    }
    outbox_.add("A", std::to_string(static_cast<long>(rate)) + " " + base64(bytes));
  }

  // A line that has begun; its record, if that was written.
  struct Begun {
    std::string line;
    milliseconds after;
    std::string record;
  };

  Inbox inbox_;
  Outbox outbox_;
  const bool isAttended_;
  bool isLive_;
  Score score_;
  Scope scope_;

  std::uint64_t line_ = 0;  // how many lines have been carried out
  std::optional<Begun> begun_;
  milliseconds sinceLine_{0};
  RealClock::time_point followed_;  // the moment that the machine's clock has come to
  std::optional<simulator::Time> askedAt_;
  bool alertWasLeftOpen_ = false;

  bool isChanged_ = true;
  std::string visible_;
  RealClock::time_point stated_;
  RealClock::time_point pulsed_;

  std::set<std::int64_t> listened_;
  std::optional<std::int64_t> default_;
  bool isHeard_ = false;
  std::size_t cycles_ = 0;  // since the last pulse

  simulator::Mac machine_;
  simulator::Scenario scenario_;
};

}  // namespace

std::vector<std::string> furnishing() {
  return {
      R"({"do":"display","id":1,"name":"Built-in","builtin":true,"frame":[0,0,1512,982]})",
      R"({"do":"display","id":2,"name":"Studio","frame":[1512,0,2560,1440],"vendor":4268,"product":41200,"serial":7001,"monitor":{"current":63,"maximum":100}})",
      R"({"do":"display","id":3,"name":"Slow Portrait","frame":[4072,-240,1200,1920],"vendor":7789,"product":23311,"serial":812,"monitor":{"current":40,"maximum":100,"reply-delay":0.055}})",
      R"({"do":"output","id":9,"uid":"BUILT-IN","name":"MacBook Speakers","volume":"settable"})",
      R"({"do":"output","id":10,"uid":"HDMI-TV","name":"Television","default":true})",
      R"({"do":"preference","key":"steps.HDMI-TV","value":12})",
      R"({"do":"play","process":"Cello","output":10,"level":0.26,"tone":220})",
      R"({"do":"play","process":"Viola","output":10,"level":0.18,"tone":330})",
      R"({"do":"play","process":"Violin","output":10,"level":0.12,"tone":550})",
      R"({"do":"feed","releases":[{"version":"9.0.0","date":"2026-11-21","dmg_url":"https://releases.dalvane.example/Dalvane-9.0.0.dmg","size_bytes":4812345,"notes":"Fixes volume keys after sleep."}]})",
      R"({"do":"image","url":"https://releases.dalvane.example/Dalvane-9.0.0.dmg","version":"9.0.0"})",
      R"({"do":"pointer","at":[2700,760]})",
      R"({"do":"answer","button":null})",
      R"({"do":"launch"})",
  };
}

int seat(const SeatOptions& options, int commands, int messages) { return Seat(options, commands, messages).play(); }
