// A port of a physical device: one way in and out of the switch. It knows bytes and times, no
// tables.
//
// Threads: one I/O thread reads a port (`descriptors`, `receive`, `nextTime`, `receiveNext`,
// `flush`; see PortSet). Everything else may be called from any thread.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "model/port/packet_buffer.h"
#include "model/port/port_spec.h"

namespace jxmodel {

/// Takes each packet that comes in, on the I/O thread.
using PacketReceiver = std::function<void(uint32_t port, PacketBuffer&& packet)>;

/// A snapshot. Bytes are lengths on the wire, from the destination address to the end of the
/// payload. A packet is counted once: as in or out, as dropped, or as an error.
struct PortCounters {
  uint64_t packets_in = 0;
  uint64_t bytes_in = 0;
  uint64_t packets_out = 0;
  uint64_t bytes_out = 0;
  uint64_t dropped_in = 0;      // the port was set down, or the switch was too slow for the kernel
  uint64_t dropped_out = 0;     // the port was set down, had no link, or its queue was full
  uint64_t receive_errors = 0;  // could not be read: a broken capture, an unknown offload
  uint64_t send_errors = 0;     // refused by the interface (too long, say) or by the file
};

enum class InputState : uint8_t {
  kNone,       // nothing that could end: an interface, or a port that only writes
  kReading,    // packets are left
  kExhausted,  // the whole capture was read
  kFailed,     // the capture is broken from some place on; `PortStatus::error` says why
};

struct PortStatus {
  PortSpec spec;
  bool enabled = true;  // not set down
  bool carrier = true;  // what the port is plugged into is there and up
  InputState input = InputState::kNone;
  std::string error;  // the last failure of the port's input or output, empty if there was none
  PortCounters counters;

  bool linkUp() const { return enabled && carrier; }
};

class Port {
 public:
  explicit Port(PortSpec spec) : spec_(std::move(spec)) {}
  virtual ~Port() = default;
  Port(const Port&) = delete;
  Port& operator=(const Port&) = delete;

  uint32_t number() const { return spec_.number; }
  const PortSpec& spec() const { return spec_; }

  /// A port that is set down drops what arrives and what is sent, and counts it as dropped.
  void setEnabled(bool enabled) { enabled_.store(enabled, std::memory_order_relaxed); }
  bool enabled() const { return enabled_.load(std::memory_order_relaxed); }
  virtual bool carrier() const { return true; }
  bool linkUp() const { return enabled() && carrier(); }

  /// Takes a packet as if it had come in through this port. The I/O thread only.
  void inject(PacketBuffer&& packet, const PacketReceiver& receiver) {
    deliver(std::move(packet), receiver);
  }

  /// Takes a packet to send. What becomes of it is told by the counters, at the latest after the
  /// next `flush`.
  void send(PacketBuffer&& packet);
  /// Hands everything taken so far to the interface or the file.
  virtual void flush() = 0;

  PortCounters counters() const;
  PortStatus status() const;
  virtual InputState inputState() const { return InputState::kNone; }

  /// Sends what is left, then closes interface and files. Later packets are dropped. Not while
  /// the I/O thread reads this port, except by that thread itself.
  virtual void stop() = 0;

  // --- the I/O thread only

  /// Descriptors that become readable when `receive` has something to do.
  virtual std::vector<int> descriptors() const { return {}; }
  /// Hands over at most about `limit` packets without waiting. More may be left.
  virtual void receive(const PacketReceiver& /*receiver*/, size_t /*limit*/) {}

  /// Time of the next packet of an input that waits to be read in order of time; none at its end.
  virtual std::optional<int64_t> nextTime() const { return std::nullopt; }
  virtual void receiveNext(const PacketReceiver& /*receiver*/) {}

 protected:
  /// Sends or queues one packet; the port is up.
  virtual void transmit(PacketBuffer&& packet) = 0;
  /// Drops that something else than this class counts, the kernel say.
  virtual uint64_t dropsElsewhere() const { return 0; }
  virtual std::string errorText() const { return {}; }

  /// Counts a packet that came in and hands it on, or drops it if the port is down.
  void deliver(PacketBuffer&& packet, const PacketReceiver& receiver);

  void countSent(size_t wire_length);
  void countDroppedIn(uint64_t count = 1) { add(&dropped_in_, count); }
  void countDroppedOut(uint64_t count = 1) { add(&dropped_out_, count); }
  void countReceiveError() { add(&receive_errors_, 1); }
  void countSendError() { add(&send_errors_, 1); }

 private:
  using Counter = std::atomic<uint64_t>;
  static void add(Counter* counter, uint64_t count) {
    counter->fetch_add(count, std::memory_order_relaxed);
  }

  const PortSpec spec_;
  std::atomic<bool> enabled_{true};
  Counter packets_in_{0}, bytes_in_{0}, packets_out_{0}, bytes_out_{0};
  Counter dropped_in_{0}, dropped_out_{0}, receive_errors_{0}, send_errors_{0};
};

}  // namespace jxmodel
