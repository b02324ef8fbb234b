#include "scenario.h"

#include <algorithm>
#include <tuple>

namespace bench {
namespace {

using jxpipelinetest::Prefix;
using jxpipelinetest::Rule;

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

std::vector<Rule> loadedRules(const std::string& set) {
  return jxpipelinetest::loadRules(std::string(JEX_TEST_DATA) + "/rules/" + set + ".txt");
}

Scenario switchOf(const std::set<uint64_t>& macs) {
  Scenario scenario;
  scenario.tables = "l2_switch, " + std::to_string(macs.size()) + " addresses";
  scenario.churned = "dmac";
  scenario.macs = macs;
  return scenario;
}

Scenario routerOf(const Case& one) {
  Scenario scenario;
  scenario.churned = "ipv4_lpm";
  scenario.routes = firstRoutes(one.routes);
  if (!one.rules.empty()) scenario.rules = distinct(loadedRules(one.rules));
  scenario.tables = "router, " + std::to_string(scenario.routes.size()) + " routes, " +
                    std::to_string(scenario.rules.size()) + " rules";
  return scenario;
}

}  // namespace

std::vector<std::string> Case::arguments() const {
  std::vector<std::string> words{"--program", program, "--routes", std::to_string(routes)};
  if (!rules.empty()) words.insert(words.end(), {"--rules", rules});
  return words;
}

Scenario scenarioOf(const Case& one, const std::set<uint64_t>& macs) {
  return one.program == "router" ? routerOf(one) : switchOf(macs);
}

std::vector<Prefix> firstRoutes(size_t count) {
  std::vector<Prefix> routes =
      jxpipelinetest::loadPrefixes(std::string(JEX_TEST_DATA) + "/routes/internet.txt");
  routes.insert(routes.begin(), Prefix{});
  routes.resize(std::min(count, routes.size()));
  return routes;
}

std::string programFile(const std::string& program) {
  return std::string(JEX_PROGRAMS_DIR) + '/' + program + ".json";
}

}  // namespace bench
