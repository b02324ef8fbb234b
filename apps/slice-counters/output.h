// Standard output of a program that people and scripts end by a signal, also while nobody reads
// what it prints.
#pragma once

#include <chrono>
#include <string_view>

namespace slice_counters {

/// SIGINT and SIGTERM as something to look at. Made before there are threads: all of them inherit
/// the blocked signals.
class EndSignal {
 public:
  EndSignal();
  ~EndSignal();
  EndSignal(const EndSignal&) = delete;
  EndSignal& operator=(const EndSignal&) = delete;

  /// Waits until the moment has come (false), or a signal has (true).
  bool waitUntil(std::chrono::steady_clock::time_point moment) const;
  /// Waits for a signal.
  void wait() const;

  /// Writes all of `text` to standard output. False if a signal came first; throws
  /// std::runtime_error if it cannot be written.
  bool print(std::string_view text) const;

 private:
  int fd_;  // readable once a signal has come: nobody reads it
};

/// Writes all of `text` to standard output; throws std::runtime_error if that fails.
void print(std::string_view text);

}  // namespace slice_counters
