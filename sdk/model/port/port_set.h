// The ports of one device, and the one thread that reads them.
//
// Thread safety: every method may be called from any thread, and from the receiver itself; it says
// so where something else holds.
//
// 1. The receiver is called by the I/O thread only, for one packet at a time.
// 2. Capture inputs are read as fast as the receiver takes their packets, and across all of them in
//    order of time (equal times: lower port first). A file that is not in order of time itself
//    keeps its own order. Nothing is read before `start`, and no capture input while it is held.
// 3. After `detach` has returned, the receiver is not called for the port, and its files are
// closed.
// 4. What was sent is handed to interfaces and files before the I/O thread waits for more to do,
//    so a capture that is being written can be read at any time when nothing moves.
#pragma once

#include <array>
#include <bitset>
#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "model/base/mutex.h"
#include "model/port/interface_port.h"
#include "model/port/port.h"

namespace jxmodel {

class PortSet {
 public:
  PortSet();
  /// As `stop`.
  ~PortSet();
  PortSet(const PortSet&) = delete;
  PortSet& operator=(const PortSet&) = delete;

  /// Begins to read. Once. `pause` is called by the I/O thread each time it has nothing left to do
  /// but to wait, before waitUntilIdle() is told.
  void start(PacketReceiver receiver, std::function<void()> pause = {});
  /// Ends the I/O thread, then flushes and closes all ports; they stay listed, with their last
  /// counters. Not by the receiver. A second call does nothing.
  void stop();

  /// Opens a port and adds it. False, with *error saying which port, what and why, if it cannot be
  /// opened or collides with another one (number, interface, or file to write).
  bool attach(const PortSpec& spec, std::string* error);
  /// Flushes, closes and removes a port. False if there is none of that number.
  bool detach(uint32_t number);

  /// Sets a port up or down (see Port::setEnabled). False if there is none of that number.
  bool setEnabled(uint32_t number, bool enabled);

  /// Sends a packet, which is gone afterwards. False if there is no port of that number; all else
  /// is told by the port's counters.
  bool send(uint32_t number, PacketBuffer&& packet);

  /// Lets a packet come in at a port as if it had been received there: counted, and dropped if
  /// the port is set down. Without a port of that number it goes to the receiver all the same. By
  /// the I/O thread only (see `post`).
  void inject(uint32_t number, PacketBuffer&& packet);

  /// Runs `task` on the I/O thread between two packets. Destroyed, without having been run, if the
  /// set is stopped before.
  void post(std::function<void()> task);

  /// While held, capture inputs wait: several ports can be attached, and tables filled, before the
  /// first packet comes. Calls do not nest.
  void holdCaptures(bool held);

  /// Waits until no capture input that is not held has packets left, no task is waiting, and what
  /// was sent is in interfaces and files. Interfaces may receive at any time and are not
  /// considered. False if `patience` ended before, or the set is not running. Not by the receiver.
  bool waitUntilIdle(std::chrono::milliseconds patience);

  /// By number.
  std::vector<PortStatus> list() const;
  /// Numbers of all ports, in order, in place of what *numbers held. By the I/O thread only.
  void numbers(std::vector<uint32_t>* numbers) const;
  std::optional<PortStatus> status(uint32_t number) const;
  /// The ports whose link is up, by number. By the I/O thread only.
  std::bitset<kMaxPorts> links() const;
  /// Whether packets at this port come from a capture file. By the I/O thread only.
  bool readsCapture(uint32_t number) const;

 private:
  using PortPointer = std::shared_ptr<Port>;
  using Ports = std::array<PortPointer, kMaxPorts>;

  PortPointer find(uint32_t number) const;
  std::string collisionOf(const PortSpec& spec) const;
  bool onIoThread() const { return std::this_thread::get_id() == io_thread_id_; }
  void wake();
  void changed() ABSL_EXCLUSIVE_LOCKS_REQUIRED(mutex_);

  void run();
  bool beginRound();
  void poll(int timeout_ms);
  bool replay();
  void flushAll();

  OwnedFd epoll_;
  OwnedFd wake_;
  PacketReceiver receiver_;
  std::function<void()> pause_;
  std::thread io_thread_;
  std::atomic<std::thread::id> io_thread_id_{};

  Mutex attach_mutex_ ABSL_ACQUIRED_BEFORE(mutex_);  // one port is opened at a time

  mutable Mutex mutex_;
  Condition progress_;
  Ports ports_ ABSL_GUARDED_BY(mutex_);
  // Not in ports_ any more, but still open.
  std::vector<const Port*> closing_ ABSL_GUARDED_BY(mutex_);
  std::vector<std::function<void()>> tasks_ ABSL_GUARDED_BY(mutex_);
  bool held_ ABSL_GUARDED_BY(mutex_) = false;
  bool running_ ABSL_GUARDED_BY(mutex_) = false;
  bool stopping_ ABSL_GUARDED_BY(mutex_) = false;
  // Of all above; counts up with each change.
  uint64_t version_ ABSL_GUARDED_BY(mutex_) = 0;
  // The version that the current round of the I/O thread works with.
  uint64_t seen_ ABSL_GUARDED_BY(mutex_) = 0;
  // The version with which the I/O thread last had nothing left to do.
  uint64_t idle_ ABSL_GUARDED_BY(mutex_) = 0;

  // --- the I/O thread's copies, taken when a round begins
  Ports round_ports_;
  std::vector<Port*> round_list_;
  std::vector<std::function<void()>> round_tasks_;
  bool round_held_ = false;
  uint64_t round_version_ = 0;
};

}  // namespace jxmodel
