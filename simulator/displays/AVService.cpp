#include "simulator/displays/AVService.h"

#include <algorithm>
#include <memory>
#include <span>
#include <string>

#include "simulator/displays/Displays.h"
#include "simulator/displays/Registry.h"
#include "simulator/kernel/Call.h"
#include "simulator/kernel/Object.h"

namespace simulator {
namespace {

struct AVService : Object {
  std::string_view kind() const override { return "IOAVService"; }

  std::shared_ptr<Monitor> monitor;  // null: nothing is at the other end
  std::optional<std::uint32_t> display;
};

std::string displayOf(const AVService& service) { return service.display ? std::to_string(*service.display) : "null"; }

}  // namespace

CFTypeRef createAVService(io_service_t entry) {
  const Call call("IOAVServiceCreateWithService");
  const auto from = call.part<simulator::Registry>().entry(entry, "IOAVServiceCreateWithService");
  const auto status = call.fault();
  // A service that names a display which is not there is still that display's.
  const Display* const reached = call.part<simulator::Displays>().reached(*from);
  const auto display = reached ? std::optional(reached->id) : from->display;
  AVService* service = nullptr;
  if (!status && from->name == "DCPAVServiceProxy") {
    service = new AVService;
    service->display = display;
    if (reached) service->monitor = reached->monitor;
  }
  call.machine.trace.call("IOAVServiceCreateWithService", status    ? *status
                                                          : service ? 0
                                                                    : kIOReturnNoDevice)
      .json("display", display ? std::to_string(*display) : "null");
  return service;
}

IOReturn writeI2C(CFTypeRef service, std::uint32_t chip, std::uint32_t address, const void* bytes,
                  std::uint32_t length) {
  const Call call("IOAVServiceWriteI2C");
  const auto& wire = live<AVService>(service, "IOAVServiceWriteI2C");
  const std::span message(static_cast<const std::uint8_t*>(bytes), length);
  const auto fault = call.fault();
  const std::uint16_t before = wire.monitor ? wire.monitor->current() : 0;
  const IOReturn status = fault          ? *fault
                          : wire.monitor ? wire.monitor->write(chip, address, message)
                                         : kIOReturnNotResponding;
  call.machine.trace.call("IOAVServiceWriteI2C", status)
      .json("display", displayOf(wire))
      .number("chip", chip)
      .number("address", address)
      .bytes("bytes", message);
  if (wire.monitor && wire.monitor->current() != before) {
    call.machine.trace.record("monitor").json("display", displayOf(wire)).number("brightness", wire.monitor->current());
  }
  return status;
}

IOReturn readI2C(CFTypeRef service, std::uint32_t chip, std::uint32_t offset, void* buffer, std::uint32_t length) {
  const Call call("IOAVServiceReadI2C");
  const auto& wire = live<AVService>(service, "IOAVServiceReadI2C");
  const std::span answer(static_cast<std::uint8_t*>(buffer), length);
  const auto fault = call.fault();
  const IOReturn status = fault          ? *fault
                          : wire.monitor ? wire.monitor->read(chip, offset, answer)
                                         : kIOReturnNotResponding;
  call.machine.trace.call("IOAVServiceReadI2C", status)
      .json("display", displayOf(wire))
      .number("chip", chip)
      .number("offset", offset)
      .bytes("bytes", status == kIOReturnSuccess ? answer : answer.first(0));
  return status;
}

}  // namespace simulator
