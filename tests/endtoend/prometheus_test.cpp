// What slice-counters serves, before a real Prometheus: it scrapes, keeps, and is asked.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

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
using jextest::kRouteCounters;
using jextest::runDirectory;
using jextest::waitUntil;
using jextest::Words;
using nlohmann::json;
using testing::Contains;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

const std::string kReady = "slice-counters: serving ";

/// Series by their labels, as one text: "index=7 table_id=9".
using Values = std::map<std::string, double>;

/// A slice-counters that serves on a free port.
class Server {
 public:
  explicit Server(Words more = {}) : child_(JEX_SLICE_COUNTERS, argumentsWith(std::move(more))) {
    const std::string line = child_.readLine();
    EXPECT_THAT(line, StartsWith(kReady)) << child_.standardError();
    url_ = line.substr(std::min(line.size(), kReady.size()));
  }

  const std::string& url() const { return url_; }
  /// "127.0.0.1:NNNNN"
  std::string address() const {
    const size_t start = url_.find("//") + 2;
    return url_.substr(start, url_.rfind('/') - start);
  }
  Words scrape() const {
    const Finished run = finish(Child(JEX_CURL, {"--silent", "--show-error", "--fail", url_}));
    EXPECT_TRUE(run.endedWith(0)) << run.error;
    return run.output;
  }
  Child& child() { return child_; }

 private:
  static Words argumentsWith(Words more) {
    more.insert(more.end(), {"--prometheus", "127.0.0.1:0"});
    return more;
  }

  Child child_;
  std::string url_;
};

/// A Prometheus with a data folder of its own that scrapes `target` every second.
class Prometheus {
 public:
  explicit Prometheus(const std::string& target) {
    const std::string folder = runDirectory() + "/prometheus";
    std::filesystem::create_directory(folder);
    std::ofstream(folder + "/config.yml")
        << "global:\n  scrape_interval: 1s\n  scrape_timeout: 1s\n"
        << "scrape_configs:\n  - job_name: counters\n    static_configs:\n"
        << "      - targets: ['" << target << "']\n";
    child_ = std::make_unique<Child>(
        JEX_PROMETHEUS,
        Words{"--config.file=" + folder + "/config.yml", "--storage.tsdb.path=" + folder + "/data",
              "--web.listen-address=" + std::string(kAddress)});
  }

  /// The answer to a query: labels (without those that Prometheus gives) and values. Empty while it
  /// does not answer.
  Values query(const std::string& expression) const {
    const Finished run = finish(Child(
        JEX_CURL, {"--silent", "--write-out", "\\n", "--get", "--data-urlencode",
                   "query=" + expression, "http://" + std::string(kAddress) + "/api/v1/query"}));
    if (!run.endedWith(0) || run.output.empty()) return {};
    const json answer = json::parse(run.output[0], nullptr, false);
    if (answer.is_discarded() || answer.value("status", "") != "success") return {};
    Values values;
    for (const json& series : answer["data"]["result"]) {
      std::string labels;
      for (const auto& [name, value] : series["metric"].items()) {
        if (name == "__name__" || name == "instance" || name == "job") continue;
        labels += (labels.empty() ? "" : " ") + name + '=' + value.get<std::string>();
      }
      values[labels] = std::stod(series["value"][1].get<std::string>());
    }
    return values;
  }

  /// Whether the answer to a query becomes `expected`.
  testing::AssertionResult answers(const std::string& expression, const Values& expected) {
    Values last;
    const bool equal = waitUntil([&] {
      last = query(expression);
      return last == expected || child_->ended();
    });
    if (equal && last == expected) return testing::AssertionSuccess();
    return testing::AssertionFailure()
           << expression << " is " << testing::PrintToString(last) << '\n'
           << child_->standardError();
  }

 private:
  static constexpr const char* kAddress = "127.0.0.1:9090";
  std::unique_ptr<Child> child_;
};

std::string valueOf(const Words& exposition, const std::string& series) {
  for (const std::string& line : exposition) {
    if (line.rfind(series + ' ', 0) == 0) return line.substr(series.size() + 1);
  }
  return "none";
}

TEST(SliceCountersMetrics, PrometheusKeepsWhatTheBlocksHold) {
  CounterSegment segment;
  segment.construct(kRouteCounters, 1024);
  segment.construct(9, 4);
  segment.set(kRouteCounters, 7, 3, 192);
  segment.set(kRouteCounters, 1023, 9007199254740991, 1);
  segment.set(9, 0, 0, 77);
  segment.sync(kRouteCounters, 1);
  Server server({"--program", JEX_PROGRAMS_DIR "/router.json"});
  Prometheus prometheus(server.address());

  const std::string routes = "table=route_counters table_id=131078";
  EXPECT_TRUE(
      prometheus.answers("jex_counters_packets_total", {{"index=7 " + routes, 3},
                                                        {"index=1023 " + routes, 9007199254740991},
                                                        {"index=0 table_id=9", 0}}));
  EXPECT_TRUE(prometheus.answers(
      "jex_counters_bytes_total",
      {{"index=7 " + routes, 192}, {"index=1023 " + routes, 1}, {"index=0 table_id=9", 77}}));
  EXPECT_TRUE(prometheus.answers("jex_counters_entries", {{routes, 1024}, {"table_id=9", 4}}));
  EXPECT_TRUE(prometheus.answers("jex_counters_entries_omitted", {{routes, 0}, {"table_id=9", 0}}));
  EXPECT_TRUE(prometheus.answers("jex_counters_segment_present", {{"", 1}}));
  const Values ages = prometheus.query("jex_counters_last_sync_age_seconds");
  ASSERT_EQ(ages.size(), 1u) << "table 9 was never synced";
  EXPECT_GT(ages.at(routes), 0);

  // It counts on, the table stops, the segment goes.
  segment.set(kRouteCounters, 7, 1000003, 64000192);
  segment.destroy(9);
  EXPECT_TRUE(prometheus.answers(
      "jex_counters_packets_total",
      {{"index=7 " + routes, 1000003}, {"index=1023 " + routes, 9007199254740991}}));
  EXPECT_TRUE(prometheus.answers("increase(jex_counters_packets_total{index='1023'}[1h])",
                                 {{"index=1023 " + routes, 0}}));
  CounterSegment::remove();
  EXPECT_TRUE(prometheus.answers("jex_counters_segment_present", {{"", 0}}));
  EXPECT_TRUE(prometheus.answers("jex_counters_packets_total", {}));
}

TEST(SliceCountersMetrics, AreWrittenAsPrometheusWantsThem) {
  CounterSegment segment;
  segment.construct(kRouteCounters, 8);
  segment.set(kRouteCounters, 7, 3, 192);
  segment.sync(kRouteCounters, 1);
  Server server({"--program", JEX_PROGRAMS_DIR "/router.json"});
  const Words exposition = server.scrape();
  EXPECT_THAT(exposition,
              Contains("jex_counters_packets_total{table=\"route_counters\",table_id=\"131078\","
                       "index=\"7\"} 3"));
  EXPECT_THAT(exposition, Contains("# TYPE jex_counters_packets_total counter"));
  EXPECT_THAT(exposition, Contains("# TYPE jex_counters_entries gauge"));

  Child promtool(JEX_PROMTOOL, {"check", "metrics"});
  for (const std::string& line : exposition) {
    if (line.find("exposer_") == std::string::npos) promtool.say(line);
  }
  promtool.closeInput();
  const Finished verdict = finish(std::move(promtool));
  EXPECT_TRUE(verdict.endedWith(0)) << verdict.error;
  EXPECT_THAT(verdict.error, IsEmpty());
}

TEST(SliceCountersMetrics, AHugeTableIsLeftOutBeyondTheLimitAndSaidSo) {
  constexpr uint32_t kEntries = 1000000;
  CounterSegment segment;
  segment.construct(9, kEntries);
  segment.construct(10, 3);
  for (uint32_t i = 0; i < kEntries; ++i) segment.set(9, i, i, i);
  segment.set(10, 1, 5, 6);
  Server server({"--max-series", "100"});
  const Words exposition = server.scrape();
  const auto seriesOf = [&](const std::string& name) {
    return std::count_if(exposition.begin(), exposition.end(),
                         [&](const std::string& line) { return line.rfind(name + '{', 0) == 0; });
  };
  EXPECT_EQ(seriesOf("jex_counters_packets_total"), 50);
  EXPECT_EQ(seriesOf("jex_counters_bytes_total"), 50);
  EXPECT_EQ(valueOf(exposition, "jex_counters_packets_total{table_id=\"10\",index=\"1\"}"), "5");
  EXPECT_EQ(valueOf(exposition, "jex_counters_packets_total{table_id=\"9\",index=\"49\"}"), "49");
  EXPECT_EQ(valueOf(exposition, "jex_counters_packets_total{table_id=\"9\",index=\"50\"}"), "none");
  EXPECT_EQ(valueOf(exposition, "jex_counters_entries_omitted{table_id=\"9\"}"), "999950");
  EXPECT_EQ(valueOf(exposition, "jex_counters_entries_omitted{table_id=\"10\"}"), "0");
}

TEST(SliceCountersMetrics, WaitForTheSegmentAndEndByASignal) {
  Server server;
  EXPECT_THAT(server.child().standardError(), HasSubstr("waiting: there is no shared segment"));
  EXPECT_EQ(valueOf(server.scrape(), "jex_counters_segment_present"), "0");
  CounterSegment segment;
  segment.construct(9, 1);
  EXPECT_EQ(valueOf(server.scrape(), "jex_counters_entries{table_id=\"9\"}"), "1");

  const Finished second = finish(Child(JEX_SLICE_COUNTERS, {"--prometheus", server.address()}));
  EXPECT_TRUE(second.endedWith(1));
  EXPECT_THAT(second.error, HasSubstr("cannot serve on " + server.address() + ": the port is "));

  for (const int signal : {SIGINT, SIGTERM}) {
    Server ended;
    ended.child().signal(signal);
    const jextest::Exit end = ended.child().waitForExit();
    EXPECT_EQ(end.signal, 0);
    EXPECT_EQ(end.code, 0);
  }
}

/// A connection on which nothing is sent.
class IdleConnection {
 public:
  explicit IdleConnection(const std::string& host_and_port)
      : fd_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    const std::string port = host_and_port.substr(host_and_port.rfind(':') + 1);
    address.sin_port = htons(static_cast<uint16_t>(std::stoi(port)));
    EXPECT_EQ(connect(fd_, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
  }
  ~IdleConnection() { close(fd_); }
  IdleConnection(const IdleConnection&) = delete;
  IdleConnection& operator=(const IdleConnection&) = delete;

 private:
  const int fd_;
};

TEST(SliceCountersMetrics, AreServedBesideConnectionsWithoutARequest) {
  CounterSegment segment;
  segment.construct(9, 1);
  Server server;
  std::vector<std::unique_ptr<IdleConnection>> idle;
  for (int i = 0; i < 16; ++i) idle.push_back(std::make_unique<IdleConnection>(server.address()));
  const Finished run =
      finish(Child(JEX_CURL, {"--silent", "--show-error", "--fail", "--max-time",
                              std::to_string(jextest::kPatience.count()), server.url()}));
  EXPECT_TRUE(run.endedWith(0)) << run.error;
  EXPECT_EQ(valueOf(run.output, "jex_counters_entries{table_id=\"9\"}"), "1");
}

}  // namespace
