// The segment as something that comes, goes, and is made anew, for programs that stay.
#pragma once

#include <string>
#include <vector>

#include "sample.h"
#include "segment.h"

namespace slice_counters {

/// Why a segment cannot be read although it is there.
inline constexpr const char* kDamaged =
    "the index of names in the shared segment PARTNERLIB_SHM_COUNTERS is damaged";

/// Says on standard error when it begins to wait, why, and when it has attached.
class Source {
 public:
  /// Reads the tables of `wanted`, or all if it is empty.
  explicit Source(std::vector<uint32_t> wanted) : wanted_(std::move(wanted)) {}

  /// What the tables hold; false while there is no segment that can be read. *anew: it is another
  /// segment than at the last call that returned true.
  bool read(std::vector<BlockSample>* samples, bool* anew);

 private:
  bool isAttached();
  void wait(const std::string& why);

  const std::vector<uint32_t> wanted_;
  Segment segment_;
  bool new_to_caller_ = true;
  bool has_read_ = false;
  std::string waits_for_;  // what was said last; empty: it is being read
};

}  // namespace slice_counters
