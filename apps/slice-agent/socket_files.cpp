#include "socket_files.h"

#include <dirent.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>
#include <system_error>

#include "start_error.h"

namespace slice_agent {
namespace {

std::string textOf(int error) { return std::generic_category().message(error); }

/// A socket that is closed with its object.
class LocalSocket {
 public:
  // Not blocking: a server whose queue of connections is full serves, and need not be waited for.
  LocalSocket() : fd_(socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0)) {}
  ~LocalSocket() {
    if (fd_ >= 0) close(fd_);
  }
  LocalSocket(const LocalSocket&) = delete;
  LocalSocket& operator=(const LocalSocket&) = delete;

  /// The error of `call`, which is bind or connect, on `path`; 0 if it worked.
  int apply(int (*call)(int, const sockaddr*, socklen_t), const std::string& path) const {
    if (fd_ < 0) return errno;
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof address.sun_path) return ENAMETOOLONG;
    std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
    const auto* const generic = reinterpret_cast<const sockaddr*>(&address);
    return call(fd_, generic, sizeof address) == 0 ? 0 : errno;
  }

 private:
  const int fd_;
};

int connectError(const std::string& path) { return LocalSocket().apply(connect, path); }

bool accepted(int error) { return error == 0 || error == EAGAIN; }

/// What a file is, for people.
const char* kindOf(mode_t mode) {
  switch (mode & S_IFMT) {
    case S_IFREG:
      return "a regular file";
    case S_IFDIR:
      return "a directory";
    case S_IFLNK:
      return "a symbolic link";
    case S_IFIFO:
      return "a named pipe";
    default:
      return "a device";
  }
}

/// Makes a socket beside the agent's place, and removes it.
void tryToMakeSocket() {
  const std::string name = kAgentSocketFile + ('.' + std::to_string(getpid()));
  const int error = LocalSocket().apply(bind, name);
  unlink(name.c_str());
  if (error == 0) return;
  throw StartError(std::string("cannot make a socket in ") + kSocketFolder + ": " + textOf(error));
}

bool isSocket(const std::string& path) {
  struct stat status {};
  return lstat(path.c_str(), &status) == 0 && S_ISSOCK(status.st_mode);
}

bool areDigits(std::string_view text) {
  return !text.empty() && std::all_of(text.begin(), text.end(),
                                      [](char digit) { return digit >= '0' && digit <= '9'; });
}

/// The process id in the name of a reverse path, "Partner_PID_HHMMSS"; 0 if the name is another.
pid_t partnerOf(std::string_view name) {
  constexpr std::string_view kPrefix = "Partner_";
  constexpr size_t kTimeDigits = 6;
  if (name.substr(0, kPrefix.size()) != kPrefix) return 0;
  name.remove_prefix(kPrefix.size());
  const size_t digits = name.find('_');
  if (digits == std::string_view::npos) return 0;
  const std::string_view time = name.substr(digits + 1);
  const std::string_view number = name.substr(0, digits);
  if (time.size() != kTimeDigits || !areDigits(time) || !areDigits(number)) return 0;
  pid_t pid = 0;
  const auto [end, error] = std::from_chars(number.data(), number.data() + number.size(), pid);
  return error == std::errc() && number.front() != '0' ? pid : 0;
}

bool hasEnded(pid_t pid) { return kill(pid, 0) != 0 && errno == ESRCH; }

}  // namespace

bool socketAccepts(const char* path) { return accepted(connectError(path)); }

void makeRoomForAgentSocket() {
  struct stat status {};
  if (lstat(kAgentSocketFile, &status) != 0) return tryToMakeSocket();
  if (!S_ISSOCK(status.st_mode)) {
    throw StartError(std::string(kAgentSocketFile) + " is " + kindOf(status.st_mode) +
                     ", not a socket: move it away");
  }
  const int error = connectError(kAgentSocketFile);
  if (accepted(error)) throw StartError(std::string("another agent serves ") + kAgentAddress);
  if (error != ECONNREFUSED && error != ENOENT) {
    throw StartError(std::string("cannot find out whether another agent serves ") + kAgentAddress +
                     ": " + textOf(error));
  }
  tryToMakeSocket();
  if (unlink(kAgentSocketFile) == 0 || errno == ENOENT) return;
  throw StartError(std::string("cannot remove ") + kAgentSocketFile +
                   ", the socket of an agent that was killed: " + textOf(errno));
}

void removeAgentSocket() {
  if (isSocket(kAgentSocketFile)) unlink(kAgentSocketFile);
}

size_t removeStalePartnerSockets(const char* folder) {
  const std::unique_ptr<DIR, int (*)(DIR*)> entries(opendir(folder), closedir);
  if (entries == nullptr) return 0;
  size_t removed = 0;
  while (const dirent* const entry = readdir(entries.get())) {
    const pid_t pid = partnerOf(entry->d_name);
    const std::string path = std::string(folder) + '/' + entry->d_name;
    const bool is_stale =
        pid != 0 && isSocket(path) && hasEnded(pid) && connectError(path) == ECONNREFUSED;
    if (is_stale && unlink(path.c_str()) == 0) ++removed;
  }
  return removed;
}

}  // namespace slice_agent
