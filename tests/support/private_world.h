// Where a test runs. The address of the agent, the shared memory and the port of test mode are
// fixed names of the host, so every test process has /tmp, /dev/shm, System V IPC and a loopback of
// its own: tests run beside each other and never touch an agent that serves the machine.
#pragma once

#include <string>

namespace jextest {

/// Moves this process, and all that it starts from now on, into such a world. Call it first in
/// main, while there is one thread. Where no such world can be made, for whatever reason, it says
/// so on standard error and waits until no other test holds the machine's names instead; it ends
/// the process if an agent is using them.
void enterPrivateWorld();

/// Why this process is in no private world; empty if it is in one. A test that needs network
/// namespaces is skipped with this reason.
const std::string& noPrivateWorldBecause();

/// Path of this program. Not /proc/self/exe, which shows the path outside of a chroot once the
/// process has entered its world.
const std::string& ownProgram();

/// A directory for the files of this test process, outside of the private /tmp. Made at the first
/// call.
const std::string& runDirectory();

/// Removes the run directory; keeps it, and says where it is, if the test failed and the
/// environment variable JEX_KEEP_RUN is set.
void leaveRunDirectory(bool failed);

}  // namespace jextest

/// In SetUp of tests whose hosts are network namespaces.
#define JEX_SKIP_WITHOUT_NETWORKS()                                          \
  if (!::jextest::noPrivateWorldBecause().empty())                           \
  GTEST_SKIP() << "network namespaces are needed, and cannot be made here: " \
               << ::jextest::noPrivateWorldBecause()
