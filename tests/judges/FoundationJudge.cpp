// Foundation before GNUstep Base: both are asked the same questions, and every answer that differs is listed, with the
// decision and the sentence that decides it (foundation/differences.txt). An answer that differs and is not listed is a
// mistake, and so is one that is listed and no longer differs.
//
// A question is a line of foundation/questions.txt, its parts separated by tabs, bytes that a line cannot hold as %41:
//
//   preference KIND TEXT       as a truth, and as an object; "setInteger" and "setBool" store by those methods
//   number KIND TEXT           as each type that numbers are read as, "lossy" where that is another number
//   equal KIND TEXT KIND TEXT  whether the two are the same value
//   url TEXT, file PATH, folder PATH, plist TEXT
//
// KIND is string, boolean, int32, int64, real, or plist for anything else. Objects are answered as property lists are
// spoken of in words: "a text", 1, 0x1p+0, yes, [1,2], {"key"=1}.
#include <CoreFoundation/CoreFoundation.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <nlohmann/json.hpp>
#include <set>
#include <sstream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "platform/CF.h"
#include "platform/URL.h"
#include "platform/UserDefaults.h"
#include "simulator/foundation/CoreFoundation.h"
#include "simulator/foundation/Foundation.h"
#include "simulator/foundation/Preferences.h"
#include "simulator/foundation/PropertyList.h"
#include "simulator/kernel/Call.h"
#include "simulator/mac/Mac.h"
#include "simulator/system/FileContent.h"
#include "tests/support/Command.h"

namespace {

namespace fs = std::filesystem;
using nlohmann::json;
using Words = std::vector<std::string>;

// ---- Questions and answers ----

Words split(const std::string& text, char at) {
  std::istringstream in(text);
  Words words;
  for (std::string word; std::getline(in, word, at);) words.push_back(word);
  if (text.ends_with(at)) words.emplace_back();
  return words;
}

std::string unescaped(const std::string& text) {
  std::string result;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] != '%') {
      result += text[i];
      continue;
    }
    result += static_cast<char>(std::stoi(text.substr(i + 1, 2), nullptr, 16));
    i += 2;
  }
  return result;
}

std::string format(const char* how, auto value) {
  std::array<char, 64> buffer{};
  std::snprintf(buffer.data(), buffer.size(), how, value);
  return buffer.data();
}

std::string escaped(std::string_view text) {
  std::string result;
  for (const char c : text) {
    const bool isPlain = c > ' ' && c < 0x7F && c != '%' && c != '"';
    result += isPlain ? std::string(1, c) : format("%%%02X", static_cast<unsigned>(static_cast<unsigned char>(c)));
  }
  return result;
}

std::string inQuotes(std::string_view text) { return '"' + escaped(text) + '"'; }

std::string described(const json& value) {
  if (value.is_string()) return inQuotes(value.get<std::string>());
  if (value.is_boolean()) return value.get<bool>() ? "yes" : "no";
  if (value.is_number_float()) return format("%a", value.get<double>());
  if (value.is_number()) return value.dump();
  std::string parts;
  for (const auto& [key, each] : value.items()) {
    if (!parts.empty()) parts += ',';
    if (value.is_object()) parts += inQuotes(key) + '=';
    parts += described(each);
  }
  return value.is_array() ? "[" + parts + "]" : value.is_object() ? "{" + parts + "}" : "none";
}

std::string describedList(const std::string& text) {
  try {
    return described(simulator::readPropertyList(text));
  } catch (const std::runtime_error&) {
    return "none";
  }
}

json valueOf(const std::string& kind, const std::string& text) {
  if (kind == "string") return text;
  if (kind == "boolean") return text == "yes";
  if (kind == "int32" || kind == "int64") return std::int64_t{std::atoll(text.c_str())};
  if (kind == "real") return std::strtod(text.c_str(), nullptr);
  return simulator::readPropertyList(text);
}

CF::Ref<CFTypeRef> made(const std::string& kind, const std::string& text) {
  return CF::adopt(simulator::createPropertyList(valueOf(kind, text)));
}

std::string preference(const std::string& kind, const std::string& text) {
  const NS::UserDefaults defaults = NS::UserDefaults::standardUserDefaults();
  {
    const simulator::Call call("a question");
    auto& preferences = call.part<simulator::Preferences>();
    preferences.set("key", kind == "absent" || kind.starts_with("set") ? json() : valueOf(kind, text));
  }
  if (kind == "setInteger") defaults.setInteger(std::atol(text.c_str()), "key");
  if (kind == "setBool") defaults.setBool(text == "yes", "key");
  const auto object = defaults.objectForKey("key");
  return std::string("bool=") + (defaults.boolForKey("key") ? "1" : "0") +
         " object=" + (object ? described(simulator::jsonOf(object.get())) : "none");
}

std::string number(const std::string& kind, const std::string& text) {
  const auto object = made(kind, text);
  const auto value = static_cast<CFNumberRef>(object.get());
  std::int32_t small = 0;
  std::int64_t large = 0;
  double real = 0;
  const bool isSmall = CFNumberGetValue(value, kCFNumberSInt32Type, &small);
  const bool isLarge = CFNumberGetValue(value, kCFNumberSInt64Type, &large);
  const bool isReal = CFNumberGetValue(value, kCFNumberFloat64Type, &real);
  return std::string("float=") + (CFNumberIsFloatType(value) ? "1" : "0") +
         " int32=" + (isSmall ? std::to_string(small) : "lossy") +
         " int64=" + (isLarge ? std::to_string(large) : "lossy") + " real=" + (isReal ? format("%a", real) : "lossy");
}

std::string url(const std::string& text) {
  const NS::URL value = NS::URL::URLWithString(text, false);
  return value ? escaped(value.absoluteString()) + " scheme=" + escaped(value.scheme()) : "none";
}

std::string file(bool isFolder, const std::string& path) {
  const auto value = CF::adopt(CFURLCreateFromFileSystemRepresentation(
      kCFAllocatorDefault, reinterpret_cast<const UInt8*>(path.data()), static_cast<CFIndex>(path.size()), isFolder));
  std::array<UInt8, 1024> back{};
  if (!CFURLGetFileSystemRepresentation(value.get(), true, back.data(), back.size())) return "no path";
  const NS::URL shown{CF::retain(static_cast<CFTypeRef>(value.get()))};
  return escaped(shown.absoluteString()) + " path=" + escaped(reinterpret_cast<const char*>(back.data()));
}

std::string answer(const std::string& question) {
  const Words words = split(question, '\t');
  const std::string& subject = words.at(0);
  if (subject == "preference") return preference(words.at(1), unescaped(words.at(2)));
  if (subject == "number") return number(words.at(1), unescaped(words.at(2)));
  if (subject == "equal") {
    const auto one = made(words.at(1), unescaped(words.at(2)));
    return CFEqual(one.get(), made(words.at(3), unescaped(words.at(4))).get()) ? "yes" : "no";
  }
  if (subject == "url") return url(unescaped(words.at(1)));
  if (subject == "file" || subject == "folder") return file(subject == "folder", unescaped(words.at(1)));
  return describedList(unescaped(words.at(1)));
}

// ---- The two that are asked ----

Words linesOf(const std::string& name) {
  Words lines = split(simulator::readFile(FOUNDATION "/" + name), '\n');
  std::erase_if(lines, [](const std::string& line) { return line.empty() || line.starts_with("//"); });
  return lines;
}

Words askSimulatedMac(const Words& questions) {
  Words answers;
  simulator::Mac mac({.main =
                          [&] {
                            for (const std::string& each : questions) answers.push_back(answer(each));
                            return 0;
                          },
                      .name = "Judge",
                      .identifier = "example.judge",
                      .version = "1",
                      .publisher = "",
                      .feedURL = ""},
                     {});
  mac.process.launch();
  mac.runReady();
  EXPECT_TRUE(mac.shutDown());
  return answers;
}

Words askGNUstep(const Words& questions) {
  std::string pattern = (fs::temp_directory_path() / "gnustep-XXXXXX").string();
  const fs::path home = mkdtemp(pattern.data());  // its preferences are files
  std::string input;
  for (const std::string& each : questions) input += each + '\n';
  Command judge({"env", "LC_ALL=C.UTF-8", "HOME=" + home.string(), GNUSTEP_JUDGE}, input);
  EXPECT_EQ(judge.status(), 0) << judge.output();
  fs::remove_all(home);
  Words answers = split(judge.output(), '\n');
  answers.pop_back();  // behind the last line
  return answers;
}

// What is listed: for each question the two answers.
std::map<std::string, std::pair<std::string, std::string>> listedDifferences() {
  std::map<std::string, std::pair<std::string, std::string>> listed;
  std::set<std::string> undecided;
  std::string question;
  for (const std::string& line : linesOf("differences.txt")) {
    const auto rest = [&line](std::string_view head) { return line.substr(std::min(head.size() + 1, line.size())); };
    if (line.starts_with("asked\t"))
      undecided.insert(question = rest("asked"));
    else if (line.starts_with("ours\t"))
      listed[question].first = rest("ours");
    else if (line.starts_with("GNUstep\t"))
      listed[question].second = rest("GNUstep");
    else if (line.starts_with("decided\t"))
      undecided.clear();
    else
      ADD_FAILURE() << "not understood: " << line;
  }
  EXPECT_TRUE(undecided.empty()) << "undecided: " << *undecided.begin();
  return listed;
}

TEST(FoundationJudge, AnswersAsTheSimulatedMacButForWhatIsListed) {
  const Words questions = linesOf("questions.txt");
  const Words ours = askSimulatedMac(questions);
  const Words theirs = askGNUstep(questions);
  ASSERT_EQ(ours.size(), questions.size());
  ASSERT_EQ(theirs.size(), questions.size());
  auto listed = listedDifferences();
  for (std::size_t i = 0; i < questions.size(); ++i) {
    const auto known = listed.find(questions[i]);
    if (known == listed.end()) {
      EXPECT_EQ(ours[i], theirs[i]) << "asked\t" << questions[i] << "\nours\t" << ours[i] << "\nGNUstep\t" << theirs[i];
      continue;
    }
    EXPECT_EQ(ours[i], known->second.first) << questions[i];
    EXPECT_EQ(theirs[i], known->second.second) << questions[i];
    EXPECT_NE(ours[i], theirs[i]) << "no longer a difference: " << questions[i];
    listed.erase(known);
  }
  for (const auto& [question, answers] : listed) ADD_FAILURE() << "listed, but not asked: " << question;
}

// What the simulated Mac writes is what GNUstep reads.
TEST(FoundationJudge, ReadsThePropertyListsThatAreWritten) {
  const json value = {{"steps.A & <B>", 15},
                      {"big", INT64_MIN},
                      {"most", INT64_MAX},
                      {"muted", true},
                      {"off", false},
                      {"text", " x\n\"ä\" "},
                      {"real", 0.1},
                      {"empty", ""},
                      {"list", {1, "a", {{"b", -1.5}}}},
                      {"nothing", json::array()},
                      {"none", json::object()}};
  const Words read = askGNUstep({"plist\t" + escaped(simulator::writePropertyList(value))});
  ASSERT_FALSE(read.empty());
  EXPECT_EQ(read.front(), described(value));
}

}  // namespace
