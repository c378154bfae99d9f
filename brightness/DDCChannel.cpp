#include "brightness/DDCChannel.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <numeric>
#include <string>
#include <thread>

#include "base/Assertions.h"
#include "base/Log.h"
#include "platform/IO.h"
#include "platform/UnfairLock.h"

namespace {

using namespace std::chrono_literals;

// Addresses and opcodes of VESA DDC/CI 1.1.
constexpr std::uint32_t chipAddress = 0x37;         // the monitor's, in 7 bits
constexpr std::uint8_t monitorWriteAddress = 0x6E;  // the same in 8 bits, as it enters checksums
constexpr std::uint8_t hostAddress = 0x51;
constexpr std::uint8_t hostReplyAddress = 0x50;
constexpr std::uint8_t lengthMark = 0x80;
constexpr std::uint8_t getVCPFeature = 0x01;
constexpr std::uint8_t setVCPFeature = 0x03;

// The two requests differ on purpose in what their checksum covers: a Get request's leaves the host's address out.
constexpr std::uint8_t getChecksumSeed = monitorWriteAddress;
constexpr std::uint8_t setChecksumSeed = monitorWriteAddress ^ hostAddress;

// Each request is sent twice, since monitors miss one now and then.
constexpr int attempts = 5;
constexpr auto pauseBeforeWrite = 10ms;
constexpr auto pauseBeforeReply = 50ms;
constexpr auto pauseAfterFailure = 20ms;

// How often the I/O Registry is walked before it is taken for one that never rests.
constexpr int walks = 5;

// Names of registry entries that carry a display's attributes.
constexpr std::array<std::string_view, 2> framebufferNames = {"AppleCLCD2", "IOMobileFramebufferShim"};
constexpr std::string_view serviceName = "DCPAVServiceProxy";

template <typename Bytes>
std::uint8_t checksum(std::uint8_t seed, const Bytes& begin, const Bytes& end) {
  return std::accumulate(begin, end, seed,
                         [](std::uint8_t sum, std::uint8_t byte) { return static_cast<std::uint8_t>(sum ^ byte); });
}

std::string hexadecimal(std::uint8_t code) {
  std::array<char, 3> digits{};
  return {digits.data(), static_cast<std::size_t>(std::snprintf(digits.data(), digits.size(), "%x", code))};
}

// `what` is what was tried: "Reading VCP 0x10".
AppError failureOf(const std::string& what) {
  return AppError(what + " failed after " + std::to_string(attempts) + " attempts");
}

}  // namespace

// ---- The packet codec ----

std::vector<std::uint8_t> DDCChannel::packet(std::uint8_t opcode, const std::vector<std::uint8_t>& payload,
                                             std::uint8_t checksumSeed) {
  if (payload.size() > 254) fatalError("A DDC/CI payload must not exceed 254 bytes");
  std::vector<std::uint8_t> bytes;
  bytes.reserve(payload.size() + 3);
  bytes.push_back(static_cast<std::uint8_t>((payload.size() + 1) | lengthMark));
  bytes.push_back(opcode);
  bytes.insert(bytes.end(), payload.begin(), payload.end());
  bytes.push_back(checksum(checksumSeed, bytes.begin(), bytes.end()));
  return bytes;
}

std::optional<DDCChannel::Value> DDCChannel::decode(const Reply& reply) {
  if (checksum(hostReplyAddress, reply.begin(), reply.end() - 1) != reply.back()) return std::nullopt;
  const auto word = [&reply](std::size_t at) { return static_cast<std::uint16_t>(reply[at] << 8 | reply[at + 1]); };
  return Value{.current = word(8), .maximum = word(6)};
}

// ---- The channel ----

os_log_t DDCChannel::logger() {
  static const os_log_t log = makeLogger("DDC");
  return log;
}

DDCChannel::Queue DDCChannel::makeQueue() {
  return {dispatch_queue_create("DDCChannel", DISPATCH_QUEUE_SERIAL),
          [](dispatch_queue_t queue) { dispatch_release(queue); }};
}

DDCChannel::DDCChannel(const IOAVServiceAPI& api, CF::Ref<CFTypeRef> service, Queue queue)
    : api_(api), service_(std::move(service)), queue_(std::move(queue)) {}

IOReturn DDCChannel::writePacket(std::vector<std::uint8_t>& packet) const {
  return api_.writeI2C(service_.get(), chipAddress, hostAddress, packet.data(),
                       static_cast<std::uint32_t>(packet.size()));
}

// By value: a block would take a reference along, not what it refers to.
// NOLINTNEXTLINE(performance-unnecessary-value-param)
void DDCChannel::read(std::uint8_t code, std::function<void(const Reading&)> completion) {
  const auto self = shared_from_this();
  dispatch_async(queue_.get(), ^{
    if (const auto reading = self->readNow(code)) completion(*reading);
  });
}

// None when the reads were given up.
std::optional<DDCChannel::Reading> DDCChannel::readNow(std::uint8_t code) const {
  auto request = packet(getVCPFeature, {code}, getChecksumSeed);
  for (int attempt = 0; attempt < attempts; ++attempt) {
    if (readsAreGivenUp_) return std::nullopt;
    // Only the reply tells whether the request arrived.
    std::this_thread::sleep_for(pauseBeforeWrite);
    writePacket(request);
    std::this_thread::sleep_for(pauseBeforeWrite);
    writePacket(request);
    std::this_thread::sleep_for(pauseBeforeReply);
    Reply reply{};
    const IOReturn status = api_.readI2C(service_.get(), chipAddress, 0, reply.data(), replyLength);
    if (status == kIOReturnSuccess) {
      if (const auto value = decode(reply)) return *value;
    }
    std::this_thread::sleep_for(pauseAfterFailure);
  }
  return failureOf("Reading VCP 0x" + hexadecimal(code));
}

void DDCChannel::write(std::uint8_t code, std::uint16_t value) {
  bool drainIsDue = false;
  {
    const UnfairLock locked(lock_);
    drainIsDue = pendingWrites_.empty();
    pendingWrites_[code] = value;
  }
  if (!drainIsDue) return;  // the drain under way picks the value up
  const auto self = shared_from_this();
  dispatch_async(queue_.get(), ^{
    self->drainWrites();
  });
}

void DDCChannel::drainWrites() {
  while (const auto write = nextWrite()) {
    if (!send(*write)) {
      const AppError error =
          failureOf("Writing VCP 0x" + hexadecimal(write->first) + " = " + std::to_string(write->second));
      os_log_error(logger(), "%{public}s", error.what());
    }
    finish(*write);
  }
}

// It stays in the map: while it is being sent the drain counts as under way.
std::optional<DDCChannel::Write> DDCChannel::nextWrite() {
  const UnfairLock locked(lock_);
  if (pendingWrites_.empty()) return std::nullopt;
  return *pendingWrites_.begin();
}

// A newer value that arrived meanwhile stays, for the next pass. Only here does an entry go.
void DDCChannel::finish(const Write& write) {
  const UnfairLock locked(lock_);
  if (pendingWrites_.at(write.first) == write.second) pendingWrites_.erase(write.first);
}

bool DDCChannel::send(const Write& write) const {
  const auto [code, value] = write;
  auto request =
      packet(setVCPFeature, {code, static_cast<std::uint8_t>(value >> 8), static_cast<std::uint8_t>(value & 0xFF)},
             setChecksumSeed);
  for (int attempt = 0; attempt < attempts; ++attempt) {
    std::this_thread::sleep_for(pauseBeforeWrite);
    writePacket(request);
    std::this_thread::sleep_for(pauseBeforeWrite);
    if (writePacket(request) == kIOReturnSuccess) return true;
    std::this_thread::sleep_for(pauseAfterFailure);
  }
  return false;
}

// ---- The search ----

std::optional<DisplayIdentity> DDCChannel::IdentityFinder::visit(std::string_view entryName, const Property& property) {
  if (std::ranges::find(framebufferNames, entryName) != framebufferNames.end()) {
    pending_.reset();
    const auto attributes = property(CFSTR("DisplayAttributes"));
    const auto display = CF::cast<CFDictionaryRef>(attributes.get(), CFDictionaryGetTypeID());
    if (!display) return std::nullopt;
    const auto product = CF::cast<CFDictionaryRef>(CFDictionaryGetValue(display.get(), CFSTR("ProductAttributes")),
                                                   CFDictionaryGetTypeID());
    if (product) pending_ = DisplayIdentity::fromProductAttributes(product.get());
    return std::nullopt;
  }
  if (entryName != serviceName) return std::nullopt;
  const auto location = property(CFSTR("Location"));
  if (!location || !CFEqual(location.get(), CFSTR("External"))) return std::nullopt;
  return pending_;
}

std::vector<DDCChannel::IdentifiedChannel> DDCChannel::walk(io_iterator_t iterator, const IOAVServiceAPI& api,
                                                            Queues& queues) {
  std::vector<IdentifiedChannel> channels;
  IdentityFinder finder;
  while (const auto entry = IO::Object(IOIteratorNext(iterator))) {
    io_name_t name = {};
    if (IORegistryEntryGetName(entry.get(), name) != KERN_SUCCESS) name[0] = '\0';
    const auto identity = finder.visit(name, [&entry](CFStringRef property) {
      return CF::adopt(IORegistryEntryCreateCFProperty(entry.get(), property, kCFAllocatorDefault, 0));
    });
    if (!identity) continue;
    auto service = CF::adopt(api.createWithService(kCFAllocatorDefault, entry.get()));
    if (!service) {
      os_log_error(logger(), "IOAVServiceCreateWithService returned nil");
      continue;
    }
    Queue& queue = queues[*identity];
    if (!queue) queue = makeQueue();
    channels.emplace_back(*identity, std::make_shared<DDCChannel>(api, std::move(service), queue));
  }
  return channels;
}

std::vector<DDCChannel::IdentifiedChannel> DDCChannel::externalChannels(const IOAVServiceAPI& api, Queues& queues) {
  const IO::Object root(IORegistryGetRootEntry(kIOMainPortDefault));
  io_iterator_t created = IO_OBJECT_NULL;
  const kern_return_t status =
      IORegistryEntryCreateIterator(root.get(), kIOServicePlane, kIORegistryIterateRecursively, &created);
  if (status != KERN_SUCCESS) throw AppError("Iterating the I/O Registry failed (" + std::to_string(status) + ")");
  const IO::Object iterator(created);
  std::vector<IdentifiedChannel> furthest;
  for (int i = 0; i < walks; ++i) {
    auto channels = walk(iterator.get(), api, queues);
    // A change of the registry ends a walk as its last entry does.
    if (IOIteratorIsValid(iterator.get())) return channels;
    if (channels.size() >= furthest.size()) furthest = std::move(channels);
    IOIteratorReset(iterator.get());
  }
  if (furthest.empty()) throw AppError("The I/O Registry changed during each of " + std::to_string(walks) + " walks");
  return furthest;
}
