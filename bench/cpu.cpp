#include "cpu.h"

#include <stdexcept>

namespace bench {
namespace {

void runOn(const cpu_set_t& cpus) {
  if (sched_setaffinity(0, sizeof cpus, &cpus) != 0) throw std::runtime_error("no CPU to be had");
}

}  // namespace

cpu_set_t CpuForPackets::own_;
cpu_set_t CpuForPackets::others_;

void CpuForPackets::keepClear() {
  if (sched_getaffinity(0, sizeof others_, &others_) != 0) throw std::runtime_error("no CPUs");
  own_ = others_;
  if (CPU_COUNT(&others_) == 1) return;
  int last = CPU_SETSIZE - 1;
  while (!CPU_ISSET(last, &others_)) --last;
  CPU_ZERO(&own_);
  CPU_SET(last, &own_);
  CPU_CLR(last, &others_);
  runOn(others_);
}

CpuForPackets::CpuForPackets() { runOn(own_); }

CpuForPackets::~CpuForPackets() {
  sched_setaffinity(0, sizeof others_, &others_);  // worked before
}

}  // namespace bench
