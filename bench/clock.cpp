#include "clock.h"

#include <ctime>

namespace bench {
namespace {

uint64_t read(clockid_t clock) {
  timespec time = {};
  clock_gettime(clock, &time);
  return static_cast<uint64_t>(time.tv_sec) * 1'000'000'000 + static_cast<uint64_t>(time.tv_nsec);
}

}  // namespace

uint64_t now() { return read(CLOCK_MONOTONIC); }
uint64_t processCpu() { return read(CLOCK_PROCESS_CPUTIME_ID); }
uint64_t threadCpu() { return read(CLOCK_THREAD_CPUTIME_ID); }

}  // namespace bench
