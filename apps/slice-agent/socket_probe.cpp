#include "socket_probe.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace slice_agent {

bool socketAccepts(const char* path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  const size_t size = std::strlen(path) + 1;
  if (size > sizeof address.sun_path) return false;
  std::memcpy(address.sun_path, path, size);
  // Not blocking: a server whose queue of connections is full serves, and need not be waited for.
  const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
  if (fd < 0) return false;
  const bool connected =
      connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0 ||
      errno == EAGAIN;
  close(fd);
  return connected;
}

}  // namespace slice_agent
