// Entries from the start and counters of single entries, as descriptions give them.
#include <gtest/gtest.h>

#include "model/program/program.h"

namespace jxmodel {
namespace {

/// A program whose table has these entries and whose counter table has these members.
std::shared_ptr<const Program> parsed(const std::string& entries, LoadError* error,
                                      const std::string& counts = R"("counts": "t")") {
  const std::string text = R"({"name": "base", "id": 7,
    "fields": [{"name": "a.exact", "width": 9}, {"name": "a.masked", "width": 12},
               {"name": "a.range", "width": 16}, {"name": "a.maybe", "width": 4}],
    "actions": [{"name": "send", "params": [{"name": "port", "width": 9}]},
                {"name": "other", "body": []}],
    "tables": [
      {"name": "t", "kind": "match", "size": 2, "actions": ["send"],
       "key": [{"field": "a.exact", "match": "exact"}, {"field": "a.masked", "match": "ternary"},
               {"field": "a.range", "match": "range"}, {"field": "a.maybe", "match": "optional"}],
       "entries": )" + entries +
                           R"(, "constant_default": true},
      {"name": "p", "kind": "match", "size": 2, "actions": ["send"], "constant_entries": true,
       "key": [{"field": "a.masked", "match": "lpm"}],
       "entries": [{"key": {"a.masked": {"value": 4095, "prefix": 5}}, "action": "send",
                    "params": {"port": 2}}]},
      {"name": "hits", "kind": "counter", )" +
                           counts + R"(}],
    "control": []})";
  return parseProgramJson(text, "base.json", error);
}

constexpr const char* kCall = R"("action": "send", "params": {"port": 256})";

std::string entry(const std::string& key) { return R"({"key": )" + key + ", " + kCall + "}"; }

TEST(DescribedEntries, ArePacked) {
  LoadError error;
  const auto program =
      parsed(R"([{"key": {"a.exact": 257, "a.masked": {"value": "0xABC", "mask": 15},
      "a.range": {"low": 1, "high": 2}, "a.maybe": 3}, "priority": 9,)" +
                 std::string(kCall) + "}, " + entry(R"({"a.exact": 1})") + "]",
             &error);
  ASSERT_NE(program, nullptr) << error.text();
  const Table& table = program->tables[0];
  ASSERT_EQ(table.initial_entries.size(), 2U);
  EXPECT_EQ(table.initial_entries[0].key,
            (std::vector<uint8_t>{1, 1, 0, 12, 0, 15, 0, 1, 0, 2, 3, 1}));
  EXPECT_EQ(table.initial_entries[0].priority, 9U);
  EXPECT_EQ(table.initial_entries[0].call.params, (std::vector<uint8_t>{1, 0}));
  EXPECT_EQ(table.initial_entries[1].key,
            (std::vector<uint8_t>{0, 1, 0, 0, 0, 0, 0, 0, 255, 255, 0, 0}));
  EXPECT_EQ(table.initial_entries[1].priority, 0U);
  EXPECT_EQ(program->tables[1].initial_entries[0].key, (std::vector<uint8_t>{15, 128, 5}));
  EXPECT_TRUE(table.constant_default && !table.constant_entries);
  EXPECT_TRUE(!program->tables[1].constant_default && program->tables[1].constant_entries);
  EXPECT_EQ(table.direct_counter, 2U);
  EXPECT_EQ(program->tables[2].counted_table, 0U);
  EXPECT_EQ(program->tables[2].size, table.size);
}

TEST(DescribedEntries, AreChecked) {
  const struct {
    std::string entries, counts, text;
  } kRows[] = {
      {"[" + entry("{}") + "]", "", "/tables/0/entries/0/key: field 'a.exact' is missing"},
      {"[" + entry(R"({"a.exact": 1, "b": 2})") + "]", "",
       "/tables/0/entries/0/key/b: field 'b' is not in the key"},
      {"[" + entry(R"({"a.exact": 1, "a.range": {"low": 3, "high": 2}})") + "]", "",
       "/tables/0/entries/0: table t, entry 1: start 3 is above end 2"},
      {"[" + entry(R"({"a.exact": 1})") + ", " + entry(R"({"a.exact": 1})") + "]", "",
       "/tables/0/entries/1: table t, entry 2: it has the key of entry 1"},
      {R"([{"key": {"a.exact": 1}, "action": "other"}])", "",
       "/tables/0/entries/0/action: action 'other' is none of this table's"},
      {"[]", R"("counts": "hits")", "/tables/2/counts: table 'hits' is no match table"},
      {"[]", R"("counts": "t", "size": 2)", "/tables/2/size: it is that of the table in 'counts'"},
      {"[]", R"("counts": "t"}, {"name": "more", "kind": "counter", "counts": "t")",
       "/tables/3/counts: the entries of 't' are counted already"},
  };
  for (const auto& row : kRows) {
    LoadError error;
    const std::string counts = row.counts.empty() ? R"("counts": "t")" : row.counts;
    EXPECT_EQ(parsed(row.entries, &error, counts), nullptr) << row.text;
    EXPECT_EQ(error.text(), "base.json: " + row.text);
  }
}

}  // namespace
}  // namespace jxmodel
