#include "support/namespaces.h"

#include <fcntl.h>
#include <net/if.h>
#include <sched.h>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <system_error>

namespace jextest {
namespace {

namespace fs = std::filesystem;

constexpr int kNamespaces = CLONE_NEWNS | CLONE_NEWIPC | CLONE_NEWNET;
constexpr const char* kLock = "/tmp/jex-tests.lock";
constexpr int kDeepest = 1000;  // levels of directories that are climbed at most

[[noreturn]] void fail(const std::string& what) {
  throw std::system_error(errno, std::generic_category(), what);
}

void must(bool succeeded, const std::string& what) {
  if (!succeeded) fail(what);
}

void writeFile(const char* path, const std::string& text) {
  std::ofstream file(path);
  file << text << std::flush;
  must(file.good(), path);
}

int openDirectory(const std::string& path) {
  const int fd = open(path.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC);
  must(fd >= 0, path);
  return fd;
}

/// As root directly; else as root of a user namespace of our own.
void leaveNamespaces() {
  if (unshare(kNamespaces) == 0) return;
  const std::string uid = std::to_string(geteuid());
  const std::string gid = std::to_string(getegid());
  must(unshare(CLONE_NEWUSER | kNamespaces) == 0, "new namespaces");
  writeFile("/proc/self/setgroups", "deny");
  writeFile("/proc/self/uid_map", "0 " + uid + " 1");
  writeFile("/proc/self/gid_map", "0 " + gid + " 1");
}

bool makeMountsPrivate() { return mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0; }

/// Moves the root of this process to the root of its mount namespace. No path leads there from
/// within a chroot, but the parents of a working directory that lies outside of the root do.
void leaveChroot(int root) {
  must(fchdir(root) == 0 && chroot("/tmp") == 0, "chroot");
  std::string up;
  for (int level = 0; level < kDeepest; ++level) up += "../";
  must(chdir(up.c_str()) == 0 && chroot(".") == 0, "the root of the mounts");
}

/// Mounts made from now on are seen by nobody else. A chroot's root is no mount point, and the
/// kernel makes only mounts private, so then the root is bound onto itself.
void takeMounts() {
  if (makeMountsPrivate()) return;
  must(errno == EINVAL, "private mounts");
  const int root = openDirectory("/");
  leaveChroot(root);
  must(makeMountsPrivate(), "private mounts");
  must(fchdir(root) == 0 && mount(".", ".", nullptr, MS_BIND | MS_REC, nullptr) == 0,
       "a mount of the root onto itself");
  // "." is still the directory under the new mount; the way over a child leads onto the mount.
  must(chdir("tmp/..") == 0 && chroot(".") == 0, "chroot");
  close(root);
}

/// A directory that stays visible although it lies below one that is about to be hidden.
struct Kept {
  std::string path;
  int fd;
};

void bindTo(const Kept& kept) {
  fs::create_directories(kept.path);
  // By its descriptor, as its name leads elsewhere now.
  must(fchdir(kept.fd) == 0 &&
           mount(".", kept.path.c_str(), nullptr, MS_BIND | MS_REC, nullptr) == 0,
       kept.path);
}

void hideBehindFreshMemory(const std::string& hidden, const std::vector<std::string>& keep) {
  std::vector<Kept> kept;
  for (const std::string& path : keep) {
    if (path.rfind(hidden + "/", 0) == 0) kept.push_back({path, openDirectory(path)});
  }
  fs::create_directories(hidden);
  must(mount("tmpfs", hidden.c_str(), "tmpfs", 0, "mode=1777") == 0, hidden);
  for (const Kept& directory : kept) {
    bindTo(directory);
    close(directory.fd);
  }
}

/// A bare chroot has no /proc and no terminals.
void mountWhatIsMissing() {
  if (access("/proc/self/exe", F_OK) != 0) {
    fs::create_directories("/proc");
    must(mount("proc", "/proc", "proc", 0, nullptr) == 0, "/proc");
  }
  if (access("/dev/pts/ptmx", F_OK) != 0) {
    fs::create_directories("/dev/pts");
    must(mount("devpts", "/dev/pts", "devpts", 0, "newinstance,ptmxmode=0666,mode=0620") == 0,
         "/dev/pts");
  }
}

void bringLoopbackUp() {
  const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  ifreq request{};
  std::strcpy(request.ifr_name, "lo");
  request.ifr_flags = IFF_UP | IFF_RUNNING;
  must(fd >= 0 && ioctl(fd, SIOCSIFFLAGS, &request) == 0, "loopback");
  close(fd);
}

void makeWorld(const std::vector<std::string>& keep) {
  const fs::path directory = fs::current_path();
  leaveNamespaces();
  takeMounts();
  mountWhatIsMissing();
  hideBehindFreshMemory("/tmp", keep);
  hideBehindFreshMemory("/dev/shm", keep);
  bringLoopbackUp();
  // By its name: the old one may lie under a mount.
  must(chdir(directory.c_str()) == 0 || chdir("/") == 0, directory);
}

/// Tries it in a child, as a process that has come half-way cannot go back. The reason why it
/// fails, or nothing.
std::string tryWorld(const std::vector<std::string>& keep) {
  int report[2];
  if (pipe2(report, O_CLOEXEC) != 0) return std::string("pipe: ") + std::strerror(errno);
  const pid_t child = fork();
  if (child < 0) return std::string("fork: ") + std::strerror(errno);
  if (child == 0) {
    try {
      makeWorld(keep);
      _exit(0);
    } catch (const std::exception& error) {
      const std::string reason = error.what();
      _exit(write(report[1], reason.data(), reason.size()) < 0 ? 2 : 1);
    }
  }
  close(report[1]);
  char reason[512];
  const ssize_t size = read(report[0], reason, sizeof reason);
  close(report[0]);
  int status = 0;
  while (waitpid(child, &status, 0) < 0 && errno == EINTR) continue;
  if (status == 0) return {};
  return size > 0 ? std::string(reason, static_cast<size_t>(size)) : "the attempt was ended";
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

/// The file may be another user's, who may have let us read it only.
int openLock() {
  const int existing = open(kLock, O_RDONLY | O_CLOEXEC);
  return existing >= 0 ? existing : open(kLock, O_RDONLY | O_CREAT | O_CLOEXEC, 0644);
}

}  // namespace

std::string enterNamespaces(const std::vector<std::string>& keep) {
  const std::string reason = tryWorld(keep);
  if (reason.empty()) makeWorld(keep);
  return reason;
}

int takeTurn() {
  const int lock = openLock();
  if (lock < 0 || flock(lock, LOCK_EX) != 0) {
    throw CannotRun(std::string(kLock) + ": " + std::strerror(errno));
  }
  if (!agentServes()) return lock;
  close(lock);
  throw CannotRun("an agent serves on /tmp/Partner0; not running beside it");
}

}  // namespace jextest
