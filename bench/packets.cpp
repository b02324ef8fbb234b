// packets: packets a second through the delivered programs on one core, from packets in memory,
// with and without a thread that updates the same device at full speed. Both are measured in turn,
// round by round, so that the machine's moods meet both. No ports: what is measured is parser,
// tables and actions.
#include <CLI/CLI.hpp>
#include <cstdio>
#include <fstream>
#include <optional>
#include <set>
#include <tuple>

#include "churn.h"
#include "clock.h"
#include "scenario.h"
#include "spread.h"
#include "traffic.h"

namespace bench {
namespace {

using Json = nlohmann::ordered_json;
using jxpipelinetest::Prefix;
using jxpipelinetest::Rule;

struct Options {
  uint64_t packets = 300'000;
  int rounds = 7;
  size_t routes = 900'000;
  std::string rules = "acl1_1k";
  std::string json;
};

/// Of one round.
struct Run {
  double cpu_rate;    // packets a second of the packet thread's CPU time
  double clock_rate;  // packets a second of the clock on the wall
  double forwarded;   // part of the packets that left
  double updates;     // a second
  double running;     // part of the clock's time in which the packet thread had a CPU
  double locked;      // look-ups, per million packets, that waited for an update
};

/// Rules that differ in TCP flags only are the same to the router: the first one stays.
std::vector<Rule> distinct(const std::vector<Rule>& rules) {
  const auto keyOf = [](const Rule& rule) {
    return std::make_tuple(rule.src, rule.src_mask, rule.dst, rule.dst_mask, rule.protocol,
                           rule.protocol_mask, rule.sport_low, rule.sport_high, rule.dport_low,
                           rule.dport_high);
  };
  std::set<decltype(keyOf(rules.front()))> seen;
  std::vector<Rule> kept;
  for (const Rule& rule : rules) {
    if (seen.insert(keyOf(rule)).second) kept.push_back(rule);
  }
  return kept;
}

uint64_t runFrames(const jxmodel::Pipeline& pipeline, Traffic& traffic) {
  uint64_t left = 0;
  for (const Traffic::Frame& frame : traffic.frames()) {
    const jxmodel::Outcome outcome =
        pipeline.run({traffic.at(frame), frame.size, frame.wire_size, kIngressPort}, nullptr);
    left += outcome.kind == jxmodel::Outcome::Kind::kDropped ? 0 : 1;
  }
  return left;
}

/// Runs the traffic over and over, at least so many packets.
Run run(const Scenario& scenario, Traffic& traffic, uint64_t packets, bool beside_updates) {
  const jxmodel::Pipeline& pipeline = scenario.testbed->pipeline();
  std::optional<Churn> churn;
  if (beside_updates) {
    churn.emplace(scenario.testbed->device(), scenario.testbed->table(scenario.churned));
  }
  const uint64_t locked_before = pipeline.counts().locked_lookups;
  uint64_t ran = 0, left = 0, cpu = 0, clock = 0, updates = 0;
  while (ran < packets) {
    traffic.restore();  // not measured: packets would come from a port
    const uint64_t updates_before = churn ? churn->updates() : 0;
    const uint64_t clock_before = now();
    const uint64_t cpu_before = threadCpu();
    left += runFrames(pipeline, traffic);
    cpu += threadCpu() - cpu_before;
    clock += now() - clock_before;
    updates += churn ? churn->updates() - updates_before : 0;
    ran += traffic.frames().size();
  }
  const auto count = static_cast<double>(ran);
  const double seconds = static_cast<double>(clock) / 1e9;
  return {count / (static_cast<double>(cpu) / 1e9),
          count / seconds,
          static_cast<double>(left) / count,
          static_cast<double>(updates) / seconds,
          static_cast<double>(cpu) / static_cast<double>(clock),
          static_cast<double>(pipeline.counts().locked_lookups - locked_before) * 1e6 / count};
}

std::vector<double> each(const std::vector<Run>& runs, double Run::*member) {
  std::vector<double> values;
  for (const Run& run : runs) values.push_back(run.*member);
  return values;
}

std::vector<double> ratios(const std::vector<Run>& runs, const std::vector<Run>& bases) {
  std::vector<double> values;
  for (size_t i = 0; i < runs.size(); ++i) values.push_back(runs[i].cpu_rate / bases[i].cpu_rate);
  return values;
}

Json measure(const Options& options, const Scenario& scenario, const char* name, Traffic& traffic) {
  std::vector<Run> alone, beside;
  run(scenario, traffic, traffic.frames().size(), false);  // pages and caches are touched once
  for (int round = 0; round < options.rounds; ++round) {
    alone.push_back(run(scenario, traffic, options.packets, false));
    beside.push_back(run(scenario, traffic, options.packets, true));
  }
  std::fprintf(stderr, "%s, %s: done\n", scenario.tables.c_str(), name);
  return {{"tables", scenario.tables},
          {"traffic", name},
          {"forwarded", percentile(each(alone, &Run::forwarded), 0.5)},
          {"alone", spread(each(alone, &Run::cpu_rate))},
          {"beside_updates", spread(each(beside, &Run::cpu_rate))},
          {"ratio", spread(ratios(beside, alone))},
          {"alone_by_the_clock", spread(each(alone, &Run::clock_rate))},
          {"beside_updates_by_the_clock", spread(each(beside, &Run::clock_rate))},
          {"updates", spread(each(beside, &Run::updates))},
          {"running_beside_updates", spread(each(beside, &Run::running))},
          {"locked_lookups_per_million", spread(each(beside, &Run::locked))}};
}

Json measureAll(const Options& options) {
  const std::vector<Prefix> routes = jxpipelinetest::loadPrefixes();
  const std::vector<Rule> rules = distinct(jxpipelinetest::loadRules(options.rules));
  Traffic captures = Traffic::captures(std::string(JEX_DATA_DIR) + "/pcap");
  Traffic spread_out = Traffic::acrossRoutes(
      {routes.begin(),
       routes.begin() + static_cast<std::ptrdiff_t>(std::min(options.routes, routes.size()))},
      captures.frames().size());

  Json cases = Json::array();
  cases.push_back(measure(options, switchWith(captures.macs()), "captures", captures));
  for (const size_t count : {size_t{10}, options.routes}) {
    for (const std::vector<Rule>& acl : {std::vector<Rule>(), rules}) {
      const Scenario scenario = routerWith(routes, count, acl);
      cases.push_back(measure(options, scenario, "captures", captures));
      cases.push_back(measure(options, scenario, "all routes", spread_out));
    }
  }
  return {{"packets", options.packets},
          {"rounds", options.rounds},
          {"captured_packets", captures.frames().size()},
          {"captured_bytes", captures.bytes()},
          {"cases", cases},
          {"method",
           "How: one thread runs packets from memory through parser, tables and actions, and is\n"
           "measured by its CPU clock; nothing is received or sent. captures: all files of\n"
           "data/pcap, one behind the other. all routes: addresses drawn from all routes, so that\n"
           "caches help little. Beside updates: another thread of the process withdraws and\n"
           "announces again entries of the table (ipv4_lpm, dmac) that packets are looked up in,\n"
           "as placement operations; ratios are of the same round.\n"
           "running: how much of the time the packet thread had a CPU beside updates. Far below\n"
           "100 % the machine was busy and both threads took turns: the ratio is too good then."}};
}

void print(const Json& result) {
  std::printf("%llu packets a run, %d rounds; captures: %llu packets of %llu bytes\n\n",
              static_cast<unsigned long long>(result["packets"].get<uint64_t>()),
              result["rounds"].get<int>(),
              static_cast<unsigned long long>(result["captured_packets"].get<uint64_t>()),
              static_cast<unsigned long long>(result["captured_bytes"].get<uint64_t>()));
  std::printf("%-50s%27s%27s%21s%9s%8s%6s%9s\n", "million packets a second (median p10 p90)",
              "alone", "beside updates", "ratio", "updates", "locked", "out", "running");
  for (const Json& one : result["cases"]) {
    const std::string what =
        one["tables"].get<std::string>() + ", " + one["traffic"].get<std::string>();
    std::printf("%-50s", what.c_str());
    for (const char* name : {"alone", "beside_updates"}) {
      for (const char* part : {"median", "p10", "p90"}) {
        std::printf("%9.3f", one[name][part].get<double>() / 1e6);
      }
    }
    for (const char* part : {"median", "p10", "p90"}) {
      std::printf("%7.2f", one["ratio"][part].get<double>());
    }
    std::printf("%8.2fM%8.0f%5.0f%%%8.0f%%\n", one["updates"]["median"].get<double>() / 1e6,
                one["locked_lookups_per_million"]["median"].get<double>(),
                one["forwarded"].get<double>() * 100,
                one["running_beside_updates"]["median"].get<double>() * 100);
  }
  std::printf(
      "\nlocked: look-ups of a million packets that waited for an update. out: forwarded\n"
      "without updates.\n%s\n",
      result["method"].get<std::string>().c_str());
}

int runBench(int argc, char** argv) {
  Options options;
  CLI::App app{"Measures packets a second, with and without updates beside them.", "packets"};
  app.add_option("--packets", options.packets, "Packets a run, at least")->capture_default_str();
  app.add_option("--rounds", options.rounds, "Rounds")->check(CLI::Range(1, 1000));
  app.add_option("--routes", options.routes, "Routes of the large table")->capture_default_str();
  app.add_option("--rules", options.rules, "Rule set of data/acl")->capture_default_str();
  app.add_option("--json", options.json, "File to write the figures to as well");
  CLI11_PARSE(app, argc, argv);
  try {
    const Json result = measureAll(options);
    print(result);
    if (!options.json.empty()) std::ofstream(options.json) << result.dump(2) << '\n';
    return EXIT_SUCCESS;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "packets: %s\n", error.what());
    return EXIT_FAILURE;
  }
}

}  // namespace
}  // namespace bench

int main(int argc, char** argv) { return bench::runBench(argc, argv); }
