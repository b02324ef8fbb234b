// The two halves of the library as processes that a test drives line by line.
#pragma once

#include <string>
#include <vector>

#include "support/child.h"

namespace jextest {

/// A Partner. It starts idle; its commands:
///   start          PartnerLibStartup          -> "true"
///   shutdown       PartnerLibShutdown         -> "done"
///   WRITE          write_command.h            -> "status N"
///   mix SEED N     RandomMix, N writes        -> "done"
///   dump FILE      all tables of its device   -> "done"
/// End of input ends it with status 0, without a shut-down.
struct PartnerOptions {
  int device = 1;
  uint32_t handle_base = 0;
  uint32_t owner = 0;
  bool shared = false;  ///< the mix leaves to others what is theirs
  std::vector<std::string> programs = {"limits"};
};
Child startPartner(const PartnerOptions& options = {}, const Child::Environment& environment = {});

/// A Partner that has been started: `start` was answered.
Child startedPartner(const PartnerOptions& options = {},
                     const Child::Environment& environment = {});

/// An agent with one physical device, serving on a loop with a receive wait of 20 ms. Commands:
///   heartbeat      PeriodicHeartbeatUpdate    -> "true"
///   dump FILE      all tables of its device   -> "done"
/// End of input ends it with status 0.
struct AgentOptions {
  int device = 0;
  std::vector<std::string> programs = {"limits"};
};
Child startAgent(const AgentOptions& options = {}, const Child::Environment& environment = {});

/// All tables of the process's device, one entry a line (DeviceView::dump).
std::vector<std::string> dumpOf(Child& process);

/// Waits until `process`'s device holds exactly `lines`; the test fails with the first differences
/// if it never does.
void expectDump(Child& process, const std::vector<std::string>& lines);

}  // namespace jextest
