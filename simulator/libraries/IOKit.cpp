// The IOKit library as programs load it at run time: its private AV service functions.
#include "simulator/displays/AVService.h"

extern "C" {

CFTypeRef IOAVServiceCreateWithService(CFAllocatorRef allocator, io_service_t service);
IOReturn IOAVServiceWriteI2C(CFTypeRef service, uint32_t chipAddress, uint32_t dataAddress, void* inputBuffer,
                             uint32_t inputBufferSize);
IOReturn IOAVServiceReadI2C(CFTypeRef service, uint32_t chipAddress, uint32_t offset, void* outputBuffer,
                            uint32_t outputBufferSize);

CFTypeRef IOAVServiceCreateWithService(CFAllocatorRef, io_service_t service) {
  return simulator::createAVService(service);
}

IOReturn IOAVServiceWriteI2C(CFTypeRef service, uint32_t chipAddress, uint32_t dataAddress, void* inputBuffer,
                             uint32_t inputBufferSize) {
  return simulator::writeI2C(service, chipAddress, dataAddress, inputBuffer, inputBufferSize);
}

IOReturn IOAVServiceReadI2C(CFTypeRef service, uint32_t chipAddress, uint32_t offset, void* outputBuffer,
                            uint32_t outputBufferSize) {
  return simulator::readI2C(service, chipAddress, offset, outputBuffer, outputBufferSize);
}

}  // extern "C"
