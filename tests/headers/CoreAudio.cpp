#include <AudioToolbox/AudioHardwareService.h>
#include <CoreAudio/CoreAudio.h>

#include <string_view>

#include "tests/headers/Agreement.h"

// ---- Types ----

TYPE(SInt16, std::int16_t);
TYPE(AudioFormatID, UInt32);
TYPE(AudioFormatFlags, UInt32);
VALUE(kAudioFormatLinearPCM, 'lpcm');
VALUE(kAudioFormatFlagIsFloat, 1);
VALUE(kAudioFormatFlagIsPacked, 8);
VALUE(kAudioFormatFlagIsNonInterleaved, 32);

SIZE(AudioStreamBasicDescription, 40);
MEMBER(AudioStreamBasicDescription, mSampleRate, 0, Float64);
MEMBER(AudioStreamBasicDescription, mFormatID, 8, AudioFormatID);
MEMBER(AudioStreamBasicDescription, mFormatFlags, 12, AudioFormatFlags);
MEMBER(AudioStreamBasicDescription, mBytesPerPacket, 16, UInt32);
MEMBER(AudioStreamBasicDescription, mFramesPerPacket, 20, UInt32);
MEMBER(AudioStreamBasicDescription, mBytesPerFrame, 24, UInt32);
MEMBER(AudioStreamBasicDescription, mChannelsPerFrame, 28, UInt32);
MEMBER(AudioStreamBasicDescription, mBitsPerChannel, 32, UInt32);
MEMBER(AudioStreamBasicDescription, mReserved, 36, UInt32);

SIZE(AudioBuffer, 16);
MEMBER(AudioBuffer, mNumberChannels, 0, UInt32);
MEMBER(AudioBuffer, mDataByteSize, 4, UInt32);
MEMBER(AudioBuffer, mData, 8, void*);
SIZE(AudioBufferList, 24);
MEMBER(AudioBufferList, mNumberBuffers, 0, UInt32);
MEMBER(AudioBufferList, mBuffers, 8, AudioBuffer[1]);

TYPE(SMPTETimeType, UInt32);
TYPE(SMPTETimeFlags, UInt32);
SIZE(SMPTETime, 24);
MEMBER(SMPTETime, mSubframes, 0, SInt16);
MEMBER(SMPTETime, mSubframeDivisor, 2, SInt16);
MEMBER(SMPTETime, mCounter, 4, UInt32);
MEMBER(SMPTETime, mType, 8, SMPTETimeType);
MEMBER(SMPTETime, mFlags, 12, SMPTETimeFlags);
MEMBER(SMPTETime, mHours, 16, SInt16);
MEMBER(SMPTETime, mMinutes, 18, SInt16);
MEMBER(SMPTETime, mSeconds, 20, SInt16);
MEMBER(SMPTETime, mFrames, 22, SInt16);
TYPE(AudioTimeStampFlags, UInt32);
VALUE(kAudioTimeStampNothingValid, 0);
VALUE(kAudioTimeStampSampleTimeValid, 1);
VALUE(kAudioTimeStampHostTimeValid, 2);
VALUE(kAudioTimeStampRateScalarValid, 4);
SIZE(AudioTimeStamp, 64);
MEMBER(AudioTimeStamp, mSampleTime, 0, Float64);
MEMBER(AudioTimeStamp, mHostTime, 8, UInt64);
MEMBER(AudioTimeStamp, mRateScalar, 16, Float64);
MEMBER(AudioTimeStamp, mWordClockTime, 24, UInt64);
MEMBER(AudioTimeStamp, mSMPTETime, 32, SMPTETime);
MEMBER(AudioTimeStamp, mFlags, 56, AudioTimeStampFlags);
MEMBER(AudioTimeStamp, mReserved, 60, UInt32);

// ---- Objects and their properties ----

TYPE(AudioObjectID, UInt32);
TYPE(AudioObjectPropertySelector, UInt32);
TYPE(AudioObjectPropertyScope, UInt32);
TYPE(AudioObjectPropertyElement, UInt32);
SIZE(AudioObjectPropertyAddress, 12);
MEMBER(AudioObjectPropertyAddress, mSelector, 0, AudioObjectPropertySelector);
MEMBER(AudioObjectPropertyAddress, mScope, 4, AudioObjectPropertyScope);
MEMBER(AudioObjectPropertyAddress, mElement, 8, AudioObjectPropertyElement);

VALUE(kAudioHardwareNoError, 0);
VALUE(kAudioHardwareNotRunningError, 'stop');
VALUE(kAudioHardwareUnspecifiedError, 'what');
VALUE(kAudioHardwareUnknownPropertyError, 'who?');
VALUE(kAudioHardwareBadPropertySizeError, '!siz');
VALUE(kAudioHardwareIllegalOperationError, 'nope');
VALUE(kAudioHardwareBadObjectError, '!obj');
VALUE(kAudioHardwareBadDeviceError, '!dev');
VALUE(kAudioHardwareBadStreamError, '!str');

VALUE(kAudioObjectUnknown, 0);
VALUE(kAudioObjectSystemObject, 1);
VALUE(kAudioObjectPropertyScopeGlobal, 'glob');
VALUE(kAudioObjectPropertyScopeInput, 'inpt');
VALUE(kAudioObjectPropertyScopeOutput, 'outp');
VALUE(kAudioObjectPropertyElementMain, 0);
VALUE(kAudioObjectPropertyName, 'lnam');
VALUE(kAudioHardwarePropertyDevices, 'dev#');
VALUE(kAudioHardwarePropertyDefaultOutputDevice, 'dOut');
VALUE(kAudioHardwarePropertyServiceRestarted, 'srst');
VALUE(kAudioHardwarePropertyTranslatePIDToProcessObject, 'id2p');
VALUE(kAudioDevicePropertyDeviceUID, 'uid ');
VALUE(kAudioDevicePropertyDeviceIsAlive, 'livn');
VALUE(kAudioDevicePropertyStreams, 'stm#');
VALUE(kAudioDevicePropertyNominalSampleRate, 'nsrt');
VALUE(kAudioDevicePropertyStreamFormat, 'sfmt');
VALUE(kAudioDevicePropertyIOProcStreamUsage, 'suse');
VALUE(kAudioDevicePropertyIOStoppedAbnormally, 'stpd');
VALUE(kAudioHardwareServiceDeviceProperty_VirtualMainVolume, 'vmvc');
VALUE(kAudioProcessPropertyPID, 'ppid');
VALUE(kAudioTapPropertyUID, 'tuid');
VALUE(kAudioTapPropertyFormat, 'tfmt');

FUNCTION(AudioObjectHasProperty, Boolean(AudioObjectID, const AudioObjectPropertyAddress*));
FUNCTION(AudioObjectIsPropertySettable, OSStatus(AudioObjectID, const AudioObjectPropertyAddress*, Boolean*));
FUNCTION(AudioObjectGetPropertyDataSize,
         OSStatus(AudioObjectID, const AudioObjectPropertyAddress*, UInt32, const void*, UInt32*));
FUNCTION(AudioObjectGetPropertyData,
         OSStatus(AudioObjectID, const AudioObjectPropertyAddress*, UInt32, const void*, UInt32*, void*));
FUNCTION(AudioObjectSetPropertyData,
         OSStatus(AudioObjectID, const AudioObjectPropertyAddress*, UInt32, const void*, UInt32, const void*));
TYPE(AudioObjectPropertyListenerBlock, void (^)(UInt32, const AudioObjectPropertyAddress*));
FUNCTION(AudioObjectAddPropertyListenerBlock, OSStatus(AudioObjectID, const AudioObjectPropertyAddress*,
                                                       dispatch_queue_t, AudioObjectPropertyListenerBlock));
FUNCTION(AudioObjectRemovePropertyListenerBlock, OSStatus(AudioObjectID, const AudioObjectPropertyAddress*,
                                                          dispatch_queue_t, AudioObjectPropertyListenerBlock));

// ---- Aggregate devices ----

static_assert(kAudioAggregateDeviceUIDKey == std::string_view("uid"));
static_assert(kAudioAggregateDeviceNameKey == std::string_view("name"));
static_assert(kAudioAggregateDeviceSubDeviceListKey == std::string_view("subdevices"));
static_assert(kAudioAggregateDeviceMainSubDeviceKey == std::string_view("master"));
static_assert(kAudioAggregateDeviceIsPrivateKey == std::string_view("private"));
static_assert(kAudioAggregateDeviceIsStackedKey == std::string_view("stacked"));
static_assert(kAudioAggregateDeviceTapListKey == std::string_view("taps"));
static_assert(kAudioAggregateDeviceTapAutoStartKey == std::string_view("tapautostart"));
static_assert(kAudioSubDeviceUIDKey == std::string_view("uid"));
static_assert(kAudioSubTapUIDKey == std::string_view("uid"));
static_assert(kAudioSubTapDriftCompensationKey == std::string_view("drift"));
FUNCTION(AudioHardwareCreateAggregateDevice, OSStatus(CFDictionaryRef, AudioObjectID*));
FUNCTION(AudioHardwareDestroyAggregateDevice, OSStatus(AudioObjectID));

// ---- I/O ----

TYPE(AudioDeviceIOProc, OSStatus (*)(AudioObjectID, const AudioTimeStamp*, const AudioBufferList*,
                                     const AudioTimeStamp*, AudioBufferList*, const AudioTimeStamp*, void*));
TYPE(AudioDeviceIOProcID, AudioDeviceIOProc);
TYPE(AudioDeviceIOBlock, void (^)(const AudioTimeStamp*, const AudioBufferList*, const AudioTimeStamp*,
                                  AudioBufferList*, const AudioTimeStamp*));
SIZE(AudioHardwareIOProcStreamUsage, 16);
MEMBER(AudioHardwareIOProcStreamUsage, mIOProc, 0, void*);
MEMBER(AudioHardwareIOProcStreamUsage, mNumberStreams, 8, UInt32);
MEMBER(AudioHardwareIOProcStreamUsage, mStreamIsOn, 12, UInt32[1]);
FUNCTION(AudioDeviceCreateIOProcIDWithBlock,
         OSStatus(AudioDeviceIOProcID*, AudioObjectID, dispatch_queue_t, AudioDeviceIOBlock));
FUNCTION(AudioDeviceDestroyIOProcID, OSStatus(AudioObjectID, AudioDeviceIOProcID));
FUNCTION(AudioDeviceStart, OSStatus(AudioObjectID, AudioDeviceIOProcID));
FUNCTION(AudioDeviceStop, OSStatus(AudioObjectID, AudioDeviceIOProcID));
