// Raw events. Beyond not crashing: of a system-defined event the bits that the system's header names decide, and no
// others; what was decoded, encoded again, is decoded as the same; and through the tap, of a run of events exactly
// those that are the media keys' reach the handler, each once and in their order.
#include <IOKit/hidsystem/IOLLEvent.h>
#include <IOKit/hidsystem/ev_keymap.h>

#include <cstdint>
#include <iterator>
#include <map>
#include <optional>
#include <vector>

#include "app/MediaKeyTap.h"
#include "fuzz/Target.h"
#include "simulator/desktop/EventStream.h"
#include "simulator/foundation/RunLoop.h"
#include "simulator/kernel/Call.h"

namespace {

const std::map<std::int64_t, MediaKey> keys = {{NX_KEYTYPE_SOUND_UP, MediaKey::volumeUp},
                                               {NX_KEYTYPE_SOUND_DOWN, MediaKey::volumeDown},
                                               {NX_KEYTYPE_MUTE, MediaKey::mute},
                                               {NX_KEYTYPE_BRIGHTNESS_UP, MediaKey::brightnessUp},
                                               {NX_KEYTYPE_BRIGHTNESS_DOWN, MediaKey::brightnessDown}};

std::optional<MediaKeyEvent> expectedOf(std::int64_t data1) {
  const auto bits = static_cast<std::uint64_t>(data1);
  const auto key = keys.find(static_cast<std::int64_t>(bits / 65536 % 65536));
  if (key == keys.end()) return std::nullopt;
  return MediaKeyEvent{key->second, bits / 256 % 256 == 10, bits % 2 == 1};
}

std::int64_t encoded(const MediaKeyEvent& event) {
  for (const auto& [type, key] : keys) {
    if (key == event.key) return type << 16 | (event.isPressed ? 10 : 11) << 8 | (event.isRepeat ? 1 : 0);
  }
  return 0;
}

std::optional<MediaKeyEvent> expected(const simulator::InputEvent& event) {
  if (event.type == NX_SYSDEFINED && event.subtype == 8) return expectedOf(event.data1.value_or(0));
  if (event.type != kCGEventKeyDown || (event.keycode != 144 && event.keycode != 145)) return std::nullopt;
  return MediaKeyEvent{event.keycode == 144 ? MediaKey::brightnessUp : MediaKey::brightnessDown, true,
                       event.autorepeat};
}

simulator::InputEvent eventOf(fuzz::Input& input) {
  constexpr std::uint32_t types[] = {NX_SYSDEFINED, NX_SYSDEFINED, kCGEventKeyDown, kCGEventKeyDown + 1, 0, 63};
  simulator::InputEvent event{.type = types[input.number<std::uint8_t>() % std::size(types)]};
  if (event.type == NX_SYSDEFINED) {
    event.subtype = static_cast<std::int16_t>(input.truth() ? 8 : input.number<std::uint16_t>());
    event.data1 =
        static_cast<std::int64_t>(input.truth() ? input.number<std::uint32_t>() : input.number<std::uint64_t>());
  } else if (event.type == kCGEventKeyDown) {
    event.keycode = input.truth() ? 144 + input.number<std::uint8_t>() % 3
                                  : static_cast<std::int64_t>(input.number<std::uint64_t>());
    event.autorepeat = input.truth();
  }
  return event;
}

void checkDecoding(std::int64_t data1) {
  const auto decoded = mediaKeyFromData1(data1);
  fuzz::require(decoded == expectedOf(data1), "the header's bits decide, and no others");
  if (decoded) fuzz::require(mediaKeyFromData1(encoded(*decoded)) == decoded, "an event comes back as it was");
}

void checkTap(fuzz::Input& input) {
  std::vector<MediaKeyEvent> wanted;
  std::vector<MediaKeyEvent> offered;
  const auto takes = input.number<std::uint8_t>();  // the keys that the handler takes, a bit each
  fuzz::onMachine([&] {
    const auto& machine = simulator::Call::unguarded();
    auto& events = machine.part<simulator::EventStream>();
    MediaKeyTap tap(
        [&](MediaKey key, bool isPressed, bool isRepeat) {
          offered.push_back({key, isPressed, isRepeat});
          return (takes >> static_cast<int>(key) & 1) != 0;
        },
        [] {});
    fuzz::require(tap.start(), "the tap is installed");
    while (!input.isUsedUp() && wanted.size() < 64) {
      const simulator::InputEvent event = eventOf(input);
      if (const auto key = expected(event)) wanted.push_back(*key);
      events.send(event);
      // The tap asks for no others.
      if (event.type != NX_SYSDEFINED && event.type != kCGEventKeyDown) continue;
      machine.part<simulator::RunLoop>().runOnce(simulator::defaultMode);
    }
    tap.stop();
  });
  fuzz::require(offered == wanted,
                "the media keys reach the handler, each once and in their order, and nothing else does");
}

const fuzz::Target target("RawEvents", [](std::string_view bytes) {
  fuzz::Input input(bytes);
  if (input.number<std::uint8_t>() % 4 == 0) return checkTap(input);
  while (!input.isUsedUp()) checkDecoding(static_cast<std::int64_t>(input.number<std::uint64_t>()));
});

}  // namespace
