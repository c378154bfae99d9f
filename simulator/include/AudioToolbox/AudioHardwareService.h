// The virtual properties of audio devices on the simulated Mac.
#pragma once

#include <CoreAudio/CoreAudio.h>

enum : AudioObjectPropertySelector { kAudioHardwareServiceDeviceProperty_VirtualMainVolume = 'vmvc' };
