// Where a test runs. The address of the agent, the shared memory and the port of test mode are
// fixed names of the host, so every test process has /tmp, /dev/shm, System V IPC and a loopback of
// its own: tests run beside each other and never touch an agent that serves the machine.
#pragma once

#include <string>

namespace jextest {

/// Moves this process, and all that it starts from now on, into such a world. Call it first in
/// main, while there is one thread. Where the right to do so is missing, it waits until no other
/// test holds the machine's names instead, and ends the process if an agent is using them.
void enterPrivateWorld();

/// A directory for the files of this test process, outside of the private /tmp. Made at the first
/// call.
const std::string& runDirectory();

/// Removes the run directory; keeps it, and says where it is, if the test failed and the
/// environment variable JEX_KEEP_RUN is set.
void leaveRunDirectory(bool failed);

}  // namespace jextest
