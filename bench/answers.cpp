// answers: what comes back from the agent to the application, each beside the least that it could
// cost, in turn, round by round: barriers against a ping-pong of the same two messages,
// notifications against a bare pair socket that copies and enqueues the same records, reads of
// counters against memcpy, and syncs of counters against the bare SDK calls.
//
// Starts processes that use the agent's fixed socket name and the counters' segment: run it through
// scripts/bench.sh.
#include <sys/prctl.h>

#include <CLI/CLI.hpp>
#include <cstdio>
#include <fstream>
#include <map>
#include <nlohmann/json.hpp>

#include "child.h"
#include "counter_costs.h"
#include "notification_flow.h"
#include "round_trips.h"
#include "spread.h"

namespace bench {
namespace {

using Json = nlohmann::ordered_json;

struct Options {
  std::string role;
  std::string program = "programs/l2_switch.json";
  std::string json;
  uint64_t barriers = 20000;
  uint64_t notifications = 320000;
  uint64_t paced = 5000;
  int rounds = 7;
};

/// Figures of all rounds, by what they are of.
class Figures {
 public:
  void add(const std::string& name, double value) {
    if (values_.count(name) == 0) names_.push_back(name);
    values_[name].push_back(value);
  }
  /// Adds value and base, and their ratio.
  void addPair(const std::string& name, double value, double base) {
    add(name, value);
    add(name + ", bare", base);
    add(name + ", ratio", value / base);
  }
  Json spreads() const {
    Json all;
    for (const std::string& name : names_) all[name] = spread(values_.at(name));
    return all;
  }

 private:
  std::vector<std::string> names_;
  std::map<std::string, std::vector<double>> values_;
};

std::vector<double> timesOf(const nlohmann::json& line, const char* name) {
  return line[name].get<std::vector<double>>();
}

void addLatencies(const std::string& name, const std::vector<double>& times,
                  const std::vector<double>& bare, Figures* figures) {
  figures->addPair(name + " p50, us", percentile(times, 0.5) / 1e3, percentile(bare, 0.5) / 1e3);
  figures->addPair(name + " p99, us", percentile(times, 0.99) / 1e3, percentile(bare, 0.99) / 1e3);
}

std::vector<double> askAll(const char* answers, const char* asks, const Options& options) {
  const std::vector<std::string> arguments = {"--program", options.program, "--barriers",
                                              std::to_string(options.barriers)};
  Child answering(answers, arguments);
  answering.readLine();
  Child asking(asks, arguments);
  return timesOf(asking.readLine(), "times");
}

void measureBarriers(const Options& options, Figures* figures) {
  const std::vector<double> bare = askAll("bare-answers", "bare-asks", options);
  const std::vector<double> times = askAll("agent", "barrier-partner", options);
  addLatencies("barrier, round trip", times, bare, figures);
}

struct Flow {
  double rate;  // a second
  std::vector<double> latencies;
};

Flow runFlow(const char* sends, const char* receives, bool receiver_first, const Options& options) {
  const std::vector<std::string> arguments = {"--program", options.program};
  std::unique_ptr<Child> sender;
  std::unique_ptr<Child> receiver;
  std::string whom;
  if (receiver_first) {
    receiver = std::make_unique<Child>(receives, arguments);
    receiver->readLine();
  }
  sender = std::make_unique<Child>(sends, arguments);
  sender->readLine();
  if (!receiver_first) {
    receiver = std::make_unique<Child>(receives, arguments);
    const nlohmann::json ready = receiver->readLine();
    whom = std::to_string(ready["pid"].get<int>()) + " " +
           std::to_string(ready["learn"].get<uint32_t>()) + " ";
  }
  const auto flow = [&](const char* how, uint64_t count) {
    receiver->writeLine(std::to_string(count));
    sender->writeLine(how + (" " + whom) + std::to_string(count));
    sender->readLine();
    return receiver->readLine();
  };
  const nlohmann::json flood = flow("flood", options.notifications);
  const double seconds =
      static_cast<double>(flood["end"].get<uint64_t>() - flood["begin"].get<uint64_t>()) / 1e9;
  return {static_cast<double>(options.notifications) / seconds,
          timesOf(flow("paced", options.paced), "latencies")};
}

void measureNotifications(const Options& options, Figures* figures) {
  const Flow bare = runFlow("bare-notifies", "bare-notified", true, options);
  const Flow flow = runFlow("agent", "notified-partner", false, options);
  figures->addPair("notifications a second", flow.rate, bare.rate);
  addLatencies("notification, callback to dequeue", flow.latencies, bare.latencies, figures);
}

void addCounterCosts(const nlohmann::json& costs, Figures* figures) {
  for (const char* size : {"small", "large"}) {
    figures->addPair(std::string("counters read, ") +
                         (size == std::string("small") ? "64 Ki" : "1 Mi") + ", ns an entry",
                     costs[size]["read"].get<double>(), costs[size]["memcpy"].get<double>());
  }
  figures->addPair("counters synced, 1 Mi, ns an entry", costs["sync"].get<double>(),
                   costs["bare"].get<double>());
}

Json measure(const Options& options) {
  Figures figures;
  Child counters("counters", {});
  counters.readLine();  // the first touches every page
  for (int round = 0; round < options.rounds; ++round) {
    measureBarriers(options, &figures);
    measureNotifications(options, &figures);
    counters.writeLine("");
    addCounterCosts(counters.readLine(), &figures);
    std::fprintf(stderr, "round %d of %d\n", round + 1, options.rounds);
  }
  return figures.spreads();
}

void print(const Json& result, const Options& options) {
  std::printf("%d rounds of %llu barriers, %llu notifications at full speed and %llu paced\n\n",
              options.rounds, static_cast<unsigned long long>(options.barriers),
              static_cast<unsigned long long>(options.notifications),
              static_cast<unsigned long long>(options.paced));
  std::printf("%-56s%12s%12s%12s\n", "", "median", "p10", "p90");
  for (const auto& [name, figures] : result.items()) {
    std::printf("%-56s", name.c_str());
    for (const char* part : {"median", "p10", "p90"}) {
      std::printf("%12.2f", figures[part].get<double>());
    }
    std::printf("\n");
  }
}

void runRole(const Options& options) {
  prctl(PR_SET_NAME, ("b-" + options.role).c_str());
  const char* program = options.program.c_str();
  if (options.role == "agent") answeringAgent(program);
  if (options.role == "barrier-partner") barrierPartner(program, options.barriers);
  if (options.role == "bare-answers") bareAnswers();
  if (options.role == "bare-asks") bareAsks(options.barriers);
  if (options.role == "notified-partner") notifiedPartner(program);
  if (options.role == "bare-notifies") bareNotifies();
  if (options.role == "bare-notified") bareNotified();
  if (options.role == "counters") counterCosts();
  throw std::runtime_error("no role " + options.role);
}

int run(int argc, char** argv) {
  Options options;
  CLI::App app{"Measures what comes back from the agent to the application.", "answers"};
  const CLI::Range counts(1, 100'000'000);
  app.add_option("--program", options.program, "Description of l2_switch")->capture_default_str();
  app.add_option("--barriers", options.barriers, "Barriers a round")
      ->check(counts)
      ->capture_default_str();
  app.add_option("--notifications", options.notifications,
                 "Notifications a round at full speed, rounded up to 32")
      ->check(counts)
      ->capture_default_str();
  app.add_option("--paced", options.paced, "Notifications a round, one at a time")
      ->check(counts)
      ->capture_default_str();
  app.add_option("--rounds", options.rounds, "Rounds")->check(CLI::Range(1, 1000));
  app.add_option("--json", options.json, "File to write the figures to as well");
  app.add_option("--role", options.role, "Part of the measurement that this process is")->group("");
  CLI11_PARSE(app, argc, argv);
  options.notifications = (options.notifications + 31) / 32 * 32;
  try {
    if (!options.role.empty()) runRole(options);
    const Json result = measure(options);
    print(result, options);
    if (!options.json.empty()) std::ofstream(options.json) << result.dump(2) << '\n';
    return EXIT_SUCCESS;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "answers: %s\n", error.what());
    return EXIT_FAILURE;
  }
}

}  // namespace
}  // namespace bench

int main(int argc, char** argv) { return bench::run(argc, argv); }
