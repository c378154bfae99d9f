#include "desk/Narrator.h"

#include <array>
#include <cstdio>
#include <map>
#include <nlohmann/json.hpp>
#include <sstream>
#include <vector>

using nlohmann::json;

namespace {

std::string bar(int filled, int total) {
  std::string text;
  for (int i = 0; i < total; ++i) text += i < filled ? "■" : "□";
  return text;
}

std::vector<int> bytesOf(const json& args) {
  std::istringstream hex(args["bytes"].get<std::string>());
  std::vector<int> bytes;
  for (std::string pair; hex >> pair;) bytes.push_back(std::stoi(pair, nullptr, 16));
  return bytes;
}

std::string display(const json& args) { return "monitor " + args["display"].dump(); }

std::string written(const json& record) {
  const json& args = record["args"];
  const auto bytes = bytesOf(args);
  std::string meaning;
  if (bytes.size() == 4) meaning = "what is your brightness?";
  if (bytes.size() == 6) meaning = "set your brightness to " + std::to_string(bytes[3] * 256 + bytes[4]);
  if (record["status"] != 0) meaning += " (refused)";
  return "wire      → " + display(args) + ": " + args["bytes"].get<std::string>() + "   " + meaning;
}

std::string answered(const json& record) {
  const json& args = record["args"];
  const auto bytes = bytesOf(args);
  if (record["status"] != 0 || bytes.size() != 11) return "wire      ← " + display(args) + ": no answer";
  return "wire      ← " + display(args) + ": " + args["bytes"].get<std::string>() + "   " +
         std::to_string(bytes[8] * 256 + bytes[9]) + " of " + std::to_string(bytes[6] * 256 + bytes[7]);
}

std::string popUp(const json& args) {
  const std::string symbol = args["image"] == 1 ? "☀" : args["image"] == 4 ? "🔇" : "🔊";
  return "pop-up    " + symbol + " " + bar(args["filled"], args["total"]) + "  on display " + args["display"].dump();
}

std::string keyName(const json& record) {
  static const std::map<int, std::string> mediaKeys = {
      {0, "volume-up"}, {1, "volume-down"}, {2, "brightness-up"}, {3, "brightness-down"}, {7, "mute"}};
  if (record.contains("data1")) {
    const auto data1 = record["data1"].get<std::int64_t>();
    const auto key = mediaKeys.find(static_cast<int>(data1 >> 16 & 0xFFFF));
    const bool down = (data1 >> 8 & 0xFF) == 0x0A;
    return (key == mediaKeys.end() ? "another key" : key->second) + (down ? " pressed" : " released");
  }
  if (record.contains("keycode")) return "key " + record["keycode"].dump();
  return "the system switched the event tap off";
}

std::string sound(const json& record) {
  const auto& api = record["api"].get_ref<const std::string&>();
  const std::string refused = record["status"] == 0 ? "" : " (refused)";
  if (api == "AudioHardwareCreateProcessTap") {
    return "sound     a tap takes what other programs play to the output" + refused;
  }
  if (api == "AudioHardwareCreateAggregateDevice") {
    return "sound     a private device joins the tap and the output" + refused;
  }
  if (api == "AudioDeviceStart") return "sound     it plays the tapped sound; the direct path is muted" + refused;
  if (api == "AudioDeviceStop") return "sound     it stops; the direct path is open again" + refused;
  if (api == "AudioHardwareDestroyAggregateDevice") return "sound     the private device is gone" + refused;
  if (api == "AudioHardwareDestroyProcessTap") return "sound     the tap is gone" + refused;
  return "";
}

std::string heard(const json& speakers) {
  std::string text;
  for (const json& speaker : speakers) {
    std::array<char, 16> level{};
    std::snprintf(level.data(), level.size(), "%.3f", speaker["level"].get<double>());
    text += (text.empty() ? "speaker   " : "; ") + speaker["name"].get<std::string>() + ": " + level.data() +
            (speaker["direct"] == true ? ", direct"
             : speaker["level"] == 0   ? ", silent"
                                       : ", through Dalvane");
  }
  return text;
}

// The last component of a path, or the text as it is.
std::string shortened(const std::string& path) {
  return path.starts_with('/') ? path.substr(path.find_last_of('/') + 1) : path;
}

std::string updated(const json& record) {
  const auto& api = record["api"].get_ref<const std::string&>();
  const json& args = record["args"];
  const std::string refused = record["status"] == 0 ? "" : " (refused)";
  if (api.starts_with("NSURLSession.")) {
    return "network   " + args["method"].get<std::string>() + " " + args["url"].get<std::string>() + refused;
  }
  if (api == "posix_spawn") {
    const std::string tool = shortened(args["executable"]);
    if (tool == "sh") return "tool      sh waits for Dalvane to quit, and opens it again" + refused;
    std::string text = "tool      " + tool;
    for (const json& argument : args["arguments"]) text += " " + shortened(argument);
    return text + (args["exit"] == 0 ? "" : "   exit status " + args["exit"].dump()) + refused;
  }
  if (api == "rename") return "files     " + shortened(args["from"]) + " becomes " + shortened(args["to"]) + refused;
  return "files     " + shortened(args["path"]) + " is removed" + refused;
}

std::string called(const json& record) {
  const auto& api = record["api"].get_ref<const std::string&>();
  const json& args = record["args"];
  if (api == "IOAVServiceWriteI2C") return written(record);
  if (api == "IOAVServiceReadI2C") return answered(record);
  if (api == "OSDManager.showImage") return popUp(args);
  if (api.starts_with("Audio")) return sound(record);
  if (api.starts_with("NSURLSession.") || api == "posix_spawn" || api == "rename" || api == "remove_all") {
    return updated(record);
  }
  if (api == "CGEventTapCreate") return "system    Dalvane now sees the media keys first";
  if (api == "CGEventTapEnable") return "system    the event tap is on again";
  if (api == "CFMachPortInvalidate") return "system    the event tap is removed";
  return "";
}

std::string sentence(const json& record) {
  const auto& what = record["what"].get_ref<const std::string&>();
  if (what == "call") return called(record);
  if (what == "log")
    return "log       " + record["category"].get<std::string>() + ": " + record["text"].get<std::string>();
  if (what == "monitor") {
    return "light     monitor " + record["display"].dump() + " shines at " + record["brightness"].dump();
  }
  if (what == "input") {
    return "keyboard  " + keyName(record) +
           (record["swallowed"] == true ? ": taken by Dalvane" : ": goes on to the system");
  }
  if (what == "prompt") return "system    asks the user for the permission: " + record["for"].get<std::string>();
  if (what == "alert") {
    const std::string text = "alert     “" + record["message"].get<std::string>() + "”; the user ";
    if (record["answer"].is_null()) return text + "leaves it open";
    return text + "presses “" + record["answer"].get<std::string>() + "”";
  }
  if (what == "answer") {
    return "alert     “" + record["message"].get<std::string>() + "”: the user presses “" +
           record["button"].get<std::string>() + "”";
  }
  if (what == "snapshot") return heard(record["speakers"]);
  if (what == "preference") {
    return "settings  " + record["key"].get<std::string>() + " = " + record["value"].dump();
  }
  if (what == "open") return "system    opens " + record["path"].get<std::string>();
  if (what == "exit") return "system    Dalvane has quit";
  if (what == "leak") return "leak      " + record["count"].dump() + " × " + record["kind"].get<std::string>();
  if (what == "fatal") return "fatal     " + record["text"].get<std::string>();
  return "";
}

}  // namespace

std::string narrate(const json& record) {
  const std::string text = sentence(record);
  if (text.empty()) return "";
  std::array<char, 32> time{};
  std::snprintf(time.data(), time.size(), "%10.3f s  ", record["t"].get<double>());
  return time.data() + text;
}
