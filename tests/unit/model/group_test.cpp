// Groups of selector tables on a virtual device: every status, and what is reported.
#include <gtest/gtest.h>

#include "unit/model/twin.h"

namespace jxmodeltest {
namespace {

using Lines = std::vector<std::string>;

class GroupTest : public testing::Test {
 protected:
  void SetUp() override {
    for (uint32_t id = 1; id <= 9; ++id) {
      ASSERT_EQ(members_.add(members_.key(id), members_.data("send", {id, 2})), JX_SUCCESS);
    }
    twin_.reported.clear();
  }
  void TearDown() override { EXPECT_EQ(twin_.virt.dump(), twin_.physical.dump()); }

  Twin twin_{{everyKind()}};
  TableUser members_{twin_.virt, "members"};
  TableUser groups_{twin_.virt, "groups"};
};

TEST_F(GroupTest, IsCreatedWithItsMembersInOneUpdate) {
  ASSERT_EQ(groups_.add(groups_.key(70), groups_.members({3, 1}, {true, false})), JX_SUCCESS);
  EXPECT_EQ(twin_.reported, Lines{"sel 0"});
  pipe_tbl_hdl_t table = 0;
  ASSERT_EQ((*members_).tableHandleGet(&table), JX_SUCCESS);
  EXPECT_EQ(twin_.words, (std::vector<uint32_t>{1, 70, 0, table, 2}));
  auto read = groups_.data();
  ASSERT_EQ(groups_.get(groups_.key(70), read), JX_SUCCESS);
  std::vector<uint32_t> ids;
  std::vector<bool> active;
  ASSERT_EQ(read->getValue(jxmodel::kFieldMembers, &ids), JX_SUCCESS);
  ASSERT_EQ(read->getValue(jxmodel::kFieldMembersActive, &active), JX_SUCCESS);
  EXPECT_EQ(ids, (std::vector<uint32_t>{3, 1}));
  EXPECT_EQ(active, (std::vector<bool>{true, false}));
}

TEST_F(GroupTest, CreationChecksItsMembers) {
  EXPECT_EQ(groups_.add(groups_.key(1), groups_.members({1, 1})), JX_ALREADY_EXISTS);
  EXPECT_EQ(groups_.add(groups_.key(1), groups_.members({1, 77})), JX_OBJECT_NOT_FOUND);
  EXPECT_EQ(groups_.add(groups_.key(1), groups_.members({1, 2}, {true})), JX_INVALID_ARGUMENTS);
  EXPECT_EQ(groups_.add(groups_.key(1), groups_.members({1, 2, 3, 4, 5, 6, 7})),
            JX_NOT_ENOUGH_SPACE);
  auto small = groups_.members({1, 2});
  ASSERT_EQ(small->setValue(jxmodel::kFieldMaxMembers, uint64_t{1}), JX_SUCCESS);
  EXPECT_EQ(groups_.add(groups_.key(1), small), JX_NOT_ENOUGH_SPACE);
  ASSERT_EQ(small->setValue(jxmodel::kFieldMaxMembers, uint64_t{7}), JX_SUCCESS);
  EXPECT_EQ(groups_.add(groups_.key(1), small), JX_INVALID_ARGUMENTS);
  EXPECT_TRUE(twin_.reported.empty());
  EXPECT_EQ(groups_.usage(), 0U);
  EXPECT_EQ(members_.del(members_.key(1)), JX_SUCCESS);
}

TEST_F(GroupTest, TheTableHoldsSoManyGroups) {
  for (uint32_t id = 1; id <= 4; ++id) {
    ASSERT_EQ(groups_.add(groups_.key(id), groups_.data()), JX_SUCCESS);
  }
  EXPECT_EQ(groups_.add(groups_.key(5), groups_.data()), JX_NOT_ENOUGH_SPACE);
  EXPECT_EQ(groups_.add(groups_.key(4), groups_.data()), JX_ALREADY_EXISTS);
  ASSERT_EQ(groups_.del(groups_.key(2)), JX_SUCCESS);
  EXPECT_EQ(groups_.del(groups_.key(2)), JX_OBJECT_NOT_FOUND);
  ASSERT_EQ(groups_.add(groups_.key(5), groups_.data()), JX_SUCCESS);
  EXPECT_EQ(groups_.handle(groups_.key(5)), 2U);
}

TEST_F(GroupTest, MembersComeAndGoOneByOne) {
  ASSERT_EQ(groups_.add(groups_.key(1), groups_.data()), JX_SUCCESS);
  ASSERT_EQ(groups_.groupAdd(1, 5), JX_SUCCESS);
  EXPECT_EQ(twin_.packed_bytes, 32U + 12);
  EXPECT_EQ(twin_.words[3], 1U);
  EXPECT_EQ(groups_.groupAdd(1, 5), JX_ALREADY_EXISTS);
  EXPECT_EQ(groups_.groupAdd(2, 5), JX_OBJECT_NOT_FOUND);
  EXPECT_EQ(groups_.groupAdd(1, 55), JX_OBJECT_NOT_FOUND);
  ASSERT_EQ(groups_.groupDeactivate(1, 5), JX_SUCCESS);
  EXPECT_EQ(twin_.words[3], 0U);
  ASSERT_EQ(groups_.groupActivate(1, 5), JX_SUCCESS);
  EXPECT_EQ(groups_.groupActivate(1, 6), JX_OBJECT_NOT_FOUND);
  EXPECT_EQ(groups_.groupDel(1, 6), JX_OBJECT_NOT_FOUND);
  EXPECT_EQ(members_.del(members_.key(5)), JX_ACTION_DATA_REFERENCED);
  ASSERT_EQ(groups_.groupDel(1, 5), JX_SUCCESS);
  EXPECT_EQ(members_.del(members_.key(5)), JX_SUCCESS);
  EXPECT_EQ(twin_.reported, (Lines{"sel 0", "sel 2", "sel 5", "sel 4", "sel 3", "adt 1"}));
}

TEST_F(GroupTest, AFullGroupTakesNoMore) {
  ASSERT_EQ(groups_.add(groups_.key(1), groups_.members({1, 2, 3, 4, 5, 6})), JX_SUCCESS);
  EXPECT_EQ(groups_.groupAdd(1, 7), JX_NOT_ENOUGH_SPACE);
}

TEST_F(GroupTest, ModifyReportsOneUpdateADifference) {
  ASSERT_EQ(groups_.add(groups_.key(1), groups_.members({1, 2, 3, 4, 5, 6})), JX_SUCCESS);
  twin_.reported.clear();
  // 1 and 2 go, 7 comes, 8 comes inactive, 3 stays, 4 is made inactive.
  ASSERT_EQ(groups_.mod(groups_.key(1), groups_.members({3, 4, 5, 6, 7, 8},
                                                        {true, false, true, true, true, false})),
            JX_SUCCESS);
  EXPECT_EQ(twin_.reported, (Lines{"sel 3", "sel 3", "sel 5", "sel 2", "sel 2"}));
  twin_.reported.clear();
  ASSERT_EQ(groups_.mod(groups_.key(1), groups_.members({3, 4, 5, 6, 7, 8})), JX_SUCCESS);
  EXPECT_EQ(twin_.reported, (Lines{"sel 4", "sel 4"}));
  twin_.reported.clear();
  ASSERT_EQ(groups_.mod(groups_.key(1), groups_.members({3, 4, 5, 6, 7, 8})), JX_SUCCESS);
  EXPECT_TRUE(twin_.reported.empty());
}

TEST_F(GroupTest, ARefusedModifyChangesNothing) {
  ASSERT_EQ(groups_.add(groups_.key(1), groups_.members({1, 2})), JX_SUCCESS);
  twin_.reported.clear();
  const Lines before = twin_.virt.dump();
  EXPECT_EQ(groups_.mod(groups_.key(1), groups_.members({3, 3})), JX_ALREADY_EXISTS);
  EXPECT_EQ(groups_.mod(groups_.key(1), groups_.members({3, 99})), JX_OBJECT_NOT_FOUND);
  EXPECT_EQ(groups_.mod(groups_.key(1), groups_.members({1, 2, 3, 4, 5, 6, 7})),
            JX_NOT_ENOUGH_SPACE);
  EXPECT_EQ(groups_.mod(groups_.key(2), groups_.members({})), JX_OBJECT_NOT_FOUND);
  auto resized = groups_.members({1});
  ASSERT_EQ(resized->setValue(jxmodel::kFieldMaxMembers, uint64_t{5}), JX_SUCCESS);
  EXPECT_EQ(groups_.mod(groups_.key(1), resized), JX_NOT_SUPPORTED);
  EXPECT_EQ(twin_.virt.dump(), before);
  EXPECT_TRUE(twin_.reported.empty());
}

TEST_F(GroupTest, TheFallbackHoldsItsMember) {
  uint32_t id = 0;
  const auto get = [&] {
    return (*groups_).fallbackGet(twin_.virt.session(), twin_.virt.target(), &id);
  };
  EXPECT_EQ(get(), JX_OBJECT_NOT_FOUND);
  EXPECT_EQ(groups_.clearFallback(), JX_OBJECT_NOT_FOUND);
  EXPECT_EQ(groups_.setFallback(99), JX_OBJECT_NOT_FOUND);
  ASSERT_EQ(groups_.setFallback(4), JX_SUCCESS);
  ASSERT_EQ(groups_.setFallback(5), JX_SUCCESS);
  ASSERT_EQ(get(), JX_SUCCESS);
  EXPECT_EQ(id, 5U);
  EXPECT_EQ(members_.del(members_.key(4)), JX_SUCCESS);
  EXPECT_EQ(members_.del(members_.key(5)), JX_ACTION_DATA_REFERENCED);
  ASSERT_EQ(groups_.clearFallback(), JX_SUCCESS);
  EXPECT_EQ(members_.del(members_.key(5)), JX_SUCCESS);
  EXPECT_EQ(twin_.reported, (Lines{"sel 6", "sel 6", "adt 1", "sel 7", "adt 1"}));
}

}  // namespace
}  // namespace jxmodeltest
