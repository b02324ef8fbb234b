// Private worlds: a /tmp, a /dev/shm, System V IPC and a network of a process's own. Behind test
// programs (private_world.h) and scripts/in-private-namespaces, which compiles this file by itself.
#pragma once

#include <stdexcept>
#include <string>
#include <vector>

namespace jextest {

/// Nothing can run here: an agent serves the machine, or a lock cannot be taken.
class CannotRun : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// Moves this process, and all that it starts from now on, into a private world. Directories of
/// `keep` (absolute, without symbolic links) below the hidden ones stay visible. Returns an empty
/// string. Where such a world cannot be made, it changes nothing and returns the reason. Call it
/// first in main, while there is one thread.
std::string enterNamespaces(const std::vector<std::string>& keep);

/// What a process does instead: waits until no other process that has called this holds the
/// machine's names. Returns a descriptor that has to stay open as long as they are used; it closes
/// on exec. Throws CannotRun if an agent serves.
int takeTurn();

}  // namespace jextest
