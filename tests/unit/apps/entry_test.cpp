#include "entry.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "bytes.h"

namespace jexapps {
namespace {

EntryView route(uint32_t handle, const Bytes& address, uint16_t length, uint32_t member) {
  EntryView entry;
  entry.handle = handle;
  entry.key.push_back({{"ipv4.dst", 32}, JX_RT_MATCH_LPM, {address, {}, length, true}});
  entry.member = member;
  return entry;
}

EntryView aclEntry() {
  EntryView entry;
  entry.handle = 9;
  entry.key.push_back({{"ipv4.src", 32},
                       JX_RT_MATCH_TERNARY,
                       {bytes({10, 0, 0, 0}), bytes({255, 0, 0, 0}), 0, true}});
  entry.key.push_back(
      {{"l4.dport", 16}, JX_RT_MATCH_RANGE, {bytes({0, 80}), bytes({1, 187}), 0, true}});
  entry.priority = 3;
  entry.action = "mark";
  entry.params.push_back({{"port", 9}, bytes({0, 3})});
  entry.params.push_back({{"dmac", 48}, bytes({2, 0, 0, 0, 0, 1})});
  entry.ttl_ms = 5000;
  return entry;
}

EntryView group() {
  EntryView entry;
  entry.handle = 4;
  entry.key.push_back({{"$GROUP_ID", 32}, JX_RT_MATCH_EXACT, {bytes({0, 0, 0, 7}), {}, 0, true}});
  entry.max_members = 8;
  entry.members = {{12, false}, {3, true}};
  return entry;
}

EntryView marked(EntryKind kind) {
  EntryView entry;
  entry.kind = kind;
  entry.member = 1;
  return entry;
}

std::string jsonText(const EntryView& entry) {
  std::string out;
  appendJson(entry, &out);
  return out;
}

std::string text(const EntryView& entry) {
  std::string out;
  appendText(entry, &out);
  return out;
}

TEST(EntryJson, HasItsMembersInOneOrder) {
  EXPECT_EQ(jsonText(route(7, bytes({10, 0, 0, 0}), 8, 2)),
            R"({"handle":7,"key":{"ipv4.dst":"10.0.0.0/8"},"member":2})");
  EXPECT_EQ(jsonText(aclEntry()),
            R"({"handle":9,"key":{"ipv4.src":"10.0.0.0&&&255.0.0.0","l4.dport":"80..443"},)"
            R"("priority":3,"action":"mark","params":{"port":"3","dmac":"02:00:00:00:00:01"},)"
            R"("ttl":5000})");
  EXPECT_EQ(jsonText(group()),
            R"({"handle":4,"key":{"$GROUP_ID":"7"},"max":8,)"
            R"("members":[{"member":3,"active":true},{"member":12,"active":false}]})");
  EXPECT_EQ(jsonText(marked(EntryKind::kDefault)), R"({"default":true,"member":1})");
  EXPECT_EQ(jsonText(marked(EntryKind::kFallback)), R"({"fallback":true,"member":1})");
}

TEST(EntryJson, ShowsAnEmptyGroupAndAnActionWithoutParameters) {
  EntryView empty = group();
  empty.members.clear();
  EXPECT_EQ(jsonText(empty), R"({"handle":4,"key":{"$GROUP_ID":"7"},"max":8,"members":[]})");
  EntryView entry;
  entry.kind = EntryKind::kDefault;
  entry.action = "drop";
  EXPECT_EQ(jsonText(entry), R"({"default":true,"action":"drop","params":{}})");
}

TEST(EntryJson, ShowsCounters) {
  EntryView entry;
  entry.key.push_back(
      {{"$COUNTER_INDEX", 32}, JX_RT_MATCH_EXACT, {bytes({0, 0, 0, 1}), {}, 0, true}});
  entry.counters = CounterValues{2, UINT64_MAX};
  EXPECT_EQ(
      jsonText(entry),
      R"({"handle":0,"key":{"$COUNTER_INDEX":"1"},"packets":2,"bytes":18446744073709551615})");
}

TEST(EntryJson, NamesAreEscaped) {
  EntryView entry;
  entry.action = "a\"b\\c\n\x01";
  entry.params.push_back({{"p\"", 8}, bytes({1})});
  const auto read = nlohmann::json::parse(jsonText(entry));
  EXPECT_EQ(read["action"], entry.action);
  EXPECT_EQ(read["params"]["p\""], "1");
}

TEST(EntryText, ReadsLikeACommand) {
  EXPECT_EQ(text(route(7, bytes({10, 0, 0, 0}), 8, 2)), "#7 ipv4.dst=10.0.0.0/8 -> member=2");
  EXPECT_EQ(text(aclEntry()),
            "#9 ipv4.src=10.0.0.0&&&255.0.0.0 l4.dport=80..443 priority=3 -> mark port=3 "
            "dmac=02:00:00:00:00:01 ttl=5000");
  EXPECT_EQ(text(group()), "#4 $GROUP_ID=7 max=8 members=3,12(inactive)");
  EXPECT_EQ(text(marked(EntryKind::kFallback)), "fallback -> member=1");
}

std::string dumped(const std::vector<EntryView>& entries, DumpFormat format, uint64_t* count) {
  Dump dump(format);
  for (const EntryView& entry : entries) dump.add(entry);
  *count = dump.entries();
  std::string out;
  dump.write([&](std::string_view piece) { out += piece; });
  return out;
}

TEST(Dump, SortsByKeyThenDefaultThenFallback) {
  uint64_t count = 0;
  const std::string out =
      dumped({marked(EntryKind::kFallback), route(1, bytes({200, 0, 0, 0}), 8, 1),
              route(2, bytes({10, 0, 0, 0}), 16, 1), marked(EntryKind::kDefault),
              route(3, bytes({10, 0, 0, 0}), 8, 1), route(4, bytes({9, 255, 0, 0}), 16, 1)},
             DumpFormat::kText, &count);
  EXPECT_EQ(out,
            "#4 ipv4.dst=9.255.0.0/16 -> member=1\n"
            "#3 ipv4.dst=10.0.0.0/8 -> member=1\n"
            "#2 ipv4.dst=10.0.0.0/16 -> member=1\n"
            "#1 ipv4.dst=200.0.0.0/8 -> member=1\n"
            "default -> member=1\n"
            "fallback -> member=1\n");
  EXPECT_EQ(count, 4u);
}

TEST(Dump, DoesNotDependOnTheOrderOfAddingAndLosesNothingAcrossPieces) {
  constexpr uint32_t kEntries = 40000;  // some megabytes of lines
  std::vector<EntryView> entries;
  for (uint32_t i = 0; i < kEntries; ++i) {
    entries.push_back(route(i,
                            bytes({10, static_cast<int>(i >> 16), static_cast<int>(i >> 8 & 0xff),
                                   static_cast<int>(i & 0xff)}),
                            32, i % 7));
  }
  uint64_t count = 0;
  const std::string forward = dumped(entries, DumpFormat::kJson, &count);
  std::reverse(entries.begin(), entries.end());
  EXPECT_EQ(dumped(entries, DumpFormat::kJson, &count), forward);
  EXPECT_EQ(count, kEntries);
  EXPECT_EQ(std::count(forward.begin(), forward.end(), '\n'), kEntries);
}

}  // namespace
}  // namespace jexapps
