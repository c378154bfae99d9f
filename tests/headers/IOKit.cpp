#include <IOKit/IOKitLib.h>
#include <IOKit/IOReturn.h>
#include <IOKit/hidsystem/IOLLEvent.h>
#include <IOKit/hidsystem/ev_keymap.h>

#include "tests/headers/Agreement.h"

// ---- Status ----

TYPE(kern_return_t, int);
TYPE(IOReturn, kern_return_t);
VALUE(KERN_SUCCESS, 0);
VALUE(kIOReturnSuccess, 0);
VALUE(iokit_common_err(0x2bc), static_cast<std::int32_t>(0xE00002BC));
VALUE(kIOReturnError, static_cast<std::int32_t>(0xE00002BC));
VALUE(kIOReturnNoDevice, static_cast<std::int32_t>(0xE00002C0));
VALUE(kIOReturnBadArgument, static_cast<std::int32_t>(0xE00002C2));
VALUE(kIOReturnNotResponding, static_cast<std::int32_t>(0xE00002ED));

// ---- The registry ----

TYPE(mach_port_t, unsigned int);
TYPE(io_object_t, mach_port_t);
TYPE(io_iterator_t, io_object_t);
TYPE(io_registry_entry_t, io_object_t);
TYPE(io_service_t, io_object_t);
TYPE(io_name_t, char[128]);
TYPE(IOOptionBits, UInt32);
VALUE(IO_OBJECT_NULL, 0);
static_assert(sizeof(kIOServicePlane) == sizeof("IOService") && kIOServicePlane[2] == 'S');
VALUE(kIORegistryIterateRecursively, 1);
VARIABLE(kIOMainPortDefault, const mach_port_t);
FUNCTION(IORegistryGetRootEntry, io_registry_entry_t(mach_port_t));
FUNCTION(IORegistryEntryCreateIterator, kern_return_t(io_registry_entry_t, const char*, IOOptionBits, io_iterator_t*));
FUNCTION(IOIteratorNext, io_object_t(io_iterator_t));
FUNCTION(IOIteratorReset, void(io_iterator_t));
FUNCTION(IOIteratorIsValid, boolean_t(io_iterator_t));
FUNCTION(IORegistryEntryGetName, kern_return_t(io_registry_entry_t, char*));
FUNCTION(IORegistryEntryCreateCFProperty, CFTypeRef(io_registry_entry_t, CFStringRef, CFAllocatorRef, IOOptionBits));
FUNCTION(IOObjectRelease, kern_return_t(io_object_t));

// ---- The HID system ----

VALUE(NX_SYSDEFINED, 14);
VALUE(NX_SUBTYPE_AUX_CONTROL_BUTTONS, 8);
VALUE(NX_KEYTYPE_SOUND_UP, 0);
VALUE(NX_KEYTYPE_SOUND_DOWN, 1);
VALUE(NX_KEYTYPE_BRIGHTNESS_UP, 2);
VALUE(NX_KEYTYPE_BRIGHTNESS_DOWN, 3);
VALUE(NX_KEYTYPE_MUTE, 7);
