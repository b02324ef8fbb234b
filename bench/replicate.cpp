// replicate: route adds a second, from the partner's call to the physical device, against a bare
// loop of messages of the same size through the same messaging library. Both are measured in turn,
// round by round, so that the machine's moods meet both. What each part costs is found by leaving
// parts out: the bare loop is messaging alone, the model is run without library and messages, and
// the library is what remains.
//
// Starts processes that use the agent's fixed socket name: run it through scripts/bench.sh.
#include <sys/prctl.h>

#include <CLI/CLI.hpp>
#include <cstdio>
#include <fstream>
#include <nlohmann/json.hpp>

#include "bare.h"
#include "child.h"
#include "replication.h"
#include "spread.h"
#include "switch_side.h"

namespace bench {
namespace {

using Json = nlohmann::ordered_json;

// What stands before the placement data in the message of a match add: frame, update head, words.
constexpr size_t kMessageHead = 76;

struct Options {
  std::string role;
  std::string program = "programs/router.json";
  std::string routes = JEX_TEST_DATA "/routes/internet.txt";
  std::string json;
  uint64_t adds = 400000;
  int rounds = 7;
  size_t size = 0;
  int polls = 1;
};

/// Of one run with a sender and a receiver.
struct Run {
  double rate;          // a second
  double sender_cpu;    // ns a message: all threads, until the last was handed over
  double caller_cpu;    // ns a message: the thread that hands over
  double receiver_cpu;  // ns a message
};

Run runPair(Child& receiver, Child& sender, uint64_t count) {
  const nlohmann::json sent = sender.readLine();
  const nlohmann::json received = receiver.readLine();
  sender.finish();
  receiver.finish();
  const auto adds = static_cast<double>(count);
  const double seconds =
      static_cast<double>(received["end"].get<uint64_t>() - sent["begin"].get<uint64_t>()) / 1e9;
  return {adds / seconds, sent["cpu"].get<double>() / adds, sent["caller_cpu"].get<double>() / adds,
          received["cpu"].get<double>() / adds};
}

Run runReplication(const Options& options) {
  const std::vector<std::string> arguments = {"--program", options.program,
                                              "--routes",  options.routes,
                                              "--adds",    std::to_string(options.adds)};
  Child agent("agent", arguments);
  agent.readLine();
  Child partner("partner", arguments);
  return runPair(agent, partner, options.adds);
}

Run runBare(const Options& options, size_t size, int polls) {
  const std::vector<std::string> arguments = {"--adds",  std::to_string(options.adds),
                                              "--size",  std::to_string(size),
                                              "--polls", std::to_string(polls)};
  Child receiver("bare-receive", arguments);
  receiver.readLine();
  Child sender("bare-send", arguments);
  return runPair(receiver, sender, options.adds);
}

struct Model {
  double virtual_cpu;   // ns an add
  double physical_cpu;  // ns an add
  size_t packed_size;
};

Model runModel(const Options& options) {
  Child model("model", {"--program", options.program, "--routes", options.routes, "--adds",
                        std::to_string(options.adds)});
  const nlohmann::json line = model.readLine();
  model.finish();
  const auto adds = static_cast<double>(options.adds);
  return {line["virtual_cpu"].get<double>() / adds, line["physical_cpu"].get<double>() / adds,
          line["packed_size"].get<size_t>()};
}

template <typename Item>
double median(const std::vector<Item>& items, double Item::*member) {
  std::vector<double> values;
  for (const Item& item : items) values.push_back(item.*member);
  return percentile(std::move(values), 0.5);
}

std::vector<double> rates(const std::vector<Run>& runs) {
  std::vector<double> values;
  for (const Run& run : runs) values.push_back(run.rate);
  return values;
}

std::vector<double> ratios(const std::vector<Run>& runs, const std::vector<Run>& bases) {
  std::vector<double> values;
  for (size_t i = 0; i < runs.size(); ++i) values.push_back(runs[i].rate / bases[i].rate);
  return values;
}

/// CPU a update, split: what is neither model nor messaging is the library, waiting included.
Json split(double total, double model, double messaging) {
  return {{"total", total},
          {"model", model},
          {"nanomsg", messaging},
          {"library", total - model - messaging}};
}

void printSpread(const char* what, const Json& json, const char* format) {
  std::printf("%-44s", what);
  for (const char* name : {"median", "p10", "p90"}) std::printf(format, json[name].get<double>());
  std::printf("\n");
}

void printSplit(const char* what, const Json& json) {
  std::printf("%-44s", what);
  for (const char* name : {"total", "model", "nanomsg", "library"}) {
    std::printf("%10.0f", json[name].get<double>());
  }
  std::printf("\n");
}

void print(const Json& result) {
  std::printf("%llu route adds a round, %zu rounds, messages of %zu bytes\n\n",
              static_cast<unsigned long long>(result["adds"].get<uint64_t>()),
              result["rate"]["rounds"].size(), result["message_size"].get<size_t>());
  std::printf("%-44s%12s%12s%12s\n", "", "median", "p10", "p90");
  printSpread("replicated adds a second", result["rate"], "%12.0f");
  printSpread("bare messages a second", result["bare_rate"], "%12.0f");
  printSpread("bare messages, asked twice as the agent does", result["bare_twice_rate"], "%12.0f");
  printSpread("ratio to bare", result["ratio"], "%12.3f");
  printSpread("ratio to bare, asked twice", result["ratio_twice"], "%12.3f");
  std::printf("\n%-44s%10s%10s%10s%10s\n", "CPU, ns an update (medians)", "total", "model",
              "nanomsg", "library");
  printSplit("partner, thread that writes", result["cpu"]["partner_caller"]);
  printSplit("partner, all threads", result["cpu"]["partner"]);
  printSplit("agent", result["cpu"]["agent"]);
  std::printf("\n%s\n", result["method"].get<std::string>().c_str());
}

Json measure(const Options& options) {
  std::vector<Run> replication;
  std::vector<Run> bare;
  std::vector<Run> bare_twice;
  std::vector<Model> model;
  for (int round = 0; round < options.rounds; ++round) {
    model.push_back(runModel(options));
    const size_t size = kMessageHead + model.back().packed_size;
    bare.push_back(runBare(options, size, 1));
    replication.push_back(runReplication(options));
    bare_twice.push_back(runBare(options, size, 2));
    std::fprintf(stderr, "round %d of %d: %.0f replicated adds/s, %.0f bare messages/s\n",
                 round + 1, options.rounds, replication.back().rate, bare.back().rate);
  }
  const double virtual_cpu = median(model, &Model::virtual_cpu);
  return {
      {"adds", options.adds},
      {"message_size", kMessageHead + model.front().packed_size},
      {"rate", spread(rates(replication))},
      {"bare_rate", spread(rates(bare))},
      {"bare_twice_rate", spread(rates(bare_twice))},
      {"ratio", spread(ratios(replication, bare))},
      {"ratio_twice", spread(ratios(replication, bare_twice))},
      {"cpu",
       {{"partner_caller",
         split(median(replication, &Run::caller_cpu), virtual_cpu, median(bare, &Run::caller_cpu))},
        {"partner",
         split(median(replication, &Run::sender_cpu), virtual_cpu, median(bare, &Run::sender_cpu))},
        {"agent",
         split(median(replication, &Run::receiver_cpu), median(model, &Model::physical_cpu),
               median(bare_twice, &Run::receiver_cpu))}}},
      {"method",
       "How: CPU clocks of the processes. model: the same routes written to a virtual device "
       "whose\n"
       "callback packs them, and processed on a physical one, in one process without library and\n"
       "messages. nanomsg: the bare loop (for the agent, the one that asks twice). library: the\n"
       "rest, with all waiting for room and the partner's receive thread, which spins, in it."}};
}

void runRole(const Options& options) {
  prctl(PR_SET_NAME, ("b-" + options.role).c_str());
  if (options.role == "bare-send") bareSend(options.adds, options.size);
  if (options.role == "bare-receive") bareReceive(options.adds, options.polls);
  if (options.role == "agent") agent(options.program, options.adds);
  const std::vector<Route> routes = readRoutes(options.routes, options.adds);
  if (options.role == "partner") partner(options.program, routes);
  if (options.role == "model") modelOnly(options.program, routes);
  throw std::runtime_error("no role " + options.role);
}

int run(int argc, char** argv) {
  Options options;
  CLI::App app{"Measures route adds through partner and agent against a bare loop of messages.",
               "replicate"};
  app.add_option("--program", options.program, "P4 program description")->capture_default_str();
  app.add_option("--routes", options.routes, "File of prefixes")->capture_default_str();
  app.add_option("--adds", options.adds, "Adds a round")->capture_default_str();
  app.add_option("--rounds", options.rounds, "Rounds")->check(CLI::Range(1, 1000));
  app.add_option("--json", options.json, "File to write the figures to as well");
  app.add_option("--role", options.role, "Part of the measurement that this process is")->group("");
  app.add_option("--size", options.size)->group("");
  app.add_option("--polls", options.polls)->group("");
  CLI11_PARSE(app, argc, argv);
  try {
    if (!options.role.empty()) runRole(options);
    const Json result = measure(options);
    print(result);
    if (!options.json.empty()) std::ofstream(options.json) << result.dump(2) << '\n';
    return EXIT_SUCCESS;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "replicate: %s\n", error.what());
    return EXIT_FAILURE;
  }
}

}  // namespace
}  // namespace bench

int main(int argc, char** argv) { return bench::run(argc, argv); }
