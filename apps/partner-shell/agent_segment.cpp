#include "agent_segment.h"

#include <sys/statvfs.h>

#include <fstream>
#include <string>

#include "agent_socket.h"

namespace jexapps {
namespace {

constexpr char kSegmentName[] = "PARTNERLIB_SHM_COUNTERS";
constexpr char kSharedMemory[] = "/dev/shm";

}  // namespace

bool agentHasCounterSegment() {
  const pid_t agent = agentProcess();
  if (agent <= 0) return false;
  std::ifstream maps("/proc/" + std::to_string(agent) + "/maps");
  for (std::string line; std::getline(maps, line);) {
    if (line.find(kSegmentName) != std::string::npos) return true;
  }
  return false;
}

std::optional<uint64_t> freeSharedMemory() {
  struct statvfs facts {};
  // A file system without a limit has no number of blocks.
  if (statvfs(kSharedMemory, &facts) != 0 || facts.f_blocks == 0) return std::nullopt;
  return uint64_t{facts.f_bavail} * facts.f_frsize;
}

}  // namespace jexapps
