// What compiled programs say of tables: entries from the start, what nobody may change, actions
// that are only an entry's or only the default's, tables without a key, shared profiles.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <set>

#include "jxsdk/pipe_mgr.h"
#include "model/placement/placement.h"
#include "unit/model/hand_made.h"
#include "unit/model/twin.h"

namespace jxmodeltest {
namespace {

using jxmodel::ActionScope;
using jxmodel::kFieldGroupId;
using jxmodel::kFieldMemberId;
using jxmodel::PlacementHeader;
using jxmodel::PlacementKind;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

/// One operation of a writer that is no device of ours, on the physical device of a twin.
class Stranger {
 public:
  Stranger(Twin& twin, const std::string& table)
      : twin_(twin), state_(twin.physical.state(table)) {}

  jx_status_t add(uint32_t handle, const Bytes& key, const std::string& action) {
    const void* const placed = data(PlacementKind::kMatch, key, action);
    return process([&](pipe_plcmt_info* info) {
      return pipe_set_one_plcmt_op_mat_add(info, handle, JX_PIPE_ALL, 0, 0, 0, placed);
    });
  }
  jx_status_t modify(uint32_t handle, const Bytes& key, const std::string& action) {
    const void* const placed = data(PlacementKind::kMatch, key, action);
    return process([&](pipe_plcmt_info* info) {
      return pipe_set_one_plcmt_op_mat_mod(info, handle, 0, 0, placed);
    });
  }
  jx_status_t remove(uint32_t handle) {
    return process(
        [&](pipe_plcmt_info* info) { return pipe_set_one_plcmt_op_mat_del(info, handle); });
  }
  jx_status_t setDefault(uint32_t handle, const std::string& action) {
    const void* const placed = data(PlacementKind::kMatchDefault, {}, action);
    return process([&](pipe_plcmt_info* info) {
      return pipe_set_one_plcmt_op_mat_set_dflt(info, handle, JX_PIPE_ALL, 0, 0, placed);
    });
  }
  jx_status_t clearDefault(uint32_t handle) {
    return process([&](pipe_plcmt_info* info) {
      return pipe_set_one_plcmt_op_mat_clr_dflt(info, handle, JX_PIPE_ALL);
    });
  }

 private:
  const void* data(PlacementKind kind, const Bytes& key, const std::string& action) {
    PlacementHeader header{};
    header.kind = kind;
    header.table_handle = state_.table->handle;
    const jxmodel::Action& found = *state_.program->actionByName(action);
    header.action_id = found.id;
    const Bytes params(found.param_bytes);
    return buffer_.write(header, key.data(), static_cast<uint32_t>(key.size()), params.data(),
                         found.param_bytes);
  }
  template <typename Set>
  jx_status_t process(const Set& set) {
    pipe_plcmt_info* const info = pipe_create_plcmt_info();
    EXPECT_EQ(set(info), JX_SUCCESS);
    uint32_t processed = 0;
    const auto session = twin_.physical.session().sessHandleGet();
    const jx_status_t status = pipe_process_plcmt_info(session, Twin::kPhysical,
                                                       state_.table->handle, info, 0, &processed);
    pipe_destroy_plcmt_info(info);
    return status;
  }

  Twin& twin_;
  const jxmodel::TableState& state_;
  jxmodel::PlacementBuffer buffer_;
};

/// Both devices hold the same; the physical one's dump.
std::vector<std::string> equalDumps(const Twin& twin) {
  EXPECT_EQ(twin.virt.dump(), twin.physical.dump());
  return twin.physical.dump();
}

// --- entries from the start

/// A table "t" of an exact key of 16 bits that has the keys 5, 3 and 9 from the start.
HandMade withEntries(uint32_t size = 8) {
  HandMade program("made");
  const uint32_t to = program.action("to", {8});
  const uint32_t table = program.table("t", {{kExact, 16}}, size, {to});
  for (const uint8_t key : std::initializer_list<uint8_t>{5, 3, 9}) {
    program.entry(table, {is({0, key})}, to, {static_cast<uint8_t>(key * 2)});
  }
  return program;
}

TEST(InitialEntries, AreThereInTheirOrderOnBothDevicesAndNotReported) {
  for (const uint32_t base : {0u, 1000u}) {
    Twin twin({withEntries().make()}, base);
    EXPECT_THAT(equalDumps(twin), ElementsAre("made.t: 1 key 0005 priority 0 ttl 0 to(0a)",
                                              "made.t: 2 key 0003 priority 0 ttl 0 to(06)",
                                              "made.t: 3 key 0009 priority 0 ttl 0 to(12)"));
    EXPECT_THAT(twin.reported, IsEmpty());
    const TableUser table(twin.virt, "t");
    EXPECT_EQ(table.usage(), 3U);
    EXPECT_EQ(table.add(table.key(3), table.data("to", {1})), JX_ALREADY_EXISTS);
  }
}

TEST(InitialEntries, AreModifiedAndDeletedLikeOthers) {
  Twin twin({withEntries().make()}, 1000);
  const TableUser table(twin.virt, "t");
  EXPECT_EQ(table.mod(table.key(3), table.data("to", {0x77})), JX_SUCCESS);
  EXPECT_EQ(table.del(table.key(9)), JX_SUCCESS);
  EXPECT_EQ(table.add(table.key(4), table.data("to", {0x44})), JX_SUCCESS);
  EXPECT_THAT(twin.reported, ElementsAre("match 5", "match 4", "match 0"));
  const auto dump = equalDumps(twin);
  EXPECT_EQ(dump.size(), 3U);
  EXPECT_THAT(dump, Contains("made.t: 2 key 0003 priority 0 ttl 0 to(77)"));
}

TEST(InitialEntries, TheirHandlesAreNobodyElses) {
  // The first partner's base is as low as it can be; the second's handles come behind its own.
  Twin twin({withEntries(5).make()}, 1);
  const TableUser table(twin.virt, "t");
  std::set<uint32_t> handles = {1, 2, 3};
  const auto add = [&](uint32_t key) {
    ASSERT_EQ(table.add(table.key(key), table.data("to", {1})), JX_SUCCESS);
    EXPECT_TRUE(handles.insert(table.handle(table.key(key))).second) << "of key " << key;
  };
  ASSERT_EQ(table.setDefault(table.data("to", {9})), JX_SUCCESS);
  EXPECT_TRUE(handles.insert(twin.words.at(0)).second);
  add(100);
  add(101);
  EXPECT_EQ(table.add(table.key(102), table.data("to", {1})), JX_NOT_ENOUGH_SPACE);
  // What takes the place of an initial entry has another handle, so that a partner which still has
  // that entry does not reach it.
  for (const uint32_t key : {5, 3, 9}) {
    const uint32_t before = table.handle(table.key(key));
    ASSERT_EQ(table.del(table.key(key)), JX_SUCCESS);
    add(200 + key);
    EXPECT_EQ(Stranger(twin, "t").modify(before, {0, static_cast<uint8_t>(key)}, "to"),
              JX_OBJECT_NOT_FOUND);
    EXPECT_EQ(Stranger(twin, "t").remove(before), JX_OBJECT_NOT_FOUND);
  }
  // Handles that were given out are used again.
  const uint32_t freed = table.handle(table.key(100));
  ASSERT_EQ(table.del(table.key(100)), JX_SUCCESS);
  ASSERT_EQ(table.add(table.key(103), table.data("to", {1})), JX_SUCCESS);
  EXPECT_EQ(table.handle(table.key(103)), freed);
  EXPECT_LE(*handles.rbegin(), 1U + 5 + 3);
  equalDumps(twin);
}

TEST(InitialEntries, OfTernaryTablesHaveTheirPriorityAndTheFirstWinsAmongEquals) {
  HandMade program("made");
  const uint32_t to = program.action("to", {8});
  const uint32_t table = program.table("t", {{kTernary, 8}}, 8, {to});
  program.entry(table, {under({0x10}, {0xF0})}, to, {1}, 5);
  program.entry(table, {under({0x01}, {0x0F})}, to, {2}, 5);
  program.entry(table, {under({0x10}, {0xFE})}, to, {3}, 9);
  // The key of the first one once more: nothing ever meets the lesser of the two.
  program.entry(table, {under({0x10}, {0xF0})}, to, {4}, 7);
  program.entry(table, {under({0x10}, {0xF0})}, to, {5}, 6);
  Twin twin({program.make()});
  const auto& match = *twin.physical.state("t").match;
  const auto hit = [&](uint8_t value) {
    const uint32_t slot = match.lookup(&value);
    return slot == jxmodel::kNoSlot ? 0 : match.resultOf(slot).action.params[0];
  };
  EXPECT_EQ(hit(0x11), 3);
  EXPECT_EQ(hit(0x1F), 4);
  EXPECT_EQ(hit(0x21), 2);
  EXPECT_EQ(hit(0x22), 0);
  EXPECT_EQ(equalDumps(twin).size(), 3U);
  const TableUser user(twin.virt, "t");
  EXPECT_EQ(user.usage(), 3U);
}

// --- what nobody may change

TEST(ConstantEntries, CannotBeChangedByAnyone) {
  HandMade program = withEntries();
  program[0].constant_entries = true;
  Twin twin({program.make()});
  const auto before = equalDumps(twin);
  const TableUser table(twin.virt, "t");
  EXPECT_EQ(table.add(table.key(100), table.data("to", {1})), JX_NOT_SUPPORTED);
  EXPECT_EQ(table.mod(table.key(5), table.data("to", {1})), JX_NOT_SUPPORTED);
  EXPECT_EQ(table.del(table.key(5)), JX_NOT_SUPPORTED);
  Stranger stranger(twin, "t");
  EXPECT_EQ(stranger.add(50, {0, 100}, "to"), JX_NOT_SUPPORTED);
  EXPECT_EQ(stranger.modify(1, {0, 5}, "to"), JX_NOT_SUPPORTED);
  EXPECT_EQ(stranger.remove(1), JX_NOT_SUPPORTED);
  EXPECT_THAT(twin.reported, IsEmpty());
  EXPECT_EQ(equalDumps(twin), before);
  // Its default is another matter.
  EXPECT_EQ(table.setDefault(table.data("to", {1})), JX_SUCCESS);
  EXPECT_EQ(table.clearDefault(), JX_SUCCESS);
}

TEST(ConstantEntries, DoNotMoveEither) {
  HandMade program("made");
  const uint32_t to = program.action("to", {8});
  const uint32_t table = program.table("t", {{kTernary, 8}}, 8, {to});
  program.entry(table, {under({1}, {0xFF})}, to, {1}, 5);
  program[table].constant_entries = true;
  Twin twin({program.make()});
  const TableUser user(twin.virt, "t");
  const auto key = user.key();
  ASSERT_EQ(key->setValueAndMask(1, 1, 0xFF), JX_SUCCESS);
  ASSERT_EQ(key->prioritySet(8), JX_SUCCESS);
  EXPECT_EQ(user.move(key), JX_NOT_SUPPORTED);
  EXPECT_THAT(twin.reported, IsEmpty());
}

TEST(ConstantDefault, CannotBeSetOrCleared) {
  HandMade program = withEntries();
  program[0].constant_default = true;
  Twin twin({program.make()});
  const auto before = equalDumps(twin);
  const TableUser table(twin.virt, "t");
  EXPECT_EQ(table.setDefault(table.data("to", {1})), JX_NOT_SUPPORTED);
  EXPECT_EQ(table.clearDefault(), JX_NOT_SUPPORTED);
  Stranger stranger(twin, "t");
  EXPECT_EQ(stranger.setDefault(50, "to"), JX_NOT_SUPPORTED);
  EXPECT_EQ(stranger.clearDefault(50), JX_NOT_SUPPORTED);
  EXPECT_THAT(twin.reported, IsEmpty());
  EXPECT_EQ(equalDumps(twin), before);
  EXPECT_EQ(table.add(table.key(100), table.data("to", {1})), JX_SUCCESS);
}

TEST(ActionScopes, AreKept) {
  HandMade program("made");
  const uint32_t any = program.action("any"), entry = program.action("entry");
  const uint32_t only_default = program.action("only_default");
  const uint32_t table = program.table("t", {{kExact, 16}}, 8, {any, entry, only_default});
  program[table].action_scopes = {ActionScope::kAnywhere, ActionScope::kEntriesOnly,
                                  ActionScope::kDefaultOnly};
  Twin twin({program.make()});
  const TableUser user(twin.virt, "t");
  EXPECT_EQ(user.add(user.key(1), user.data("only_default", {})), JX_INVALID_ARGUMENTS);
  EXPECT_EQ(user.setDefault(user.data("entry", {})), JX_INVALID_ARGUMENTS);
  Stranger stranger(twin, "t");
  EXPECT_EQ(stranger.add(50, {0, 1}, "only_default"), JX_INVALID_ARGUMENTS);
  EXPECT_EQ(stranger.setDefault(50, "entry"), JX_INVALID_ARGUMENTS);
  EXPECT_THAT(equalDumps(twin), IsEmpty());

  EXPECT_EQ(user.add(user.key(1), user.data("entry", {})), JX_SUCCESS);
  EXPECT_EQ(user.mod(user.key(1), user.data("only_default", {})), JX_INVALID_ARGUMENTS);
  EXPECT_EQ(stranger.modify(1, {0, 1}, "only_default"), JX_INVALID_ARGUMENTS);
  EXPECT_EQ(user.mod(user.key(1), user.data("any", {})), JX_SUCCESS);
  EXPECT_EQ(user.setDefault(user.data("only_default", {})), JX_SUCCESS);
  EXPECT_EQ(user.setDefault(user.data("any", {})), JX_SUCCESS);
  EXPECT_EQ(equalDumps(twin).size(), 2U);
}

// --- tables without a key

TEST(KeylessTable, HasADefaultAndNoEntries) {
  HandMade program("made");
  const uint32_t to = program.action("to", {8});
  program.table("t", {}, 1024, {to});
  Twin twin({program.make()});
  const TableUser user(twin.virt, "t");
  std::vector<jxrt::JxRtFieldInfo> fields;
  EXPECT_EQ((*user).keyFieldListGet(&fields), JX_SUCCESS);
  EXPECT_THAT(fields, IsEmpty());
  EXPECT_EQ(user.add(user.key(), user.data("to", {1})), JX_NOT_SUPPORTED);
  EXPECT_EQ(user.mod(user.key(), user.data("to", {1})), JX_NOT_SUPPORTED);
  EXPECT_EQ(user.del(user.key()), JX_NOT_SUPPORTED);
  EXPECT_EQ(user.get(user.key(), user.data()), JX_OBJECT_NOT_FOUND);
  EXPECT_EQ(Stranger(twin, "t").add(50, {}, "to"), JX_NOT_SUPPORTED);
  EXPECT_EQ((*user).keyReset(user.key().get()), JX_SUCCESS);

  ASSERT_EQ(user.setDefault(user.data("to", {7})), JX_SUCCESS);
  EXPECT_THAT(equalDumps(twin), ElementsAre("made.t: default 1 to(07)"));
  EXPECT_EQ(user.usage(), 0U);
  const auto data = user.data();
  ASSERT_EQ(user.getDefault(data), JX_SUCCESS);
  uint64_t value = 0;
  EXPECT_EQ(data->getValue(1, &value), JX_SUCCESS);
  EXPECT_EQ(value, 7U);
  // Packets miss, and get the default.
  for (const ModelDevice* device : {&twin.physical, &twin.virt}) {
    const auto applied = device->state("t").match->apply(nullptr);
    EXPECT_FALSE(applied.hit);
    ASSERT_NE(applied.slot, jxmodel::kNoSlot);
    EXPECT_EQ(applied.result.action.params[0], 7);
  }
  ASSERT_EQ(user.clearDefault(), JX_SUCCESS);
  EXPECT_THAT(equalDumps(twin), IsEmpty());
}

TEST(KeylessTable, MayHaveAMemberOrAGroupAsItsDefault) {
  HandMade program("made");
  const uint32_t to = program.action("to", {8});
  const uint32_t members = program.members("profile", 8, {to});
  const uint32_t groups = program.selector("profile_selector", 4, members, 4);
  program.indirect("by_member", {}, members);
  program.indirect("by_group", {}, members, groups);
  Twin twin({program.make()});
  const TableUser profile(twin.virt, "profile"), selector(twin.virt, "profile_selector");
  const TableUser by_member(twin.virt, "by_member"), by_group(twin.virt, "by_group");
  ASSERT_EQ(profile.add(profile.key(70), profile.data("to", {7})), JX_SUCCESS);
  ASSERT_EQ(selector.add(selector.key(80), selector.members({70})), JX_SUCCESS);
  EXPECT_EQ(by_member.setDefault(by_member.data()), JX_INVALID_ARGUMENTS);
  EXPECT_EQ(by_member.setDefault(by_member.data(kFieldMemberId, 71)), JX_OBJECT_NOT_FOUND);
  ASSERT_EQ(by_member.setDefault(by_member.data(kFieldMemberId, 70)), JX_SUCCESS);
  ASSERT_EQ(by_group.setDefault(by_group.data(kFieldGroupId, 80)), JX_SUCCESS);
  EXPECT_THAT(
      equalDumps(twin),
      ElementsAre("made.profile: 1/70 to(07)", "made.profile_selector: 1/80 max 0 members 1+",
                  "made.by_member: default 1 member 1/70", "made.by_group: default 1 group 1/80"));
  EXPECT_EQ(by_group.add(by_group.key(), by_group.data(kFieldMemberId, 70)), JX_NOT_SUPPORTED);

  // Another one of the other kind, and back again.
  ASSERT_EQ(by_group.setDefault(by_group.data(kFieldMemberId, 70)), JX_SUCCESS);
  EXPECT_EQ(selector.del(selector.key(80)), JX_SUCCESS);
  ASSERT_EQ(by_member.clearDefault(), JX_SUCCESS);
  EXPECT_EQ(profile.del(profile.key(70)), JX_ACTION_DATA_REFERENCED);
  ASSERT_EQ(by_group.clearDefault(), JX_SUCCESS);
  EXPECT_EQ(profile.del(profile.key(70)), JX_SUCCESS);
  EXPECT_THAT(equalDumps(twin), IsEmpty());
}

// --- one profile behind several tables

TEST(SharedProfile, IsReferredToByAllItsTables) {
  HandMade program("made");
  const uint32_t to = program.action("to", {8});
  const uint32_t members = program.members("profile", 3, {to});
  const uint32_t groups = program.selector("profile_selector", 4, members, 4);
  program.indirect("exact", {{kExact, 16}}, members, groups);
  program.indirect("lpm", {{kExact, 8}, {kLpm, 32}}, members, groups);
  program.indirect("plain", {{kTernary, 8}}, members);
  Twin twin({program.make()}, 500);
  const TableUser profile(twin.virt, "profile"), selector(twin.virt, "profile_selector");
  const TableUser exact(twin.virt, "exact"), lpm(twin.virt, "lpm"), plain(twin.virt, "plain");
  for (const uint32_t id : {1, 2, 3}) {
    ASSERT_EQ(profile.add(profile.key(id), profile.data("to", {id})), JX_SUCCESS);
  }
  EXPECT_EQ(profile.add(profile.key(4), profile.data("to", {4})), JX_NOT_ENOUGH_SPACE);
  ASSERT_EQ(selector.add(selector.key(9), selector.members({1, 2})), JX_SUCCESS);
  ASSERT_EQ(exact.add(exact.key(7), exact.data(kFieldGroupId, 9)), JX_SUCCESS);
  ASSERT_EQ(lpm.setDefault(lpm.data(kFieldGroupId, 9)), JX_SUCCESS);
  ASSERT_EQ(lpm.add(lpm.key(1), lpm.data(kFieldMemberId, 3)), JX_SUCCESS);
  ASSERT_EQ(plain.add(plain.key(), plain.data(kFieldMemberId, 3)), JX_SUCCESS);
  EXPECT_EQ(profile.usage(), 3U);
  EXPECT_EQ(equalDumps(twin).size(), 8U);

  // In use as long as one table refers to it.
  ASSERT_EQ(exact.del(exact.key(7)), JX_SUCCESS);
  EXPECT_EQ(selector.del(selector.key(9)), JX_IN_USE);
  ASSERT_EQ(lpm.clearDefault(), JX_SUCCESS);
  ASSERT_EQ(selector.del(selector.key(9)), JX_SUCCESS);
  ASSERT_EQ(lpm.del(lpm.key(1)), JX_SUCCESS);
  EXPECT_EQ(profile.del(profile.key(3)), JX_ACTION_DATA_REFERENCED);
  ASSERT_EQ(plain.del(plain.key()), JX_SUCCESS);
  for (const uint32_t id : {1, 2, 3}) EXPECT_EQ(profile.del(profile.key(id)), JX_SUCCESS);
  EXPECT_THAT(equalDumps(twin), IsEmpty());
}

// --- ids that an author gives

TEST(GivenIds, AreNoPositions) {
  HandMade program("made");
  const uint32_t to = program.action("to", {8, 16, 32});
  const uint32_t table = program.table("t", {{kExact, 8}, {kExact, 16}, {kExact, 32}}, 8, {to});
  const uint32_t ids[] = {9, 1, 2};
  for (size_t i = 0; i < 3; ++i) program[table].key[i].id = ids[i];
  for (size_t i = 0; i < 3; ++i) program.param(to, i).id = ids[i];
  Twin twin({program.make()});
  const TableUser user(twin.virt, "t");
  const auto key = user.key();
  const auto data = user.data("to", {});
  EXPECT_EQ(key->setValue(3, 1), JX_INVALID_ARGUMENTS);
  EXPECT_EQ(data->setValue(3, 1), JX_INVALID_ARGUMENTS);
  for (const uint32_t id : {1, 2, 9}) {
    ASSERT_EQ(key->setValue(id, id * 16), JX_SUCCESS);
    bool set = true;
    EXPECT_EQ(data->isActive(id, &set), JX_SUCCESS);
    EXPECT_FALSE(set);
    ASSERT_EQ(data->setValue(id, id * 16 + 1), JX_SUCCESS);
  }
  ASSERT_EQ(user.add(key, data), JX_SUCCESS);
  EXPECT_THAT(equalDumps(twin),
              ElementsAre("made.t: 1 key 90001000000020 priority 0 ttl 0 to(91001100000021)"));
}

}  // namespace
}  // namespace jxmodeltest
