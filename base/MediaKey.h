// The keys that the program handles.
#pragma once

// In this order: the keys up to `mute` are the volume keys, those after it the brightness keys.
enum class MediaKey { volumeUp, volumeDown, mute, brightnessUp, brightnessDown };
