// What the tables hold while packets are counted.
#pragma once

#include <cstdint>
#include <set>
#include <string>
#include <vector>

#include "unit/pipeline/data_files.h"

namespace bench {

inline constexpr uint32_t kIngressPort = 1;
inline constexpr uint32_t kNextHops = 64;

/// A case, small enough to be handed to a process on its command line.
struct Case {
  std::string program;  ///< "l2_switch" or "router"
  size_t routes = 0;    ///< of a router, the default route included
  std::string rules;    ///< of a router: "acl_1k", a rule set that the build makes; empty for none

  std::vector<std::string> arguments() const;
};

struct Scenario {
  std::string tables;   ///< what they hold, for people
  std::string churned;  ///< the table that is written beside packets

  // l2_switch knows all addresses, as sources on the ingress port and as destinations on the next.
  std::set<uint64_t> macs;
  // router has its routes behind kNextHops next hops, and an access list unless there are no rules.
  // The first rule comes first; all permit, so that every packet goes all the way.
  std::vector<jxpipelinetest::Prefix> routes;
  std::vector<jxpipelinetest::Rule> rules;
};

/// `macs` are those of the traffic. A router with more routes than there are takes them all.
Scenario scenarioOf(const Case& one, const std::set<uint64_t>& macs);

/// The default route and the first of the routes that the build makes, `count` in all, or as many
/// as there are.
std::vector<jxpipelinetest::Prefix> firstRoutes(size_t count);

/// A delivered program's description.
std::string programFile(const std::string& program);

}  // namespace bench
