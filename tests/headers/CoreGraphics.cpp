#include <CoreGraphics/CoreGraphics.h>

#include "tests/headers/Agreement.h"

// ---- Geometry ----

TYPE(CGFloat, double);
MEMBER(CGPoint, x, 0, CGFloat);
MEMBER(CGPoint, y, 8, CGFloat);
MEMBER(CGSize, width, 0, CGFloat);
MEMBER(CGSize, height, 8, CGFloat);
MEMBER(CGRect, origin, 0, CGPoint);
MEMBER(CGRect, size, 16, CGSize);
FUNCTION(CGPointMake, CGPoint(CGFloat, CGFloat));
FUNCTION(CGRectMake, CGRect(CGFloat, CGFloat, CGFloat, CGFloat));

// ---- Displays ----

TYPE(CGError, std::int32_t);
VALUE(kCGErrorSuccess, 0);
VALUE(kCGErrorFailure, 1000);
VALUE(kCGErrorIllegalArgument, 1001);
TYPE(boolean_t, int);
TYPE(CGDirectDisplayID, std::uint32_t);
VALUE(kCGNullDirectDisplay, 0);
FUNCTION(CGMainDisplayID, CGDirectDisplayID());
FUNCTION(CGGetOnlineDisplayList, CGError(std::uint32_t, CGDirectDisplayID*, std::uint32_t*));
FUNCTION(CGDisplayIsBuiltin, boolean_t(CGDirectDisplayID));
FUNCTION(CGDisplayVendorNumber, std::uint32_t(CGDirectDisplayID));
FUNCTION(CGDisplayModelNumber, std::uint32_t(CGDirectDisplayID));
FUNCTION(CGDisplaySerialNumber, std::uint32_t(CGDirectDisplayID));

// ---- Events ----

TYPE(CGEventRef, struct __CGEvent*);
TYPE(CGEventTapProxy, struct __CGEventTapProxy*);
TYPE(CGEventTapLocation, std::uint32_t);
VALUE(kCGHIDEventTap, 0);
VALUE(kCGSessionEventTap, 1);
VALUE(kCGAnnotatedSessionEventTap, 2);
TYPE(CGEventTapPlacement, std::uint32_t);
VALUE(kCGHeadInsertEventTap, 0);
VALUE(kCGTailAppendEventTap, 1);
TYPE(CGEventTapOptions, std::uint32_t);
VALUE(kCGEventTapOptionDefault, 0);
VALUE(kCGEventTapOptionListenOnly, 1);
static_assert(sizeof(CGEventMask) == 8 && std::is_unsigned_v<CGEventMask>);
VALUE(CGEventMaskBit(kCGEventKeyDown), 0x400);
TYPE(CGEventType, std::uint32_t);
VALUE(kCGEventNull, 0);
VALUE(kCGEventKeyDown, 10);
VALUE(kCGEventKeyUp, 11);
VALUE(kCGEventTapDisabledByTimeout, 0xFFFFFFFE);
VALUE(kCGEventTapDisabledByUserInput, 0xFFFFFFFF);
TYPE(CGEventField, std::uint32_t);
VALUE(kCGKeyboardEventAutorepeat, 8);
VALUE(kCGKeyboardEventKeycode, 9);
TYPE(CGEventTapCallBack, CGEventRef (*)(CGEventTapProxy, CGEventType, CGEventRef, void*));
FUNCTION(CGEventTapCreate, CFMachPortRef(CGEventTapLocation, CGEventTapPlacement, CGEventTapOptions, CGEventMask,
                                         CGEventTapCallBack, void*));
FUNCTION(CGEventTapEnable, void(CFMachPortRef, bool));
FUNCTION(CGEventTapIsEnabled, bool(CFMachPortRef));
FUNCTION(CGEventGetIntegerValueField, std::int64_t(CGEventRef, CGEventField));
