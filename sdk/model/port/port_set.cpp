#include "model/port/port_set.h"

#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <system_error>

#include "model/port/capture_port.h"

namespace jxmodel {
namespace {

constexpr size_t kBurst = 64;              // packets of an interface before others have their turn
constexpr size_t kReplayBurst = 256;       // packets of all capture inputs before the same
constexpr uint64_t kWakeTag = UINT64_MAX;  // all others are port numbers

OwnedFd checked(int fd, const char* what) {
  if (fd < 0) throw std::system_error(errno, std::generic_category(), what);
  return OwnedFd(fd);
}

std::unique_ptr<Port> open(const PortSpec& spec, std::string* error) {
  if (spec.kind == PortKind::kInterface) return InterfacePort::open(spec, error);
  return CapturePort::open(spec, error);
}

/// Whether two names mean one file.
bool sameFile(const std::string& one, const std::string& other) {
  if (one.empty() || other.empty()) return false;
  std::error_code ignored;
  return one == other || std::filesystem::equivalent(one, other, ignored);
}

/// What a new port cannot have because another one has it; empty if there is no such thing. A file
/// that is written may be read, but one that is read must not be emptied and written.
std::string clashOf(const PortSpec& spec, const PortSpec& other) {
  if (spec.kind != other.kind) return {};
  if (spec.kind == PortKind::kInterface) {
    return spec.interface == other.interface ? "interface `" + spec.interface + '`' : "";
  }
  const bool clash = sameFile(spec.output, other.output) || sameFile(spec.output, other.input);
  return clash ? "capture file `" + spec.output + '`' : "";
}

bool watch(int epoll, int fd, uint64_t tag) {
  epoll_event event{};
  event.events = EPOLLIN;
  event.data.u64 = tag;
  return epoll_ctl(epoll, EPOLL_CTL_ADD, fd, &event) == 0;
}

}  // namespace

PortSet::PortSet()
    : epoll_(checked(epoll_create1(EPOLL_CLOEXEC), "epoll")),
      wake_(checked(eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC), "eventfd")) {
  if (!watch(epoll_.get(), wake_.get(), kWakeTag)) {
    throw std::system_error(errno, std::generic_category(), "epoll");
  }
}

PortSet::~PortSet() { stop(); }

void PortSet::start(PacketReceiver receiver, std::function<void()> pause) {
  receiver_ = std::move(receiver);
  pause_ = std::move(pause);
  {
    const MutexLock lock(mutex_);
    running_ = true;
    ++version_;
  }
  io_thread_ = std::thread([this] { run(); });
}

void PortSet::stop() {
  {
    const MutexLock lock(mutex_);
    stopping_ = true;
    changed();
  }
  if (io_thread_.joinable()) io_thread_.join();
  const MutexLock opening(attach_mutex_);
  const MutexLock lock(mutex_);
  running_ = false;
  progress_.notifyAll();
  tasks_.clear();
  for (const PortPointer& port : ports_) {
    if (port != nullptr) port->stop();
  }
}

void PortSet::changed() {
  ++version_;
  wake();
}

void PortSet::wake() {
  const uint64_t one = 1;
  // Fails only if the counter is full, and then the thread is being woken anyway.
  [[maybe_unused]] const ssize_t written = write(wake_.get(), &one, sizeof one);
}

// --- ports

PortSet::PortPointer PortSet::find(uint32_t number) const {
  if (number >= kMaxPorts) return nullptr;
  const MutexLock lock(mutex_);
  return ports_[number];
}

std::string PortSet::collisionOf(const PortSpec& spec) const {
  const std::string here = "port " + std::to_string(spec.number) + ": ";
  if (spec.number >= kMaxPorts) {
    return here + "port numbers end at " + std::to_string(kMaxPorts - 1);
  }
  const MutexLock lock(mutex_);
  if (stopping_) return here + "the ports of the device are stopped";
  if (const PortPointer& taken = ports_[spec.number]) {
    return here + "already attached (" + toString(taken->spec()) + ")";
  }
  std::vector<const Port*> others = closing_;
  for (const PortPointer& port : ports_) {
    if (port != nullptr) others.push_back(port.get());
  }
  for (const Port* const other : others) {
    const std::string shared = clashOf(spec, other->spec());
    if (shared.empty()) continue;
    return here + shared + " is in use by port " + std::to_string(other->number());
  }
  return {};
}

bool PortSet::attach(const PortSpec& spec, std::string* error) {
  const MutexLock opening(attach_mutex_);
  std::string collision = collisionOf(spec);
  if (!collision.empty()) {
    *error = std::move(collision);
    return false;
  }
  const PortPointer port = open(spec, error);
  if (port == nullptr) return false;
  const MutexLock lock(mutex_);
  ports_[spec.number] = port;
  for (const int fd : port->descriptors()) {
    if (watch(epoll_.get(), fd, spec.number)) continue;
    *error = "port " + std::to_string(spec.number) +
             ": epoll: " + std::generic_category().message(errno);
    ports_[spec.number] = nullptr;
    return false;
  }
  changed();
  return true;
}

bool PortSet::detach(uint32_t number) {
  if (number >= kMaxPorts) return false;
  PortPointer port;
  {
    const MutexLock lock(mutex_);
    port = std::exchange(ports_[number], nullptr);
    if (port == nullptr) return false;
    closing_.push_back(port.get());
    for (const int fd : port->descriptors()) {
      epoll_ctl(epoll_.get(), EPOLL_CTL_DEL, fd, nullptr);
    }
    changed();
    // From a round that began after this one on, the I/O thread does not know the port any more.
    const uint64_t without = version_;
    if (!onIoThread()) {
      progress_.wait(mutex_, [&]() ABSL_EXCLUSIVE_LOCKS_REQUIRED(mutex_) {
        return !running_ || seen_ >= without;
      });
    }
  }
  port->stop();
  const MutexLock lock(mutex_);
  closing_.erase(std::find(closing_.begin(), closing_.end(), port.get()));
  return true;
}

bool PortSet::setEnabled(uint32_t number, bool enabled) {
  const PortPointer port = find(number);
  if (port == nullptr) return false;
  port->setEnabled(enabled);
  const MutexLock lock(mutex_);
  changed();
  return true;
}

bool PortSet::send(uint32_t number, PacketBuffer&& packet) {
  if (number >= kMaxPorts) return false;
  if (onIoThread()) {
    Port* const port = round_ports_[number].get();
    if (port == nullptr) return false;
    port->send(std::move(packet));  // flushed at the end of the round
    return true;
  }
  const PortPointer port = find(number);
  if (port == nullptr) return false;
  port->send(std::move(packet));
  port->flush();
  return true;
}

void PortSet::inject(uint32_t number, PacketBuffer&& packet) {
  Port* const port = number < kMaxPorts ? round_ports_[number].get() : nullptr;
  if (port == nullptr) return receiver_(number, std::move(packet));
  port->inject(std::move(packet), receiver_);
}

void PortSet::post(std::function<void()> task) {
  const MutexLock lock(mutex_);
  if (stopping_) return;
  tasks_.push_back(std::move(task));
  changed();
}

void PortSet::holdCaptures(bool held) {
  const MutexLock lock(mutex_);
  held_ = held;
  changed();
}

bool PortSet::waitUntilIdle(std::chrono::milliseconds patience) {
  const MutexLock lock(mutex_);
  const uint64_t wanted = version_;
  progress_.waitFor(mutex_, patience, [&]() ABSL_EXCLUSIVE_LOCKS_REQUIRED(mutex_) {
    return !running_ || idle_ >= wanted;
  });
  return running_ && idle_ >= wanted;
}

std::vector<PortStatus> PortSet::list() const {
  std::vector<PortPointer> found;
  {
    const MutexLock lock(mutex_);
    for (const PortPointer& port : ports_) {
      if (port != nullptr) found.push_back(port);
    }
  }
  std::vector<PortStatus> statuses;
  statuses.reserve(found.size());
  for (const PortPointer& port : found) statuses.push_back(port->status());
  return statuses;
}

void PortSet::numbers(std::vector<uint32_t>* numbers) const {
  numbers->clear();
  for (const Port* const port : round_list_) numbers->push_back(port->number());
}

std::optional<PortStatus> PortSet::status(uint32_t number) const {
  const PortPointer port = find(number);
  if (port == nullptr) return std::nullopt;
  return port->status();
}

std::bitset<kMaxPorts> PortSet::links() const {
  std::bitset<kMaxPorts> up;
  for (const Port* const port : round_list_) up[port->number()] = port->linkUp();
  return up;
}

bool PortSet::readsCapture(uint32_t number) const {
  const Port* const port = number < kMaxPorts ? round_ports_[number].get() : nullptr;
  return port != nullptr && port->spec().kind != PortKind::kInterface;
}

// --- the I/O thread

void PortSet::run() {
  io_thread_id_ = std::this_thread::get_id();
  while (beginRound()) {
    for (const auto& task : round_tasks_) task();
    round_tasks_.clear();
    const bool more = replay();
    flushAll();
    if (!more) {
      if (pause_) pause_();
      const MutexLock lock(mutex_);
      idle_ = round_version_;
      progress_.notifyAll();
    }
    poll(more ? 0 : -1);
  }
  io_thread_id_ = std::thread::id();
  round_list_.clear();
  round_ports_.fill(nullptr);
  const MutexLock lock(mutex_);
  running_ = false;
  progress_.notifyAll();
}

/// Takes over what other threads have changed. False if it is time to end.
bool PortSet::beginRound() {
  const MutexLock lock(mutex_);
  if (stopping_) return false;
  round_tasks_ = std::exchange(tasks_, {});
  round_held_ = held_;
  if (round_version_ == version_) return true;
  round_version_ = version_;
  round_ports_ = ports_;
  round_list_.clear();
  for (const PortPointer& port : round_ports_) {
    if (port != nullptr) round_list_.push_back(port.get());
  }
  seen_ = version_;
  progress_.notifyAll();
  return true;
}

void PortSet::poll(int timeout_ms) {
  std::array<epoll_event, 64> events;
  const int count = epoll_wait(epoll_.get(), events.data(), int{events.size()}, timeout_ms);
  for (int i = 0; i < count; ++i) {
    const uint64_t tag = events[static_cast<size_t>(i)].data.u64;
    if (tag == kWakeTag) {
      uint64_t ignored;
      [[maybe_unused]] const ssize_t got = read(wake_.get(), &ignored, sizeof ignored);
    } else if (Port* const port = round_ports_[tag].get()) {
      port->receive(receiver_, kBurst);
    }
  }
}

/// Whether packets are left that need not wait.
bool PortSet::replay() {
  if (round_held_) return false;
  for (size_t left = kReplayBurst; left > 0;) {
    Port* first = nullptr;
    std::optional<int64_t> first_time;
    std::optional<int64_t> other_time;  // the earliest of all other ports
    for (Port* const port : round_list_) {
      const std::optional<int64_t> time = port->nextTime();
      if (!time) continue;
      if (!first_time || *time < *first_time) {
        other_time = first_time;
        first_time = time;
        first = port;
      } else if (!other_time || *time < *other_time) {
        other_time = time;
      }
    }
    if (first == nullptr) return false;
    std::optional<int64_t> time = first_time;
    do {
      first->receiveNext(receiver_);
      time = first->nextTime();
    } while (--left > 0 && time && (!other_time || *time < *other_time));
  }
  return true;
}

void PortSet::flushAll() {
  for (Port* const port : round_list_) port->flush();
}

}  // namespace jxmodel
