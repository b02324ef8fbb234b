// A port on a network interface of this machine: packets are taken from it before its own stack
// sees them and put onto it beside that stack, in both directions, whatever their addresses.
//
// An interface that goes down or disappears is a link without carrier. One that comes back under
// its name, even as another interface, is the port's again.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "model/base/mutex.h"
#include "model/port/port.h"

namespace jxmodel {

/// A descriptor that is closed at the end.
class OwnedFd {
 public:
  explicit OwnedFd(int fd = -1) : fd_(fd) {}
  ~OwnedFd() { reset(); }
  OwnedFd(OwnedFd&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
  OwnedFd& operator=(OwnedFd&& other) noexcept {
    if (this != &other) {
      reset();
      fd_ = std::exchange(other.fd_, -1);
    }
    return *this;
  }
  int get() const { return fd_; }
  void reset();

 private:
  int fd_;
};

class InterfacePort : public Port {
 public:
  /// Null, with *error saying which interface and why, if it cannot be opened. Needs the right to
  /// use raw sockets (CAP_NET_RAW). The interface is looked up in the network namespace of the
  /// calling thread, and is followed there.
  static std::unique_ptr<InterfacePort> open(const PortSpec& spec, std::string* error);
  ~InterfacePort() override;

  bool carrier() const override { return carrier_.load(std::memory_order_relaxed); }
  void flush() override;
  void stop() override;

  std::vector<int> descriptors() const override { return {packets_.get(), events_.get()}; }
  void receive(const PacketReceiver& receiver, size_t limit) override;

 protected:
  void transmit(PacketBuffer&& packet) override;
  uint64_t dropsElsewhere() const override;
  std::string errorText() const override;

 private:
  struct Batch;  // room for a batch of frames of any size, as the kernel fills it

  explicit InterfacePort(const PortSpec& spec);
  bool openSockets(std::string* reason);
  bool bindTo(int index, std::string* reason);

  void followLinkEvents();
  void refreshLink();
  void handOn(size_t slot, const PacketReceiver& receiver);
  void receiveFailed(int error);

  void readKernelDrops() const ABSL_EXCLUSIVE_LOCKS_REQUIRED(send_mutex_);
  void flushLocked() ABSL_EXCLUSIVE_LOCKS_REQUIRED(send_mutex_);
  bool waitForRoom();
  /// What to do about the first packet that was not sent. Returns how many packets are done with.
  size_t sendFailed(int error, size_t left);
  void noteError(const std::string& reason);

  OwnedFd packets_;  // the packets of the interface
  OwnedFd events_;   // changes of interfaces
  std::unique_ptr<Batch> batch_;
  int index_ = 0;  // of the interface; 0 while it does not exist. I/O thread's
  std::atomic<bool> carrier_{false};

  // Held over closing the sockets, too.
  mutable Mutex send_mutex_ ABSL_ACQUIRED_BEFORE(error_mutex_);
  std::vector<PacketBuffer> queue_ ABSL_GUARDED_BY(send_mutex_);
  bool stopped_ ABSL_GUARDED_BY(send_mutex_) = false;
  mutable uint64_t kernel_drops_ ABSL_GUARDED_BY(send_mutex_) = 0;  // since the port was opened

  mutable Mutex error_mutex_;
  std::string error_ ABSL_GUARDED_BY(error_mutex_);
};

}  // namespace jxmodel
