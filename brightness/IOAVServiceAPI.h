// The private I/O Kit functions that carry I2C traffic to external monitors, resolved at run time.
#pragma once

#include <IOKit/IOKitLib.h>

#include <cstdint>

struct IOAVServiceAPI {
  // A retained service object for a registry entry, or null.
  using CreateWithService = CFTypeRef (*)(CFAllocatorRef allocator, io_service_t entry);
  // Writes to a 7-bit I2C chip address; `dataAddress` goes ahead of the bytes. 0 is success.
  using WriteI2C = IOReturn (*)(CFTypeRef service, std::uint32_t chipAddress, std::uint32_t dataAddress, void* bytes,
                                std::uint32_t length);
  // Reads from a 7-bit I2C chip address into a buffer of `length` bytes. 0 is success.
  using ReadI2C = IOReturn (*)(CFTypeRef service, std::uint32_t chipAddress, std::uint32_t offset, void* buffer,
                               std::uint32_t length);

  // Loads the functions; throws an AppError when the library or one of them is missing.
  IOAVServiceAPI();

  CreateWithService createWithService;
  WriteI2C writeI2C;
  ReadI2C readI2C;
};
