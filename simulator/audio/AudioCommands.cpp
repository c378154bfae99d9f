// The scenario lines about sound.
#include <cmath>
#include <map>

#include "simulator/audio/Audio.h"
#include "simulator/kernel/Call.h"
#include "simulator/kernel/Commands.h"

namespace simulator {
namespace {

// The members of a "format" or "tap-format".
struct FormatMembers {
  std::optional<AudioFormatID> id;
  std::optional<AudioFormatFlags> flags;
  std::optional<std::uint32_t> bits;
  std::optional<std::uint32_t> channels;
};

// The members of an "output" line that were given.
struct OutputLine {
  std::optional<std::optional<std::string>> uid;
  std::optional<std::optional<std::string>> name;
  std::optional<OutputSettings::Volume> volume;
  std::optional<double> rate;
  std::optional<std::uint32_t> channels;
  std::optional<std::uint32_t> inputs;
  std::optional<double> tapRate;
  FormatMembers format;
  FormatMembers tapFormat;
  std::optional<std::uint32_t> frames;
  std::optional<bool> isAlive;
  bool isDefault = false;
};

std::optional<std::optional<std::string>> textOrNull(Arguments& line, const char* name) {
  if (!line.has(name)) return std::nullopt;
  if (line.json(name).is_null()) return std::optional<std::string>();
  return line.text(name);
}

std::optional<double> rate(Arguments& line, const char* name) {
  if (!line.has(name)) return std::nullopt;
  const double value = line.number(name);
  if (!(value >= 1) || value > 1e6) line.fail(std::string("member \"") + name + "\" must be from 1 to a million");
  return value;
}

std::optional<std::uint32_t> limited(Arguments& line, const char* name, std::uint32_t least, std::uint32_t most) {
  const auto value = line.optionalUnsigned32(name);
  if (value && (*value < least || *value > most)) {
    line.fail(std::string("member \"") + name + "\" must be from " + std::to_string(least) + " to " +
              std::to_string(most));
  }
  return value;
}

// Four characters, as a number.
AudioFormatID formatID(Arguments& format) {
  const std::string text = format.text("id");
  if (text.size() != 4) format.fail("member \"id\" must be four characters");
  AudioFormatID id = 0;
  for (const char each : text) id = id << 8 | static_cast<unsigned char>(each);
  return id;
}

FormatMembers formatMembers(Arguments& line, const char* name) {
  FormatMembers result;
  auto format = line.object(name);
  if (!format) return result;
  if (format->has("id")) result.id = formatID(*format);
  result.flags = format->optionalUnsigned32("flags");
  result.bits = limited(*format, "bits", 0, 64);
  result.channels = limited(*format, "channels", 0, 64);
  format->finish();
  return result;
}

SampleLayout merge(const SampleLayout& layout, const FormatMembers& given) {
  return {.id = given.id.value_or(layout.id),
          .flags = given.flags.value_or(layout.flags),
          .bits = given.bits.value_or(layout.bits)};
}

OutputSettings::Volume volume(Arguments& line) {
  static const std::map<std::string, OutputSettings::Volume> kinds = {
      {"none", OutputSettings::Volume::none},
      {"fixed", OutputSettings::Volume::fixed},
      {"settable", OutputSettings::Volume::settable},
  };
  const auto kind = kinds.find(line.text("volume"));
  if (kind == kinds.end()) line.fail("member \"volume\" must be \"none\", \"fixed\" or \"settable\"");
  return kind->second;
}

OutputLine outputLine(Arguments& line) {
  OutputLine result;
  result.uid = textOrNull(line, "uid");
  result.name = textOrNull(line, "name");
  if (line.has("volume")) result.volume = volume(line);
  result.rate = rate(line, "rate");
  result.channels = limited(line, "channels", 1, 64);
  result.inputs = limited(line, "inputs", 0, 64);
  result.tapRate = rate(line, "tap-rate");
  result.format = formatMembers(line, "format");
  result.tapFormat = formatMembers(line, "tap-format");
  if (result.channels && result.format.channels && result.channels != result.format.channels) {
    line.fail("\"channels\" and \"format.channels\" are not the same");
  }
  result.frames = limited(line, "frames", 1, 65536);
  if (line.has("alive")) result.isAlive = line.flag("alive");
  result.isDefault = line.flag("default", false);
  return result;
}

OutputSettings merge(OutputSettings settings, const OutputLine& line) {
  if (line.uid) settings.uid = *line.uid;
  if (line.name) settings.name = *line.name;
  settings.volume = line.volume.value_or(settings.volume);
  settings.rate = line.rate.value_or(settings.rate);
  settings.channels = line.format.channels.value_or(line.channels.value_or(settings.channels));
  settings.layout = merge(settings.layout, line.format);
  settings.inputs = line.inputs.value_or(settings.inputs);
  if (line.tapRate) settings.tapRate = line.tapRate;
  if (line.tapFormat.channels) settings.tapChannels = line.tapFormat.channels;
  settings.tapLayout = merge(settings.tapLayout, line.tapFormat);
  settings.frames = line.frames.value_or(settings.frames);
  settings.isAlive = line.isAlive.value_or(settings.isAlive);
  return settings;
}

// What the user does with an output that has not come back from a sleep yet brings it back.
OutputDevice& existing(Audio& audio, std::int64_t number) {
  audio.bringBack(number);
  if (OutputDevice* const device = audio.output(number)) return *device;
  throw ScenarioError("there is no output " + std::to_string(number));
}

Action outputAction(Machine& machine, Audio& audio, Arguments& line) {
  const auto number = line.integer<std::int64_t>("id");
  if (line.flag("gone", false)) {
    return [&audio, number] { audio.removeOutput(existing(audio, number)); };
  }
  return [&machine, &audio, number, given = outputLine(line)] {
    const Scheduler::Lock lock(machine.scheduler);
    audio.bringBack(number);
    if (OutputDevice* const device = audio.output(number)) {
      audio.changeOutput(*device, merge(device->settings(), given));
    } else {
      if (!given.uid) throw ScenarioError("missing member \"uid\" of a new output");
      if (!given.name) throw ScenarioError("missing member \"name\" of a new output");
      audio.addOutput(number, merge({}, given));
    }
    if (given.isDefault) audio.setDefaultOutput(number);
  };
}

Action defaultOutputAction(Audio& audio, Arguments& line) {
  return [&audio, number = line.integer<std::int64_t>("id")] {
    (void)existing(audio, number);
    audio.setDefaultOutput(number);
  };
}

Action playAction(Audio& audio, Arguments& line) {
  const nlohmann::json given = line.json("process");
  if (!given.is_string() && !given.is_number_integer()) line.fail("member \"process\" must be a text or an integer");
  const std::string process = given.is_string() ? given.get<std::string>() : given.dump();
  if (line.flag("stop", false)) {
    return [&audio, process] { audio.stopPlaying(process); };
  }
  const auto number = line.integer<std::int64_t>("output");
  const Sound sound{.level = line.number("level", 0.5), .tone = line.number("tone", 440)};
  if (std::abs(sound.level) > 1e6) line.fail("member \"level\" must be within a million");
  if (!(sound.tone >= 0)) line.fail("member \"tone\" must not be negative");
  return [&audio, process, number, sound] {
    (void)existing(audio, number);
    audio.play(process, number, sound);
  };
}

}  // namespace

void Audio::addCommands(Commands& commands) {
  commands.add("output", [this](Arguments& line) { return outputAction(machine_, *this, line); });
  commands.add("default-output", [this](Arguments& line) { return defaultOutputAction(*this, line); });
  commands.add("play", [this](Arguments& line) { return playAction(*this, line); });
  commands.add("restart-audio", [this](Arguments&) -> Action { return [this] { restart(); }; });
}

}  // namespace simulator
