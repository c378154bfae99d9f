// Feed documents of any length.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

// A feed of that many releases, newest first, each with two hundred characters of notes.
inline std::string feedText(std::size_t releases) {
  std::string text = "[";
  for (std::size_t i = 0; i < releases; ++i) {
    if (i > 0) text += ',';
    const std::string number = std::to_string(releases - i);
    text += R"({"version":"1.)" + number +
            R"(.0","date":"2025-03-02","dmg_url":"https://releases.dalvane.example/Dalvane-1.)" + number +
            R"(.0.dmg","size_bytes":4812345,"notes":")" + std::string(200, 'n') + "\"}";
  }
  return text + "]";
}

// Things that a release has no use for, over and over. "@" stands for a number that is another each time.
struct Nonsense {
  const char* name;
  const char* before;    // in the release, before its other members
  const char* repeated;  // again and again
  const char* middle;
  const char* again;  // as often as `repeated`
  const char* after;
  bool refused = false;
};

inline const Nonsense nonsense[] = {
    {"members that are numbers and objects", "", R"("n@":@,)", "", R"("o@":{},)", ""},
    {"members that are objects and lists", "", R"("o@":{},)", "", R"("l@":[],)", ""},
    {"objects with members", R"("a":[)", R"({"n@":@},)", "0],\"b\":[", R"({"o@":{}},)", "0],"},
    {"numbers and empty objects", R"("a":[)", "@,", "0],\"b\":[", "{},", "0],"},
    {"lists and lists of lists", R"("a":[)", "[],", "0],\"b\":[", "[[]],", "0],"},
    {"lists in lists", R"("a":)", "[", "0", "]", ","},
    {"objects in objects", R"("a":)", R"({"b":)", "0", "}", ","},
    {"one text", R"("a":")", "x", "", "\\n", "\","},
    {"one number", R"("a":)", "1", ".", "1", ","},
    {"numbers out of range", R"("a":[)", "1e999,", "", "-99999999999999999999999,", "0],"},
    {"the same member", "", R"("notes":"n",)", "", R"("notes":"o",)", ""},
    {"white space", "", " ", "", "\n", ""},
    {"an unfinished list", R"("a":[)", "[", "", "[", "", true},
    {"an unfinished text", R"("a":")", "x", "", "\\\"", "\\\"", true},
};

// A feed of one release with about `size` bytes of that in it.
inline std::string feedWithNonsense(const Nonsense& kind, std::size_t size) {
  std::string text = kind.before;
  const auto repeat = [&text](std::string_view what, std::size_t count) {
    for (std::size_t i = 0; i < count; ++i) {
      for (const char c : what) text += c == '@' ? std::to_string(i) : std::string(1, c);
    }
  };
  // What is opened is closed as often.
  const std::size_t count = size / (std::string_view(kind.repeated).size() + std::string_view(kind.again).size());
  repeat(kind.repeated, count);
  text += kind.middle;
  repeat(kind.again, count);
  return feedText(1).insert(2, text + kind.after);
}
