// The command line of slice-counters.
#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "metrics.h"
#include "render.h"

namespace slice_counters {

struct Options {
  std::vector<std::string> programs;  // files
  std::vector<std::string> tables;    // ids or names
  bool all = false;
  std::optional<std::chrono::milliseconds> watch;
  uint64_t count = 0;   // looks; 0: until a signal comes
  std::string address;  // of the metrics; empty: none
  size_t max_series = kDefaultMaxSeries;
  Format format = Format::kText;
  Selection selection;
};

/// Reads "1s", "500ms", "2m" or "1.5" (seconds): 10 ms to a day. Empty for anything else.
std::optional<std::chrono::milliseconds> parseInterval(const std::string& text);

/// Whether `address` is a numeric address and a port: "127.0.0.1:9101", "[::1]:9101"; port 0 is a
/// free one.
bool isAddress(const std::string& address);

/// The status to end with, or empty if *options says what to do.
std::optional<int> parse(int argc, char** argv, Options* options);

}  // namespace slice_counters
