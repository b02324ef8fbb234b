// What a start that runs out of memory or threads says, wherever that happens.
#pragma once

namespace slice_agent {

/// Throws StartError if the process may not have the address space that a start takes. Without it,
/// threads of gRPC and of the messaging library cannot be made, over which these abort the process.
void checkAddressSpace();

/// From here on an exception that nobody catches, on whatever thread, ends the process with one
/// line and status 1. Until endOfStart() an abort does so too, but for one on a thread that has
/// called keepAborts().
void guardStart();
void endOfStart();

/// For the agent loop, whose thread aborts over a broken invariant, which it has explained.
void keepAborts();

}  // namespace slice_agent
