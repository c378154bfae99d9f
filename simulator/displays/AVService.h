// The private AV services of I/O Kit, which carry I2C traffic to monitors. Programs reach them through the IOKit
// library, which is loaded at run time and forwards here.
#pragma once

#include <IOKit/IOKitLib.h>

#include <cstdint>

namespace simulator {

CFTypeRef createAVService(io_service_t entry);
IOReturn writeI2C(CFTypeRef service, std::uint32_t chip, std::uint32_t address, const void* bytes,
                  std::uint32_t length);
IOReturn readI2C(CFTypeRef service, std::uint32_t chip, std::uint32_t offset, void* buffer, std::uint32_t length);

}  // namespace simulator
