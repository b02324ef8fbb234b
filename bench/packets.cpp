// packets: packets a second through the delivered programs on one core, from packets in memory: of
// a slice agent's device alone, beside a thread of the same process that updates it at full speed,
// and beside a partner that does so over the socket; and of programs compiled from P4, alone,
// beside the same described by hand, and as they grow. All are measured in turn, round by round, so
// that the machine's moods meet all. No ports: what is measured is parser, tables and actions.
//
// Starts processes that use the agent's fixed socket name: run it through scripts/bench.sh.
#include <sys/prctl.h>

#include <CLI/CLI.hpp>
#include <cstdio>
#include <fstream>
#include <nlohmann/json.hpp>

#include "both_ways.h"
#include "child.h"
#include "forwarding.h"
#include "scenario.h"
#include "slice_partner.h"
#include "traffic.h"

namespace bench {
namespace {

using Json = nlohmann::ordered_json;

struct Options {
  Effort effort;
  size_t routes = 900'000;
  std::string rules = "acl_1k";
  std::string json;
  std::string role;
  std::string program;
};

/// One process a case: its agent has one device, and serves for ever.
void addCases(const Options& options, const Case& one, Json* cases) {
  std::vector<std::string> arguments = one.arguments();
  const Effort& effort = options.effort;
  arguments.insert(arguments.end(),
                   {"--packets", std::to_string(effort.packets), "--rounds",
                    std::to_string(effort.rounds), "--spread", std::to_string(options.routes)});
  Child child("switch", arguments);
  const int traffics = one.program == "router" ? 2 : 1;
  for (int i = 0; i < traffics; ++i) {
    cases->push_back(Json(child.readLine()));
    const Json& done = cases->back();
    std::fprintf(stderr, "%s, %s: done\n", done["tables"].get<std::string>().c_str(),
                 done["traffic"].get<std::string>().c_str());
  }
  child.finish();
}

/// Programs compiled from P4, in a process of their own.
Json measureCompiled(const Effort& effort) {
  Child child("compiled", {"--packets", std::to_string(effort.packets), "--rounds",
                           std::to_string(effort.rounds)});
  Json done = child.readLine();
  std::fprintf(stderr, "compiled programs: done\n");
  child.finish();
  return done;
}

Json measureAll(const Options& options) {
  const Traffic captures = Traffic::captures(std::string(JEX_TEST_DATA) + "/pcap");
  Json cases = Json::array();
  addCases(options, {"l2_switch", 0, ""}, &cases);
  for (const size_t routes : {size_t{10}, options.routes}) {
    for (const std::string& rules : {std::string(), options.rules}) {
      addCases(options, {"router", routes, rules}, &cases);
    }
  }
  return {
      {"packets", options.effort.packets},
      {"rounds", options.effort.rounds},
      {"captured_packets", captures.frames().size()},
      {"captured_bytes", captures.bytes()},
      {"cases", cases},
      {"compiled", measureCompiled(options.effort)},
      {"compiled_method",
       "How: each packet comes in a buffer of its own and goes to one that keeps it; what that "
       "costs\n"
       "is not measured. Both forms of a program know the same stations or routes, all packets "
       "are\n"
       "known and leave; the forms are measured in turn. The compiled learning switch has VLANs "
       "as\n"
       "well: six tables instead of two. The compiled router has ports, its own addresses, checks "
       "of\n"
       "headers and neighbours as well, five tables that each packet passes instead of two, and\n"
       "verifies the checksum of each packet. tables, headers: what one more of them costs, of\n"
       "exact tables with one entry and of headers of 4 bytes. Loading is from the file to a "
       "device\n"
       "that is ready for packets."},
      {"method",
       "How: one thread runs packets from memory through parser, tables and actions of a slice\n"
       "agent's device, and is measured by its CPU clock; nothing is received or sent.\n"
       "captures: all that the build makes, one behind the other. all routes: addresses drawn\n"
       "from all routes, so that caches help little. Updates withdraw and announce again\n"
       "entries of the table (ipv4_lpm, dmac) that packets are looked up in. thread: a thread\n"
       "of the process processes them as placement operations. partner: another process writes\n"
       "to its virtual device; the agent's loop processes what comes over the socket, and that\n"
       "is what is counted. Both stand still in the other runs. Ratios are to the run alone of\n"
       "the same round.\n"
       "running: how much of the time the packet thread had a CPU. It has one for itself, if\n"
       "there are two; all else shares the rest. Below 100 % others were at work on the\n"
       "machine. Updates are counted only while packets run, so with 100 % both ran at once."}};
}

void printSpread(const Json& json, int width, int decimals, double unit) {
  for (const char* part : {"median", "p10", "p90"}) {
    std::printf("%*.*f", width, decimals, json[part].get<double>() / unit);
  }
}

void printRow(const char* what, const Json& row, bool updated) {
  std::printf("  %-10s", what);
  printSpread(row["rate"], 9, 3, 1e6);
  if (updated) {
    printSpread(row["ratio"], 7, 2, 1);
    printSpread(row["updates"], 9, 3, 1e6);
    std::printf("%8.0f", row["locked_lookups_per_million"]["median"].get<double>());
  } else {
    std::printf("%56s", "");
  }
  std::printf("%5.0f%%%8.0f%%\n", row["forwarded"]["median"].get<double>() * 100,
              row["running"]["median"].get<double>() * 100);
}

void printCompiled(const Json& compiled) {
  std::printf("\n%-34s%26s%26s%21s\n", "", "by hand, ns a packet", "compiled, ns a packet",
              "ratio of speed");
  std::printf("%-34s%8s%9s%9s%8s%9s%9s%7s%7s%7s\n", "", "median", "p10", "p90", "median", "p10",
              "p90", "median", "p10", "p90");
  for (const Json& pair : compiled["pairs"]) {
    std::printf("%-33s", pair["program"].get<std::string>().c_str());
    printSpread(pair["by_hand"], 9, 0, 1);
    printSpread(pair["compiled"], 9, 0, 1);
    printSpread(pair["ratio"], 7, 2, 1);
    std::printf("\n");
  }
  for (const Json& growth : compiled["growth"]) {
    for (const Json& row : growth["rows"]) {
      std::printf("%3d %-56s", row["number"].get<int>(), growth["what"].get<std::string>().c_str());
      printSpread(row["cost"], 9, 0, 1);
      std::printf("\n");
    }
  }
  const Json& loading = compiled["loading"];
  std::printf("loading %s, %llu bytes, ms: ", loading["program"].get<std::string>().c_str(),
              static_cast<unsigned long long>(loading["bytes"].get<uint64_t>()));
  printSpread(loading["milliseconds"], 9, 2, 1);
  std::printf("\n");
}

void print(const Json& result) {
  std::printf("%llu packets a run, %d rounds; captures: %llu packets of %llu bytes\n\n",
              static_cast<unsigned long long>(result["packets"].get<uint64_t>()),
              result["rounds"].get<int>(),
              static_cast<unsigned long long>(result["captured_packets"].get<uint64_t>()),
              static_cast<unsigned long long>(result["captured_bytes"].get<uint64_t>()));
  std::printf("%-12s%27s%21s%27s%8s%6s%9s\n", "", "million packets a second", "ratio to alone",
              "million updates a second", "locked", "out", "running");
  std::printf("%-12s%9s%9s%9s%7s%7s%7s%9s%9s%9s\n", "", "median", "p10", "p90", "median", "p10",
              "p90", "median", "p10", "p90");
  for (const Json& one : result["cases"]) {
    std::printf("%s, %s\n", one["tables"].get<std::string>().c_str(),
                one["traffic"].get<std::string>().c_str());
    printRow("alone", one["alone"], false);
    printRow("thread", one["thread"], true);
    printRow("partner", one["partner"], true);
  }
  std::printf(
      "\nlocked: look-ups of a million packets that waited for an update. out: part that was\n"
      "forwarded; a packet without a route, withdrawn for a moment, is dropped.\n%s\n",
      result["method"].get<std::string>().c_str());
  printCompiled(result["compiled"]);
  std::printf("%s\n", result["compiled_method"].get<std::string>().c_str());
}

[[noreturn]] void runRole(const Options& options) {
  prctl(PR_SET_NAME, ("b-" + options.role).c_str());
  const Case one{options.program, options.routes, options.rules};
  if (options.role == "switch") forwarding(one, options.effort);
  if (options.role == "compiled") compiledPrograms(options.effort);
  if (options.role != "partner") throw std::runtime_error("no role " + options.role);
  slicePartner(one,
               scenarioOf(one, Traffic::captures(std::string(JEX_TEST_DATA) + "/pcap").macs()));
}

int runBench(int argc, char** argv) {
  Options options;
  CLI::App app{"Measures packets a second, with and without updates beside them.", "packets"};
  app.add_option("--packets", options.effort.packets, "Packets a run, at least")
      ->capture_default_str();
  app.add_option("--rounds", options.effort.rounds, "Rounds")
      ->check(CLI::Range(1, 1000))
      ->capture_default_str();
  app.add_option("--routes", options.routes, "Routes of the large table")->capture_default_str();
  app.add_option("--rules", options.rules, "Rule set: acl_1k, acl_10k, fw_1k")
      ->capture_default_str();
  app.add_option("--json", options.json, "File to write the figures to as well");
  app.add_option("--role", options.role, "Part of the measurement that this process is")->group("");
  app.add_option("--program", options.program)->group("");
  app.add_option("--spread", options.effort.spread)->group("");
  CLI11_PARSE(app, argc, argv);
  try {
    if (!options.role.empty()) {
      if (app.count("--rules") == 0) options.rules.clear();
      runRole(options);
    }
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
