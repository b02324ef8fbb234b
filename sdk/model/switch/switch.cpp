#include "model/switch/switch.h"

#include <algorithm>
#include <future>
#include <utility>

#include "model/base/clock.h"
#include "model/runtime/rt_info.h"

namespace jxmodel {

Switch::Switch(const DeviceCore& device, const RtInfo* info)
    : events_(device.events()), dispatch_(*device.dispatch()), pipeline_(device, info) {
  if (info != nullptr) {
    for (const auto& channel : info->channels()) channels_.push_back(channel.get());
  }
  ports_.start([this](uint32_t port, PacketBuffer&& packet) { receive(port, std::move(packet)); },
               [this] { pause(); });
}

Switch::~Switch() { end(); }

void Switch::end() {
  ports_.stop();
  const MutexLock lock(tap_mutex_);
  ended_ = true;
  for (const auto& tap : taps_) tap->end();
}

/// False if the ports were stopped before the work was done.
bool Switch::runOnIoThread(std::function<void()> work) {
  // Dropped by the ports, the task breaks its promise.
  auto task = std::make_shared<std::packaged_task<void()>>(std::move(work));
  std::future<void> done = task->get_future();
  ports_.post([task = std::move(task)] { (*task)(); });
  try {
    done.get();
  } catch (const std::future_error&) {
    return false;
  }
  return true;
}

bool Switch::inject(uint32_t port, std::vector<PacketBuffer> packets) {
  // Few at a time, so that other ports have their turn in between.
  constexpr size_t kAtATime = 64;
  for (size_t first = 0; first < packets.size(); first += kAtATime) {
    const size_t last = std::min(packets.size(), first + kAtATime);
    const bool done = runOnIoThread([&] {
      injecting_ = true;
      for (size_t i = first; i < last; ++i) ports_.inject(port, std::move(packets[i]));
      injecting_ = false;
    });
    if (!done) return false;
  }
  // Runs a round later, and each round ends with all that was sent handed over.
  return runOnIoThread([] {});
}

bool Switch::exchange(uint32_t port, PacketBuffer packet, std::vector<Sent>* sent) {
  const bool done = runOnIoThread([&] {
    injecting_ = true;
    sent_ = sent;
    ports_.inject(port, std::move(packet));
    sent_ = nullptr;
    injecting_ = false;
  });
  // As in `inject`.
  return done && runOnIoThread([] {});
}

Trace Switch::trace(uint32_t port, PacketBuffer packet) const {
  Trace trace;
  pipeline_.run({packet.data(), static_cast<uint32_t>(packet.size()),
                 static_cast<uint32_t>(packet.wireLength()), port},
                nullptr, &trace);
  return trace;
}

// --- taps

std::shared_ptr<Tap> Switch::openTap(uint32_t port, TapDirection direction) {
  auto tap = std::make_shared<Tap>(port, direction);
  const MutexLock lock(tap_mutex_);
  if (ended_) tap->end();
  taps_.push_back(tap);
  tapped_.store(true, std::memory_order_release);
  return tap;
}

void Switch::closeTap(const std::shared_ptr<Tap>& tap) {
  const MutexLock lock(tap_mutex_);
  taps_.erase(std::remove(taps_.begin(), taps_.end(), tap), taps_.end());
  tapped_.store(!taps_.empty(), std::memory_order_release);
}

void Switch::showTaps(uint32_t port, const PacketBuffer& packet, bool leaving) {
  const MutexLock lock(tap_mutex_);
  for (const auto& tap : taps_) {
    if (tap->wants(port, leaving)) tap->put(packet, leaving);
  }
}

// --- the I/O thread

void Switch::receive(uint32_t port, PacketBuffer&& packet) {
  awaitTimers(packet);
  if (tapped_.load(std::memory_order_acquire)) showTaps(port, packet, false);
  pipeline_.forward(port, std::move(packet), *this, &digests_);
  if (!digests_.empty()) tellDigests(port);
}

/// Lets what was due before the packet come before it.
void Switch::awaitTimers(const PacketBuffer& packet) {
  Clock& clock = Clock::instance();
  if (packet.timeNs() > 0) clock.observe(static_cast<uint64_t>(packet.timeNs()));
  // The machine's time does not wait for anybody.
  if (clock.source() != JX_MODEL_CLOCK_REAL) dispatch_.awaitTimers(clock.now());
}

void Switch::tellDigests(uint32_t port) {
  const bool patient = !injecting_ && ports_.readsCapture(port);
  const auto full = patient ? LearnChannel::Full::kWait : LearnChannel::Full::kLose;
  for (const Digest& digest : digests_) channels_[digest.learn]->offer(digest.values.data(), full);
  digests_.clear();
}

/// When there is nothing to do but to wait for packets.
void Switch::pause() {
  showLinks();
  // Nothing moves a clock that follows captures now: messages that were begun would wait for ever.
  if (Clock::instance().source() != JX_MODEL_CLOCK_CAPTURE) return;
  for (LearnChannel* const channel : channels_) channel->close();
}

/// Tells which ports came up or went down since the last time.
void Switch::showLinks() {
  const std::bitset<kMaxPorts> before = std::exchange(links_, ports_.links());
  if (before == links_ || !events_.watched()) return;
  for (uint32_t port = 0; port < kMaxPorts; ++port) {
    if (before[port] == links_[port]) continue;
    Event event;
    event.kind = links_[port] ? Event::Kind::kPortUp : Event::Kind::kPortDown;
    event.port = port;
    events_.raise(std::move(event));
  }
}

void Switch::send(uint32_t port, PacketBuffer&& packet) {
  if (sent_ != nullptr) sent_->push_back({port, packet.copy()});
  if (tapped_.load(std::memory_order_acquire)) {
    const std::optional<PortStatus> status = ports_.status(port);
    if (status && status->linkUp()) showTaps(port, packet, true);
  }
  if (!ports_.send(port, std::move(packet))) sent_nowhere_.fetch_add(1, std::memory_order_relaxed);
}

void Switch::flood(uint32_t ingress_port, PacketBuffer&& packet) {
  ports_.numbers(&flood_ports_);
  for (const uint32_t port : flood_ports_) {
    if (port != ingress_port) send(port, packet.copy());
  }
}

}  // namespace jxmodel
