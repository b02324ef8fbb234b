// A physical device as packets meet it: its ports, and the pipeline between them.
//
// A packet that comes in runs through the tables on the I/O thread of the ports and leaves on that
// thread. Packets that are injected do the same; so packets meet the tables one after the other.
//
// Where the model's clock does not run by itself, what was due before a packet is told before the
// packet is processed: a day of traffic in seconds ages the same entries as a day would. Packets of
// capture files wait until their digests find room; those of interfaces, which come when they come,
// and those that are injected lose them.
//
// Thread safety: any thread may call anything but the I/O thread itself, on which no caller's code
// runs.
#pragma once

#include <atomic>
#include <bitset>
#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include "model/base/mutex.h"
#include "model/notify/events.h"
#include "model/pipeline/pipeline.h"
#include "model/port/port_set.h"
#include "model/switch/tap.h"

namespace jxmodel {

class LearnChannel;

class Switch final : private Egress {
 public:
  /// Starts the I/O thread. The device, a physical one, outlives the switch. `info` is the program
  /// that packets run through, null for none.
  Switch(const DeviceCore& device, const RtInfo* info);
  /// As `end`.
  ~Switch() override;
  Switch(const Switch&) = delete;
  Switch& operator=(const Switch&) = delete;

  PortSet& ports() { return ports_; }
  const Pipeline& pipeline() const { return pipeline_; }
  /// Packets that the program sent to a port that is not there; `Pipeline` counts them as
  /// forwarded.
  uint64_t sentNowhere() const { return sent_nowhere_.load(std::memory_order_relaxed); }

  /// Lets packets come in at a port as if its interface or file had brought them, and waits until
  /// what they lead to has been handed to interfaces and files. A port that is set down drops them.
  /// The port need not be attached. False if the switch ended before.
  bool inject(uint32_t port, std::vector<PacketBuffer> packets);

  struct Sent {
    uint32_t port = 0;
    PacketBuffer packet;
  };
  /// Lets one packet come in as `inject` does and hands over copies of those that it led to, in the
  /// order in which they left, also to ports that are not attached. False if the switch ended
  /// before.
  bool exchange(uint32_t port, PacketBuffer packet, std::vector<Sent>* sent);

  /// Runs a packet through the tables and says what would become of it. Nothing is sent or counted,
  /// no entry is hit, and nothing is learned.
  Trace trace(uint32_t port, PacketBuffer packet) const;

  /// What passes at a port from now on.
  std::shared_ptr<Tap> openTap(uint32_t port, TapDirection direction);
  void closeTap(const std::shared_ptr<Tap>& tap);

  /// Stops and closes all ports and ends all taps; nothing moves any more. A second call does
  /// nothing.
  void end();

 private:
  void receive(uint32_t port, PacketBuffer&& packet);
  void send(uint32_t port, PacketBuffer&& packet) override;
  void flood(uint32_t ingress_port, PacketBuffer&& packet) override;
  void showTaps(uint32_t port, const PacketBuffer& packet, bool leaving);
  bool runOnIoThread(std::function<void()> work);
  void awaitTimers(const PacketBuffer& packet);
  void tellDigests(uint32_t port);
  void pause();
  void showLinks();

  EventSource& events_;
  DispatchThread& dispatch_;
  const Pipeline pipeline_;
  std::vector<LearnChannel*> channels_;  // as Program::learns of the pipeline's program
  std::vector<Digest> digests_;          // of one packet; the I/O thread's
  bool injecting_ = false;               // the I/O thread's
  std::vector<Sent>* sent_ = nullptr;    // of an exchange; the I/O thread's
  std::bitset<kMaxPorts> links_;         // that are up; the I/O thread's
  std::atomic<uint64_t> sent_nowhere_{0};
  std::vector<uint32_t> flood_ports_;  // the I/O thread's

  std::atomic<bool> tapped_{false};
  Mutex tap_mutex_;
  std::vector<std::shared_ptr<Tap>> taps_ ABSL_GUARDED_BY(tap_mutex_);
  bool ended_ ABSL_GUARDED_BY(tap_mutex_) = false;

  PortSet ports_;  // last: its thread uses all of the above
};

}  // namespace jxmodel
