// What slice-counters makes of blocks: rates, order, names, text, JSON and metrics.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
#include <fstream>
#include <map>
#include <nlohmann/json.hpp>

#include "metrics.h"
#include "model/program/program.h"
#include "names.h"
#include "options.h"
#include "rates.h"
#include "render.h"
#include "rows.h"

namespace slice_counters {
namespace {

using nlohmann::json;
using testing::ElementsAre;

BlockSample sampleOf(std::vector<PartnerCounterEntry> counters, uint64_t last_sync_ms,
                     uint64_t offset = 4096) {
  BlockSample sample;
  sample.block = {42, static_cast<uint32_t>(counters.size()), offset};
  sample.last_sync_ms = last_sync_ms;
  sample.counters = std::move(counters);
  return sample;
}

std::vector<uint32_t> indicesOf(const std::vector<Row>& rows) {
  std::vector<uint32_t> indices;
  for (const Row& row : rows) indices.push_back(row.index);
  return indices;
}

TEST(CounterRates, AreDifferencesOverTheTimeBetweenSyncs) {
  TableHistory sut;
  sut.add(sampleOf({{10, 100}, {5, 5}}, 1000));
  EXPECT_FALSE(sut.intervalMs());
  EXPECT_FALSE(sut.rate(0));
  sut.add(sampleOf({{13, 1000}, {5, 5}}, 3000));
  EXPECT_EQ(sut.intervalMs(), 2000u);
  EXPECT_EQ(sut.rate(0)->packets, 1.5);
  EXPECT_EQ(sut.rate(0)->bytes, 450);
  EXPECT_EQ(sut.rate(1)->packets, 0);
}

TEST(CounterRates, StayUntilTheNextSync) {
  TableHistory sut;
  sut.add(sampleOf({{0, 0}}, 1000));
  sut.add(sampleOf({{4, 4}}, 2000));
  sut.add(sampleOf({{9, 9}}, 2000));  // the next sync is under way
  EXPECT_EQ(sut.rate(0)->packets, 4);
  EXPECT_EQ(sut.latest().counters[0].packets, 4u);
  sut.add(sampleOf({{10, 10}}, 3000));
  EXPECT_EQ(sut.rate(0)->packets, 6);
}

TEST(CounterRates, ACounterThatWasClearedHasCountedFromZero) {
  TableHistory sut;
  sut.add(sampleOf({{100, 6400}}, 1000));
  sut.add(sampleOf({{7, 448}}, 2000));
  EXPECT_EQ(sut.rate(0)->packets, 7);
  EXPECT_EQ(sut.rate(0)->bytes, 448);
}

TEST(CounterRates, BeginAnewWithAnotherBlockOrAnEarlierSync) {
  TableHistory sut;
  const auto restarted = [&](BlockSample sample) {
    sut.add(sampleOf({{1, 1}}, 1000));
    sut.add(sampleOf({{2, 2}}, 2000));
    EXPECT_TRUE(sut.intervalMs());
    sut.add(std::move(sample));
    return !sut.intervalMs();
  };
  EXPECT_TRUE(restarted(sampleOf({{3, 3}}, 3000, 8192)));
  EXPECT_TRUE(restarted(sampleOf({{3, 3}, {0, 0}}, 3000)));
  EXPECT_TRUE(restarted(sampleOf({{3, 3}}, 500)));
  EXPECT_TRUE(restarted(sampleOf({{3, 3}}, 0)));
}

TEST(CounterRates, TheFirstSyncHasNone) {
  TableHistory sut;
  sut.add(sampleOf({{0, 0}}, 0));
  sut.add(sampleOf({{1000, 1000}}, 900000));
  EXPECT_FALSE(sut.intervalMs());
}

TEST(CounterRates, ATableThatIsGoneIsForgotten) {
  Histories sut;
  sut.update({sampleOf({{1, 1}}, 1000)});
  sut.update({sampleOf({{2, 2}}, 2000)});
  EXPECT_TRUE(sut.tables().at(42).intervalMs());
  sut.update({});
  EXPECT_TRUE(sut.tables().empty());
  sut.update({sampleOf({{3, 3}}, 3000)});
  EXPECT_FALSE(sut.tables().at(42).intervalMs());
}

TEST(CounterRows, LeaveOutZerosAndOrder) {
  const BlockSample sample = sampleOf({{0, 0}, {5, 1}, {9, 0}, {0, 7}, {5, 3}}, 0);
  EXPECT_THAT(indicesOf(rowsOf(sample, {})), ElementsAre(1, 2, 3, 4));
  EXPECT_THAT(indicesOf(rowsOf(sample, {Order::kIndex, true, 3})), ElementsAre(0, 1, 2));
  EXPECT_THAT(indicesOf(rowsOf(sample, {Order::kPackets, false, 0})), ElementsAre(2, 1, 4, 3));
  EXPECT_THAT(indicesOf(rowsOf(sample, {Order::kBytes, true, 0})), ElementsAre(3, 4, 1, 0, 2));
  EXPECT_THAT(indicesOf(rowsOf(sample, {Order::kBytes, false, 2})), ElementsAre(3, 4));
  EXPECT_THAT(indicesOf(rowsOf(sample, {Order::kBytes, false, 100})), ElementsAre(3, 4, 1, 2));
}

TEST(CounterRows, OfAWatchedTableOrderByRateThenByCount) {
  TableHistory history;
  history.add(sampleOf({{100, 0}, {0, 0}, {50, 0}, {10, 0}}, 1000));
  EXPECT_THAT(indicesOf(rowsOf(history, {Order::kPackets, false, 0})), ElementsAre(0, 2, 3));
  history.add(sampleOf({{100, 0}, {3, 1}, {50, 2}, {12, 0}}, 2000));
  EXPECT_THAT(indicesOf(rowsOf(history, {Order::kPackets, false, 0})), ElementsAre(1, 3, 0, 2));
  EXPECT_THAT(indicesOf(rowsOf(history, {Order::kBytes, false, 2})), ElementsAre(2, 1));
}

class CounterNames : public testing::Test {
 protected:
  std::string fileWith(const std::string& text) {
    const std::string path = testing::TempDir() + "counter_names_" +
                             testing::UnitTest::GetInstance()->current_test_info()->name();
    std::ofstream(path) << text;
    return path;
  }
  std::string errorOf(const std::string& text) {
    const std::string file = fileWith(text);
    std::string error = "none";
    try {
      sut_.add(file);
    } catch (const std::runtime_error& thrown) {
      error = thrown.what();
      EXPECT_EQ(error.substr(0, file.size() + 2), file + ": ");
      error.erase(0, file.size() + 2);
    }
    std::remove(file.c_str());
    return error;
  }

  /// A description with counter tables of those names.
  static std::string programWith(uint32_t id, const std::vector<std::string>& tables) {
    json program = {{"name", "n"},
                    {"id", id},
                    {"fields", json::array()},
                    {"actions", json::array()},
                    {"control", json::array()}};
    for (const std::string& table : tables) {
      program["tables"].push_back({{"name", table}, {"kind", "counter"}, {"size", 1}});
    }
    return program.dump();
  }

  TableNames sut_;
};

TEST_F(CounterNames, AreFoundAndResolved) {
  sut_.add(JEX_PROGRAMS_DIR "/router.json");
  EXPECT_EQ(*sut_.find(2 << 16 | 6), "route_counters");
  EXPECT_EQ(sut_.find(2 << 16 | 99), nullptr);
  EXPECT_EQ(sut_.resolve("acl_counters"), 2u << 16 | 7);
  EXPECT_EQ(sut_.resolve("42"), 42u);
  EXPECT_THROW(sut_.resolve("port_counters"), std::runtime_error);
  EXPECT_THROW(sut_.resolve("4294967296"), std::runtime_error);
  EXPECT_THROW(sut_.resolve(""), std::runtime_error);
}

TEST_F(CounterNames, AreThoseOfTheLoader) {
  for (const char* const file :
       {JEX_PROGRAMS_DIR "/router.json", JEX_PROGRAMS_DIR "/l2_switch.json",
        JEX_PROGRAMS_DIR "/limits.json"}) {
    jxmodel::LoadError error;
    const auto program = jxmodel::loadProgramJson(file, &error);
    ASSERT_NE(program, nullptr) << error.text();
    ASSERT_FALSE(program->tables.empty());
    sut_.add(file);
    for (const jxmodel::Table& table : program->tables) {
      ASSERT_NE(sut_.find(table.id), nullptr) << table.name;
      EXPECT_EQ(*sut_.find(table.id), table.name);
    }
  }
}

TEST_F(CounterNames, ANameOfTwoProgramsIsNoName) {
  EXPECT_EQ(errorOf(programWith(1, {"a", "b"})), "none");
  EXPECT_EQ(errorOf(programWith(2, {"c", "b"})), "none");
  EXPECT_EQ(sut_.resolve("c"), 2u << 16 | 1);
  EXPECT_THROW(sut_.resolve("b"), std::runtime_error);
}

TEST_F(CounterNames, SayWhatIsWrongWithADescription) {
  EXPECT_EQ(errorOf("{"),
            "line 1, column 2: syntax error while parsing object key - unexpected end of input; "
            "expected string literal");
  EXPECT_EQ(errorOf("[]"), "/: must be an object");
  EXPECT_EQ(errorOf(programWith(2, {"a"})), "none");
  EXPECT_EQ(errorOf(programWith(2, {"b"})), "table b: another program has the id 131073");
}

TEST_F(CounterNames, AreThoseOfTheCompiler) {
  const std::string program = JEX_P4_PROGRAMS_DIR "/l2_learn";
  sut_.add(program + ".json");
  EXPECT_EQ(*sut_.find(307059620), "BridgeIngress.port_rx");
  EXPECT_EQ(sut_.resolve("BridgeIngress.station_hits"), 323169891u);
}

TEST(CounterText, SaysWhenAndWhat) {
  const TableNames names;
  const View view{Format::kText, {}, 61500};
  EXPECT_EQ(renderTables({sampleOf({{0, 0}, {1, 64}}, 60000), sampleOf({}, 0)}, names, view),
            "table 42, 2 entries, synced 1.500 s ago\n"
            "     INDEX              PACKETS                BYTES\n"
            "         1                    1                   64\n"
            "\n"
            "table 42, 0 entries, synced never\n");
  EXPECT_EQ(renderList({sampleOf({}, 90000)}, names, view),
            "  TABLE_ID    ENTRIES         SYNCED  TABLE\n"
            "        42          0    0.000 s ago  -\n");
  EXPECT_EQ(renderWatched({}, names, view), "no counters\n");
}

TEST(CounterText, OfJsonIsJson) {
  TableNames names;
  const View view{Format::kJson, {}, 61500};
  Histories histories;
  histories.update({sampleOf({{1, 64}}, 60000)});
  histories.update({sampleOf({{2, 64}}, 60003)});
  const json look = json::parse(renderWatched(histories, names, view));
  EXPECT_EQ(look["now_ms"], 61500);
  EXPECT_EQ(look["tables"][0]["interval_ms"], 3);
  EXPECT_EQ(look["tables"][0]["age_ms"], 1497);
  EXPECT_EQ(look["tables"][0]["counters"][0]["packets_per_second"], 1 / 0.003);
  EXPECT_EQ(json::parse(renderTables({}, names, view)), json::array());
  EXPECT_EQ(json::parse(renderWatched({}, names, view))["tables"], json::array());
}

TEST(CounterMetrics, ShareTheLimitEvenly) {
  EXPECT_THAT(shareOut({}, 10), ElementsAre());
  EXPECT_THAT(shareOut({3, 4}, 10), ElementsAre(3, 4));
  EXPECT_THAT(shareOut({100, 2, 100}, 12), ElementsAre(5, 2, 5));
  EXPECT_THAT(shareOut({100, 2, 100}, 13), ElementsAre(5, 2, 6));
  EXPECT_THAT(shareOut({5, 5}, 0), ElementsAre(0, 0));
}

TEST(CounterMetrics, LeaveOutZerosAndWhatWasNeverSynced) {
  const auto families = metricsOf({sampleOf({{0, 0}, {1, 64}, {0, 0}}, 0)}, {}, 5000, 100);
  std::map<std::string, size_t> series;
  for (const prometheus::MetricFamily& family : families)
    series[family.name] = family.metric.size();
  EXPECT_EQ(series, (std::map<std::string, size_t>{{"jex_counters_segment_present", 1},
                                                   {"jex_counters_entries", 1},
                                                   {"jex_counters_last_sync_age_seconds", 0},
                                                   {"jex_counters_packets_total", 1},
                                                   {"jex_counters_bytes_total", 1},
                                                   {"jex_counters_entries_omitted", 1}}));
  EXPECT_EQ(metricsOfNone().size(), 1u);
  EXPECT_EQ(metricsOfNone()[0].metric[0].gauge.value, 0);
}

TEST(CounterOptions, IntervalsHaveUnits) {
  using std::chrono::milliseconds;
  EXPECT_EQ(parseInterval("1s"), milliseconds(1000));
  EXPECT_EQ(parseInterval("1.5"), milliseconds(1500));
  EXPECT_EQ(parseInterval("250ms"), milliseconds(250));
  EXPECT_EQ(parseInterval("2m"), milliseconds(120000));
  for (const char* const wrong :
       {"", "s", "-1s", "1h", "1 s", "9ms", "1e99", "nan", "0x1p4000", "1440.1m"}) {
    EXPECT_FALSE(parseInterval(wrong)) << wrong;
  }
}

TEST(CounterOptions, AddressesAreNumbers) {
  for (const char* const right : {"127.0.0.1:9101", "0.0.0.0:0", "[::1]:65535", "[::]:80"}) {
    EXPECT_TRUE(isAddress(right)) << right;
  }
  for (const char* const wrong :
       {"", ":80", "localhost:80", "127.0.0.1", "127.0.0.1:65536", "::1:80", "[]:80",
        "127.0.0.1:80s", "127.0.0.1:80,81", "127.0.0.1:"}) {
    EXPECT_FALSE(isAddress(wrong)) << wrong;
  }
}

}  // namespace
}  // namespace slice_counters
