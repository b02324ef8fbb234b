// The cells of one register array, of any width.
//
// Thread safety: any thread may call anything. A cell is read and written as a whole; what a packet
// reads and writes in two steps, another packet may change in between.
#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <memory>

#include "model/base/mutex.h"
#include "model/machine/limbs.h"

namespace jxmodel {

class RegisterArray {
 public:
  RegisterArray(uint32_t size, uint32_t width);

  uint32_t size() const { return size_; }
  uint32_t width() const { return width_; }
  /// 64-bit words of one cell.
  uint32_t limbs() const { return limbs_; }

  /// `index` is below size(), here and below.
  void read(uint32_t index, uint64_t* limbs) const;
  /// Values are below 2^width.
  void write(uint32_t index, const uint64_t* limbs);
  void reset();

 private:
  static constexpr uint32_t kStripes = 64;
  struct Free {
    void operator()(std::atomic<uint64_t>* cells) const { std::free(cells); }
  };
  std::atomic<uint64_t>* cell(uint32_t index) const {
    return cells_.get() + size_t{index} * limbs_;
  }

  const uint32_t size_, width_, limbs_;
  std::unique_ptr<std::atomic<uint64_t>, Free> cells_;
  mutable std::array<Mutex, kStripes> stripes_;  // over cells of more than one word
};

}  // namespace jxmodel
