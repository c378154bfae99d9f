// The I/O Registry on the simulated Mac.
#pragma once

#include <CoreFoundation/CoreFoundation.h>
#include <IOKit/IOReturn.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef uint32_t mach_port_t;
typedef mach_port_t io_object_t;
typedef io_object_t io_iterator_t;
typedef io_object_t io_registry_entry_t;
typedef io_object_t io_service_t;
typedef char io_name_t[128];
typedef UInt32 IOOptionBits;
// Apple's boolean_t is an int on this processor.
typedef int boolean_t;

#define IO_OBJECT_NULL ((io_object_t)0)
#define kIOServicePlane "IOService"
enum { kIORegistryIterateRecursively = 0x00000001 };

extern const mach_port_t kIOMainPortDefault;

io_registry_entry_t IORegistryGetRootEntry(mach_port_t mainPort);
kern_return_t IORegistryEntryCreateIterator(io_registry_entry_t entry, const io_name_t plane, IOOptionBits options,
                                            io_iterator_t* iterator);
io_object_t IOIteratorNext(io_iterator_t iterator);
void IOIteratorReset(io_iterator_t iterator);
boolean_t IOIteratorIsValid(io_iterator_t iterator);
kern_return_t IORegistryEntryGetName(io_registry_entry_t entry, io_name_t name);
CFTypeRef IORegistryEntryCreateCFProperty(io_registry_entry_t entry, CFStringRef key, CFAllocatorRef allocator,
                                          IOOptionBits options);
kern_return_t IOObjectRelease(io_object_t object);

#ifdef __cplusplus
}
#endif
