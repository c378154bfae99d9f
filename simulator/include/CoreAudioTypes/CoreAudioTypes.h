// The types of Core Audio on the simulated Mac: what the program uses of them, as Apple's headers declare it.
#pragma once

#include <CoreFoundation/CoreFoundation.h>

typedef UInt32 AudioFormatID;
typedef UInt32 AudioFormatFlags;

enum : AudioFormatID { kAudioFormatLinearPCM = 'lpcm' };

enum : AudioFormatFlags {
  kAudioFormatFlagIsFloat = (1U << 0),
  kAudioFormatFlagIsPacked = (1U << 3),
  kAudioFormatFlagIsNonInterleaved = (1U << 5),
};

struct AudioStreamBasicDescription {
  Float64 mSampleRate;
  AudioFormatID mFormatID;
  AudioFormatFlags mFormatFlags;
  UInt32 mBytesPerPacket;
  UInt32 mFramesPerPacket;
  UInt32 mBytesPerFrame;
  UInt32 mChannelsPerFrame;
  UInt32 mBitsPerChannel;
  UInt32 mReserved;
};
typedef struct AudioStreamBasicDescription AudioStreamBasicDescription;

struct AudioBuffer {
  UInt32 mNumberChannels;
  UInt32 mDataByteSize;
  void* mData;
};
typedef struct AudioBuffer AudioBuffer;

struct AudioBufferList {
  UInt32 mNumberBuffers;
  AudioBuffer mBuffers[1];  // a variable length array of mNumberBuffers elements
};
typedef struct AudioBufferList AudioBufferList;

typedef int16_t SInt16;  // MacTypes.h has it

typedef UInt32 SMPTETimeType;
typedef UInt32 SMPTETimeFlags;
struct SMPTETime {
  SInt16 mSubframes;
  SInt16 mSubframeDivisor;
  UInt32 mCounter;
  SMPTETimeType mType;
  SMPTETimeFlags mFlags;
  SInt16 mHours;
  SInt16 mMinutes;
  SInt16 mSeconds;
  SInt16 mFrames;
};
typedef struct SMPTETime SMPTETime;

typedef UInt32 AudioTimeStampFlags;
enum : AudioTimeStampFlags {
  kAudioTimeStampNothingValid = 0,
  kAudioTimeStampSampleTimeValid = (1U << 0),
  kAudioTimeStampHostTimeValid = (1U << 1),
  kAudioTimeStampRateScalarValid = (1U << 2),
};
struct AudioTimeStamp {
  Float64 mSampleTime;
  UInt64 mHostTime;
  Float64 mRateScalar;
  UInt64 mWordClockTime;
  SMPTETime mSMPTETime;
  AudioTimeStampFlags mFlags;
  UInt32 mReserved;
};
typedef struct AudioTimeStamp AudioTimeStamp;
