// A random load of every kind of write that tables know. It is the same for the same seed.
#pragma once

#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include "support/table_writer.h"

namespace jextest {

/// Writes to all tables of a device. Entries, members and groups come from small pools, so that
/// writes meet what is there: duplicates, references, what is gone. Refused writes of these kinds
/// belong to the load; any other refusal ends the process.
class RandomMix {
 public:
  /// With `shared`, other devices write to the same physical one: what tables have one of (default,
  /// fallback) and what cannot be told apart is left alone.
  RandomMix(const DeviceView& device, uint32_t owner, bool shared, uint64_t seed);

  /// Writes until `count` writes have succeeded. Returns the number of writes that were refused.
  uint64_t run(uint64_t count);

 private:
  enum class Kind { kDirect, kReference, kMembers, kGroups };
  struct Table {
    std::string name;
    Kind kind;
    bool has_priority = false;
    bool has_groups = false;
    std::vector<std::string> actions;
  };
  static bool describe(const jxrt::JxRtTable& table, bool shared, Table* description);

  uint32_t pick(uint32_t bound) { return static_cast<uint32_t>(random_() % bound); }
  uint32_t member() { return owner_ * 1000 + 1 + pick(48); }
  uint32_t group() { return owner_ * 1000 + 1 + pick(12); }
  const std::string& action(const Table& table);
  jx_status_t write();
  jx_status_t writeDirect(const Table& table);
  jx_status_t writeReference(const Table& table);
  jx_status_t writeMember(const Table& table);
  jx_status_t writeGroup(const Table& table);

  TableWriter writer_;
  uint32_t owner_;
  bool shared_;
  std::mt19937_64 random_;
  std::vector<Table> tables_;
};

}  // namespace jextest
