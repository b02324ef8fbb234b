#include "model/notify/learn_channel.h"

#include <atomic>
#include <utility>

#include "model/base/clock.h"

namespace jxmodel {
namespace {

constexpr jx_model_learn_options_t kDefaults = {32, 1, 16, 65536};

uint64_t nextMessageId() {
  static std::atomic<uint64_t> last{0};
  return ++last;
}

}  // namespace

LearnChannel::LearnChannel(const DeviceCore& device, const Program& program, const Learn& learn)
    : device_(device),
      program_(program),
      learn_(learn),
      layout_(std::make_shared<LearnLayout>(program, learn)),
      timer_(device.dispatch()->makeTimer([this](uint64_t) { close(); })),
      options_(kDefaults) {}

// --- where digests come from

void LearnChannel::offer(const uint8_t* values, Full full) {
  const MutexLock lock(mutex_);
  if (client_ != nullptr && filter_.contains(valueOf(values))) {
    ++counts_.suppressed;
    return;
  }
  show(values);
  if (full == Full::kWait) waitForRoom();
  if (client_ == nullptr) {
    ++counts_.unclaimed;
    return;
  }
  if (!hasRoom()) {
    ++counts_.lost;
    return;
  }
  filter_.emplace(valueOf(values));
  gather(values);
}

jx_status_t LearnChannel::inject(const uint8_t* values, size_t count) {
  const MutexLock lock(mutex_);
  for (size_t i = 0; i < count; ++i) {
    waitForRoom();
    if (ended_) return JX_NOT_READY;
    if (client_ == nullptr) return JX_NO_LEARN_CLIENTS;
    show(values + i * layout_->bytes);
    gather(values + i * layout_->bytes);
  }
  return JX_SUCCESS;
}

void LearnChannel::close() {
  const MutexLock lock(mutex_);
  complete();
}

/// Until there is room for one more, or nobody who could make some.
void LearnChannel::waitForRoom() {
  if (hasRoom()) return;
  complete();  // time may stand still as long as the caller waits
  changed_.wait(mutex_, [this]() ABSL_EXCLUSIVE_LOCKS_REQUIRED(mutex_) {
    return ended_ || client_ == nullptr || hasRoom();
  });
}

/// To those who watch the device, whether anybody takes digests or not.
void LearnChannel::show(const uint8_t* values) const {
  if (!device_.events().watched()) return;
  Event event;
  event.kind = Event::Kind::kLearned;
  event.program = program_.name;
  event.object = learn_.name;
  event.values.assign(values, values + layout_->bytes);
  device_.events().raise(std::move(event));
}

void LearnChannel::gather(const uint8_t* values) {
  if (open_ == nullptr) {
    open_ = std::make_shared<LearnMessage>();
    open_->layout = layout_;
    open_->values.reserve(size_t{options_.batch} * layout_->bytes);
    const uint64_t time = Clock::instance().now() + options_.batch_ms * kNsPerMs;
    if (options_.batch_ms != 0) device_.dispatch()->set(timer_, time);
  }
  open_->values.insert(open_->values.end(), values, values + layout_->bytes);
  ++waiting_;
  if (++open_->count >= options_.batch || options_.batch_ms == 0) complete();
}

void LearnChannel::complete() {
  if (open_ == nullptr) return;
  open_->id = nextMessageId();
  complete_.push_back(std::exchange(open_, nullptr));
  device_.dispatch()->set(timer_, DispatchThread::kNever);
  deliverSoon();
}

// --- delivery

bool LearnChannel::canDeliver() const {
  return client_ != nullptr && !complete_.empty() &&
         unacknowledged_.size() < options_.max_unacked && !ended_;
}

void LearnChannel::deliverSoon() {
  if (delivery_posted_ || !canDeliver()) return;
  delivery_posted_ = true;
  // One message a time: other things that the thread has to tell have their turn in between. The
  // device stays until the callback has returned, which may remove it.
  device_.dispatch()->post([this, owner = device_.owner()] {
    if (const auto device = owner.lock()) deliver();
  });
}

void LearnChannel::deliver() {
  MutexLock lock(mutex_);
  delivery_posted_ = false;
  if (!canDeliver()) return;
  const std::shared_ptr<const Client> client = client_;
  const std::shared_ptr<const LearnMessage> message = std::move(complete_.front());
  complete_.pop_front();
  waiting_ -= message->count;
  unacknowledged_.emplace(message->id, message);
  counts_.delivered += message->count;
  ++counts_.messages;
  ++calls_begun_;
  changed_.notifyAll();
  lock.unlock();
  (*client)(message);
  lock.lock();
  ++calls_ended_;
  changed_.notifyAll();
  deliverSoon();
}

jx_status_t LearnChannel::acknowledge(uint64_t id) {
  const MutexLock lock(mutex_);
  if (left_.erase(id) != 0) return JX_SUCCESS;
  const auto found = unacknowledged_.find(id);
  if (found == unacknowledged_.end()) return JX_OBJECT_NOT_FOUND;
  forget(*found->second);
  unacknowledged_.erase(found);
  deliverSoon();
  return JX_SUCCESS;
}

/// Lets digests equal to those of the message pass the filter.
void LearnChannel::forget(const LearnMessage& message) {
  for (uint32_t i = 0; i < message.count; ++i) filter_.erase(valueOf(message.digest(i)));
}

// --- who takes them

void LearnChannel::setClient(Client client) {
  const MutexLock lock(mutex_);
  replaceClient(std::make_shared<const Client>(std::move(client)));
}

void LearnChannel::clearClient() {
  const MutexLock lock(mutex_);
  counts_.unclaimed += std::exchange(waiting_, 0);
  complete_.clear();
  open_ = nullptr;
  filter_.clear();
  device_.dispatch()->set(timer_, DispatchThread::kNever);
  replaceClient(nullptr);
}

bool LearnChannel::hasClient() const {
  const MutexLock lock(mutex_);
  return client_ != nullptr;
}

void LearnChannel::replaceClient(std::shared_ptr<const Client> client) {
  client_.swap(client);
  left_.clear();
  for (const auto& [id, message] : unacknowledged_) {
    forget(*message);
    left_.insert(id);
  }
  unacknowledged_.clear();
  changed_.notifyAll();
  deliverSoon();
  if (device_.dispatch()->onThread()) return;
  const uint64_t begun = calls_begun_;
  changed_.wait(mutex_, [this, begun]() ABSL_EXCLUSIVE_LOCKS_REQUIRED(mutex_) {
    return calls_ended_ >= begun;
  });
}

// --- bounds and counts

jx_model_learn_options_t LearnChannel::options() const {
  const MutexLock lock(mutex_);
  return options_;
}

void LearnChannel::setOptions(const jx_model_learn_options_t& options) {
  const MutexLock lock(mutex_);
  options_ = options;
  complete();  // what was begun under other ones
  changed_.notifyAll();
  deliverSoon();
}

jx_model_learn_counts_t LearnChannel::counts() const {
  const MutexLock lock(mutex_);
  jx_model_learn_counts_t counts = counts_;
  counts.waiting = waiting_;
  counts.unacked = unacknowledged_.size();
  return counts;
}

void LearnChannel::end() {
  const MutexLock lock(mutex_);
  ended_ = true;
  changed_.notifyAll();
}

}  // namespace jxmodel
