#include "support/private_world.h"

#include <fcntl.h>
#include <net/if.h>
#include <sched.h>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <vector>

namespace jextest {
namespace {

namespace fs = std::filesystem;

constexpr int kNamespaces = CLONE_NEWNS | CLONE_NEWIPC | CLONE_NEWNET;

[[noreturn]] void giveUp(const char* what) {
  std::fprintf(stderr, "test set-up: %s: %s\n", what, std::strerror(errno));
  std::exit(2);
}

void writeFile(const char* path, const std::string& text) { std::ofstream(path) << text; }

/// As root directly; else as root of a user namespace of our own.
bool leaveNamespaces() {
  const std::string uid = std::to_string(getuid());
  const std::string gid = std::to_string(getgid());
  if (unshare(kNamespaces) == 0) return true;
  if (unshare(CLONE_NEWUSER | kNamespaces) != 0) return false;
  writeFile("/proc/self/setgroups", "deny");
  writeFile("/proc/self/uid_map", "0 " + uid + " 1");
  writeFile("/proc/self/gid_map", "0 " + gid + " 1");
  return true;
}

/// A folder that has to stay visible although it lies under a path that is about to be hidden.
struct Kept {
  std::string path;
  int fd;
};

std::vector<Kept> openWhatLiesUnder(const std::string& hidden) {
  std::vector<Kept> kept;
  for (const std::string path : {JEX_TEST_BINARY_ROOT, JEX_TEST_SOURCE_ROOT}) {
    if (path.rfind(hidden + "/", 0) != 0) continue;
    const int fd = open(path.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC);
    if (fd < 0) giveUp(path.c_str());
    kept.push_back({path, fd});
  }
  return kept;
}

void hideBehindFreshMemory(const char* path) {
  const std::vector<Kept> kept = openWhatLiesUnder(path);
  if (mount("tmpfs", path, "tmpfs", 0, "mode=1777") != 0) giveUp(path);
  for (const Kept& folder : kept) {
    fs::create_directories(folder.path);
    const std::string source = "/proc/self/fd/" + std::to_string(folder.fd);
    if (mount(source.c_str(), folder.path.c_str(), nullptr, MS_BIND | MS_REC, nullptr) != 0) {
      giveUp(folder.path.c_str());
    }
    close(folder.fd);
  }
}

void bringLoopbackUp() {
  const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  ifreq request{};
  std::strcpy(request.ifr_name, "lo");
  request.ifr_flags = IFF_UP | IFF_RUNNING;
  if (fd < 0 || ioctl(fd, SIOCSIFFLAGS, &request) != 0) giveUp("loopback");
  close(fd);
}

bool agentServes() {
  const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::strcpy(address.sun_path, "/tmp/Partner0");
  const bool serves = connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0;
  close(fd);
  return serves;
}

/// The lock is inherited by no child and so ends with this process.
void takeTurns() {
  const int lock = open("/tmp/jex-tests.lock", O_RDWR | O_CREAT | O_CLOEXEC, 0666);
  if (lock < 0 || flock(lock, LOCK_EX) != 0) giveUp("/tmp/jex-tests.lock");
  if (agentServes()) {
    std::fprintf(stderr,
                 "test set-up: an agent serves on /tmp/Partner0 and no private namespaces "
                 "can be made here; not running beside it\n");
    std::exit(2);
  }
}

std::string& runDirectoryName() {
  static std::string name;
  return name;
}

}  // namespace

void enterPrivateWorld() {
  if (!leaveNamespaces()) {
    takeTurns();
    return;
  }
  if (mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) giveUp("private mounts");
  hideBehindFreshMemory("/tmp");
  hideBehindFreshMemory("/dev/shm");
  bringLoopbackUp();
}

const std::string& runDirectory() {
  std::string& name = runDirectoryName();
  if (name.empty()) {
    name = std::string(JEX_TEST_BINARY_ROOT) + "/tests/runs/" + std::to_string(getpid());
    fs::remove_all(name);
    fs::create_directories(name);
  }
  return name;
}

void leaveRunDirectory(bool failed) {
  const std::string& name = runDirectoryName();
  if (name.empty()) return;
  if (failed && std::getenv("JEX_KEEP_RUN") != nullptr) {
    std::fprintf(stderr, "files of the failed run: %s\n", name.c_str());
    return;
  }
  std::error_code ignored;
  fs::remove_all(name, ignored);
}

}  // namespace jextest
