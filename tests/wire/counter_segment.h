// The shared segment of counters as seen from outside of the library: its file, and the blocks in
// it by their names. Shares no record and no constant with the library.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "support/bytes.h"

namespace jextest {

/// One mapping of the segment. It keeps its memory when the name is given to another one.
class CounterSegment {
 public:
  /// What a Partner does: takes the name from whatever has it and makes a new one.
  static CounterSegment create();
  /// The one that has the name; none() if there is none.
  static CounterSegment open();

  CounterSegment(CounterSegment&&) noexcept;
  CounterSegment& operator=(CounterSegment&&) = delete;
  ~CounterSegment();

  bool none() const;
  /// A block for `entries` entries, all zero; the test fails if there is one of this name.
  void makeBlock(const std::string& name, size_t entries) { makeBytes(name, 12 + 16 * entries); }
  void makeBytes(const std::string& name, size_t bytes);
  void destroyBlock(const std::string& name);
  /// How many blocks there are.
  size_t blocks() const;
  /// Bytes of block `name` in their present state; empty if there is none.
  Bytes block(const std::string& name) const;
  /// Overwrites a block from its begin on.
  void write(const std::string& name, const Bytes& bytes);
  /// Sets every byte of a block.
  void fill(const std::string& name, uint8_t byte);

 private:
  struct Mapping;
  explicit CounterSegment(std::unique_ptr<Mapping> mapping);
  unsigned char* find(const std::string& name, size_t* bytes) const;

  std::unique_ptr<Mapping> mapping_;
};

/// The file behind the segment's name; size 0 if there is none.
struct SegmentFile {
  uint64_t size = 0;
  unsigned permissions = 0;
  uint64_t inode = 0;
};
SegmentFile segmentFile();
/// Takes the name away from whatever has it.
void removeSegmentFile();

}  // namespace jextest
