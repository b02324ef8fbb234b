// Mixes of match kinds that compiled programs have, against the plain definition, and wide digests.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <condition_variable>
#include <mutex>
#include <random>

#include "jxmodel/notify.h"
#include "unit/model/hand_made.h"
#include "unit/model/twin.h"

namespace jxmodeltest {
namespace {

using Fields = std::vector<HandMade::Field>;
using jxmodel::bytesOf;
using jxmodel::kNoSlot;

/// A value of a field as a number with a byte for each bit: what matches is said without the
/// model's packing, masks or comparisons of bytes.
using Bits = std::vector<uint8_t>;

Bytes packed(const Bits& bits) {
  Bytes bytes(bytesOf(static_cast<uint32_t>(bits.size())));
  for (size_t i = 0; i < bits.size(); ++i) {
    const size_t at = bytes.size() * 8 - bits.size() + i;
    bytes[at / 8] = static_cast<uint8_t>(bytes[at / 8] | bits[i] << (7 - at % 8));
  }
  return bytes;
}

/// What one entry says of one field.
struct Criterion {
  Bits value, other;
  uint32_t prefix = 0;
  bool any = false;

  bool matches(jx_rt_key_match_type_t kind, const Bits& packet) const {
    switch (kind) {
      case kTernary:
        for (size_t i = 0; i < packet.size(); ++i) {
          if (other[i] == 1 && value[i] != packet[i]) return false;
        }
        return true;
      case kLpm:
        return std::equal(packet.begin(), packet.begin() + prefix, value.begin());
      case kRange:
        return value <= packet && packet <= other;
      case kOptional:
        return any || value == packet;
      default:
        return value == packet;
    }
  }
};

struct Added {
  std::vector<Criterion> criteria;
  uint32_t priority = 0;
  uint64_t age = 0;
  TableUser::KeyPtr key;
};

class Mix {
 public:
  Mix(const Fields& fields, uint32_t seed) : fields_(fields), random_(seed) {
    HandMade program("mix");
    const uint32_t to = program.action("to", {32});
    program.table("t", fields, 4096, {to});
    twin_ = std::make_unique<Twin>(
        std::vector<std::shared_ptr<const jxmodel::Program>>{program.make()});
    table_ = std::make_unique<TableUser>(twin_->virt, "t");
  }

  void write() {
    if (!entries_.empty() && pick(4) == 0) {
      const size_t at = pick(static_cast<uint32_t>(entries_.size()));
      ASSERT_EQ(table_->del(entries_[at].key), JX_SUCCESS);
      entries_.erase(entries_.begin() + static_cast<long>(at));
      return;
    }
    Added added;
    added.key = table_->key();
    for (uint32_t i = 0; i < fields_.size(); ++i) {
      added.criteria.push_back(criterion(fields_[i]));
      ASSERT_EQ(set(*added.key, i + 1, fields_[i], added.criteria.back()), JX_SUCCESS);
    }
    if (hasPriority()) {
      added.priority = pick(3);
      ASSERT_EQ(added.key->prioritySet(added.priority), JX_SUCCESS);
    }
    added.age = ++clock_;
    const jx_status_t status = table_->add(added.key, table_->data("to", {added.age}));
    if (status == JX_ALREADY_EXISTS) return;
    ASSERT_EQ(status, JX_SUCCESS);
    entries_.push_back(std::move(added));
  }

  /// Looks a packet up that is near an entry; true if it hit.
  bool probe() {
    std::vector<Bits> packet;
    const Added* const near =
        entries_.empty() ? nullptr : &entries_[pick(static_cast<uint32_t>(entries_.size()))];
    Bytes values;
    for (size_t i = 0; i < fields_.size(); ++i) {
      Bits bits = near == nullptr ? anyBits(fields_[i].width) : near->criteria[i].value;
      if (pick(static_cast<uint32_t>(2 * fields_.size())) == 0) bits[pick(fields_[i].width)] ^= 1;
      const Bytes bytes = packed(bits);
      values.insert(values.end(), bytes.begin(), bytes.end());
      packet.push_back(std::move(bits));
    }
    const uint64_t expected = winner(packet);
    const auto& match = *twin_->physical.state("t").match;
    const uint32_t slot = match.lookup(values.data());
    uint64_t found = 0;
    if (slot != kNoSlot) {
      const uint8_t* const params = match.resultOf(slot).action.params;
      for (int i = 0; i < 4; ++i) found = found << 8 | params[i];
    }
    EXPECT_EQ(found, expected);
    return expected != 0;
  }

  const Twin& twin() const { return *twin_; }

 private:
  uint32_t pick(uint32_t bound) { return static_cast<uint32_t>(random_() % bound); }
  /// Few different values, so that entries meet.
  Bits anyBits(uint32_t width) {
    Bits bits(width, 0);
    bits[0] = static_cast<uint8_t>(pick(2));
    bits[width - 1] = static_cast<uint8_t>(pick(2));
    bits[width / 2] = static_cast<uint8_t>(pick(2));
    return bits;
  }
  Criterion criterion(const HandMade::Field& field) {
    Criterion made;
    made.value = anyBits(field.width);
    made.other = pick(3) == 0 ? Bits(field.width, 0) : anyBits(field.width);
    if (pick(3) == 0) std::fill(made.other.begin(), made.other.end(), uint8_t{1});
    if (field.match == kRange && made.other < made.value) std::swap(made.value, made.other);
    made.prefix = pick(field.width + 1);
    made.any = pick(2) == 0;
    return made;
  }
  static jx_status_t set(jxrt::JxRtTableKey& key, uint32_t id, const HandMade::Field& field,
                         const Criterion& criterion) {
    Bytes value = packed(criterion.value), other = packed(criterion.other);
    switch (field.match) {
      case kTernary:
        return key.setValueAndMask(id, value.data(), other.data(), value.size());
      case kLpm:
        return key.setValueLpm(id, value.data(), static_cast<uint16_t>(criterion.prefix),
                               value.size());
      case kRange:
        return key.setValueRange(id, value.data(), other.data(), value.size());
      case kOptional:
        return key.setValueOptional(id, value.data(), !criterion.any, value.size());
      default:
        return key.setValue(id, value.data(), value.size());
    }
  }
  bool hasPriority() const {
    return std::any_of(fields_.begin(), fields_.end(), [](const HandMade::Field& field) {
      return field.match != kExact && field.match != kLpm;
    });
  }
  /// The number of the entry that wins for the packet, 0 if none matches.
  uint64_t winner(const std::vector<Bits>& packet) const {
    const Added* best = nullptr;
    for (const Added& entry : entries_) {
      bool matches = true;
      for (size_t i = 0; i < fields_.size(); ++i) {
        matches = matches && entry.criteria[i].matches(fields_[i].match, packet[i]);
      }
      if (matches && (best == nullptr || before(entry, *best))) best = &entry;
    }
    return best == nullptr ? 0 : best->age;
  }
  bool before(const Added& entry, const Added& other) const {
    if (!hasPriority()) return prefixOf(entry) > prefixOf(other);
    return entry.priority != other.priority ? entry.priority > other.priority
                                            : entry.age < other.age;
  }
  uint32_t prefixOf(const Added& entry) const {
    for (size_t i = 0; i < fields_.size(); ++i) {
      if (fields_[i].match == kLpm) return entry.criteria[i].prefix;
    }
    return 0;
  }

  const Fields fields_;
  std::mt19937 random_;
  std::unique_ptr<Twin> twin_;
  std::unique_ptr<TableUser> table_;
  std::vector<Added> entries_;
  uint64_t clock_ = 0;
};

Fields fortyFields() {
  Fields fields;
  const jx_rt_key_match_type_t kinds[] = {kExact, kTernary, kExact, kOptional, kRange};
  for (uint32_t i = 0; i < 40; ++i) fields.push_back({kinds[i % 5], i % 7 == 0 ? 1 : 3 + i});
  return fields;
}

struct MixRow {
  const char* name;
  Fields fields;
  uint32_t writes;
  bool misses;  // packets near an entry miss often enough
};

class Mixes : public testing::TestWithParam<MixRow> {};

TEST_P(Mixes, FindWhatTheDefinitionFinds) {
  Mix mix(GetParam().fields, 1234);
  uint32_t hits = 0, misses = 0;
  for (uint32_t round = 0; round < 20; ++round) {
    for (uint32_t i = 0; i < GetParam().writes; ++i) ASSERT_NO_FATAL_FAILURE(mix.write());
    for (int i = 0; i < 100; ++i) ++(mix.probe() ? hits : misses);
    ASSERT_FALSE(HasFailure());
  }
  EXPECT_EQ(mix.twin().virt.dump(), mix.twin().physical.dump());
  EXPECT_GT(hits, 100U);
  EXPECT_GT(misses, GetParam().misses ? 20U : 0U);
}

INSTANTIATE_TEST_SUITE_P(
    Tables, Mixes,
    testing::Values(MixRow{"lpm_beside_ternary", {{kLpm, 32}, {kTernary, 16}}, 10, false},
                    MixRow{"lpm_beside_range", {{kRange, 16}, {kLpm, 128}}, 10, false},
                    MixRow{"lpm_beside_optional", {{kOptional, 9}, {kLpm, 20}}, 10, false},
                    MixRow{"lpm_beside_exact", {{kExact, 1}, {kLpm, 32}, {kExact, 9}}, 10, true},
                    MixRow{
                        "ternaries", {{kTernary, 48}, {kTernary, 128}, {kTernary, 1}}, 10, false},
                    MixRow{"wide_ranges", {{kRange, 128}, {kRange, 127}}, 10, false},
                    MixRow{"validity", {{kExact, 1}, {kTernary, 1}, {kRange, 1}}, 3, false},
                    MixRow{"exact", {{kExact, 128}, {kExact, 1}, {kExact, 7}}, 3, true},
                    MixRow{"forty", fortyFields(), 10, true}),
    [](const auto& row) { return std::string(row.param.name); });

TEST(Mixes, TwoFieldsMayHaveTheValueOfOnePacketField) {
  // (8, any) and (any, 135) of one value.
  HandMade program("made");
  const uint32_t to = program.action("to", {8});
  const uint32_t table = program.table("t", {{kTernary, 8}, {kTernary, 8}}, 8, {to});
  program.entry(table, {under({8}, {0xFF}), under({0}, {0})}, to, {1}, 1);
  program.entry(table, {under({0}, {0}), under({135}, {0xFF})}, to, {2}, 1);
  const Twin twin({program.make()});
  const auto& match = *twin.physical.state("t").match;
  const auto hit = [&](uint8_t value) {
    const uint8_t values[] = {value, value};
    const uint32_t slot = match.lookup(values);
    return slot == kNoSlot ? 0 : match.resultOf(slot).action.params[0];
  };
  EXPECT_EQ(hit(8), 1);
  EXPECT_EQ(hit(135), 2);
  EXPECT_EQ(hit(9), 0);
}

// --- digests

/// Digests that have come, value by value.
struct Learned {
  void wait(size_t count) {
    std::unique_lock lock(mutex);
    came.wait(lock, [&] { return digests.size() >= count; });
  }
  std::mutex mutex;
  std::condition_variable came;
  std::vector<std::vector<Bytes>> digests;
};

TEST(WideDigest, OfManyFieldsComesWhole) {
  HandMade program("made");
  std::vector<uint32_t> widths = {1, 336, 129, 48, 2048};
  for (uint32_t i = 0; i < 40; ++i) widths.push_back(1 + 9 * i);
  program.learn("wide", widths);
  const ModelDevice device(20, ModelDevice::Kind::kPhysical, {program.make()});
  jxrt::JxRtLearn* learn = nullptr;
  const jxrt::JxRtInfo* info = nullptr;
  ASSERT_EQ(jxrt::JxRtDevMgr::getInstance().jxRtInfoGet(20, "made", &info), JX_SUCCESS);
  ASSERT_EQ(info->learnFromNameGet("wide", &learn), JX_SUCCESS);
  std::vector<uint32_t> ids;
  ASSERT_EQ(learn->learnFieldIdListGet(&ids), JX_SUCCESS);
  ASSERT_EQ(ids.size(), widths.size());
  Bytes values;
  std::vector<Bytes> expected;
  for (size_t i = 0; i < widths.size(); ++i) {
    size_t bits = 0;
    ASSERT_EQ(learn->learnFieldSizeGet(ids[i], &bits), JX_SUCCESS);
    ASSERT_EQ(bits, widths[i]);
    Bytes value(bytesOf(widths[i]));
    for (size_t at = 1; at < value.size(); ++at) value[at] = static_cast<uint8_t>(i * 31 + at * 7);
    value[0] = 1;
    values.insert(values.end(), value.begin(), value.end());
    expected.push_back(std::move(value));
  }
  Learned learned;
  const std::shared_ptr<jxrt::JxRtSession> session = jxrt::JxRtSession::sessionCreate();
  const auto callback = [&](const jx_rt_target_t&, std::shared_ptr<jxrt::JxRtSession>,
                            std::vector<std::unique_ptr<jxrt::JxRtTableData>> data,
                            jx_rt_learn_msg_hdl*, const void*) {
    const std::lock_guard lock(learned.mutex);
    for (const auto& digest : data) {
      std::vector<Bytes> read;
      for (size_t i = 0; i < ids.size(); ++i) {
        read.emplace_back(bytesOf(widths[i]));
        EXPECT_EQ(digest->getValue(ids[i], read.back().size(), read.back().data()), JX_SUCCESS);
        uint64_t number = 0;
        EXPECT_EQ(digest->getValue(ids[i], &number),
                  widths[i] > 64 ? JX_INVALID_ARGUMENTS : JX_SUCCESS);
      }
      learned.digests.push_back(std::move(read));
    }
    learned.came.notify_all();
    return JX_SUCCESS;
  };
  ASSERT_EQ(learn->callbackRegister(session, device.target(), callback, nullptr), JX_SUCCESS);
  ASSERT_EQ(jx_model_learn_inject(20, "made", "wide", values.data(), 1), JX_SUCCESS);
  learned.wait(1);
  ASSERT_EQ(learn->callbackDeregister(session, device.target()), JX_SUCCESS);
  EXPECT_THAT(learned.digests, testing::ElementsAre(expected));
}

}  // namespace
}  // namespace jxmodeltest
