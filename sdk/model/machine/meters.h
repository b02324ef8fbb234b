// One meter array: token buckets of two rates, which colour packets green, yellow or red without
// regard to any colour that they had before.
//
// A cell has two buckets, which are full when its rates are set and fill with the time of the
// model's clock. A packet that finds too little in the peak bucket is red and takes nothing; one
// that finds too little in the committed bucket is yellow and takes from the peak bucket; any other
// is green and takes from both.
//
// Thread safety: any thread may call anything.
#pragma once

#include <absl/container/flat_hash_map.h>

#include <atomic>
#include <cstdint>
#include <optional>

#include "model/base/mutex.h"
#include "model/machine/settings.h"

namespace jxmodel {

enum class Colour : uint8_t { kGreen = 0, kYellow = 1, kRed = 2 };

class MeterArray {
 public:
  using Rates = MachineSettings::Rates;

  MeterArray(uint32_t size, bool counts_bytes) : size_(size), counts_bytes_(counts_bytes) {}

  uint32_t size() const { return size_; }
  /// False: all cells are without rates, that is green.
  bool limits() const { return limits_.load(std::memory_order_acquire); }

  /// `index` is below size(), here and below.
  std::optional<Rates> rates(uint32_t index) const;
  void setRates(uint32_t index, const std::optional<Rates>& rates);
  void setAllRates(const std::optional<Rates>& rates);

  /// Meters a packet of `bytes` bytes at a time in ns.
  Colour execute(uint32_t index, uint32_t bytes, uint64_t now);
  /// What execute() would say; changes nothing.
  Colour ask(uint32_t index, uint32_t bytes, uint64_t now) const;

 private:
  struct Cell {
    std::optional<Rates> rates;
    double committed = 0, peak = 0;  // tokens in the buckets
    std::optional<uint64_t> filled;  // the time when they were as they are
    Colour take(double tokens, uint64_t now);
  };
  Cell cellOf(uint32_t index) const ABSL_EXCLUSIVE_LOCKS_REQUIRED(mutex_);

  const uint32_t size_;
  const bool counts_bytes_;
  std::atomic<bool> limits_{false};
  mutable Mutex mutex_;
  std::optional<Rates> all_ ABSL_GUARDED_BY(mutex_);  // of the cells that are not in cells_
  absl::flat_hash_map<uint32_t, Cell> cells_ ABSL_GUARDED_BY(mutex_);
};

}  // namespace jxmodel
