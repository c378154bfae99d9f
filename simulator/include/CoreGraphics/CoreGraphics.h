// Core Graphics on the simulated Mac: geometry, displays and event taps.
#pragma once

#include <CoreFoundation/CoreFoundation.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef double CGFloat;

struct CGPoint {
  CGFloat x;
  CGFloat y;
};
typedef struct CGPoint CGPoint;
struct CGSize {
  CGFloat width;
  CGFloat height;
};
typedef struct CGSize CGSize;
struct CGRect {
  CGPoint origin;
  CGSize size;
};
typedef struct CGRect CGRect;

static inline CGPoint CGPointMake(CGFloat x, CGFloat y) {
  CGPoint point;
  point.x = x;
  point.y = y;
  return point;
}

static inline CGRect CGRectMake(CGFloat x, CGFloat y, CGFloat width, CGFloat height) {
  CGRect rect;
  rect.origin.x = x;
  rect.origin.y = y;
  rect.size.width = width;
  rect.size.height = height;
  return rect;
}

// ---- Displays ----

typedef int32_t CGError;
enum { kCGErrorSuccess = 0, kCGErrorFailure = 1000, kCGErrorIllegalArgument = 1001 };

// Apple's boolean_t is an int on this processor.
typedef int boolean_t;
typedef uint32_t CGDirectDisplayID;
enum { kCGNullDirectDisplay = 0 };

CGDirectDisplayID CGMainDisplayID(void);
CGError CGGetOnlineDisplayList(uint32_t maxDisplays, CGDirectDisplayID* onlineDisplays, uint32_t* displayCount);
boolean_t CGDisplayIsBuiltin(CGDirectDisplayID display);
uint32_t CGDisplayVendorNumber(CGDirectDisplayID display);
uint32_t CGDisplayModelNumber(CGDirectDisplayID display);
uint32_t CGDisplaySerialNumber(CGDirectDisplayID display);

// ---- Events ----

typedef struct __CGEvent* CGEventRef;
typedef struct __CGEventTapProxy* CGEventTapProxy;

typedef uint32_t CGEventTapLocation;
enum { kCGHIDEventTap = 0, kCGSessionEventTap = 1, kCGAnnotatedSessionEventTap = 2 };
typedef uint32_t CGEventTapPlacement;
enum { kCGHeadInsertEventTap = 0, kCGTailAppendEventTap = 1 };
typedef uint32_t CGEventTapOptions;
enum { kCGEventTapOptionDefault = 0, kCGEventTapOptionListenOnly = 1 };
typedef uint64_t CGEventMask;
#define CGEventMaskBit(eventType) ((CGEventMask)1 << (eventType))

typedef uint32_t CGEventType;
enum {
  kCGEventNull = 0,
  kCGEventKeyDown = 10,
  kCGEventKeyUp = 11,
  kCGEventTapDisabledByTimeout = 0xFFFFFFFE,
  kCGEventTapDisabledByUserInput = 0xFFFFFFFF,
};

typedef uint32_t CGEventField;
enum { kCGKeyboardEventAutorepeat = 8, kCGKeyboardEventKeycode = 9 };

typedef CGEventRef (*CGEventTapCallBack)(CGEventTapProxy proxy, CGEventType type, CGEventRef event, void* userInfo);

CFMachPortRef CGEventTapCreate(CGEventTapLocation tap, CGEventTapPlacement place, CGEventTapOptions options,
                               CGEventMask eventsOfInterest, CGEventTapCallBack callback, void* userInfo);
void CGEventTapEnable(CFMachPortRef tap, bool enable);
bool CGEventTapIsEnabled(CFMachPortRef tap);
int64_t CGEventGetIntegerValueField(CGEventRef event, CGEventField field);

#ifdef __cplusplus
}
#endif
