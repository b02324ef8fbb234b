// Packet lookups, against a walk over all entries.
#include <gtest/gtest.h>

#include <map>
#include <random>

#include "unit/model/random_writes.h"

namespace jxmodeltest {
namespace {

using jxmodel::kNoSlot;
using jxmodel::MatchTable;

/// The order in which the entries of a table came, as seen from outside by whoever looks after each
/// write.
class Arrivals {
 public:
  void look(const MatchTable& table) {
    for (uint32_t slot = 0; slot < table.end(); ++slot) {
      if (!table.used(slot)) {
        seen_.erase(slot);
        continue;
      }
      const uint8_t* const key = table.keyOf(slot);
      Arrival& arrival = seen_[slot];
      if (arrival.number != 0 && std::equal(arrival.key.begin(), arrival.key.end(), key)) continue;
      arrival = {Bytes(key, key + table.codec().keyBytes()), ++last_};
    }
  }
  uint64_t of(uint32_t slot) const { return seen_.at(slot).number; }

 private:
  struct Arrival {
    Bytes key;
    uint64_t number = 0;
  };
  std::map<uint32_t, Arrival> seen_;
  uint64_t last_ = 0;
};

/// Of the entries that match, the one that wins by definition.
uint32_t walk(const MatchTable& table, const jxmodel::Table& description, const Arrivals& arrivals,
              const uint8_t* values) {
  uint32_t best = kNoSlot;
  const auto prefix = [&](uint32_t slot) {
    int length = 0;
    for (const auto& field : description.key) {
      if (field.match != JX_RT_MATCH_LPM) continue;
      length += table.keyOf(slot)[field.offset + field.value_bytes];
    }
    return length;
  };
  for (uint32_t slot = 0; slot < table.end(); ++slot) {
    if (!table.used(slot) || !table.codec().matches(table.keyOf(slot), values)) continue;
    const auto rank = [&](uint32_t of) {
      return description.has_priority ? int64_t{table.priorityOf(of)} : int64_t{prefix(of)};
    };
    if (best == kNoSlot || rank(slot) > rank(best) ||
        (rank(slot) == rank(best) && arrivals.of(slot) < arrivals.of(best))) {
      best = slot;
    }
  }
  return best;
}

/// Packet values have no bits beyond the widths of their fields.
void clearPadding(const jxmodel::Table& description, Bytes* values) {
  size_t offset = 0;
  for (const auto& field : description.key) {
    const uint32_t padding = field.value_bytes * 8 - field.width;
    (*values)[offset] = static_cast<uint8_t>((*values)[offset] & (0xFFu >> padding));
    offset += field.value_bytes;
  }
}

class Lookup : public testing::TestWithParam<const char*> {};

TEST_P(Lookup, FindsWhatAWalkOverAllEntriesFinds) {
  const ModelDevice device(20, ModelDevice::Kind::kVirtual, {everyKind(), delivered("limits")}, 0);
  RandomWrites writes(device, 4711);
  const MatchTable& table = *device.state(GetParam()).match;
  const jxmodel::Table& description = *device.state(GetParam()).table;
  std::mt19937 random(99);
  Arrivals arrivals;
  uint32_t hits = 0, misses = 0;
  for (int round = 0; round < 12; ++round) {
    for (int i = 0; i < 2500; ++i) {
      writes.write();
      arrivals.look(table);
    }
    for (int i = 0; i < 300; ++i) {
      // Packets near what is there: an entry's values with a few bits turned.
      Bytes values(table.codec().valueBytes());
      Bytes mask(values.size());
      const uint32_t slot = table.end() == 0 ? 0 : static_cast<uint32_t>(random() % table.end());
      if (table.used(slot)) table.codec().compared(table.keyOf(slot), mask.data(), values.data());
      for (uint32_t turned = static_cast<uint32_t>(random() % 3); turned > 0; --turned) {
        values[random() % values.size()] ^= static_cast<uint8_t>(1u << random() % 8);
      }
      clearPadding(description, &values);
      const uint32_t expected = walk(table, description, arrivals, values.data());
      ASSERT_EQ(table.lookup(values.data()), expected);
      ++(expected == kNoSlot ? misses : hits);
    }
  }
  EXPECT_GT(hits, 100U);
  // A table with priorities soon has an entry that matches anything.
  EXPECT_TRUE(misses > 10 || description.has_priority);
}

INSTANTIATE_TEST_SUITE_P(Tables, Lookup,
                         testing::Values("exact", "lpm", "via_member", "acl", "all_kinds",
                                         "ternary_direct", "lpm_and_exact"),
                         [](const auto& row) { return std::string(row.param); });

TEST(LookupOrder, TakesTheGreaterPriorityAndThenTheOlderEntry) {
  const ModelDevice device(20, ModelDevice::Kind::kVirtual, {everyKind()}, 0);
  const TableUser acl(device, "acl");
  const auto keyWith = [&acl](uint64_t mask, uint32_t priority) {
    auto key = acl.key();
    EXPECT_EQ(key->setValueAndMask(1, 0x01020304 & mask, mask), JX_SUCCESS);
    EXPECT_EQ(key->prioritySet(priority), JX_SUCCESS);
    return key;
  };
  const auto first = keyWith(0xFF000000, 5), second = keyWith(0xFFFF0000, 5);
  const auto third = keyWith(0xFFFFFF00, 9);
  for (const auto* key : {&first, &second, &third}) {
    ASSERT_EQ(acl.add(*key, acl.data("nop", {})), JX_SUCCESS);
  }
  const MatchTable& table = *device.state("acl").match;
  const Bytes packet = {1, 2, 3, 4, 0, 0, 0, 0};
  const auto hit = [&] { return table.handleOf(table.lookup(packet.data())); };
  EXPECT_EQ(hit(), acl.handle(third));
  ASSERT_EQ(third->prioritySet(1), JX_SUCCESS);
  ASSERT_EQ(acl.move(third), JX_SUCCESS);
  EXPECT_EQ(hit(), acl.handle(first));
  ASSERT_EQ(acl.del(first), JX_SUCCESS);
  EXPECT_EQ(hit(), acl.handle(second));
  // Added anew it is the younger one, under the lower handle.
  ASSERT_EQ(acl.add(first, acl.data("nop", {})), JX_SUCCESS);
  ASSERT_LT(acl.handle(first), acl.handle(second));
  EXPECT_EQ(hit(), acl.handle(second));
  // An entry that moves stays as old as it is.
  for (const uint32_t priority : {7u, 5u}) {
    ASSERT_EQ(second->prioritySet(priority), JX_SUCCESS);
    ASSERT_EQ(acl.move(second), JX_SUCCESS);
    EXPECT_EQ(hit(), acl.handle(second));
  }
}

}  // namespace
}  // namespace jxmodeltest
