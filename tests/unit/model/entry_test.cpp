// Entries of match and action-data tables on a virtual device: every status, and what is reported.
#include <gtest/gtest.h>

#include "unit/model/twin.h"

namespace jxmodeltest {
namespace {

using jxmodel::kFieldGroupId;
using jxmodel::kFieldMemberId;
using jxmodel::kFieldTtl;
using Lines = std::vector<std::string>;

class EntryTest : public testing::Test {
 protected:
  void TearDown() override { EXPECT_EQ(twin_.virt.dump(), twin_.physical.dump()); }
  void addMember(uint32_t id) {
    ASSERT_EQ(members_.add(members_.key(id), members_.data("send", {id, 2})), JX_SUCCESS);
  }

  Twin twin_{{everyKind()}, 500};
  TableUser exact_{twin_.virt, "exact"};
  TableUser lpm_{twin_.virt, "lpm"};
  TableUser acl_{twin_.virt, "acl"};
  TableUser members_{twin_.virt, "members"};
  TableUser groups_{twin_.virt, "groups"};
};

TEST_F(EntryTest, AddIsStoredAndReportedWithItsWords) {
  auto data = exact_.data("send", {3, 4});
  ASSERT_EQ(data->setValue(kFieldTtl, uint64_t{250}), JX_SUCCESS);
  ASSERT_EQ(exact_.add(exact_.key(7), data), JX_SUCCESS);
  EXPECT_EQ(twin_.reported, Lines{"match 0"});
  uint32_t action = 0;
  ASSERT_EQ(data->actionIdGet(&action), JX_SUCCESS);
  // handle, ttl, priority, action, member, its table, selector, group, key bytes, param bytes
  EXPECT_EQ(twin_.words, (std::vector<uint32_t>{500, 250, 0, action, 0, 0, 0, 0, 8, 12}));
  EXPECT_EQ(twin_.packed_bytes, 32U + 8 + 12);
  auto read = exact_.data();
  ASSERT_EQ(exact_.get(exact_.key(7), read), JX_SUCCESS);
  uint64_t number = 0;
  ASSERT_EQ(read->getValue(2, &number), JX_SUCCESS);
  EXPECT_EQ(number, 4U);
  ASSERT_EQ(read->getValue(kFieldTtl, &number), JX_SUCCESS);
  EXPECT_EQ(number, 250U);
  EXPECT_EQ(exact_.usage(), 1U);
}

TEST_F(EntryTest, RefusedWritesAreNotReported) {
  ASSERT_EQ(exact_.add(exact_.key(7), exact_.data("nop", {})), JX_SUCCESS);
  EXPECT_EQ(exact_.add(exact_.key(7), exact_.data("nop", {})), JX_ALREADY_EXISTS);
  EXPECT_EQ(exact_.add(exact_.key(8), exact_.data("send", {3})), JX_INVALID_ARGUMENTS);
  EXPECT_EQ(exact_.add(exact_.key(8), exact_.data()), JX_INVALID_ARGUMENTS);
  EXPECT_EQ(exact_.add(acl_.key(), exact_.data("nop", {})), JX_INVALID_ARGUMENTS);
  EXPECT_EQ(exact_.add(exact_.key(8), acl_.data("nop", {})), JX_INVALID_ARGUMENTS);
  EXPECT_EQ(exact_.mod(exact_.key(8), exact_.data("nop", {})), JX_OBJECT_NOT_FOUND);
  EXPECT_EQ(exact_.del(exact_.key(8)), JX_OBJECT_NOT_FOUND);
  EXPECT_EQ(exact_.get(exact_.key(8), exact_.data()), JX_OBJECT_NOT_FOUND);
  EXPECT_EQ(exact_.move(exact_.key(7)), JX_NOT_SUPPORTED);
  EXPECT_EQ(acl_.move(acl_.key()), JX_OBJECT_NOT_FOUND);
  EXPECT_EQ(members_.setDefault(members_.data("nop", {})), JX_NOT_SUPPORTED);
  EXPECT_EQ(members_.setFallback(1), JX_NOT_SUPPORTED);
  EXPECT_EQ(exact_.groupAdd(1, 1), JX_NOT_SUPPORTED);
  EXPECT_EQ(twin_.reported, Lines{"match 0"});
}

TEST_F(EntryTest, TargetsAndFlagsAreChecked) {
  jx_rt_target_t target = twin_.virt.target();
  target.dev_id = Twin::kPhysical;
  const auto& session = twin_.virt.session();
  EXPECT_EQ((*exact_).tableEntryDel(session, target, 0, *exact_.key(1)), JX_INVALID_ARGUMENTS);
  EXPECT_EQ((*exact_).tableEntryDel(session, twin_.virt.target(), 1, *exact_.key(1)),
            JX_INVALID_ARGUMENTS);
  uint32_t count = 0;
  EXPECT_EQ((*exact_).tableUsageGet(session, twin_.virt.target(), JX_RT_FLAG_FROM_HARDWARE, &count),
            JX_SUCCESS);
  EXPECT_EQ((*exact_).tableUsageGet(session, twin_.virt.target(), 2, &count), JX_INVALID_ARGUMENTS);
}

TEST_F(EntryTest, AFullTableTakesNoMoreButStillHasItsDefault) {
  for (uint64_t i = 0; i < 8; ++i) {
    ASSERT_EQ(exact_.add(exact_.key(i), exact_.data("nop", {})), JX_SUCCESS);
  }
  EXPECT_EQ(exact_.add(exact_.key(9), exact_.data("nop", {})), JX_NOT_ENOUGH_SPACE);
  EXPECT_EQ(exact_.add(exact_.key(3), exact_.data("nop", {})), JX_ALREADY_EXISTS);
  EXPECT_EQ(exact_.setDefault(exact_.data("send", {1, 2})), JX_SUCCESS);
  EXPECT_EQ(exact_.usage(), 8U);
  ASSERT_EQ(exact_.del(exact_.key(3)), JX_SUCCESS);
  EXPECT_EQ(exact_.add(exact_.key(9), exact_.data("nop", {})), JX_SUCCESS);
}

TEST_F(EntryTest, HandlesOfDeletedEntriesAreUsedAgain) {
  for (uint64_t i = 0; i < 4; ++i) {
    ASSERT_EQ(exact_.add(exact_.key(i), exact_.data("nop", {})), JX_SUCCESS);
    EXPECT_EQ(exact_.handle(exact_.key(i)), 500 + i);
  }
  ASSERT_EQ(exact_.del(exact_.key(2)), JX_SUCCESS);
  ASSERT_EQ(exact_.add(exact_.key(77), exact_.data("nop", {})), JX_SUCCESS);
  EXPECT_EQ(exact_.handle(exact_.key(77)), 502U);
}

TEST_F(EntryTest, ModifyKeepsTheTtlUnlessItIsGiven) {
  auto data = exact_.data("nop", {});
  ASSERT_EQ(data->setValue(kFieldTtl, uint64_t{250}), JX_SUCCESS);
  ASSERT_EQ(exact_.add(exact_.key(7), data), JX_SUCCESS);
  ASSERT_EQ(exact_.mod(exact_.key(7), exact_.data("send", {1, 2})), JX_SUCCESS);
  EXPECT_EQ(twin_.reported.back(), "match 5");
  EXPECT_EQ(twin_.words[0], 500U);
  EXPECT_EQ(twin_.physical.dump().front(),
            "every_kind.exact: 500 key 0000000000070000 priority 0 ttl 250 "
            "send(000100000000000200000005)");
}

TEST_F(EntryTest, AnEntryRefersToExactlyOneMemberOrGroup) {
  addMember(1);
  ASSERT_EQ(groups_.add(groups_.key(1), groups_.members({1})), JX_SUCCESS);
  auto both = lpm_.data(kFieldMemberId, 1);
  ASSERT_EQ(both->setValue(kFieldGroupId, uint64_t{1}), JX_SUCCESS);
  const auto key = lpm_.prefix(0x0A000000, 8);
  EXPECT_EQ(lpm_.add(key, both), JX_INVALID_ARGUMENTS);
  EXPECT_EQ(lpm_.add(key, lpm_.data()), JX_INVALID_ARGUMENTS);
  EXPECT_EQ(lpm_.add(key, lpm_.data(kFieldMemberId, 2)), JX_OBJECT_NOT_FOUND);
  EXPECT_EQ(lpm_.add(key, lpm_.data(kFieldGroupId, 2)), JX_OBJECT_NOT_FOUND);
  ASSERT_EQ(lpm_.add(key, lpm_.data(kFieldGroupId, 1)), JX_SUCCESS);
  EXPECT_EQ(twin_.packed_bytes, 32U + 5);
  uint64_t number = 0;
  auto read = lpm_.data();
  ASSERT_EQ(lpm_.get(key, read), JX_SUCCESS);
  EXPECT_EQ(read->getValue(kFieldGroupId, &number), JX_SUCCESS);
  EXPECT_EQ(read->getValue(kFieldMemberId, &number), JX_OBJECT_NOT_FOUND);
}

TEST_F(EntryTest, WhatIsReferredToStays) {
  addMember(1);
  ASSERT_EQ(groups_.add(groups_.key(1), groups_.members({})), JX_SUCCESS);
  const auto a = lpm_.prefix(0x0A000000, 8), b = lpm_.prefix(0x0B000000, 8);
  ASSERT_EQ(lpm_.add(a, lpm_.data(kFieldMemberId, 1)), JX_SUCCESS);
  ASSERT_EQ(lpm_.add(b, lpm_.data(kFieldGroupId, 1)), JX_SUCCESS);
  EXPECT_EQ(members_.del(members_.key(1)), JX_ACTION_DATA_REFERENCED);
  EXPECT_EQ(groups_.del(groups_.key(1)), JX_IN_USE);
  ASSERT_EQ(lpm_.mod(a, lpm_.data(kFieldGroupId, 1)), JX_SUCCESS);
  EXPECT_EQ(members_.del(members_.key(1)), JX_SUCCESS);
  ASSERT_EQ(lpm_.del(a), JX_SUCCESS);
  EXPECT_EQ(groups_.del(groups_.key(1)), JX_IN_USE);
  ASSERT_EQ(lpm_.del(b), JX_SUCCESS);
  EXPECT_EQ(groups_.del(groups_.key(1)), JX_SUCCESS);
}

TEST_F(EntryTest, TheDefaultOfTheDescriptionIsNoEntry) {
  EXPECT_EQ(exact_.getDefault(exact_.data()), JX_OBJECT_NOT_FOUND);
  EXPECT_EQ(exact_.clearDefault(), JX_OBJECT_NOT_FOUND);
  ASSERT_EQ(exact_.setDefault(exact_.data("send", {1, 2})), JX_SUCCESS);
  const uint32_t handle = twin_.words[0];
  EXPECT_EQ(twin_.packed_bytes, 32U + 12);
  ASSERT_EQ(exact_.setDefault(exact_.data("nop", {})), JX_SUCCESS);
  EXPECT_EQ(twin_.words[0], handle);
  auto read = exact_.data();
  ASSERT_EQ(exact_.getDefault(read), JX_SUCCESS);
  uint32_t nop = 0, action = 0;
  (*exact_).actionIdGet("nop", &nop);
  ASSERT_EQ(read->actionIdGet(&action), JX_SUCCESS);
  EXPECT_EQ(action, nop);
  EXPECT_EQ(exact_.usage(), 0U);
  ASSERT_EQ(exact_.clearDefault(), JX_SUCCESS);
  EXPECT_EQ(twin_.words[0], handle);
  EXPECT_EQ(twin_.reported, (Lines{"match 2", "match 2", "match 3"}));
}

TEST_F(EntryTest, ADefaultHoldsItsMember) {
  addMember(4);
  ASSERT_EQ(lpm_.setDefault(lpm_.data(kFieldMemberId, 4)), JX_SUCCESS);
  EXPECT_EQ(members_.del(members_.key(4)), JX_ACTION_DATA_REFERENCED);
  ASSERT_EQ(lpm_.clearDefault(), JX_SUCCESS);
  EXPECT_EQ(members_.del(members_.key(4)), JX_SUCCESS);
}

TEST_F(EntryTest, MembersAreAddedModifiedAndDeleted) {
  addMember(9);
  EXPECT_EQ(twin_.packed_bytes, 32U + 12);
  EXPECT_EQ(members_.add(members_.key(9), members_.data("nop", {})), JX_ALREADY_EXISTS);
  ASSERT_EQ(members_.mod(members_.key(9), members_.data("nop", {})), JX_SUCCESS);
  EXPECT_EQ(twin_.packed_bytes, 32U);
  EXPECT_EQ(members_.mod(members_.key(8), members_.data("nop", {})), JX_OBJECT_NOT_FOUND);
  ASSERT_EQ(members_.del(members_.key(9)), JX_SUCCESS);
  EXPECT_EQ(twin_.reported, (Lines{"adt 0", "adt 2", "adt 1"}));
  for (uint32_t id = 0; id < 16; ++id) addMember(id);
  EXPECT_EQ(members_.add(members_.key(99), members_.data("nop", {})), JX_NOT_ENOUGH_SPACE);
}

TEST_F(EntryTest, MoveChangesThePriorityAlone) {
  const auto key = acl_.key();
  ASSERT_EQ(key->prioritySet(3), JX_SUCCESS);
  ASSERT_EQ(acl_.add(key, acl_.data("send", {1, 2})), JX_SUCCESS);
  ASSERT_EQ(key->prioritySet(8), JX_SUCCESS);
  ASSERT_EQ(acl_.move(key), JX_SUCCESS);
  EXPECT_EQ(twin_.reported.back(), "match 6");
  EXPECT_EQ(twin_.words[1], 8U);
  auto first = acl_.key();
  auto data = acl_.data();
  ASSERT_EQ((*acl_).tableEntryGetFirst(twin_.virt.session(), twin_.virt.target(), 0, first.get(),
                                       data.get()),
            JX_SUCCESS);
  uint32_t priority = 0;
  ASSERT_EQ(first->priorityGet(&priority), JX_SUCCESS);
  EXPECT_EQ(priority, 8U);
  uint64_t port = 0;
  ASSERT_EQ(data->getValue(1, &port), JX_SUCCESS);
  EXPECT_EQ(port, 1U);
}

TEST_F(EntryTest, WalksSeeEachEntryOnce) {
  for (uint64_t i = 0; i < 6; ++i) {
    ASSERT_EQ(exact_.add(exact_.key(i), exact_.data("nop", {})), JX_SUCCESS);
  }
  ASSERT_EQ(exact_.setDefault(exact_.data("nop", {})), JX_SUCCESS);
  ASSERT_EQ(exact_.del(exact_.key(1)), JX_SUCCESS);
  const auto& session = twin_.virt.session();
  const jx_rt_target_t target = twin_.virt.target();
  auto key = exact_.key();
  auto data = exact_.data();
  std::vector<uint64_t> seen;
  uint64_t number = 0;
  jx_status_t status = (*exact_).tableEntryGetFirst(session, target, 0, key.get(), data.get());
  while (status == JX_SUCCESS) {
    key->getValue(1, &number);
    seen.push_back(number);
    status = (*exact_).tableEntryGetNext(session, target, 0, *key, key.get(), data.get());
  }
  EXPECT_EQ(status, JX_OBJECT_NOT_FOUND);
  EXPECT_EQ(seen, (std::vector<uint64_t>{0, 2, 3, 4, 5}));

  uint64_t cursor = 0;
  std::vector<jxrt::JxRtTable::Entry> entries;
  ASSERT_EQ((*exact_).tableEntriesGet(session, target, 0, &cursor, 2, &entries), JX_SUCCESS);
  ASSERT_EQ(exact_.del(exact_.key(0)), JX_SUCCESS);  // behind the cursor
  ASSERT_EQ(exact_.add(exact_.key(50), exact_.data("nop", {})), JX_SUCCESS);
  ASSERT_EQ((*exact_).tableEntriesGet(session, target, 0, &cursor, 100, &entries), JX_SUCCESS);
  seen.clear();
  for (const auto& entry : entries) {
    entry.key->getValue(1, &number);
    seen.push_back(number);
  }
  EXPECT_EQ(seen, (std::vector<uint64_t>{0, 2, 3, 4, 5}));
  const size_t before = entries.size();
  ASSERT_EQ((*exact_).tableEntriesGet(session, target, 0, &cursor, 100, &entries), JX_SUCCESS);
  EXPECT_EQ(entries.size(), before);
}

TEST_F(EntryTest, PhysicalTablesAreReadButNotWritten) {
  ASSERT_EQ(exact_.add(exact_.key(7), exact_.data("send", {3, 4})), JX_SUCCESS);
  const TableUser copy(twin_.physical, "exact");
  auto read = copy.data();
  ASSERT_EQ(copy.get(copy.key(7), read), JX_SUCCESS);
  EXPECT_EQ(copy.handle(copy.key(7)), 500U);
  EXPECT_EQ(copy.add(copy.key(8), copy.data("nop", {})), JX_NOT_SUPPORTED);
  EXPECT_EQ(copy.mod(copy.key(7), copy.data("nop", {})), JX_NOT_SUPPORTED);
  EXPECT_EQ(copy.del(copy.key(7)), JX_NOT_SUPPORTED);
  EXPECT_EQ(copy.setDefault(copy.data("nop", {})), JX_NOT_SUPPORTED);
  EXPECT_EQ((*copy).matUpdateCbRegister(twin_.physical.session(), twin_.physical.target(), nullptr,
                                        nullptr),
            JX_NOT_SUPPORTED);
}

TEST_F(EntryTest, ATableTakesCallbacksOfItsKindOnly) {
  const auto& session = twin_.virt.session();
  const jx_rt_target_t target = twin_.virt.target();
  EXPECT_EQ((*exact_).adtUpdateCbRegister(session, target, nullptr, nullptr), JX_NOT_SUPPORTED);
  EXPECT_EQ((*members_).selUpdateCbRegister(session, target, nullptr, nullptr), JX_NOT_SUPPORTED);
  EXPECT_EQ((*groups_).matUpdateCbRegister(session, target, nullptr, nullptr), JX_NOT_SUPPORTED);
  // A null callback takes the registered one away.
  ASSERT_EQ((*exact_).matUpdateCbRegister(session, target, nullptr, nullptr), JX_SUCCESS);
  ASSERT_EQ(exact_.add(exact_.key(1), exact_.data("nop", {})), JX_SUCCESS);
  ASSERT_EQ(exact_.del(exact_.key(1)), JX_SUCCESS);
  EXPECT_TRUE(twin_.reported.empty());
}

}  // namespace
}  // namespace jxmodeltest
