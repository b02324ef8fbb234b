// The descriptions that are delivered: ids, handles, layouts, paths.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <string>
#include <vector>

#include "model/program/program.h"

namespace jxmodel {
namespace {

using Bytes = std::vector<uint8_t>;

std::shared_ptr<const Program> load(const std::string& name) {
  LoadError error;
  auto program = loadProgramJson(std::string(JEX_PROGRAMS_DIR "/") + name + ".json", &error);
  EXPECT_NE(program, nullptr) << error.text();
  return program;
}

struct TableRow {
  const char* name;
  uint32_t handle;
  uint32_t size;
  uint32_t key_bytes;
  bool has_priority;
};

void expectTables(const Program& program, const std::vector<TableRow>& rows) {
  ASSERT_EQ(program.tables.size(), rows.size());
  for (size_t i = 0; i < rows.size(); ++i) {
    const TableRow& row = rows[i];
    const Table& table = program.tables[i];
    SCOPED_TRACE(row.name);
    EXPECT_EQ(table.name, row.name);
    EXPECT_EQ(table.handle, row.handle);
    EXPECT_EQ(table.id, row.handle & 0x0FFFFFFF);
    EXPECT_EQ(table.size, row.size);
    EXPECT_EQ(table.key_bytes, row.key_bytes);
    EXPECT_EQ(table.has_priority, row.has_priority);
    EXPECT_EQ(program.tableByName(row.name), &table);
    EXPECT_EQ(program.tableById(table.id), &table);
  }
}

TEST(L2Switch, HasItsTables) {
  const auto program = load("l2_switch");
  ASSERT_NE(program, nullptr);
  EXPECT_EQ(program->id, 1U);
  EXPECT_EQ(program->name, "l2_switch");
  expectTables(*program, {{"smac", 0x10010001, 65536, 8, false},
                          {"dmac", 0x10010002, 65536, 6, false},
                          {"port_counters", 0x60010003, 512, 4, false}});
  EXPECT_TRUE(program->tables[0].idle_timeout);
  EXPECT_FALSE(program->tables[1].idle_timeout);
  EXPECT_EQ(program->tables[0].key[1].offset, 6U);
  EXPECT_EQ(program->tables[2].key[0].name, "$COUNTER_INDEX");
  EXPECT_FALSE(program->tables[2].key[0].field.has_value());
}

TEST(L2Switch, FloodsWhatItDoesNotKnow) {
  const auto program = load("l2_switch");
  ASSERT_NE(program, nullptr);
  const Table* dmac = program->tableByName("dmac");
  ASSERT_NE(dmac, nullptr);
  ASSERT_TRUE(dmac->default_action.has_value());
  const Action& action = program->actions[dmac->default_action->action];
  EXPECT_EQ(action.name, "flood");
  EXPECT_EQ(action.id, 0x10003U);
  EXPECT_TRUE(dmac->default_action->params.empty());
  ASSERT_EQ(action.body.size(), 1U);
  EXPECT_EQ(action.body[0].op, PrimitiveOp::kFlood);
}

TEST(L2Switch, LearnsUnicastSourcesOnly) {
  const auto program = load("l2_switch");
  ASSERT_NE(program, nullptr);
  ASSERT_EQ(program->learns.size(), 1U);
  const Learn& learn = program->learns[0];
  EXPECT_EQ(learn.id, 0x18001U);
  EXPECT_EQ(learn.name, "mac_learn");
  ASSERT_EQ(learn.fields.size(), 2U);
  EXPECT_EQ(learn.fields[0].id, 1U);
  EXPECT_EQ(program->fields[learn.fields[0].field].name, "ethernet.src");
  EXPECT_EQ(learn.fields[1].id, 2U);
  EXPECT_EQ(program->fields[learn.fields[1].field].width, 9U);

  ASSERT_EQ(program->control.size(), 3U);
  const auto* smac = std::get_if<ApplyTable>(&program->control[1].step);
  ASSERT_NE(smac, nullptr);
  EXPECT_TRUE(smac->on_hit.empty());
  ASSERT_EQ(smac->on_miss.size(), 1U);
  const auto* branch = std::get_if<Branch>(&smac->on_miss[0].step);
  ASSERT_NE(branch, nullptr);
  const auto* comparison = std::get_if<Comparison>(&branch->condition);
  ASSERT_NE(comparison, nullptr);
  EXPECT_EQ(comparison->op, CompareOp::kEqual);
  EXPECT_EQ(std::get<FieldRef>(comparison->left).index, 1U);
  EXPECT_EQ(std::get<Constant>(comparison->right).value, Bytes(6, 0));
  ASSERT_TRUE(comparison->mask.has_value());
  EXPECT_EQ(*comparison->mask, (Bytes{1, 0, 0, 0, 0, 0}));
  ASSERT_EQ(branch->then_block.size(), 1U);
  const auto* digest = std::get_if<Primitive>(&branch->then_block[0].step);
  ASSERT_NE(digest, nullptr);
  EXPECT_EQ(digest->op, PrimitiveOp::kDigest);
  EXPECT_EQ(digest->learn, 0U);
}

TEST(L2Switch, CountsWhatComesIn) {
  const auto program = load("l2_switch");
  ASSERT_NE(program, nullptr);
  const auto* count = std::get_if<Primitive>(&program->control.at(0).step);
  ASSERT_NE(count, nullptr);
  EXPECT_EQ(count->op, PrimitiveOp::kCount);
  EXPECT_EQ(program->tables[count->table].name, "port_counters");
  EXPECT_EQ(program->fields[std::get<FieldRef>(count->source).index].name, "meta.ingress_port");
}

TEST(Router, HasItsTables) {
  const auto program = load("router");
  ASSERT_NE(program, nullptr);
  EXPECT_EQ(program->id, 2U);
  expectTables(*program, {{"ipv4_lpm", 0x30020001, 2000000, 5, false},
                          {"ipv6_lpm", 0x30020002, 2000000, 17, false},
                          {"nexthops", 0x40020003, 65536, 4, false},
                          {"ecmp_groups", 0x50020004, 16384, 4, false},
                          {"acl", 0x10020005, 32768, 26, true},
                          {"route_counters", 0x60020006, 65536, 4, false},
                          {"acl_counters", 0x60020007, 32768, 4, false}});
  EXPECT_EQ(program->tables[2].key[0].name, "$MEMBER_ID");
  EXPECT_EQ(program->tables[3].key[0].name, "$GROUP_ID");
}

TEST(Router, RoutesReferToMembersAndGroups) {
  const auto program = load("router");
  ASSERT_NE(program, nullptr);
  for (const char* name : {"ipv4_lpm", "ipv6_lpm"}) {
    SCOPED_TRACE(name);
    const Table* table = program->tableByName(name);
    ASSERT_NE(table, nullptr);
    EXPECT_EQ(table->type, JX_RT_TABLE_MATCH_SELECTOR);
    EXPECT_EQ(table->action_data_table, 2U);
    EXPECT_EQ(table->selector_table, 3U);
    EXPECT_EQ(table->actions, std::vector<uint32_t>{0});  // those of the members
    EXPECT_FALSE(table->default_action.has_value());
  }
  const Table& groups = program->tables[3];
  EXPECT_EQ(groups.action_data_table, 2U);
  EXPECT_EQ(groups.max_members, 256U);
  EXPECT_EQ(groups.hash_fields.size(), 8U);
}

TEST(Router, NextHopsHaveAnOptionalCounter) {
  const auto program = load("router");
  ASSERT_NE(program, nullptr);
  const Action* action = program->actionByName("set_nexthop");
  ASSERT_NE(action, nullptr);
  EXPECT_EQ(action->id, 0x20001U);
  ASSERT_EQ(action->params.size(), 4U);
  EXPECT_EQ(action->params[1].offset, 2U);
  EXPECT_EQ(action->params[2].offset, 8U);
  EXPECT_EQ(action->params[3].offset, 14U);
  EXPECT_EQ(action->param_bytes, 18U);
  EXPECT_FALSE(action->params[2].default_value.has_value());
  ASSERT_TRUE(action->params[3].default_value.has_value());
  EXPECT_EQ(*action->params[3].default_value, Bytes(4, 0));
}

TEST(Router, PermitsWhatNoRuleNames) {
  const auto program = load("router");
  ASSERT_NE(program, nullptr);
  const Table* acl = program->tableByName("acl");
  ASSERT_NE(acl, nullptr);
  ASSERT_TRUE(acl->default_action.has_value());
  EXPECT_EQ(program->actions[acl->default_action->action].name, "permit");
  EXPECT_EQ(acl->default_action->params, Bytes(4, 0));
  const Action* deny = program->actionByName("deny");
  ASSERT_NE(deny, nullptr);
  ASSERT_EQ(deny->body.size(), 2U);
  EXPECT_EQ(deny->body[0].op, PrimitiveOp::kCount);
  EXPECT_EQ(deny->body[1].op, PrimitiveOp::kDrop);
}

TEST(Router, DropsPacketsWithoutRouteOrTimeToLive) {
  const auto program = load("router");
  ASSERT_NE(program, nullptr);
  ASSERT_EQ(program->control.size(), 1U);
  const auto& ipv4 = std::get<Branch>(program->control[0].step);
  EXPECT_EQ(std::get<HeaderValid>(ipv4.condition).header, "ipv4");
  ASSERT_EQ(ipv4.then_block.size(), 3U);
  const auto& ttl = std::get<Branch>(ipv4.then_block[1].step);
  EXPECT_EQ(std::get<Comparison>(ttl.condition).op, CompareOp::kLessEqual);
  EXPECT_EQ(std::get<Primitive>(ttl.then_block.at(0).step).op, PrimitiveOp::kDrop);
  const auto& route = std::get<ApplyTable>(ipv4.then_block[2].step);
  EXPECT_EQ(std::get<Primitive>(route.on_hit.at(0).step).op, PrimitiveOp::kDecrement);
  EXPECT_EQ(std::get<Primitive>(route.on_miss.at(0).step).op, PrimitiveOp::kDrop);
}

TEST(Limits, HasItsTables) {
  const auto program = load("limits");
  ASSERT_NE(program, nullptr);
  EXPECT_EQ(program->id, 3U);
  expectTables(*program, {{"exact_direct", 0x10030001, 4096, 8, false},
                          {"ternary_direct", 0x10030002, 4096, 8, true},
                          {"members", 0x40030003, 4096, 4, false},
                          {"groups", 0x50030004, 1024, 4, false},
                          {"via_members", 0x20030005, 4096, 6, false},
                          {"via_groups", 0x30030006, 4096, 2, false},
                          {"all_kinds", 0x10030007, 4096, 79, true},
                          {"lpm_and_exact", 0x10030008, 4096, 19, false},
                          {"lpm_bit", 0x10030009, 3, 2, false},
                          {"pairs", 0x6003000A, 16, 4, false},
                          {"no_pairs", 0x6003000B, 0, 4, false}});
  EXPECT_EQ(program->tables[3].max_members, 512U);
  const Table& all_kinds = program->tables[6];
  ASSERT_TRUE(all_kinds.default_action.has_value());
  EXPECT_EQ(
      all_kinds.default_action->params,
      (Bytes{1, 1, 0xFF, 0x0A, 0xBC, 0x20, 1, 0x0D, 0xB8, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1}));
}

// Header, key and parameters of an update together, against what its message carries.
TEST(Limits, ActionsFillTheirMessages) {
  struct Row {
    const char* update;
    const char* table;
    bool has_key;
    uint32_t limit;
  };
  constexpr uint32_t kHeader = 32;
  constexpr Row kRows[] = {
      {"add", "exact_direct", true, 1972},      {"add", "ternary_direct", true, 1972},
      {"default", "exact_direct", false, 1980}, {"default", "ternary_direct", false, 1980},
      {"modify", "exact_direct", true, 1980},   {"modify", "ternary_direct", true, 1980},
      {"move", "ternary_direct", true, 1976},   {"member", "members", false, 2008},
      {"select", "members", false, 1996},
  };
  const auto program = load("limits");
  ASSERT_NE(program, nullptr);
  for (const Row& row : kRows) {
    for (const bool fits : {true, false}) {
      const std::string name = std::string(row.update) + (fits ? "_fits" : "_over");
      SCOPED_TRACE(name + " in " + row.table);
      const Table* table = program->tableByName(row.table);
      const Action* action = program->actionByName(name);
      ASSERT_NE(table, nullptr);
      ASSERT_NE(action, nullptr);
      const auto index = static_cast<uint32_t>(action - program->actions.data());
      EXPECT_EQ(std::count(table->actions.begin(), table->actions.end(), index), 1);
      ASSERT_EQ(action->params.size(), 1U);
      EXPECT_EQ(action->params[0].name, "fill");
      const uint32_t key_bytes = row.has_key ? table->key_bytes : 0;
      EXPECT_EQ(kHeader + key_bytes + action->param_bytes, row.limit + (fits ? 0 : 1));
    }
  }
}

TEST(Program, KnowsOnlyItsOwnIdsAndNames) {
  const auto program = load("router");
  ASSERT_NE(program, nullptr);
  EXPECT_EQ(program->tableById(0), nullptr);
  EXPECT_EQ(program->tableById(0x20000), nullptr);
  EXPECT_EQ(program->tableById(0x20008), nullptr);
  EXPECT_EQ(program->tableById(0x10001), nullptr);  // of another program
  EXPECT_EQ(program->tableByName("ipv4"), nullptr);
  EXPECT_EQ(program->actionById(0x20001), &program->actions[0]);
  EXPECT_EQ(program->actionById(0x20004), nullptr);
  EXPECT_EQ(program->actionByName(""), nullptr);
}

TEST(LoadProgram, SaysWhyAFileCannotBeRead) {
  LoadError error;
  EXPECT_EQ(loadProgramJson("/nowhere/x.json", &error), nullptr);
  EXPECT_EQ(error.text(), "/nowhere/x.json: cannot be read: No such file or directory");
  EXPECT_EQ(loadProgramJson("/", &error), nullptr);
  EXPECT_EQ(error.text(), "/: cannot be read: Is a directory");
  EXPECT_EQ(loadProgramJson("/dev/zero", &error), nullptr);  // no end
  EXPECT_EQ(error.text(), "/dev/zero: cannot be read: File too large");
}

TEST(LoadProgram, NamesTheFileInErrorsOfItsText) {
  const std::string path = testing::TempDir() + "program_test_broken.json";
  std::ofstream(path) << "{\"name\": 7}";
  LoadError error;
  EXPECT_EQ(loadProgramJson(path, &error), nullptr);
  EXPECT_EQ(error.text(), path + ": /name: must be a string");
  std::remove(path.c_str());
}

TEST(LoadProgram, DoesNotNeedAnErrorToFill) {
  EXPECT_EQ(loadProgramJson("/nowhere/x.json", nullptr), nullptr);
}

}  // namespace
}  // namespace jxmodel
