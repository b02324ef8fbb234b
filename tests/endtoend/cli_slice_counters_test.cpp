// slice-counters as people run it, on segments that the tests make and fill.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>

#include "endtoend/cli_run.h"
#include "endtoend/counter_segment.h"
#include "support/child.h"
#include "support/private_world.h"
#include "support/wait_until.h"

namespace {

using jextest::Child;
using jextest::CounterSegment;
using jextest::finish;
using jextest::Finished;
using jextest::isOneLine;
using jextest::kRouteCounters;
using jextest::waitUntil;
using jextest::Words;
using nlohmann::json;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;
using testing::StartsWith;

// Tables of programs/router.json and programs/l2_switch.json.
constexpr uint32_t kAclCounters = 2 << 16 | 7;
constexpr uint32_t kPortCounters = 1 << 16 | 3;

const std::string kRouter = JEX_PROGRAMS_DIR "/router.json";
const std::string kSwitch = JEX_PROGRAMS_DIR "/l2_switch.json";
const std::string kAbsent =
    "there is no shared segment PARTNERLIB_SHM_COUNTERS: no Partner has started counters\n";

uint64_t nowMs() {
  const auto now = std::chrono::steady_clock::now().time_since_epoch();
  return static_cast<uint64_t>(std::chrono::duration_cast<std::chrono::milliseconds>(now).count());
}

Finished sliceCounters(const Words& arguments) {
  return finish(Child(JEX_SLICE_COUNTERS, arguments));
}

/// What it prints as JSON.
json printed(Words arguments) {
  arguments.push_back("--json");
  const Finished run = sliceCounters(arguments);
  EXPECT_TRUE(run.endedWith(0)) << run.error;
  EXPECT_THAT(run.error, IsEmpty());
  EXPECT_THAT(run.output, SizeIs(1));
  return run.output.empty() ? json() : json::parse(run.output[0]);
}

json counter(uint32_t index, uint64_t packets, uint64_t bytes) {
  return {{"index", index}, {"packets", packets}, {"bytes", bytes}};
}

json counter(uint32_t index, uint64_t packets, uint64_t bytes, double packet_rate,
             double byte_rate) {
  json entry = counter(index, packets, bytes);
  entry["packets_per_second"] = packet_rate;
  entry["bytes_per_second"] = byte_rate;
  return entry;
}

/// A slice-counters that watches, as JSON.
class Watch {
 public:
  explicit Watch(Words more = {}) : child_(JEX_SLICE_COUNTERS, argumentsWith(std::move(more))) {}

  /// The table at the first look at which `condition` holds for it; null if none comes.
  template <typename Condition>
  json tableWhen(uint32_t table_id, Condition condition) {
    json found;
    EXPECT_TRUE(waitUntil([&] {
      const json seen = look();
      for (const json& table : seen["tables"]) {
        if (table["table_id"] != table_id || !condition(table)) continue;
        found = table;
        return true;
      }
      return child_.ended();
    })) << child_.standardError();
    return found;
  }

  json tableSyncedAt(uint32_t table_id, uint64_t time) {
    return tableWhen(table_id, [&](const json& table) { return table["last_sync_ms"] == time; });
  }

  json look() {
    const std::string line = child_.readLine();
    const json value = json::parse(line, nullptr, false);
    if (value.is_discarded()) {
      ADD_FAILURE() << line << '\n' << child_.standardError();
      return {{"tables", json::array()}};
    }
    return value;
  }

  Child& child() { return child_; }

 private:
  static Words argumentsWith(Words more) {
    more.insert(more.end(), {"--watch", "10ms", "--json"});
    return more;
  }

  Child child_;
};

bool waitForError(const Child& child, const std::string& text) {
  return waitUntil([&] { return child.standardError().find(text) != std::string::npos; });
}

TEST(SliceCounters, ListsTablesWithSizeTimeAndName) {
  CounterSegment segment;
  segment.construct(kRouteCounters, 1024);
  segment.construct(kPortCounters, 12);
  segment.construct(4294967295, 0);
  segment.construct(9, 1);
  segment.constructOther("no table", 28);
  segment.constructOther("007", 28);
  segment.constructOther("4294967296", 28);
  segment.constructOther("10", 29);  // no block has this length
  const uint64_t synced = nowMs();
  segment.sync(kRouteCounters, synced);

  json list = printed({"--program", kRouter, "--program", kSwitch});
  ASSERT_THAT(list, SizeIs(4));
  const uint64_t age = list[2]["age_ms"];
  EXPECT_LE(age, nowMs() - synced);
  list[2].erase("age_ms");
  const auto never = [](uint32_t id, const json& name, uint32_t entries) {
    return json{{"table_id", id},
                {"table", name},
                {"entries", entries},
                {"last_sync_ms", nullptr},
                {"age_ms", nullptr}};
  };
  EXPECT_EQ(list[0], never(9, nullptr, 1));
  EXPECT_EQ(list[1], never(kPortCounters, "port_counters", 12));
  EXPECT_EQ(list[2], json({{"table_id", kRouteCounters},
                           {"table", "route_counters"},
                           {"entries", 1024},
                           {"last_sync_ms", synced}}));
  EXPECT_EQ(list[3], never(4294967295, nullptr, 0));

  EXPECT_THAT(sliceCounters({"--program", kSwitch}).output,
              ElementsAre("  TABLE_ID    ENTRIES         SYNCED  TABLE",
                          "         9          1          never  -",
                          "     65539         12          never  port_counters",
                          testing::MatchesRegex("    131078       1024  +[0-9.]+ s ago  -"),
                          "4294967295          0          never  -"));
}

TEST(SliceCounters, ListsNothingOfAnEmptySegment) {
  CounterSegment segment;
  EXPECT_EQ(printed({}), json::array());
  EXPECT_EQ(printed({"--all"}), json::array());
  segment.construct(9, 1);
  segment.destroy(9);
  EXPECT_EQ(printed({}), json::array());
}

TEST(SliceCounters, PrintsWhatHasCounted) {
  CounterSegment segment;
  segment.construct(kRouteCounters, 8);
  segment.construct(kAclCounters, 4);
  segment.set(kRouteCounters, 0, 3, 192);
  segment.set(kRouteCounters, 2, 18446744073709551615u, 0);
  segment.set(kRouteCounters, 7, 0, 500);
  segment.set(kAclCounters, 3, 1, 60);

  EXPECT_THAT(sliceCounters({"route_counters", "--program", kRouter}).output,
              ElementsAre("table 131078 (route_counters), 8 entries, synced never",
                          "     INDEX              PACKETS                BYTES",
                          "         0                    3                  192",
                          "         2 18446744073709551615                    0",
                          "         7                    0                  500"));
  const json all = printed({"--all"});
  ASSERT_THAT(all, SizeIs(2));
  EXPECT_EQ(all[0]["counters"],
            json({counter(0, 3, 192), counter(2, 18446744073709551615u, 0), counter(7, 0, 500)}));
  EXPECT_EQ(all[1]["counters"], json({counter(3, 1, 60)}));

  const std::string id = std::to_string(kRouteCounters);
  EXPECT_EQ(printed({id, "--sort", "bytes", "--top", "2"})[0]["counters"],
            json({counter(7, 0, 500), counter(0, 3, 192)}));
  EXPECT_EQ(printed({id, "--sort", "packets", "--top", "2"})[0]["counters"],
            json({counter(2, 18446744073709551615u, 0), counter(0, 3, 192)}));
  EXPECT_THAT(printed({id, "--zero"})[0]["counters"], SizeIs(8));
  EXPECT_THAT(printed({id}), SizeIs(1));
}

TEST(SliceCounters, SaysWhatItCannotShow) {
  const auto errorOf = [](const Words& arguments) {
    const Finished run = sliceCounters(arguments);
    EXPECT_TRUE(run.endedWith(1));
    EXPECT_THAT(run.output, IsEmpty());
    return run.error;
  };
  EXPECT_EQ(errorOf({}), "slice-counters: " + kAbsent);
  EXPECT_EQ(errorOf({"--all"}), "slice-counters: " + kAbsent);
  EXPECT_EQ(errorOf({"acl_counters"}),
            "slice-counters: unknown table 'acl_counters': give its id, or its program with "
            "--program\n");
  EXPECT_EQ(errorOf({"--program", "/none.json"}),
            "slice-counters: /none.json: cannot be read: No such file or directory\n");
  CounterSegment segment;
  segment.construct(9, 1);
  EXPECT_EQ(errorOf({"9", "10"}), "slice-counters: no Partner has started counters of table 10\n");
  EXPECT_EQ(errorOf({"--program", kRouter, "acl_counters"}),
            "slice-counters: no Partner has started counters of table 131079 (acl_counters)\n");
}

TEST(SliceCounters, RefusesAWrongCommandLine) {
  const std::vector<Words> wrong{{"--watch", "0s"},
                                 {"--watch", "1h"},
                                 {"--sort", "name", "--all"},
                                 {"--sort", "bytes"},
                                 {"--all", "9"},
                                 {"--count", "3"},
                                 {"--prometheus", "localhost"},
                                 {"--prometheus", "127.0.0.1:65536"},
                                 {"--prometheus", "127.0.0.1:0", "--watch", "1s"},
                                 {"--max-series", "7"},
                                 {"--unknown"}};
  for (const Words& arguments : wrong) {
    const Finished run = sliceCounters(arguments);
    EXPECT_TRUE(run.endedWith(2)) << testing::PrintToString(arguments);
    EXPECT_TRUE(isOneLine(run.error)) << run.error;
    EXPECT_THAT(run.error,
                AllOf(StartsWith("slice-counters: "), HasSubstr("(see slice-counters --help)")));
  }
}

TEST(SliceCounters, ReadsWithoutTheLockAndWritesNothing) {
  CounterSegment segment;
  segment.construct(kRouteCounters, 100000);
  segment.set(kRouteCounters, 99999, 5, 6);
  const auto contents = [] {
    std::ifstream in(CounterSegment::path(), std::ios::binary);
    std::string start(4 << 20, '\0');
    EXPECT_TRUE(in.read(start.data(), static_cast<std::streamsize>(start.size())));
    return start;
  };
  struct stat before {};
  ASSERT_EQ(stat(CounterSegment::path().c_str(), &before), 0);
  segment.locked([&] {
    const std::string bytes = contents();
    EXPECT_EQ(printed({"--all"})[0]["counters"], json({counter(99999, 5, 6)}));
    EXPECT_TRUE(contents() == bytes);
  });
  struct stat after {};
  ASSERT_EQ(stat(CounterSegment::path().c_str(), &after), 0);
  EXPECT_EQ(after.st_blocks, before.st_blocks) << "the segment takes more memory";
}

TEST(SliceCounters, WatchTellsRatesBetweenSyncs) {
  CounterSegment segment;
  segment.construct(kRouteCounters, 8);
  segment.set(kRouteCounters, 1, 10, 1000);
  segment.set(kRouteCounters, 5, 7, 700);
  segment.sync(kRouteCounters, 1000);

  Watch watch({"--program", kRouter});
  json table = watch.tableSyncedAt(kRouteCounters, 1000);
  EXPECT_EQ(table["table"], "route_counters");
  EXPECT_EQ(table["interval_ms"], nullptr);
  EXPECT_EQ(table["counters"][0]["packets_per_second"], nullptr);

  segment.set(kRouteCounters, 1, 11, 1064);
  segment.set(kRouteCounters, 5, 107, 6100);
  segment.set(kRouteCounters, 6, 4, 256);
  segment.sync(kRouteCounters, 3000);
  table = watch.tableSyncedAt(kRouteCounters, 3000);
  EXPECT_EQ(table["interval_ms"], 2000);
  EXPECT_EQ(table["counters"], json({counter(5, 107, 6100, 50, 2700), counter(6, 4, 256, 2, 128),
                                     counter(1, 11, 1064, 0.5, 32)}));
  // Nothing was synced since: the rates stay.
  EXPECT_EQ(watch.look().at("tables").at(0).at("counters"), table["counters"]);
}

TEST(SliceCounters, WatchPrintsTextAndEndsByItself) {
  CounterSegment segment;
  segment.construct(9, 2);
  segment.set(9, 1, 10, 1000);
  segment.sync(9, 1000);
  Child watch(JEX_SLICE_COUNTERS, {"9", "--watch", "10ms", "--count", "100000"});
  EXPECT_THAT(watch.readLine(), StartsWith("table 9, 2 entries, synced "));
  EXPECT_EQ(watch.readLine(), "     INDEX              PACKETS                BYTES");
  EXPECT_EQ(watch.readLine(), "         1                   10                 1000");
  EXPECT_EQ(watch.readLine(), "");
  segment.set(9, 1, 30, 2000);
  segment.sync(9, 5000);
  std::string line;
  EXPECT_TRUE(waitUntil([&] {
    line = watch.readLine();
    return line.find("rates over 4.000 s") != std::string::npos;
  }));
  EXPECT_EQ(watch.readLine(),
            "     INDEX              PACKETS                BYTES        PACKETS/S"
            "            BYTES/S");
  EXPECT_EQ(watch.readLine(),
            "         1                   30                 2000            5.000"
            "            250.000");
  const Finished three = sliceCounters({"--watch", "10ms", "--count", "3", "--json"});
  EXPECT_TRUE(three.endedWith(0));
  EXPECT_THAT(three.output, SizeIs(3));
}

TEST(SliceCounters, WatchNoticesBlocksThatComeAndGo) {
  CounterSegment segment;
  Watch watch;
  EXPECT_EQ(watch.look().at("tables"), json::array());
  segment.construct(9, 1);
  segment.set(9, 0, 1, 1);
  segment.sync(9, 1000);
  EXPECT_EQ(watch.tableSyncedAt(9, 1000)["entries"], 1);
  segment.construct(10, 3);
  EXPECT_EQ(watch.tableWhen(10, [](const json&) { return true; })["entries"], 3);
  segment.destroy(9);
  EXPECT_TRUE(waitUntil([&] {
    const json look = watch.look();
    return look["tables"].size() == 1 && look["tables"][0]["table_id"] == 10;
  }));
  // A block of the same name has nothing to do with the one that was freed.
  segment.construct(9, 1);
  segment.set(9, 0, 100, 100);
  segment.sync(9, 2000);
  EXPECT_EQ(watch.tableSyncedAt(9, 2000)["interval_ms"], nullptr);
}

TEST(SliceCounters, WatchWaitsForTheSegment) {
  Watch watch;
  ASSERT_TRUE(waitForError(watch.child(), "\n"));
  EXPECT_EQ(watch.child().standardError(), "slice-counters: waiting: " + kAbsent);
  CounterSegment segment;
  segment.construct(9, 1);
  segment.sync(9, 1000);
  EXPECT_EQ(watch.tableSyncedAt(9, 1000)["entries"], 1);
  EXPECT_THAT(watch.child().standardError(),
              HasSubstr("slice-counters: reading PARTNERLIB_SHM_COUNTERS\n"));
}

TEST(SliceCounters, WatchFollowsTheNameToANewSegment) {
  CounterSegment first;
  first.construct(9, 1);
  first.set(9, 0, 50, 50);
  first.sync(9, 1000);
  Watch watch;
  EXPECT_EQ(watch.tableSyncedAt(9, 1000)["counters"][0]["packets"], 50);

  // As a Partner that starts does it. The block is at the same place, and newer.
  CounterSegment second;
  second.construct(9, 1);
  second.set(9, 0, 70, 70);
  second.sync(9, 2000);
  first.sync(9, 3000);  // nobody looks there any more
  const json table = watch.tableSyncedAt(9, 2000);
  EXPECT_EQ(table["counters"][0]["packets"], 70);
  EXPECT_EQ(table["interval_ms"], nullptr) << "rates from one segment to another mean nothing";
  EXPECT_TRUE(waitForError(watch.child(), "which is another one now"));

  CounterSegment::remove();
  ASSERT_TRUE(waitForError(watch.child(), kAbsent));
  CounterSegment third;
  third.construct(11, 5);
  EXPECT_EQ(watch.tableWhen(11, [](const json&) { return true; })["entries"], 5);
}

TEST(SliceCounters, ASignalEndsItInOrder) {
  CounterSegment segment;
  segment.construct(9, 20000);
  for (uint32_t i = 0; i < 20000; ++i) segment.set(9, i, 1, 1);
  for (const int signal : {SIGINT, SIGTERM}) {
    Child watch(JEX_SLICE_COUNTERS, {"--watch", "10ms", "--count", "1000000"});
    EXPECT_THAT(watch.readLine(), StartsWith("table 9"));
    // It stands with a full pipe: nobody reads a look of a megabyte.
    watch.signal(signal);
    const jextest::Exit end = watch.waitForExit();
    EXPECT_EQ(end.signal, 0);
    EXPECT_EQ(end.code, 0);
  }
  CounterSegment::remove();
  for (const int signal : {SIGINT, SIGTERM}) {
    Child waiting(JEX_SLICE_COUNTERS, {"--watch", "1s"});
    ASSERT_TRUE(waitForError(waiting, kAbsent));
    waiting.signal(signal);
    EXPECT_EQ(waiting.waitForExit().code, 0);
  }
}

TEST(SliceCounters, AMillionEntries) {
  constexpr uint32_t kEntries = 1000000;
  CounterSegment segment;
  segment.construct(kRouteCounters, kEntries);
  for (uint32_t i = 0; i < kEntries; ++i) segment.set(kRouteCounters, i, i, uint64_t{i} * 64);
  // Through a file: a line of 50 MB is much for a child's output.
  const std::string file = jextest::runDirectory() + "/million.json";
  const std::string command = std::string(JEX_SLICE_COUNTERS) + " --all --json > " + file;
  ASSERT_TRUE(finish(Child("/bin/sh", {"-c", command})).endedWith(0));
  std::ifstream in(file);
  json table = json::parse(in)[0];
  ASSERT_THAT(table["counters"], SizeIs(kEntries - 1));
  for (uint32_t i = 1; i < kEntries; i += 997) {
    ASSERT_EQ(table["counters"][i - 1], counter(i, i, uint64_t{i} * 64));
  }
  EXPECT_EQ(printed({"--all", "--sort", "packets", "--top", "2"})[0]["counters"],
            json({counter(999999, 999999, 63999936), counter(999998, 999998, 63999872)}));

  segment.sync(kRouteCounters, 1000);
  Watch watch({"--top", "1"});
  watch.tableSyncedAt(kRouteCounters, 1000);
  segment.set(kRouteCounters, 123456, 223456, 0);
  segment.sync(kRouteCounters, 2000);
  table = watch.tableSyncedAt(kRouteCounters, 2000);
  EXPECT_EQ(table["counters"][0]["index"], 123456);
  EXPECT_EQ(table["counters"][0]["packets_per_second"], 100000);
}

TEST(SliceCounters, SaysWhatIsWrongWithASegment) {
  const auto errorOf = [] { return sliceCounters({}).error; };
  const std::string path = CounterSegment::path();
  std::filesystem::remove(path);

  std::ofstream(path) << "";
  EXPECT_THAT(errorOf(), HasSubstr("is not ready: it is being made, or its maker has died\n"));
  std::filesystem::resize_file(path, 4096);
  EXPECT_EQ(errorOf(),
            "slice-counters: the shared segment PARTNERLIB_SHM_COUNTERS has 4096 bytes instead of "
            "134217728: it was not made by a Partner\n");
  std::filesystem::resize_file(path, 134217728);
  EXPECT_THAT(errorOf(), HasSubstr("is not ready"));
  std::filesystem::remove(path);
  ASSERT_EQ(mkfifo(path.c_str(), 0644), 0);
  EXPECT_THAT(errorOf(), HasSubstr("is not a file of shared memory\n"));
  std::filesystem::remove(path);

  CounterSegment segment;
  segment.construct(9, 1);
  const int fd = open(path.c_str(), O_WRONLY);
  const std::string nonsense(4096 - 16, '\x55');
  ASSERT_EQ(pwrite(fd, nonsense.data(), nonsense.size(), 16), 4096 - 16);
  close(fd);
  EXPECT_EQ(errorOf(),
            "slice-counters: the index of names in the shared segment PARTNERLIB_SHM_COUNTERS is "
            "damaged\n");
  std::filesystem::remove(path);
}

}  // namespace
