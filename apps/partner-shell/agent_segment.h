// The shared segment of counters, seen from outside of the library.
#pragma once

#include <cstdint>
#include <optional>

namespace jexapps {

/// Whether the process that serves partners has a counter segment mapped: the first one that a
/// partner made in that process's life, which it keeps. False too if it cannot be told (no agent,
/// or another user's).
bool agentHasCounterSegment();

/// Bytes that the file system of shared memory has free. None if it cannot be told.
std::optional<uint64_t> freeSharedMemory();

}  // namespace jexapps
