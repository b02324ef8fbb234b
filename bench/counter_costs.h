// What reading and syncing counters costs.
#pragma once

#include <cstdint>

namespace bench {

/// Role: makes tables of 64 Ki and 1 Mi counters, and for each line it gets reports, in nanoseconds
/// of this thread's CPU time, an entry: {"read", "memcpy"} of both sizes, and {"sync", "bare"}: the
/// library's copy of all values of the large one into shared memory, and the same SDK calls alone.
[[noreturn]] void counterCosts();

}  // namespace bench
