// Core Audio on the simulated Mac: what the program uses of it, as Apple's headers declare it.
#pragma once

#include <CoreAudioTypes/CoreAudioTypes.h>
#include <CoreFoundation/CoreFoundation.h>
#include <dispatch/dispatch.h>

#ifdef __cplusplus
extern "C" {
#endif

// ---- Objects and their properties ----

typedef UInt32 AudioObjectID;
typedef UInt32 AudioObjectPropertySelector;
typedef UInt32 AudioObjectPropertyScope;
typedef UInt32 AudioObjectPropertyElement;

struct AudioObjectPropertyAddress {
  AudioObjectPropertySelector mSelector;
  AudioObjectPropertyScope mScope;
  AudioObjectPropertyElement mElement;
};
typedef struct AudioObjectPropertyAddress AudioObjectPropertyAddress;

enum : OSStatus {
  kAudioHardwareNoError = 0,
  kAudioHardwareNotRunningError = 'stop',
  kAudioHardwareUnspecifiedError = 'what',
  kAudioHardwareUnknownPropertyError = 'who?',
  kAudioHardwareBadPropertySizeError = '!siz',
  kAudioHardwareIllegalOperationError = 'nope',
  kAudioHardwareBadObjectError = '!obj',
  kAudioHardwareBadDeviceError = '!dev',
  kAudioHardwareBadStreamError = '!str',
};

enum : AudioObjectID { kAudioObjectUnknown = 0 };
enum : int { kAudioObjectSystemObject = 1 };

enum : AudioObjectPropertyScope {
  kAudioObjectPropertyScopeGlobal = 'glob',
  kAudioObjectPropertyScopeInput = 'inpt',
  kAudioObjectPropertyScopeOutput = 'outp',
  kAudioObjectPropertyElementMain = 0,
};

enum : AudioObjectPropertySelector { kAudioObjectPropertyName = 'lnam' };

enum : AudioObjectPropertySelector {
  kAudioHardwarePropertyDevices = 'dev#',
  kAudioHardwarePropertyDefaultOutputDevice = 'dOut',
  kAudioHardwarePropertyServiceRestarted = 'srst',
  kAudioHardwarePropertyTranslatePIDToProcessObject = 'id2p',
};

enum : AudioObjectPropertySelector {
  kAudioDevicePropertyDeviceUID = 'uid ',
  kAudioDevicePropertyDeviceIsAlive = 'livn',
  kAudioDevicePropertyStreams = 'stm#',
  kAudioDevicePropertyNominalSampleRate = 'nsrt',
  kAudioDevicePropertyStreamFormat = 'sfmt',
  kAudioDevicePropertyIOProcStreamUsage = 'suse',
  kAudioDevicePropertyIOStoppedAbnormally = 'stpd',
};

enum : AudioObjectPropertySelector { kAudioProcessPropertyPID = 'ppid' };

enum : AudioObjectPropertySelector {
  kAudioTapPropertyUID = 'tuid',
  kAudioTapPropertyFormat = 'tfmt',
};

Boolean AudioObjectHasProperty(AudioObjectID inObjectID, const AudioObjectPropertyAddress* inAddress);
OSStatus AudioObjectIsPropertySettable(AudioObjectID inObjectID, const AudioObjectPropertyAddress* inAddress,
                                       Boolean* outIsSettable);
OSStatus AudioObjectGetPropertyDataSize(AudioObjectID inObjectID, const AudioObjectPropertyAddress* inAddress,
                                        UInt32 inQualifierDataSize, const void* inQualifierData, UInt32* outDataSize);
OSStatus AudioObjectGetPropertyData(AudioObjectID inObjectID, const AudioObjectPropertyAddress* inAddress,
                                    UInt32 inQualifierDataSize, const void* inQualifierData, UInt32* ioDataSize,
                                    void* outData);
OSStatus AudioObjectSetPropertyData(AudioObjectID inObjectID, const AudioObjectPropertyAddress* inAddress,
                                    UInt32 inQualifierDataSize, const void* inQualifierData, UInt32 inDataSize,
                                    const void* inData);

typedef void (^AudioObjectPropertyListenerBlock)(UInt32 inNumberAddresses,
                                                 const AudioObjectPropertyAddress* inAddresses);
OSStatus AudioObjectAddPropertyListenerBlock(AudioObjectID inObjectID, const AudioObjectPropertyAddress* inAddress,
                                             dispatch_queue_t inDispatchQueue,
                                             AudioObjectPropertyListenerBlock inListener);
OSStatus AudioObjectRemovePropertyListenerBlock(AudioObjectID inObjectID, const AudioObjectPropertyAddress* inAddress,
                                                dispatch_queue_t inDispatchQueue,
                                                AudioObjectPropertyListenerBlock inListener);

// ---- Aggregate devices ----

#define kAudioAggregateDeviceUIDKey "uid"
#define kAudioAggregateDeviceNameKey "name"
#define kAudioAggregateDeviceSubDeviceListKey "subdevices"
#define kAudioAggregateDeviceMainSubDeviceKey "master"
#define kAudioAggregateDeviceIsPrivateKey "private"
#define kAudioAggregateDeviceIsStackedKey "stacked"
#define kAudioAggregateDeviceTapListKey "taps"
#define kAudioAggregateDeviceTapAutoStartKey "tapautostart"
#define kAudioSubDeviceUIDKey "uid"
#define kAudioSubTapUIDKey "uid"
#define kAudioSubTapDriftCompensationKey "drift"

OSStatus AudioHardwareCreateAggregateDevice(CFDictionaryRef inDescription, AudioObjectID* outDeviceID);
OSStatus AudioHardwareDestroyAggregateDevice(AudioObjectID inDeviceID);

// ---- I/O ----

typedef OSStatus (*AudioDeviceIOProc)(AudioObjectID inDevice, const AudioTimeStamp* inNow,
                                      const AudioBufferList* inInputData, const AudioTimeStamp* inInputTime,
                                      AudioBufferList* outOutputData, const AudioTimeStamp* inOutputTime,
                                      void* inClientData);
typedef AudioDeviceIOProc AudioDeviceIOProcID;
typedef void (^AudioDeviceIOBlock)(const AudioTimeStamp* inNow, const AudioBufferList* inInputData,
                                   const AudioTimeStamp* inInputTime, AudioBufferList* outOutputData,
                                   const AudioTimeStamp* inOutputTime);

struct AudioHardwareIOProcStreamUsage {
  void* mIOProc;
  UInt32 mNumberStreams;
  UInt32 mStreamIsOn[1];  // a variable length array of mNumberStreams elements
};
typedef struct AudioHardwareIOProcStreamUsage AudioHardwareIOProcStreamUsage;

OSStatus AudioDeviceCreateIOProcIDWithBlock(AudioDeviceIOProcID* outIOProcID, AudioObjectID inDevice,
                                            dispatch_queue_t inDispatchQueue, AudioDeviceIOBlock inIOBlock);
OSStatus AudioDeviceDestroyIOProcID(AudioObjectID inDevice, AudioDeviceIOProcID inIOProcID);
OSStatus AudioDeviceStart(AudioObjectID inDevice, AudioDeviceIOProcID inProcID);
OSStatus AudioDeviceStop(AudioObjectID inDevice, AudioDeviceIOProcID inProcID);

#ifdef __cplusplus
}
#endif
