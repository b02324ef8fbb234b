// Which CPUs the threads of a measurement run on.
#pragma once

#include <sched.h>

namespace bench {

/// While there is one, the calling thread runs on a CPU that keepClear() has freed of all else of
/// this process and of processes that it starts. Where there is but one CPU, nothing changes.
class CpuForPackets {
 public:
  /// Called once, by the first thread, before it starts any other. Throws std::runtime_error.
  static void keepClear();

  CpuForPackets();
  ~CpuForPackets();
  CpuForPackets(const CpuForPackets&) = delete;
  CpuForPackets& operator=(const CpuForPackets&) = delete;

 private:
  static cpu_set_t own_;
  static cpu_set_t others_;
};

}  // namespace bench
