// The words that test scenarios are written in: each is one scenario line with its line feed, so that a scenario is
// the sum of what happens: launched + key("brightnessUp") + settle + snapshot("brighter").
#pragma once

#include <cstdint>
#include <nlohmann/json.hpp>
#include <string>

namespace lines {

// A line from its members: line("answer", {{"button", nullptr}}).
inline std::string line(const char* what, const nlohmann::json& members = nlohmann::json::object()) {
  nlohmann::json object = {{"do", what}};
  object.update(members);
  return object.dump() + "\n";
}
// The same about a thing with an id.
inline std::string line(const char* what, int id, nlohmann::json members) {
  members["id"] = id;
  return line(what, members);
}

// ---- The program and time ----

inline const std::string launch = line("launch");
inline const std::string quit = line("quit");
inline const std::string settle = line("settle");
inline const std::string wake = line("wake");
inline std::string macSleeps(double seconds) { return line("sleep", {{"seconds", seconds}}); }
// The user sets the clock on the wall.
inline std::string setClockForward(double seconds) { return line("clock", {{"by", seconds}}); }
inline std::string advance(double seconds) { return line("advance", {{"seconds", seconds}}); }
inline std::string snapshot(const std::string& name) { return line("snapshot", {{"name", name}}); }

// The same line in the middle of what the lines before it started.
inline std::string race(const std::string& line) {
  nlohmann::json object = nlohmann::json::parse(line);
  object["race"] = true;
  return object.dump() + "\n";
}

// ---- The keyboard, the pointer, the menu ----

inline std::string key(const std::string& name, const nlohmann::json& more = nlohmann::json::object()) {
  nlohmann::json members = {{"key", name}};
  members.update(more);
  return line("key", members);
}
inline std::string press(const std::string& name) { return key(name, {{"action", "press"}}); }
inline std::string repeated(const std::string& name) { return key(name, {{"action", "press"}, {"repeat", true}}); }
inline std::string release(const std::string& name) { return key(name, {{"action", "release"}}); }
// A raw event: event(14, {{"subtype", 8}, {"data1", 2560}}).
inline std::string event(std::uint32_t type, nlohmann::json members = nlohmann::json::object()) {
  members["type"] = type;
  return line("event", members);
}
// The system switches the event tap off: "timeout" or "user-input".
inline std::string disableTap(const std::string& by) { return line("disable-tap", {{"by", by}}); }
inline std::string pointer(double x, double y) { return line("pointer", {{"at", {x, y}}}); }
inline std::string menu(bool open) { return line("menu", {{"open", open}}); }
inline std::string click(const std::string& item) { return line("click", {{"item", item}}); }
// Drags the slider with that caption; `more`: {{"through", {5.4, 5.6}}}, {{"release", false}}.
inline std::string slide(const std::string& row, double to, const nlohmann::json& more = nlohmann::json::object()) {
  nlohmann::json members = {{"row", row}, {"to", to}};
  members.update(more);
  return line("slide", members);
}
inline std::string answer(const nlohmann::json& button) { return line("answer", {{"button", button}}); }
inline const std::string leaveNextAlertOpen = answer(nullptr);

// ---- Hardware ----

inline std::string display(int id, const nlohmann::json& members) { return line("display", id, members); }
inline std::string displayGone(int id) { return display(id, {{"gone", true}}); }
inline std::string monitor(int display, const nlohmann::json& members) {
  nlohmann::json all = {{"display", display}};
  all.update(members);
  return line("monitor", all);
}
// An external display with a monitor at 50 of 100, 100 points wide beside those of lower numbers; and the pointer on
// it.
inline std::string displayAt(int id, const nlohmann::json& members = nlohmann::json::object()) {
  nlohmann::json all = {{"name", "D"},  {"frame", {id * 100, 0, 100, 100}},
                        {"vendor", 1},  {"product", 2},
                        {"serial", id}, {"monitor", {{"current", 50}, {"maximum", 100}}}};
  all.update(members);
  return display(id, all);
}
inline std::string pointAt(int id) { return pointer(id * 100 + 50, 50); }
// Makes a monitor misbehave: for that many reads or writes, or for ever.
inline std::string fault(int display, const std::string& fault) { return monitor(display, {{"fault", fault}}); }
inline std::string fault(int display, const std::string& fault, int attempts) {
  return monitor(display, {{"fault", fault}, {"attempts", attempts}});
}
// Replaces the I/O Registry by these entries: registry({{{"name", "AppleCLCD2"}}}).
inline std::string registry(const nlohmann::json& entries) { return line("registry", {{"entries", entries}}); }
inline std::string output(int id, const nlohmann::json& members) { return line("output", id, members); }
inline std::string outputGone(int id) { return output(id, {{"gone", true}}); }
inline std::string defaultOutput(int id) { return line("default-output", id, nlohmann::json::object()); }
inline std::string play(const std::string& process, int output, const nlohmann::json& more = {{"tone", 0}}) {
  nlohmann::json members = {{"process", process}, {"output", output}};
  members.update(more);
  return line("play", members);
}
inline std::string playStops(const std::string& process) {
  return line("play", {{"process", process}, {"stop", true}});
}
inline const std::string restartAudio = line("restart-audio");
inline std::string temper(const nlohmann::json& members) { return line("temper", members); }

// ---- Updates ----

// What is installed, what the release host answers, and what it has at an address.
inline std::string bundle(const nlohmann::json& members) { return line("bundle", members); }
inline std::string feed(const nlohmann::json& members) { return line("feed", members); }
inline std::string image(const std::string& url, const nlohmann::json& more = nlohmann::json::object()) {
  nlohmann::json members = {{"url", url}};
  members.update(more);
  return line("image", members);
}

// ---- The system ----

inline std::string accessibility(bool granted) { return line("accessibility", {{"granted", granted}}); }
inline std::string loginItem(const nlohmann::json& members) { return line("login-item", members); }
inline std::string capture(const nlohmann::json& members) { return line("capture", members); }
inline std::string preference(const std::string& key, const nlohmann::json& value) {
  return line("preference", {{"key", key}, {"value", value}});
}
// Makes `times` calls fail, the `nth` from now first.
inline std::string fail(const std::string& call, std::int64_t status, int nth = 1, int times = 1) {
  return line("fail", {{"call", call}, {"status", status}, {"nth", nth}, {"times", times}});
}
// Carries a line out in the middle of `times` calls, the `nth` from now first.
inline std::string during(const std::string& call, const std::string& line, int nth = 1, int times = 1) {
  return lines::line("during", {{"call", call}, {"line", nlohmann::json::parse(line)}, {"nth", nth}, {"times", times}});
}
inline std::string missingLibrary(const std::string& library) { return line("missing", {{"library", library}}); }
inline std::string missingSymbol(const std::string& symbol) { return line("missing", {{"symbol", symbol}}); }

}  // namespace lines
