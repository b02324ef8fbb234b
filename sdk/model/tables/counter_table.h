// The pairs of one counter table: what the hardware counts, and the software's copy of that.
//
// Packets count in the hardware's pairs on the fast path. The software copy stands still between
// two calls of sync(); before the first it is all zero.
//
// Thread safety: any thread may call anything at any time, but one at a time sync(). No lock is
// taken and no count is lost. Packets and bytes of a pair are read one after the other: a packet
// that is counted meanwhile may be in one of the two only. A read of the copy during a sync finds
// each number as it was or as it becomes.
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

  explicit CounterTable(uint32_t size) : size_(size), pairs_(zeroed(size)), copies_(zeroed(size)) {}

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
  Pair read(uint32_t index) const { return load(pairs_.get()[index]); }

  /// From the software copy.
  Pair copied(uint32_t index) const { return load(copies_.get()[index]); }

  /// Makes the software copy what the hardware has counted: at least all that was counted before.
  void sync() {
    for (uint32_t i = 0; i < size_; ++i) {
      const Pair now = read(i);
      refresh(copies_.get()[i].packets, now.packets);
      refresh(copies_.get()[i].bytes, now.bytes);
    }
  }

  /// Sets a pair and returns what it was, so that what is counted meanwhile is in the one or the
  /// other.
  Pair exchange(uint32_t index, const Pair& pair) {
    Counts& counts = pairs_.get()[index];
    return {counts.packets.exchange(pair.packets, std::memory_order_relaxed),
            counts.bytes.exchange(pair.bytes, std::memory_order_relaxed)};
  }

  /// Sets a pair and its software copy to 0. A sync meanwhile may bring back what the copy was
  /// until the next one.
  void clear(uint32_t index) {
    exchange(index, {});
    copies_.get()[index].packets.store(0, std::memory_order_relaxed);
    copies_.get()[index].bytes.store(0, std::memory_order_relaxed);
  }

 private:
  struct Counts {
    std::atomic<uint64_t> packets;
    std::atomic<uint64_t> bytes;
  };
  struct Free {
    void operator()(Counts* counts) const { std::free(counts); }
  };

  using Memory = std::unique_ptr<Counts, Free>;

  /// Zeroed pages come from the system as they are written.
  static Memory zeroed(uint32_t size) {
    Memory memory(static_cast<Counts*>(std::calloc(size + size_t{1}, sizeof(Counts))));
    if (memory == nullptr) throw std::bad_alloc();
    return memory;
  }
  static Pair load(const Counts& counts) {
    return {counts.packets.load(std::memory_order_relaxed),
            counts.bytes.load(std::memory_order_relaxed)};
  }
  /// Writes only what is new: a pair that never counted takes no memory.
  static void refresh(std::atomic<uint64_t>& copy, uint64_t now) {
    if (copy.load(std::memory_order_relaxed) != now) copy.store(now, std::memory_order_relaxed);
  }

  uint32_t size_;
  Memory pairs_;
  Memory copies_;
};

}  // namespace jxmodel
