// Placement operations on a physical device, by hand: every status, and nothing half applied.
#include <gtest/gtest.h>

#include <cstring>

#include "jxsdk/pipe_mgr.h"
#include "model/placement/placement.h"
#include "unit/model/model_device.h"

namespace jxmodeltest {
namespace {

using jxmodel::PlacementBuffer;
using jxmodel::PlacementHeader;
using jxmodel::PlacementKind;

class ProcessTest : public testing::Test {
 protected:
  static constexpr jx_dev_id_t kDevice = 20;

  void SetUp() override {
    ASSERT_EQ(addMember(100, 1), JX_SUCCESS);
    ASSERT_EQ(createGroup(200, 1, {}), JX_SUCCESS);
    before_ = device_.dump();
  }

  uint32_t tableHandle(const std::string& name) const { return device_.state(name).table->handle; }
  uint32_t actionId(const std::string& name) const {
    return device_.state("exact").program->actionByName(name)->id;
  }
  const void* data(PlacementKind kind, const std::string& table, const std::string& action,
                   const Bytes& key, const Bytes& params) {
    PlacementHeader header{};
    header.kind = kind;
    header.table_handle = tableHandle(table);
    header.action_id = action.empty() ? 0 : actionId(action);
    header.target_id = target_id_;
    header.ttl_ms = ttl_ms_;
    return buffer_.write(header, key.data(), static_cast<uint32_t>(key.size()), params.data(),
                         static_cast<uint32_t>(params.size()));
  }

  /// Sets an operation and processes it.
  template <typename Set>
  jx_status_t process(const std::string& table, const Set& set) {
    pipe_plcmt_info* const info = pipe_create_plcmt_info();
    EXPECT_EQ(set(info), JX_SUCCESS);
    uint32_t processed = 99;
    const jx_status_t status = pipe_process_plcmt_info(device_.session().sessHandleGet(), kDevice,
                                                       tableHandle(table), info, 0, &processed);
    EXPECT_EQ(processed, status == JX_SUCCESS ? 1U : 99U);
    pipe_destroy_plcmt_info(info);
    return status;
  }

  jx_status_t addMatch(uint32_t handle, const std::string& table, const void* placed,
                       uint32_t group = 0, uint32_t member = 0, uint32_t priority = 0) {
    return process(table, [&](pipe_plcmt_info* info) {
      return pipe_set_one_plcmt_op_mat_add(info, handle, 0, priority, group, member, placed);
    });
  }
  jx_status_t addExact(uint32_t handle, const Bytes& key, const std::string& action = "nop",
                       const Bytes& params = {}) {
    return addMatch(handle, "exact", data(PlacementKind::kMatch, "exact", action, key, params));
  }
  jx_status_t addMember(uint32_t handle, uint32_t id) {
    target_id_ = id;
    const void* const placed = data(PlacementKind::kMember, "members", "send", {}, Bytes(12));
    return process("members", [&](pipe_plcmt_info* info) {
      return pipe_set_one_plcmt_op_adt_add(info, handle, 0, placed);
    });
  }
  jx_status_t createGroup(uint32_t handle, uint32_t id, std::vector<pipe_sel_element> elements,
                          uint32_t max_members = 0) {
    return process("groups", [&](pipe_plcmt_info* info) {
      return pipe_set_one_plcmt_op_sel_grp_create(
          info, handle, 0, max_members, id, tableHandle("members"),
          static_cast<uint32_t>(elements.size()), elements.data());
    });
  }
  jx_status_t addToGroup(uint32_t group, uint32_t member, uint32_t active = 1) {
    const void* const placed = data(PlacementKind::kGroupMember, "groups", "send", {}, Bytes(12));
    return process("groups", [&](pipe_plcmt_info* info) {
      return pipe_set_one_plcmt_op_sel_add(info, group, member, 0, tableHandle("members"), active,
                                           placed);
    });
  }
  void expectUnchanged() { EXPECT_EQ(device_.dump(), before_); }

  ModelDevice device_{kDevice, ModelDevice::Kind::kPhysical, {everyKind()}};
  PlacementBuffer buffer_;
  uint32_t target_id_ = 0;
  uint32_t ttl_ms_ = 0;
  std::vector<std::string> before_;
};

const Bytes kKey = {0, 0, 0, 0, 0, 7, 0, 1};

TEST_F(ProcessTest, SessionsDevicesAndTablesAreLookedUp) {
  pipe_plcmt_info* const info = pipe_create_plcmt_info();
  ASSERT_EQ(pipe_set_one_plcmt_op_mat_del(info, 1), JX_SUCCESS);
  const uint32_t session = device_.session().sessHandleGet();
  const uint32_t table = tableHandle("exact");
  uint32_t count = 0;
  const ModelDevice other(21, ModelDevice::Kind::kVirtual, {everyKind()});
  EXPECT_EQ(pipe_process_plcmt_info(0, kDevice, table, info, 0, &count), JX_SESSION_NOT_FOUND);
  EXPECT_EQ(pipe_process_plcmt_info(session, 99, table, info, 0, &count), JX_OBJECT_NOT_FOUND);
  EXPECT_EQ(pipe_process_plcmt_info(session, 21, table, info, 0, &count), JX_NOT_SUPPORTED);
  EXPECT_EQ(pipe_process_plcmt_info(session, kDevice, 5, info, 0, &count), JX_TABLE_NOT_FOUND);
  EXPECT_EQ(pipe_process_plcmt_info(session, kDevice, table, info, 1, &count),
            JX_INVALID_ARGUMENTS);
  EXPECT_EQ(pipe_process_plcmt_info(session, kDevice, table, nullptr, 0, &count),
            JX_INVALID_ARGUMENTS);
  EXPECT_EQ(pipe_process_plcmt_info(session, kDevice, table, info, 0, &count), JX_OBJECT_NOT_FOUND);
  pipe_destroy_plcmt_info(info);
  pipe_destroy_plcmt_info(nullptr);
}

TEST_F(ProcessTest, AnInfoHoldsOneOperation) {
  pipe_plcmt_info* const info = pipe_create_plcmt_info();
  uint32_t count = 99;
  EXPECT_EQ(pipe_process_plcmt_info(device_.session().sessHandleGet(), kDevice,
                                    tableHandle("exact"), info, 0, &count),
            JX_SUCCESS);
  EXPECT_EQ(count, 0U);
  EXPECT_EQ(pipe_set_one_plcmt_op_mat_add(info, 1, 0, 0, 0, 0, nullptr), JX_INVALID_ARGUMENTS);
  const void* const member = data(PlacementKind::kMember, "members", "nop", {}, {});
  EXPECT_EQ(pipe_set_one_plcmt_op_mat_add(info, 1, 0, 0, 0, 0, member), JX_INVALID_ARGUMENTS);
  EXPECT_EQ(pipe_set_one_plcmt_op_sel_set_fallback(info, 1, 0, member), JX_INVALID_ARGUMENTS);
  EXPECT_EQ(pipe_set_one_plcmt_op_adt_add(info, 1, 0, member), JX_SUCCESS);
  EXPECT_EQ(pipe_set_one_plcmt_op_adt_add(info, 1, 0, member), JX_ALREADY_EXISTS);
  EXPECT_EQ(pipe_set_one_plcmt_op_mat_del(info, 1), JX_ALREADY_EXISTS);
  EXPECT_EQ(pipe_set_one_plcmt_op_mat_del(nullptr, 1), JX_INVALID_ARGUMENTS);
  pipe_destroy_plcmt_info(info);
  // An info that comes out of the pool is fresh.
  pipe_plcmt_info* const fresh = pipe_create_plcmt_info();
  EXPECT_EQ(pipe_set_one_plcmt_op_mat_del(fresh, 1), JX_SUCCESS);
  pipe_destroy_plcmt_info(fresh);
}

TEST_F(ProcessTest, HandlesAndKeysAreTakenOnce) {
  ASSERT_EQ(addExact(1, kKey), JX_SUCCESS);
  before_ = device_.dump();
  EXPECT_EQ(addExact(1, {0, 0, 0, 0, 0, 8, 0, 1}), JX_ALREADY_EXISTS);
  EXPECT_EQ(addExact(2, kKey), JX_ALREADY_EXISTS);
  EXPECT_EQ(addMember(100, 2), JX_ALREADY_EXISTS);
  EXPECT_EQ(createGroup(200, 2, {}), JX_ALREADY_EXISTS);
  expectUnchanged();
  // A refused add leaves neither its handle nor its key behind.
  EXPECT_EQ(addExact(2, {0, 0, 0, 0, 0, 8, 0, 1}), JX_SUCCESS);
}

TEST_F(ProcessTest, WritersMayUseTheSameNumbersForTheirMembers) {
  EXPECT_EQ(addMember(101, 1), JX_SUCCESS);
  EXPECT_EQ(createGroup(201, 1, {}), JX_SUCCESS);
  EXPECT_EQ(TableUser(device_, "members").usage(), 2U);
}

TEST_F(ProcessTest, KeysHaveToBeOfTheTableAndCanonical) {
  EXPECT_EQ(addExact(1, {1, 2, 3}), JX_INVALID_ARGUMENTS);
  EXPECT_EQ(addExact(1, {0, 0, 0, 0, 0, 7, 2, 0}), JX_INVALID_ARGUMENTS);  // 9 bits wide
  EXPECT_EQ(addExact(0, kKey), JX_INVALID_ARGUMENTS);
  const auto acl = [this](const Bytes& key) {
    return addMatch(1, "acl", data(PlacementKind::kMatch, "acl", "nop", key, {}));
  };
  //                   ternary and mask        low, high   optional
  const Bytes sound = {1, 0, 0, 0, 255, 0, 0, 0, 0, 5, 0, 9, 0, 80, 1};
  const auto with = [&sound](size_t index, uint8_t value) {
    Bytes key = sound;
    key[index] = value;
    return key;
  };
  EXPECT_EQ(acl(with(1, 1)), JX_INVALID_ARGUMENTS);   // value outside its mask
  EXPECT_EQ(acl(with(8, 1)), JX_INVALID_ARGUMENTS);   // low above high
  EXPECT_EQ(acl(with(14, 2)), JX_INVALID_ARGUMENTS);  // neither valid nor invalid
  EXPECT_EQ(acl(with(14, 0)), JX_INVALID_ARGUMENTS);  // a value that does not count
  const auto lpm = [this](const Bytes& key) {
    return addMatch(1, "lpm", data(PlacementKind::kMatch, "lpm", "", key, {}), 200);
  };
  EXPECT_EQ(lpm({10, 0, 0, 1, 8}), JX_INVALID_ARGUMENTS);   // value behind its prefix
  EXPECT_EQ(lpm({10, 0, 0, 0, 33}), JX_INVALID_ARGUMENTS);  // prefix longer than the field
  expectUnchanged();
  EXPECT_EQ(acl(sound), JX_SUCCESS);
}

TEST_F(ProcessTest, ActionsHaveToBeOfTheTable) {
  EXPECT_EQ(addExact(1, kKey, "send", Bytes(11)), JX_INVALID_ARGUMENTS);
  EXPECT_EQ(addExact(1, kKey, "send", Bytes(12, 0xFF)), JX_INVALID_ARGUMENTS);  // port: 9 bits
  EXPECT_EQ(addExact(1, kKey, "", {}), JX_INVALID_ARGUMENTS);
  EXPECT_EQ(addMatch(1, "exact", data(PlacementKind::kMatch, "lpm", "nop", kKey, {})),
            JX_INVALID_ARGUMENTS);
  const void* const placed = data(PlacementKind::kMatch, "exact", "nop", kKey, {});
  EXPECT_EQ(addMatch(1, "exact", placed, 0, 100), JX_INVALID_ARGUMENTS);
  EXPECT_EQ(addMatch(1, "exact", placed, 0, 0, 5), JX_INVALID_ARGUMENTS);  // no priorities here
  expectUnchanged();
  EXPECT_EQ(addExact(1, kKey, "send", Bytes(12)), JX_SUCCESS);
}

TEST_F(ProcessTest, OnlyTablesThatAgeTakeATtl) {
  ttl_ms_ = 100;
  EXPECT_EQ(addMatch(1, "acl", data(PlacementKind::kMatch, "acl", "nop", Bytes(15), {})),
            JX_INVALID_ARGUMENTS);
  EXPECT_EQ(addExact(1, kKey), JX_SUCCESS);
}

TEST_F(ProcessTest, ReferencesHaveToBeThere) {
  const Bytes key = {10, 0, 0, 0, 8};
  const auto add = [&](uint32_t group, uint32_t member) {
    return addMatch(1, "lpm", data(PlacementKind::kMatch, "lpm", "", key, {}), group, member);
  };
  EXPECT_EQ(add(0, 0), JX_INVALID_ARGUMENTS);
  EXPECT_EQ(add(200, 100), JX_INVALID_ARGUMENTS);
  EXPECT_EQ(add(0, 101), JX_OBJECT_NOT_FOUND);
  EXPECT_EQ(add(201, 0), JX_OBJECT_NOT_FOUND);
  EXPECT_EQ(addMatch(1, "via_member", data(PlacementKind::kMatch, "via_member", "", Bytes(19), {}),
                     200, 0),
            JX_INVALID_ARGUMENTS);
  expectUnchanged();
  EXPECT_EQ(add(200, 0), JX_SUCCESS);
  EXPECT_EQ(process("groups",
                    [](pipe_plcmt_info* info) {
                      return pipe_set_one_plcmt_op_sel_grp_destroy(info, 200, 0);
                    }),
            JX_IN_USE);
}

TEST_F(ProcessTest, UnknownHandlesAreRefused) {
  const void* const placed = data(PlacementKind::kMatch, "exact", "nop", kKey, {});
  const auto exact = [&](auto set) { return process("exact", set); };
  EXPECT_EQ(exact([](auto* info) { return pipe_set_one_plcmt_op_mat_del(info, 5); }),
            JX_OBJECT_NOT_FOUND);
  EXPECT_EQ(exact([&](auto* info) { return pipe_set_one_plcmt_op_mat_mod(info, 5, 0, 0, placed); }),
            JX_OBJECT_NOT_FOUND);
  EXPECT_EQ(exact([](auto* info) { return pipe_set_one_plcmt_op_mat_clr_dflt(info, 5, 0); }),
            JX_OBJECT_NOT_FOUND);
  EXPECT_EQ(
      exact([&](auto* info) { return pipe_set_one_plcmt_op_mat_mov(info, 5, 1, 0, 0, placed); }),
      JX_INVALID_ARGUMENTS);  // no priorities here
  EXPECT_EQ(process("members", [](auto* info) { return pipe_set_one_plcmt_op_adt_del(info, 5); }),
            JX_OBJECT_NOT_FOUND);
  const auto groups = [&](auto set) { return process("groups", set); };
  EXPECT_EQ(groups([](auto* info) { return pipe_set_one_plcmt_op_sel_grp_destroy(info, 5, 0); }),
            JX_OBJECT_NOT_FOUND);
  EXPECT_EQ(groups([](auto* info) { return pipe_set_one_plcmt_op_sel_clr_fallback(info, 0); }),
            JX_OBJECT_NOT_FOUND);
  EXPECT_EQ(groups([&](auto* info) {
              return pipe_set_one_plcmt_op_sel_activate(info, 200, 100, 0, tableHandle("members"),
                                                        1);
            }),
            JX_OBJECT_NOT_FOUND);  // not in the group
  EXPECT_EQ(groups([](auto* info) {
              return pipe_set_one_plcmt_op_sel_deactivate(info, 200, 100, 0, 5, 0);
            }),
            JX_INVALID_ARGUMENTS);  // no table of members
  expectUnchanged();
}

TEST_F(ProcessTest, OperationsHaveToSuitTheTable) {
  EXPECT_EQ(process("members", [](auto* info) { return pipe_set_one_plcmt_op_mat_del(info, 5); }),
            JX_INVALID_ARGUMENTS);
  EXPECT_EQ(process("exact", [](auto* info) { return pipe_set_one_plcmt_op_adt_del(info, 5); }),
            JX_INVALID_ARGUMENTS);
  EXPECT_EQ(process("groups", [](auto* info) { return pipe_set_one_plcmt_op_adt_del(info, 5); }),
            JX_INVALID_ARGUMENTS);
  EXPECT_EQ(process("counters", [](auto* info) { return pipe_set_one_plcmt_op_mat_del(info, 5); }),
            JX_INVALID_ARGUMENTS);
}

TEST_F(ProcessTest, ModifyAndMoveAreAboutTheEntryOfTheKey) {
  ASSERT_EQ(addExact(1, kKey), JX_SUCCESS);
  before_ = device_.dump();
  const void* const placed =
      data(PlacementKind::kMatch, "exact", "send", {0, 0, 0, 0, 0, 8, 0, 1}, Bytes(12));
  EXPECT_EQ(
      process("exact",
              [&](auto* info) { return pipe_set_one_plcmt_op_mat_mod(info, 1, 0, 0, placed); }),
      JX_INVALID_ARGUMENTS);
  expectUnchanged();
}

TEST_F(ProcessTest, DefaultsAreSetUnderAHandleOfTheirOwn) {
  ASSERT_EQ(addExact(1, kKey), JX_SUCCESS);
  const auto set = [this](uint32_t handle) {
    const void* const placed = data(PlacementKind::kMatchDefault, "exact", "nop", {}, {});
    return process("exact", [&](auto* info) {
      return pipe_set_one_plcmt_op_mat_set_dflt(info, handle, 0, 0, 0, placed);
    });
  };
  const auto clear = [this](uint32_t handle) {
    return process("exact",
                   [&](auto* info) { return pipe_set_one_plcmt_op_mat_clr_dflt(info, handle, 0); });
  };
  EXPECT_EQ(set(0), JX_INVALID_ARGUMENTS);
  EXPECT_EQ(set(1), JX_ALREADY_EXISTS);
  ASSERT_EQ(set(2), JX_SUCCESS);
  ASSERT_EQ(set(2), JX_SUCCESS);
  EXPECT_EQ(addExact(2, {0, 0, 0, 0, 0, 8, 0, 1}), JX_ALREADY_EXISTS);
  ASSERT_EQ(set(3), JX_SUCCESS);  // another writer's: the last one counts
  EXPECT_EQ(clear(2), JX_OBJECT_NOT_FOUND);
  EXPECT_EQ(process("exact", [](auto* info) { return pipe_set_one_plcmt_op_mat_del(info, 3); }),
            JX_OBJECT_NOT_FOUND);
  EXPECT_EQ(addExact(2, {0, 0, 0, 0, 0, 8, 0, 1}), JX_SUCCESS);
  ASSERT_EQ(clear(3), JX_SUCCESS);
  EXPECT_EQ(clear(3), JX_OBJECT_NOT_FOUND);
}

TEST_F(ProcessTest, FullTablesAndGroupsTakeNoMore) {
  for (uint8_t i = 0; i < 8; ++i) {
    ASSERT_EQ(addExact(1 + i, {0, 0, 0, 0, 0, i, 0, 1}), JX_SUCCESS);
  }
  EXPECT_EQ(addExact(50, kKey), JX_ALREADY_EXISTS);
  EXPECT_EQ(addExact(50, {0, 0, 0, 0, 0, 99, 0, 1}), JX_NOT_ENOUGH_SPACE);
  EXPECT_EQ(createGroup(201, 2, {{100, 1}, {100, 0}}), JX_ALREADY_EXISTS);
  EXPECT_EQ(createGroup(201, 2, {{100, 2}}), JX_INVALID_ARGUMENTS);
  EXPECT_EQ(createGroup(201, 2, {{105, 1}}), JX_OBJECT_NOT_FOUND);
  EXPECT_EQ(createGroup(201, 2, std::vector<pipe_sel_element>(7)), JX_NOT_ENOUGH_SPACE);
  ASSERT_EQ(addMember(101, 2), JX_SUCCESS);
  ASSERT_EQ(createGroup(201, 2, {{100, 1}}, 1), JX_SUCCESS);
  EXPECT_EQ(addToGroup(201, 101), JX_NOT_ENOUGH_SPACE);
  EXPECT_EQ(addToGroup(201, 100), JX_ALREADY_EXISTS);
  EXPECT_EQ(addToGroup(200, 101, 2), JX_INVALID_ARGUMENTS);
  EXPECT_EQ(addToGroup(200, 101), JX_SUCCESS);
  EXPECT_EQ(process("members", [](auto* info) { return pipe_set_one_plcmt_op_adt_del(info, 101); }),
            JX_ACTION_DATA_REFERENCED);
}

TEST_F(ProcessTest, ElementsNeedNoAlignment) {
  ASSERT_EQ(addMember(101, 2), JX_SUCCESS);
  const pipe_sel_element elements[] = {{101, 1}, {100, 0}};
  uint8_t bytes[1 + sizeof elements];
  std::memcpy(bytes + 1, elements, sizeof elements);
  const auto* const odd = reinterpret_cast<const pipe_sel_element*>(bytes + 1);
  EXPECT_EQ(process("groups",
                    [&](auto* info) {
                      return pipe_set_one_plcmt_op_sel_grp_create(info, 7, 0, 0, 3,
                                                                  tableHandle("members"), 2, odd);
                    }),
            JX_SUCCESS);
  EXPECT_EQ(device_.dump().back(), "every_kind.groups: 7/3 max 0 members 101+ 100-");
}

}  // namespace
}  // namespace jxmodeltest
