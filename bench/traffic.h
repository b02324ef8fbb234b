// Packets held in memory, to be run through a pipeline that rewrites them.
#pragma once

#include <cstdint>
#include <set>
#include <string>
#include <vector>

#include "unit/pipeline/data_files.h"

namespace bench {

class Traffic {
 public:
  struct Frame {
    size_t offset;
    uint32_t size;
    uint32_t wire_size;
  };

  /// All packets of the capture files of a folder, one file after the other by name. Throws
  /// std::runtime_error if one cannot be read.
  static Traffic captures(const std::string& folder);
  /// `count` TCP packets to addresses drawn from all of the routes.
  static Traffic acrossRoutes(const std::vector<jxpipelinetest::Prefix>& routes, size_t count);

  const std::vector<Frame>& frames() const { return frames_; }
  size_t bytes() const { return original_.size(); }
  uint8_t* at(const Frame& frame) { return work_.data() + frame.offset; }
  /// Makes all frames what they were.
  void restore() { work_ = original_; }
  /// The addresses that the frames come from and go to.
  std::set<uint64_t> macs() const;

 private:
  void add(const uint8_t* data, size_t size, size_t wire_size);

  std::vector<uint8_t> original_;
  std::vector<uint8_t> work_;
  std::vector<Frame> frames_;
};

}  // namespace bench
