// The counter segment, read by somebody who must not disturb it and whom it must not bring down.
//
// A Partner makes blocks, the SliceAgent fills them, and neither knows of this reader. So:
//
//  1. Nothing is written and no lock is taken. The segment's mutex lies in the segment: to take it
//     is to write there, and a reader that was stopped while it held it would hang the Partner.
//  2. Nothing is mapped. Bytes are copied out with pread, so a segment that somebody cuts off
//  yields
//     a short read instead of SIGBUS, and parts that were never written stay without memory.
//  3. What is checked is what is used. The index of names is a tree that a Partner may be changing;
//     it is walked on a private picture of its pages, which stands still. Every link is checked for
//     range, alignment and cycles before it is followed, every block header before it is believed.
//     No contents of the segment make the walk crash or run without end.
//  4. A picture of pages that were copied one after the other can show half of a change: then the
//     walk fails or misses blocks. It is repeated until two walks in a row agree. Where a Partner
//     changes the index faster than that, the blocks that two walks agree on are listed.
//  5. A block may be freed while its values are copied. Who reads values asks for the blocks again
//     afterwards and keeps what is still at its place (readBlocks in sample.h).
//
// The layout of the index is Boost.Interprocess's, taken from its own types: this program and the
// Partner have to be built with the same Boost, as Partner and SliceAgent have to.
//
// One thread at a time.
#pragma once

#include <chrono>
#include <string>
#include <vector>

#include "block.h"

namespace slice_counters {

inline constexpr const char* kSegmentName = "PARTNERLIB_SHM_COUNTERS";
inline constexpr uint64_t kSegmentBytes = 0x8000000;

class Picture;

class Segment {
 public:
  /// `patience`: how long a listing of the blocks is repeated while the index is not sound.
  explicit Segment(std::chrono::milliseconds patience = std::chrono::milliseconds(100))
      : patience_(patience) {}
  ~Segment();
  Segment(const Segment&) = delete;
  Segment& operator=(const Segment&) = delete;

  /// Attaches to the segment that has the name now, leaving another. False, and in one line *why,
  /// if there is none, it is still being made, it cannot be opened, or it is no counter segment;
  /// nothing is attached then.
  bool attach(std::string* why);

  bool attached() const { return fd_ >= 0; }

  /// Whether the name still leads to what is attached: a Partner that starts takes the name away
  /// and makes a segment anew.
  bool current() const;

  /// Copies bytes out. False if the segment ends before them.
  bool read(uint64_t offset, void* to, size_t bytes) const;

  /// Lists the blocks by table id. False if the index of names is damaged.
  bool blocks(std::vector<Block>* blocks) const;

 private:
  void detach();
  bool walk(Picture* picture, std::vector<Block>* blocks) const;

  const std::chrono::milliseconds patience_;
  int fd_ = -1;
};

/// The blocks that stand in both lists unchanged; the lists are sorted by table id.
std::vector<Block> inBoth(const std::vector<Block>& one, const std::vector<Block>& other);

}  // namespace slice_counters
