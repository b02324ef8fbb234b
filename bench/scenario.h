// What the tables hold while packets are counted.
#pragma once

#include <memory>
#include <set>
#include <string>
#include <vector>

#include "unit/pipeline/data_files.h"
#include "unit/pipeline/testbed.h"

namespace bench {

inline constexpr uint32_t kIngressPort = 1;

struct Scenario {
  std::string tables;   ///< what they hold, for people
  std::string churned;  ///< the table that is written beside packets
  std::unique_ptr<jxpipelinetest::Testbed> testbed;
};

/// l2_switch that knows all addresses, as sources on the ingress port and as destinations on
/// another.
Scenario switchWith(const std::set<uint64_t>& macs);

/// router with a default route and the first of `routes`, `count` in all, behind 64 next hops; and
/// with an access list unless `rules` is empty.
Scenario routerWith(const std::vector<jxpipelinetest::Prefix>& routes, size_t count,
                    const std::vector<jxpipelinetest::Rule>& rules);

}  // namespace bench
