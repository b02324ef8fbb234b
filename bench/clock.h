// Clocks of the benches, in nanoseconds.
#pragma once

#include <cstdint>

namespace bench {

uint64_t now();         ///< steady; the same for all processes of the machine
uint64_t processCpu();  ///< of all threads of this process
uint64_t threadCpu();   ///< of the calling thread

}  // namespace bench
