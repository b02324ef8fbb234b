#include "model/port/interface_port.h"

#include <arpa/inet.h>
#include <linux/if_ether.h>
#include <linux/if_packet.h>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <net/if.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/uio.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>

#include "model/port/offload.h"

namespace jxmodel {
namespace {

constexpr size_t kBatch = 32;
constexpr size_t kLongestFrame = 65'536 + 128;  // a train of segments with its link header
constexpr size_t kLinkHeader = 14;
constexpr int kReceiveBuffer = 8 << 20;
constexpr int kPatienceMs = 20;  // for room in a full send queue, once a burst

template <typename T>
bool setOption(int fd, int level, int option, const T& value) {
  return setsockopt(fd, level, option, &value, sizeof value) == 0;
}

ifreq requestFor(const std::string& name) {
  ifreq request{};
  name.copy(request.ifr_name, IFNAMSIZ - 1);
  return request;
}

/// 0 if there is no such interface. `socket` says in which network namespace.
int indexOf(int socket, const std::string& name) {
  ifreq request = requestFor(name);
  return ioctl(socket, SIOCGIFINDEX, &request) == 0 ? request.ifr_ifindex : 0;
}

bool exists(int socket, int index) {
  ifreq request{};
  request.ifr_ifindex = index;
  return ioctl(socket, SIOCGIFNAME, &request) == 0;
}

bool hasCarrier(int socket, int index) {
  ifreq request{};
  request.ifr_ifindex = index;
  if (ioctl(socket, SIOCGIFNAME, &request) != 0) return false;
  if (ioctl(socket, SIOCGIFFLAGS, &request) != 0) return false;
  return (request.ifr_flags & IFF_UP) != 0 && (request.ifr_flags & IFF_RUNNING) != 0;
}

bool isLinkError(int error) {
  return error == ENETDOWN || error == ENXIO || error == ENODEV || error == ENETUNREACH;
}

int64_t nowNs() {
  timespec now{};
  clock_gettime(CLOCK_REALTIME, &now);
  return int64_t{now.tv_sec} * kNsPerSecond + now.tv_nsec;
}

/// What the kernel says beside a frame.
struct Aside {
  int64_t time_ns = 0;
  bool tagged = false;
  uint16_t tpid = ETH_P_8021Q;
  uint16_t tci = 0;
};

void readAside(const tpacket_auxdata& data, Aside* aside) {
  aside->tagged = (data.tp_status & TP_STATUS_VLAN_VALID) != 0;
  aside->tci = data.tp_vlan_tci;
  if ((data.tp_status & TP_STATUS_VLAN_TPID_VALID) != 0) aside->tpid = data.tp_vlan_tpid;
}

Aside asideOf(msghdr* message) {
  Aside aside;
  for (cmsghdr* part = CMSG_FIRSTHDR(message); part != nullptr; part = CMSG_NXTHDR(message, part)) {
    if (part->cmsg_level == SOL_PACKET && part->cmsg_type == PACKET_AUXDATA) {
      tpacket_auxdata data;
      std::memcpy(&data, CMSG_DATA(part), sizeof data);
      readAside(data, &aside);
    } else if (part->cmsg_level == SOL_SOCKET && part->cmsg_type == SCM_TIMESTAMPNS) {
      timespec time;
      std::memcpy(&time, CMSG_DATA(part), sizeof time);
      aside.time_ns = int64_t{time.tv_sec} * kNsPerSecond + time.tv_nsec;
    }
  }
  if (aside.time_ns == 0) aside.time_ns = nowNs();
  return aside;
}

}  // namespace

void OwnedFd::reset() {
  if (fd_ >= 0) close(fd_);
  fd_ = -1;
}

struct InterfacePort::Batch {
  struct Slot {
    OffloadHeader left;
    std::array<iovec, 2> parts;
    alignas(cmsghdr) std::array<uint8_t, 256> control;
  };
  std::array<mmsghdr, kBatch> messages{};
  std::array<Slot, kBatch> slots;
  std::unique_ptr<uint8_t[]> frames{new uint8_t[kBatch * kLongestFrame]};  // not touched until used

  void prepare() {
    for (size_t i = 0; i < kBatch; ++i) {
      Slot& slot = slots[i];
      slot.parts = {iovec{&slot.left, sizeof slot.left}, iovec{frame(i), kLongestFrame}};
      msghdr& message = messages[i].msg_hdr;
      message = {};
      message.msg_iov = slot.parts.data();
      message.msg_iovlen = slot.parts.size();
      message.msg_control = slot.control.data();
      message.msg_controllen = slot.control.size();
    }
  }
  uint8_t* frame(size_t slot) { return frames.get() + slot * kLongestFrame; }
};

InterfacePort::InterfacePort(const PortSpec& spec) : Port(spec), batch_(new Batch) {
  queue_.reserve(kBatch);
}

InterfacePort::~InterfacePort() = default;

// --- opening and the state of the link

std::unique_ptr<InterfacePort> InterfacePort::open(const PortSpec& spec, std::string* error) {
  std::unique_ptr<InterfacePort> port(new InterfacePort(spec));
  std::string reason;
  if (port->openSockets(&reason)) return port;
  *error = "port " + std::to_string(spec.number) + ": cannot open interface `" + spec.interface +
           "`: " + reason;
  return nullptr;
}

bool InterfacePort::openSockets(std::string* reason) {
  const auto failed = [&](const char* what) {
    *reason = std::string(what) + ": " + std::strerror(errno);
    if (errno == EPERM) *reason += " (raw sockets need the capability CAP_NET_RAW)";
    return false;
  };
  // No protocol: nothing arrives from other interfaces before the socket is bound to this one.
  packets_ = OwnedFd(socket(AF_PACKET, SOCK_RAW | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
  const int fd = packets_.get();
  if (fd < 0) return failed("raw socket");
  const int on = 1;
  if (!setOption(fd, SOL_PACKET, PACKET_VNET_HDR, on)) return failed("offload headers");
  if (!setOption(fd, SOL_PACKET, PACKET_AUXDATA, on)) return failed("VLAN tags");
  if (!setOption(fd, SOL_PACKET, PACKET_IGNORE_OUTGOING, on)) return failed("own packets");
  if (!setOption(fd, SOL_SOCKET, SO_TIMESTAMPNS, on)) return failed("time stamps");
  if (!setOption(fd, SOL_SOCKET, SO_RCVBUFFORCE, kReceiveBuffer)) {
    setOption(fd, SOL_SOCKET, SO_RCVBUF, kReceiveBuffer);  // what the machine's limit allows
  }
  events_ = OwnedFd(socket(AF_NETLINK, SOCK_RAW | SOCK_NONBLOCK | SOCK_CLOEXEC, NETLINK_ROUTE));
  sockaddr_nl links{};
  links.nl_family = AF_NETLINK;
  links.nl_groups = RTMGRP_LINK;
  const auto* const address = reinterpret_cast<const sockaddr*>(&links);
  if (events_.get() < 0 || bind(events_.get(), address, sizeof links) != 0) {
    return failed("link events");
  }
  const int index = indexOf(fd, spec().interface);
  if (index == 0) return failed("no such interface");
  return bindTo(index, reason);
}

bool InterfacePort::bindTo(int index, std::string* reason) {
  const auto failed = [&](const char* what) {
    *reason = std::string(what) + ": " + std::strerror(errno);
    return false;
  };
  sockaddr_ll address{};
  address.sll_family = AF_PACKET;
  address.sll_protocol = htons(ETH_P_ALL);
  address.sll_ifindex = index;
  const auto* const bound = reinterpret_cast<const sockaddr*>(&address);
  if (bind(packets_.get(), bound, sizeof address) != 0) return failed("bind");
  packet_mreq membership{};
  membership.mr_ifindex = index;
  membership.mr_type = PACKET_MR_PROMISC;
  if (!setOption(packets_.get(), SOL_PACKET, PACKET_ADD_MEMBERSHIP, membership)) {
    return failed("promiscuous mode");
  }
  index_ = index;
  carrier_ = hasCarrier(packets_.get(), index);
  return true;
}

void InterfacePort::followLinkEvents() {
  std::array<uint8_t, 8192> unread;
  bool changed = false;
  for (;;) {
    const ssize_t got = recv(events_.get(), unread.data(), unread.size(), MSG_DONTWAIT);
    if (got < 0 && errno != ENOBUFS && errno != EINTR) break;
    changed = true;  // which interface matters less than how it is now
  }
  if (changed) refreshLink();
}

void InterfacePort::refreshLink() {
  if (index_ != 0 && !exists(packets_.get(), index_)) index_ = 0;
  if (index_ != 0) {
    carrier_ = hasCarrier(packets_.get(), index_);
    return;
  }
  carrier_ = false;
  const int index = indexOf(packets_.get(), spec().interface);
  std::string reason;
  if (index != 0 && !bindTo(index, &reason)) noteError("interface came back: " + reason);
}

// --- receiving

void InterfacePort::receive(const PacketReceiver& receiver, size_t limit) {
  followLinkEvents();
  for (size_t received = 0; received < limit && packets_.get() >= 0;) {
    batch_->prepare();
    const int got =
        recvmmsg(packets_.get(), batch_->messages.data(), kBatch, MSG_DONTWAIT, nullptr);
    if (got < 0 && errno == EINTR) continue;
    if (got < 0 && errno == EAGAIN) return;
    if (got < 0) {
      receiveFailed(errno);
      ++received;
      continue;
    }
    const auto count = static_cast<size_t>(got);
    for (size_t i = 0; i < count; ++i) {
      if (packets_.get() < 0) return;  // the receiver has stopped this port
      handOn(i, receiver);
    }
    if (count < kBatch) return;
    received += count;
  }
}

void InterfacePort::receiveFailed(int error) {
  if (isLinkError(error)) return refreshLink();
  // The kernel could not tell what is left to do for a frame (a train inside a tunnel, say).
  countReceiveError();
  noteError(std::string("cannot receive: ") + std::strerror(error));
}

void InterfacePort::handOn(size_t slot, const PacketReceiver& receiver) {
  mmsghdr& message = batch_->messages[slot];
  const OffloadHeader& left = batch_->slots[slot].left;
  const bool cut = (message.msg_hdr.msg_flags & MSG_TRUNC) != 0;
  if (cut || message.msg_len < sizeof left + kLinkHeader) return countReceiveError();
  const Aside aside = asideOf(&message.msg_hdr);
  const auto emit = [&](PacketBuffer&& packet) {
    if (aside.tagged) insertVlanTag(aside.tpid, aside.tci, &packet);
    packet.setTime(aside.time_ns, TimeResolution::kNanosecond);
    deliver(std::move(packet), receiver);
  };
  const size_t size = message.msg_len - sizeof left;
  if (finishOffloads(left, batch_->frame(slot), size, emit)) return;
  countReceiveError();
  noteError("cannot finish offloaded work of a frame of " + std::to_string(size) + " bytes");
}

uint64_t InterfacePort::dropsElsewhere() const {
  const MutexLock lock(send_mutex_);
  readKernelDrops();
  return kernel_drops_;
}

void InterfacePort::readKernelDrops() const {
  // Reading sets the kernel's number to 0.
  tpacket_stats since_last{};
  socklen_t size = sizeof since_last;
  if (getsockopt(packets_.get(), SOL_PACKET, PACKET_STATISTICS, &since_last, &size) == 0) {
    kernel_drops_ += since_last.tp_drops;
  }
}

// --- sending

void InterfacePort::transmit(PacketBuffer&& packet) {
  const MutexLock lock(send_mutex_);
  if (stopped_) return countDroppedOut();
  queue_.push_back(std::move(packet));
  if (queue_.size() == kBatch) flushLocked();
}

void InterfacePort::flush() {
  const MutexLock lock(send_mutex_);
  flushLocked();
}

void InterfacePort::flushLocked() {
  OffloadHeader nothing_left{};
  std::array<mmsghdr, kBatch> messages{};
  std::array<std::array<iovec, 2>, kBatch> parts;
  const size_t count = queue_.size();
  for (size_t i = 0; i < count; ++i) {
    parts[i] = {iovec{&nothing_left, sizeof nothing_left},
                iovec{queue_[i].data(), queue_[i].size()}};
    messages[i].msg_hdr.msg_iov = parts[i].data();
    messages[i].msg_hdr.msg_iovlen = parts[i].size();
  }
  for (size_t done = 0; done < count;) {
    const int sent = sendmmsg(packets_.get(), messages.data() + done,
                              static_cast<unsigned>(count - done), MSG_DONTWAIT);
    if (sent <= 0) {
      done += sendFailed(errno, count - done);
      continue;
    }
    for (int i = 0; i < sent; ++i) countSent(queue_[done++].wireLength());
  }
  queue_.clear();
}

size_t InterfacePort::sendFailed(int error, size_t left) {
  if (error == EINTR) return 0;
  if (error == EAGAIN && waitForRoom()) return 0;
  if (error == EAGAIN || isLinkError(error)) {
    countDroppedOut(left);
    return left;
  }
  if (error == ENOBUFS) {
    countDroppedOut();
    return 1;
  }
  countSendError();
  noteError(std::string("cannot send: ") + std::strerror(error));
  return 1;
}

bool InterfacePort::waitForRoom() {
  pollfd waiting{packets_.get(), POLLOUT, 0};
  return poll(&waiting, 1, kPatienceMs) == 1 && (waiting.revents & POLLOUT) != 0;
}

void InterfacePort::stop() {
  const MutexLock lock(send_mutex_);
  flushLocked();
  stopped_ = true;
  readKernelDrops();
  carrier_ = false;
  packets_.reset();
  events_.reset();
}

void InterfacePort::noteError(const std::string& reason) {
  const MutexLock lock(error_mutex_);
  error_ = "interface `" + spec().interface + "`: " + reason;
}

std::string InterfacePort::errorText() const {
  const MutexLock lock(error_mutex_);
  return error_;
}

}  // namespace jxmodel
