#include "source.h"

#include <cstdio>

namespace slice_counters {

void Source::wait(const std::string& why) {
  if (waits_for_ == why) return;
  std::fprintf(stderr, "slice-counters: waiting: %s\n", why.c_str());
  waits_for_ = why;
}

bool Source::isAttached() {
  if (segment_.attached() && segment_.current()) return true;
  new_to_caller_ = true;
  std::string why;
  if (!segment_.attach(&why)) {
    wait(why);
    return false;
  }
  return true;
}

bool Source::read(std::vector<BlockSample>* samples, bool* anew) {
  samples->clear();
  if (!isAttached()) return false;
  if (!readBlocks(segment_, wanted_, samples)) {
    samples->clear();
    wait(kDamaged);
    return false;
  }
  if (new_to_caller_ && has_read_) {
    std::fprintf(stderr, "slice-counters: reading %s, which is another one now\n", kSegmentName);
  } else if (!waits_for_.empty()) {
    std::fprintf(stderr, "slice-counters: reading %s\n", kSegmentName);
  }
  waits_for_.clear();
  *anew = new_to_caller_;
  new_to_caller_ = false;
  has_read_ = true;
  return true;
}

}  // namespace slice_counters
