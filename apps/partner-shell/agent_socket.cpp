#include "agent_socket.h"

#include <pwd.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

namespace jexapps {
namespace {

constexpr char kFolder[] = "/tmp";  // a partner makes a socket of its own there, too
constexpr char kAgentSocketFile[] = "/tmp/Partner0";

// A connection to whoever listens at the agent's socket; closed with the object.
class Connection {
 public:
  Connection() : fd_(socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0)) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    static_assert(sizeof kAgentSocketFile <= sizeof address.sun_path);
    std::memcpy(address.sun_path, kAgentSocketFile, sizeof kAgentSocketFile);
    const bool made =
        fd_ >= 0 && connect(fd_, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
    error_ = made ? 0 : errno;
  }
  ~Connection() {
    if (fd_ >= 0) close(fd_);
  }
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;

  int fd() const { return fd_; }
  int error() const { return error_; }  // why there is none, 0 if there is one

 private:
  int fd_;
  int error_ = 0;
};

std::string nameOf(uid_t user) {
  const passwd* const known = getpwuid(user);
  return known != nullptr ? known->pw_name : std::to_string(user);
}

// " (owner root, mode 0755)"
std::string ownership(const char* path) {
  struct stat facts {};
  if (stat(path, &facts) != 0) return {};
  char mode[8];
  std::snprintf(mode, sizeof mode, "%04o", static_cast<unsigned>(facts.st_mode & 07777));
  return " (owner " + nameOf(facts.st_uid) + ", mode " + mode + ")";
}

std::string withReason(const char* path, int error) {
  return std::string(path) + ": " + std::strerror(error);
}

}  // namespace

pid_t agentProcess() {
  const Connection connection;
  ucred listener{};
  socklen_t size = sizeof listener;
  const bool known = connection.error() == 0 &&
                     getsockopt(connection.fd(), SOL_SOCKET, SO_PEERCRED, &listener, &size) == 0;
  return known ? listener.pid : 0;
}

std::optional<std::string> whyNoPartnerCanStart() {
  if (access(kFolder, W_OK | X_OK) != 0) {
    return withReason(kFolder, errno) + "; a partner makes its socket there";
  }
  struct stat facts {};
  if (stat(kAgentSocketFile, &facts) != 0 || S_ISSOCK(facts.st_mode)) return std::nullopt;
  return std::string(kAgentSocketFile) +
         (S_ISDIR(facts.st_mode) ? " is a directory" : " is no socket") +
         "; a slice agent has its socket there: remove it";
}

std::string whyNoAgentAnswers() {
  const Connection connection;
  switch (connection.error()) {
    case 0:
      return "somebody accepts on " + std::string(kAgentSocketFile) + " and does not answer";
    case ENOENT:
      return "nobody has made " + std::string(kAgentSocketFile);
    case ECONNREFUSED:
      return "nobody accepts on " + std::string(kAgentSocketFile);
    case EACCES:
      return withReason(kAgentSocketFile, EACCES) + ownership(kAgentSocketFile);
    default:
      return withReason(kAgentSocketFile, connection.error());
  }
}

}  // namespace jexapps
