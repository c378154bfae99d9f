#include <CoreFoundation/CoreFoundation.h>

#include "tests/headers/Agreement.h"

// ---- Basic types ----

TYPE(Boolean, unsigned char);
TYPE(UInt8, std::uint8_t);
TYPE(UInt16, std::uint16_t);
TYPE(SInt32, std::int32_t);
TYPE(UInt32, std::uint32_t);
TYPE(Float32, float);
TYPE(Float64, double);
TYPE(OSStatus, SInt32);
TYPE(FourCharCode, UInt32);
static_assert(sizeof(SInt64) == 8 && std::is_signed_v<SInt64>);
static_assert(sizeof(UInt64) == 8 && std::is_unsigned_v<UInt64>);
TYPE(CFTypeID, unsigned long);
TYPE(CFOptionFlags, unsigned long);
TYPE(CFHashCode, unsigned long);
TYPE(CFIndex, long);
TYPE(CFTimeInterval, double);
TYPE(CFAbsoluteTime, double);
MEMBER(CFRange, location, 0, CFIndex);
MEMBER(CFRange, length, 8, CFIndex);
FUNCTION(CFRangeMake, CFRange(CFIndex, CFIndex));

// ---- Objects ----

TYPE(CFTypeRef, const void*);
REFERENCE(CFAllocatorRef);
VARIABLE(kCFAllocatorDefault, const CFAllocatorRef);
FUNCTION(CFRetain, CFTypeRef(CFTypeRef));
FUNCTION(CFRelease, void(CFTypeRef));
FUNCTION(CFGetTypeID, CFTypeID(CFTypeRef));
FUNCTION(CFEqual, Boolean(CFTypeRef, CFTypeRef));

// ---- Strings ----

TYPE(CFStringRef, const struct __CFString*);
TYPE(CFStringEncoding, UInt32);
VALUE(kCFStringEncodingUTF8, 0x08000100);
static_assert(std::is_same_v<decltype(CFSTR("text")), CFStringRef>);
FUNCTION(CFStringGetTypeID, CFTypeID());
FUNCTION(CFStringCreateWithBytes, CFStringRef(CFAllocatorRef, const UInt8*, CFIndex, CFStringEncoding, Boolean));
FUNCTION(CFStringGetLength, CFIndex(CFStringRef));
FUNCTION(CFStringGetRangeOfComposedCharactersAtIndex, CFRange(CFStringRef, CFIndex));
FUNCTION(CFStringGetBytes, CFIndex(CFStringRef, CFRange, CFStringEncoding, UInt8, Boolean, UInt8*, CFIndex, CFIndex*));

// ---- Numbers ----

TYPE(CFBooleanRef, const struct __CFBoolean*);
VARIABLE(kCFBooleanTrue, const CFBooleanRef);
VARIABLE(kCFBooleanFalse, const CFBooleanRef);
FUNCTION(CFBooleanGetTypeID, CFTypeID());
FUNCTION(CFBooleanGetValue, Boolean(CFBooleanRef));
TYPE(CFNumberRef, const struct __CFNumber*);
TYPE(CFNumberType, CFIndex);
VALUE(kCFNumberSInt32Type, 3);
VALUE(kCFNumberSInt64Type, 4);
VALUE(kCFNumberFloat64Type, 6);
FUNCTION(CFNumberGetTypeID, CFTypeID());
FUNCTION(CFNumberCreate, CFNumberRef(CFAllocatorRef, CFNumberType, const void*));
FUNCTION(CFNumberGetValue, Boolean(CFNumberRef, CFNumberType, void*));
FUNCTION(CFNumberIsFloatType, Boolean(CFNumberRef));

// ---- Collections ----

TYPE(CFArrayRef, const struct __CFArray*);
VARIABLE(kCFTypeArrayCallBacks, const CFArrayCallBacks);
FUNCTION(CFArrayGetTypeID, CFTypeID());
FUNCTION(CFArrayCreate, CFArrayRef(CFAllocatorRef, const void**, CFIndex, const CFArrayCallBacks*));
FUNCTION(CFArrayGetCount, CFIndex(CFArrayRef));
FUNCTION(CFArrayGetValueAtIndex, const void*(CFArrayRef, CFIndex));
TYPE(CFDictionaryRef, const struct __CFDictionary*);
VARIABLE(kCFTypeDictionaryKeyCallBacks, const CFDictionaryKeyCallBacks);
VARIABLE(kCFTypeDictionaryValueCallBacks, const CFDictionaryValueCallBacks);
FUNCTION(CFDictionaryGetTypeID, CFTypeID());
FUNCTION(CFDictionaryCreate, CFDictionaryRef(CFAllocatorRef, const void**, const void**, CFIndex,
                                             const CFDictionaryKeyCallBacks*, const CFDictionaryValueCallBacks*));
FUNCTION(CFDictionaryGetCount, CFIndex(CFDictionaryRef));
FUNCTION(CFDictionaryGetValue, const void*(CFDictionaryRef, const void*));

// ---- URLs ----

TYPE(CFURLRef, const struct __CFURL*);
FUNCTION(CFURLCreateFromFileSystemRepresentation, CFURLRef(CFAllocatorRef, const UInt8*, CFIndex, Boolean));
FUNCTION(CFURLGetFileSystemRepresentation, Boolean(CFURLRef, Boolean, UInt8*, CFIndex));

// ---- The main bundle ----

TYPE(CFBundleRef, struct __CFBundle*);
FUNCTION(CFBundleGetMainBundle, CFBundleRef());
FUNCTION(CFBundleCopyBundleURL, CFURLRef(CFBundleRef));
FUNCTION(CFBundleGetIdentifier, CFStringRef(CFBundleRef));
FUNCTION(CFBundleGetValueForInfoDictionaryKey, CFTypeRef(CFBundleRef, CFStringRef));

// ---- Run loops ----

FUNCTION(CFAbsoluteTimeGetCurrent, CFAbsoluteTime());
TYPE(CFRunLoopRef, struct __CFRunLoop*);
TYPE(CFRunLoopSourceRef, struct __CFRunLoopSource*);
TYPE(CFRunLoopTimerRef, struct __CFRunLoopTimer*);
TYPE(CFRunLoopMode, CFStringRef);
VARIABLE(kCFRunLoopDefaultMode, const CFRunLoopMode);
VARIABLE(kCFRunLoopCommonModes, const CFRunLoopMode);
FUNCTION(CFRunLoopGetMain, CFRunLoopRef());
FUNCTION(CFRunLoopPerformBlock, void(CFRunLoopRef, CFTypeRef, void (^)()));
FUNCTION(CFRunLoopWakeUp, void(CFRunLoopRef));
FUNCTION(CFRunLoopAddSource, void(CFRunLoopRef, CFRunLoopSourceRef, CFRunLoopMode));
FUNCTION(CFRunLoopRemoveSource, void(CFRunLoopRef, CFRunLoopSourceRef, CFRunLoopMode));
FUNCTION(CFRunLoopAddTimer, void(CFRunLoopRef, CFRunLoopTimerRef, CFRunLoopMode));
FUNCTION(CFRunLoopTimerCreateWithHandler, CFRunLoopTimerRef(CFAllocatorRef, CFAbsoluteTime, CFTimeInterval,
                                                            CFOptionFlags, CFIndex, void (^)(CFRunLoopTimerRef)));
FUNCTION(CFRunLoopTimerInvalidate, void(CFRunLoopTimerRef));
TYPE(CFMachPortRef, struct __CFMachPort*);
FUNCTION(CFMachPortCreateRunLoopSource, CFRunLoopSourceRef(CFAllocatorRef, CFMachPortRef, CFIndex));
FUNCTION(CFMachPortInvalidate, void(CFMachPortRef));
