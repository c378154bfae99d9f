// The connection to one external monitor's DDC/CI interface, and the search for such monitors.
#pragma once

#include <dispatch/dispatch.h>
#include <os/lock.h>
#include <os/log.h>

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string_view>
#include <type_traits>
#include <utility>
#include <variant>
#include <vector>

#include "base/AppError.h"
#include "brightness/DisplayIdentity.h"
#include "brightness/IOAVServiceAPI.h"
#include "platform/CF.h"

// All I2C traffic to the monitor runs on the monitor's serial queue, which sleeps between transactions, as monitors
// need. Usable from any thread; jobs on the queue keep the channel alive.
class DDCChannel : public std::enable_shared_from_this<DDCChannel> {
 public:
  // A VCP feature as the monitor reports it.
  struct Value {
    std::uint16_t current;
    std::uint16_t maximum;
  };
  using Reading = std::variant<Value, AppError>;

  static constexpr std::size_t replyLength = 11;
  using Reply = std::array<std::uint8_t, replyLength>;

  // The serial queue of one monitor. Channels that reach the same monitor one after the other share it: a reply on the
  // wire goes to whoever reads first, so their jobs must take turns.
  using Queue = std::shared_ptr<std::remove_pointer_t<dispatch_queue_t>>;
  static Queue makeQueue();

  DDCChannel(const IOAVServiceAPI& api, CF::Ref<CFTypeRef> service, Queue queue = makeQueue());
  DDCChannel(const DDCChannel&) = delete;
  DDCChannel& operator=(const DDCChannel&) = delete;

  // Reads a VCP feature, trying up to five times within about 450 ms. `completion` is called on the channel's queue,
  // unless the read was given up before.
  void read(std::uint8_t code, std::function<void(const Reading&)> completion);
  // Gives up the reads: none makes another attempt than the one it is in, so that the monitor's next channel does not
  // wait for them. Values given to `write` still go out.
  void giveUpReads() { readsAreGivenUp_ = true; }
  // Sends a VCP feature's value. Values that arrive while one is being sent replace each other, so that only the
  // last is sent after it. A value that the monitor does not take in five attempts is logged and dropped.
  void write(std::uint8_t code, std::uint16_t value);

  // A DDC/CI request: length, opcode, payload, and the XOR of these and `checksumSeed`. A payload above 254 bytes
  // stops the program.
  static std::vector<std::uint8_t> packet(std::uint8_t opcode, const std::vector<std::uint8_t>& payload,
                                          std::uint8_t checksumSeed);
  // A Get VCP Feature reply's value; none when its checksum is wrong. Nothing else of it is examined.
  static std::optional<Value> decode(const Reply& reply);

  // Finds the identity that belongs to each external AV service of the I/O Registry: that of the framebuffer before
  // it. Shown the entries in walking order.
  class IdentityFinder {
   public:
    // Answers an entry's property of the given name, or null.
    using Property = std::function<CF::Ref<CFTypeRef>(CFStringRef name)>;

    // The identity, if the entry is an external monitor's AV service that one is known for.
    std::optional<DisplayIdentity> visit(std::string_view entryName, const Property& property);

   private:
    std::optional<DisplayIdentity> pending_;  // of the last framebuffer; services do not use it up
  };

  using IdentifiedChannel = std::pair<DisplayIdentity, std::shared_ptr<DDCChannel>>;
  using Queues = std::map<DisplayIdentity, Queue>;
  // Walks the I/O Registry: a channel for each external AV service that follows a framebuffer, in walking order, with
  // that framebuffer's identity. Channels take the queue that `queues` has for their identity; new ones are added to
  // it. Of a registry that keeps changing the walk counts that has found the most. Throws an AppError when none has
  // found anything, and when the registry cannot be walked.
  static std::vector<IdentifiedChannel> externalChannels(const IOAVServiceAPI& api, Queues& queues);

 private:
  using Write = std::pair<std::uint8_t, std::uint16_t>;  // a code and its value

  static os_log_t logger();
  // What one walk finds; as far as it came, when the registry changed meanwhile.
  static std::vector<IdentifiedChannel> walk(io_iterator_t iterator, const IOAVServiceAPI& api, Queues& queues);

  std::optional<Reading> readNow(std::uint8_t code) const;
  void drainWrites();
  std::optional<Write> nextWrite();
  void finish(const Write& write);
  bool send(const Write& write) const;
  IOReturn writePacket(std::vector<std::uint8_t>& packet) const;

  const IOAVServiceAPI api_;
  const CF::Ref<CFTypeRef> service_;
  const Queue queue_;
  std::atomic<bool> readsAreGivenUp_ = false;
  os_unfair_lock lock_ = OS_UNFAIR_LOCK_INIT;  // guards pendingWrites_, and is never held during I/O
  std::map<std::uint8_t, std::uint16_t> pendingWrites_;
};
