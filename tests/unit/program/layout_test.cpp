// Keys and parameters of every width and match kind: places, sizes, ids.
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <string>

#include "model/program/program.h"

namespace jxmodel {
namespace {

using nlohmann::json;

std::shared_ptr<const Program> parse(const json& description) {
  LoadError error;
  auto program = parseProgramJson(description.dump(), "test.json", &error);
  EXPECT_NE(program, nullptr) << error.text();
  return program;
}

struct MatchRow {
  const char* name;
  jx_rt_key_match_type_t match;
  uint32_t values;  // how many times the value is packed
  uint32_t extra;   // bytes behind it
  bool priority;
};
constexpr MatchRow kMatches[] = {
    {"exact", JX_RT_MATCH_EXACT, 1, 0, false},      {"ternary", JX_RT_MATCH_TERNARY, 2, 0, true},
    {"range", JX_RT_MATCH_RANGE, 2, 0, true},       {"lpm", JX_RT_MATCH_LPM, 1, 1, false},
    {"optional", JX_RT_MATCH_OPTIONAL, 1, 1, true},
};

// One table for each width and kind: an exact field of 9 bits, then the field in question.
json allWidths() {
  json description = {{"name", "widths"}, {"id", 4095}, {"control", json::array()}};
  description["fields"] = {{{"name", "meta.port"}, {"width", 9}}};
  description["actions"] = {{{"name", "nop"}}};
  for (uint32_t width = 1; width <= kMaxKeyWidth; ++width) {
    const std::string field = "f.w" + std::to_string(width);
    description["fields"].push_back({{"name", field}, {"width", width}});
    for (const MatchRow& row : kMatches) {
      description["tables"].push_back({{"name", field + row.name},
                                       {"kind", "match"},
                                       {"size", width},
                                       {"actions", {"nop"}},
                                       {"key",
                                        {{{"field", "meta.port"}, {"match", "exact"}},
                                         {{"field", field}, {"match", row.name}}}}});
    }
  }
  return description;
}

TEST(KeyLayout, FollowsFromWidthAndMatchKind) {
  const auto program = parse(allWidths());
  ASSERT_NE(program, nullptr);
  ASSERT_EQ(program->tables.size(), kMaxKeyWidth * std::size(kMatches));
  size_t next = 0;
  for (uint32_t width = 1; width <= kMaxKeyWidth; ++width) {
    for (const MatchRow& row : kMatches) {
      const Table& table = program->tables[next++];
      SCOPED_TRACE(table.name);
      ASSERT_EQ(table.key.size(), 2U);
      const KeyField& field = table.key[1];
      const uint32_t value_bytes = width / 8 + (width % 8 != 0);
      EXPECT_EQ(field.id, 2U);
      EXPECT_EQ(field.width, width);
      EXPECT_EQ(field.match, row.match);
      EXPECT_EQ(field.field, width);  // field 0 is meta.port
      EXPECT_EQ(field.offset, 2U);
      EXPECT_EQ(field.value_bytes, value_bytes);
      EXPECT_EQ(field.packed_bytes, row.values * value_bytes + row.extra);
      EXPECT_EQ(table.key_bytes, 2 + field.packed_bytes);
      EXPECT_EQ(table.has_priority, row.priority);
      EXPECT_EQ(table.size, width);
      EXPECT_EQ(table.id, 4095U << 16 | next);
      EXPECT_EQ(table.handle, 1U << 28 | table.id);
    }
  }
}

TEST(ParamLayout, PacksWholeBytesInOrder) {
  json description = allWidths();
  json& params = description["actions"][0]["params"];
  for (uint32_t width = 1; width <= 200; ++width) {
    params.push_back({{"name", "p" + std::to_string(width)}, {"width", width}});
  }
  params[8]["default"] = 511;
  const auto program = parse(description);
  ASSERT_NE(program, nullptr);
  const Action& action = program->actions[0];
  ASSERT_EQ(action.params.size(), 200U);
  uint32_t offset = 0;
  for (uint32_t width = 1; width <= 200; ++width) {
    SCOPED_TRACE(width);
    const Param& param = action.params[width - 1];
    EXPECT_EQ(param.id, width);
    EXPECT_EQ(param.width, width);
    EXPECT_EQ(param.offset, offset);
    offset += width / 8 + (width % 8 != 0);
    EXPECT_EQ(param.default_value.has_value(), width == 9);
  }
  EXPECT_EQ(action.param_bytes, offset);
  EXPECT_EQ(*action.params[8].default_value, (std::vector<uint8_t>{1, 0xFF}));
}

TEST(Layout, ReachesItsLimitsExactly) {
  json description = allWidths();
  description["actions"][0]["params"] = {{{"name", "a"}, {"width", kMaxParamWidth}},
                                         {{"name", "b"}, {"width", kMaxParamWidth}}};
  json key = json::array();
  for (int i = 0; i < 32; ++i) {
    const std::string name = "big.f" + std::to_string(i);
    description["fields"].push_back({{"name", name}, {"width", 128}});
    key.push_back({{"field", name}, {"match", "ternary"}});
  }
  description["tables"][0]["key"] = key;
  const auto program = parse(description);
  ASSERT_NE(program, nullptr);
  EXPECT_EQ(program->actions[0].param_bytes, 4096U);
  EXPECT_EQ(program->tables[0].key_bytes, 1024U);
}

}  // namespace
}  // namespace jxmodel
