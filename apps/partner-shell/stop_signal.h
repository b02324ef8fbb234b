// SIGINT and SIGTERM as something to look at instead of something that strikes.
//
// Made before any thread is started: all threads inherit the blocked signals, so none of them is
// interrupted in the middle of its work, and the one that reads commands sees the request.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <thread>

namespace jexapps {

class StopSignal {
 public:
  /// Blocks the signals, both of which ask the shell to end; throws std::system_error if the kernel
  /// gives no descriptor.
  StopSignal();
  ~StopSignal();
  StopSignal(const StopSignal&) = delete;
  StopSignal& operator=(const StopSignal&) = delete;

  /// From now on SIGINT asks the running command to end, and not the shell.
  void separateInterrupts();

  /// Whether the shell is to end.
  bool endRequested() const;
  /// Whether the running command is to end: because the shell is, or over an interrupt.
  bool requested() const;
  /// Forgets the interrupts that have come.
  void clearInterrupts();

  enum class Ready : uint8_t { kReadable, kEnd, kInterrupt, kTimedOut };
  /// Waits until `fd` can be read or a signal has come, or for a time; kForever waits on. The end
  /// comes before an interrupt, and both before what can be read.
  Ready wait(int fd, int timeout_ms = kForever) const;
  static constexpr int kForever = -1;

 private:
  int end_fd_;             // readable once the shell is to end: nobody ever reads it
  int interrupt_fd_ = -1;  // readable after an interrupt, until it is cleared
};

/// As long as it lives, a signal ends the process at once with status 0: start-up waits inside the
/// library for an agent, and leaves nothing behind that would have to be shut down. Says on
/// standard error that it waits, after a second, once.
class EndWhileStarting {
 public:
  /// `reason` says why no agent answers. It is called on a thread of its own.
  EndWhileStarting(const StopSignal& stop, std::function<std::string()> reason);
  ~EndWhileStarting();
  EndWhileStarting(const EndWhileStarting&) = delete;
  EndWhileStarting& operator=(const EndWhileStarting&) = delete;

 private:
  void watch(const StopSignal& stop) const;

  std::function<std::string()> reason_;
  int started_fd_;
  std::thread watcher_;
};

}  // namespace jexapps
