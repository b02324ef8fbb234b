#include "agent_segment.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstring>
#include <fstream>
#include <string>

namespace jexapps {
namespace {

constexpr char kAgentSocketFile[] = "/tmp/Partner0";
constexpr char kSegmentName[] = "PARTNERLIB_SHM_COUNTERS";

// The process that listens at the agent's socket, 0 if it cannot be told.
pid_t agentProcess() {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  static_assert(sizeof kAgentSocketFile <= sizeof address.sun_path);
  std::memcpy(address.sun_path, kAgentSocketFile, sizeof kAgentSocketFile);
  const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
  if (fd < 0) return 0;
  ucred listener{};
  socklen_t size = sizeof listener;
  const bool known =
      connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0 &&
      getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &listener, &size) == 0;
  close(fd);
  return known ? listener.pid : 0;
}

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

}  // namespace jexapps
