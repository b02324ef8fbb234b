// The segment of counters as a Partner makes it and a slice agent fills it, by hand.
#pragma once

#include <boost/interprocess/managed_shared_memory.hpp>
#include <cstdint>
#include <string>

namespace jextest {

/// Id of table route_counters of programs/router.json.
constexpr uint32_t kRouteCounters = 2 << 16 | 6;

class CounterSegment {
 public:
  /// Takes the name from a segment that has it, and makes one.
  CounterSegment();
  /// Takes the name away, whosever it is: the next test begins without one.
  ~CounterSegment();

  /// Takes the name away; who has the segment open keeps it.
  static void remove();
  /// Where the name leads.
  static std::string path();

  /// Makes the block of a table.
  void construct(uint32_t table_id, uint32_t entries);
  void destroy(uint32_t table_id);
  /// Makes something that is no block.
  void constructOther(const std::string& name, size_t bytes);

  void set(uint32_t table_id, uint32_t index, uint64_t packets, uint64_t bytes);
  /// Ends a sync at `time_ms`.
  void sync(uint32_t table_id, uint64_t time_ms);

  /// The first byte of a block, and how far behind the segment's first byte it lies.
  char* block(uint32_t table_id);
  uint64_t offset(uint32_t table_id);

  /// Calls `function` while the segment's mutex is held.
  template <typename Function>
  void locked(Function function) {
    segment_.atomic_func(function);
  }

 private:
  boost::interprocess::managed_shared_memory segment_;
};

}  // namespace jextest
