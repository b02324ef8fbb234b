// The cost of a packet in programs compiled from P4: beside the same programs described by hand,
// and as programs grow.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "forwarding.h"
#include "rig.h"

namespace bench {

/// A program in both forms with the same stations or routes, and packets that hit on both sides.
struct Pair {
  std::string name;
  std::unique_ptr<Rig> by_hand, compiled;
  std::vector<Rig::Bytes> frames;
};

/// A learning switch that knows `stations` addresses.
Pair switchBothWays(uint32_t stations);
/// A router with the default route and the first of the routes that the build makes.
Pair routerBothWays(size_t routes);

/// Runs the frames over and over, at least `packets`, each in a buffer of its own, as it would come
/// from a port and go to one. What that costs is not measured. Returns the nanoseconds of CPU time
/// per packet. Throws std::runtime_error if one does not leave.
double costOfPacket(const Rig& rig, const std::vector<Rig::Bytes>& frames, uint64_t packets);

/// The role: measures all of it and reports it as one object.
[[noreturn]] void compiledPrograms(const Effort& effort);

}  // namespace bench
