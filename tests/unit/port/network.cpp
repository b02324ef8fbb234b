#include "network.h"

#include <arpa/inet.h>
#include <linux/if_ether.h>
#include <linux/if_packet.h>
#include <net/if.h>
#include <poll.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <condition_variable>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <thread>

#include "support/wait_until.h"

namespace jxmodel::test {
void ip(const std::string& arguments) {
  EXPECT_EQ(std::system(("ip " + arguments).c_str()), 0) << "ip " << arguments;
}

namespace {

bool isRunning(const std::string& interface) {
  const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  ifreq request{};
  interface.copy(request.ifr_name, sizeof request.ifr_name - 1);
  const bool answered = ioctl(fd, SIOCGIFFLAGS, &request) == 0;
  close(fd);
  return answered && (request.ifr_flags & IFF_RUNNING) != 0;
}

/// Until the kernel has seen that the cable is plugged in, it drops what an interface sends. The
/// second setting waits for the lock that it holds while it goes from seeing to sending.
void awaitRunning(const std::string& interface) {
  EXPECT_TRUE(jextest::waitUntil([&] { return isRunning(interface); })) << interface;
  ip("link set " + interface + " up");
}

}  // namespace

struct Host::Shared {
  std::mutex mutex;
  std::condition_variable changed;
  std::function<void()> job;
  bool ending = false;
  pid_t thread_id = 0;
  std::thread thread;

  void serve() {
    EXPECT_EQ(unshare(CLONE_NEWNET), 0) << std::strerror(errno);
    std::unique_lock lock(mutex);
    thread_id = static_cast<pid_t>(syscall(SYS_gettid));
    changed.notify_all();
    for (;;) {
      changed.wait(lock, [this] { return job != nullptr || ending; });
      if (job == nullptr) return;
      lock.unlock();
      job();
      lock.lock();
      job = nullptr;
      changed.notify_all();
    }
  }
};

Host::Host(const std::string& name, int mtu) : shared_(new Shared) {
  shared_->thread = std::thread([this] { shared_->serve(); });
  {
    std::unique_lock lock(shared_->mutex);
    shared_->changed.wait(lock, [this] { return shared_->thread_id != 0; });
  }
  const std::string size = " mtu " + std::to_string(mtu);
  ip("link add " + name + size + " type veth peer name eth0" + size + " netns " +
     std::to_string(shared_->thread_id));
  ip("link set " + name + " addrgenmode none");
  ip("link set " + name + " up");
  run([] { ip("link set eth0 addrgenmode none up"); });
  run([] { awaitRunning("eth0"); });
  awaitRunning(name);
}

Host::~Host() {
  // The end of a namespace is not awaited by anyone, the removal of a cable is.
  run([] {
    if (if_nametoindex("eth0") != 0) ip("link del eth0");
  });
  {
    const std::lock_guard lock(shared_->mutex);
    shared_->ending = true;
    shared_->changed.notify_all();
  }
  shared_->thread.join();
}

void Host::begin(std::function<void()> job) {
  const std::lock_guard lock(shared_->mutex);
  shared_->job = std::move(job);
  shared_->changed.notify_all();
}

void Host::join() {
  std::unique_lock lock(shared_->mutex);
  shared_->changed.wait(lock, [this] { return shared_->job == nullptr; });
}

void Host::run(std::function<void()> job) {
  join();
  begin(std::move(job));
  join();
}

Tap::Tap(const std::string& interface) : fd_(socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC, 0)) {
  const int on = 1;
  EXPECT_EQ(setsockopt(fd_, SOL_PACKET, PACKET_VNET_HDR, &on, sizeof on), 0);
  EXPECT_EQ(setsockopt(fd_, SOL_PACKET, PACKET_AUXDATA, &on, sizeof on), 0);
  EXPECT_EQ(setsockopt(fd_, SOL_PACKET, PACKET_IGNORE_OUTGOING, &on, sizeof on), 0);
  sockaddr_ll address{};
  address.sll_family = AF_PACKET;
  address.sll_protocol = htons(ETH_P_ALL);
  address.sll_ifindex = static_cast<int>(if_nametoindex(interface.c_str()));
  EXPECT_NE(address.sll_ifindex, 0) << interface;
  EXPECT_EQ(bind(fd_, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
}

Tap::~Tap() { close(fd_); }

void Tap::send(const Bytes& frame, const OffloadHeader& left) {
  OffloadHeader header = left;
  Bytes bytes = frame;
  iovec parts[] = {{&header, sizeof header}, {bytes.data(), bytes.size()}};
  EXPECT_EQ(writev(fd_, parts, 2), static_cast<ssize_t>(sizeof header + bytes.size()))
      << std::strerror(errno);
}

Bytes Tap::receive() {
  const auto patience = std::chrono::milliseconds(jextest::kPatience);
  for (;;) {
    pollfd waiting{fd_, POLLIN, 0};
    if (poll(&waiting, 1, static_cast<int>(patience.count())) != 1) return {};
    OffloadHeader header;
    Bytes bytes(70'000);
    iovec parts[] = {{&header, sizeof header}, {bytes.data(), bytes.size()}};
    alignas(cmsghdr) std::array<uint8_t, 128> control;
    msghdr message{};
    message.msg_iov = parts;
    message.msg_iovlen = 2;
    message.msg_control = control.data();
    message.msg_controllen = control.size();
    const ssize_t got = recvmsg(fd_, &message, 0);
    if (got < static_cast<ssize_t>(sizeof header + 14)) continue;
    bytes.resize(static_cast<size_t>(got) - sizeof header);
    if (bytes[12] != 0x88 || bytes[13] != 0xb5) continue;  // the host's own traffic
    tpacket_auxdata aside;
    std::memcpy(&aside, CMSG_DATA(CMSG_FIRSTHDR(&message)), sizeof aside);
    if ((aside.tp_status & TP_STATUS_VLAN_VALID) == 0) return bytes;
    const uint16_t tag[] = {htons(aside.tp_vlan_tpid), htons(aside.tp_vlan_tci)};
    const auto* const first = reinterpret_cast<const uint8_t*>(tag);
    bytes.insert(bytes.begin() + 12, first, first + sizeof tag);
    return bytes;
  }
}

}  // namespace jxmodel::test
