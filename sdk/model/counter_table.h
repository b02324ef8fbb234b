// The pairs of one counter table, as packets count on the fast path.
//
// Any thread may call anything at any time. No count is lost. Packets and bytes of a pair are read
// one after the other: a packet that is counted meanwhile may be in one of the two only.
#pragma once

#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <new>

namespace jxmodel {

class CounterTable {
 public:
  struct Pair {
    uint64_t packets = 0;
    uint64_t bytes = 0;
  };

  explicit CounterTable(uint32_t size)
      : size_(size), pairs_(static_cast<Counts*>(std::calloc(size + size_t{1}, sizeof(Counts)))) {
    if (pairs_ == nullptr) throw std::bad_alloc();
  }

  uint32_t size() const { return size_; }

  /// False if there is no such pair.
  bool count(uint32_t index, uint64_t bytes) {
    if (index >= size_) return false;
    Counts& counts = pairs_.get()[index];
    counts.packets.fetch_add(1, std::memory_order_relaxed);
    counts.bytes.fetch_add(bytes, std::memory_order_relaxed);
    return true;
  }

  /// `index` is below size(), here and below.
  Pair read(uint32_t index) const {
    const Counts& counts = pairs_.get()[index];
    return {counts.packets.load(std::memory_order_relaxed),
            counts.bytes.load(std::memory_order_relaxed)};
  }

  /// Sets a pair and returns what it was, so that what is counted meanwhile is in the one or the
  /// other.
  Pair exchange(uint32_t index, const Pair& pair) {
    Counts& counts = pairs_.get()[index];
    return {counts.packets.exchange(pair.packets, std::memory_order_relaxed),
            counts.bytes.exchange(pair.bytes, std::memory_order_relaxed)};
  }

 private:
  struct Counts {
    std::atomic<uint64_t> packets;
    std::atomic<uint64_t> bytes;
  };
  struct Free {
    void operator()(Counts* counts) const { std::free(counts); }
  };

  uint32_t size_;
  std::unique_ptr<Counts, Free> pairs_;  // zeroed pages come from the system as they are used
};

}  // namespace jxmodel
