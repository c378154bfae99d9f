// Status values of I/O Kit.
#pragma once

typedef int kern_return_t;
typedef kern_return_t IOReturn;

#define KERN_SUCCESS 0
#define kIOReturnSuccess KERN_SUCCESS
#define iokit_common_err(code) ((IOReturn)(0xe0000000u | (code)))
#define kIOReturnError iokit_common_err(0x2bc)
#define kIOReturnBadArgument iokit_common_err(0x2c2)
#define kIOReturnNoDevice iokit_common_err(0x2c0)
#define kIOReturnNotResponding iokit_common_err(0x2ed)
