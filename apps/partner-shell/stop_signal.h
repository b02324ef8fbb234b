// SIGINT and SIGTERM as something to look at instead of something that strikes.
//
// Made before any thread is started: all threads inherit the blocked signals, so none of them is
// interrupted in the middle of its work, and the one that reads commands sees the request.
#pragma once

#include <thread>

namespace jexapps {

class StopSignal {
 public:
  /// Blocks the signals; throws std::system_error if the kernel gives no descriptor.
  StopSignal();
  ~StopSignal();
  StopSignal(const StopSignal&) = delete;
  StopSignal& operator=(const StopSignal&) = delete;

  /// Whether a signal has come.
  bool requested() const;

  /// Waits until `fd` can be read (true) or a signal has come (false).
  bool waitReadable(int fd) const;

  /// The same, but gives up after a time; then *timed_out is true and the result false.
  bool waitReadable(int fd, int timeout_ms, bool* timed_out) const;

 private:
  int fd_;  // readable once a signal has come: nobody ever reads it
};

/// As long as it lives, a signal ends the process at once with status 0: start-up waits inside the
/// library for an agent, and leaves nothing behind that would have to be shut down. Says on
/// standard error that it waits, after a second.
class EndWhileStarting {
 public:
  explicit EndWhileStarting(const StopSignal& stop);
  ~EndWhileStarting();
  EndWhileStarting(const EndWhileStarting&) = delete;
  EndWhileStarting& operator=(const EndWhileStarting&) = delete;

 private:
  void watch(const StopSignal& stop) const;

  int started_fd_;
  std::thread watcher_;
};

}  // namespace jexapps
