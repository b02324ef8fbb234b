#include "model/learn_channel.h"

#include <atomic>
#include <utility>

#include "model/clock.h"
#include "model/device.h"
#include "model/learn_data.h"

namespace jxmodel {
namespace {

constexpr jx_model_learn_options_t kDefaults = {32, 1, 16, 65536};

uint64_t nextMessageId() {
  static std::atomic<uint64_t> last{0};
  return ++last;
}

}  // namespace

LearnLayout::LearnLayout(const Program& program, const Learn& learn) {
  for (const LearnField& field : learn.fields) {
    const uint32_t width = program.fields[field.field].width;
    fields.push_back({field.id, width, bytes});
    bytes += bytesOf(width);
  }
}

const LearnLayout::Field* LearnLayout::find(uint32_t field_id) const {
  return field_id == 0 || field_id > fields.size() ? nullptr : &fields[field_id - 1];
}

LearnChannel::LearnChannel(const Device& device, const Program& program, const Learn& learn)
    : device_(device),
      program_(program),
      learn_(learn),
      layout_(std::make_shared<LearnLayout>(program, learn)),
      timer_(device.service()->makeTimer([this](uint64_t) { close(); })),
      options_(kDefaults) {}

// --- where digests come from

void LearnChannel::offer(const uint8_t* values, Full full) {
  Lock lock(mutex_);
  if (client_ != nullptr && filter_.contains(valueOf(values))) {
    ++counts_.suppressed;
    return;
  }
  show(values);
  if (full == Full::kWait) waitForRoom(lock);
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
  Lock lock(mutex_);
  for (size_t i = 0; i < count; ++i) {
    waitForRoom(lock);
    if (ended_) return JX_NOT_READY;
    if (client_ == nullptr) return JX_NO_LEARN_CLIENTS;
    show(values + i * layout_->bytes);
    gather(values + i * layout_->bytes);
  }
  return JX_SUCCESS;
}

void LearnChannel::close() {
  const Lock lock(mutex_);
  complete();
}

/// Until there is room for one more, or nobody who could make some.
void LearnChannel::waitForRoom(Lock& lock) {
  if (hasRoom()) return;
  complete();  // time may stand still as long as the caller waits
  changed_.wait(lock, [this] { return ended_ || client_ == nullptr || hasRoom(); });
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
    if (options_.batch_ms != 0) device_.service()->set(timer_, time);
  }
  open_->values.insert(open_->values.end(), values, values + layout_->bytes);
  ++waiting_;
  if (++open_->count >= options_.batch || options_.batch_ms == 0) complete();
}

void LearnChannel::complete() {
  if (open_ == nullptr) return;
  open_->id = nextMessageId();
  complete_.push_back(std::exchange(open_, nullptr));
  device_.service()->set(timer_, ServiceThread::kNever);
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
  device_.service()->post([this, device = device_.weak_from_this()] {
    if (const auto kept = device.lock()) deliver();
  });
}

void LearnChannel::deliver() {
  Lock lock(mutex_);
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
  changed_.notify_all();
  lock.unlock();
  call(*client, message);
  lock.lock();
  ++calls_ended_;
  changed_.notify_all();
  deliverSoon();
}

void LearnChannel::call(const Client& client, const std::shared_ptr<const LearnMessage>& message) {
  std::vector<std::unique_ptr<jxrt::JxRtTableData>> data;
  data.reserve(message->count);
  for (uint32_t i = 0; i < message->count; ++i) {
    data.push_back(std::make_unique<LearnData>(message, i));
  }
  client.callback(client.target, client.session, std::move(data), toHandle(message->id),
                  client.cookie);
}

jx_rt_learn_msg_hdl* LearnChannel::toHandle(uint64_t id) {
  // A name, not an address: nobody looks behind it, and one that was used up is known as such.
  // NOLINTNEXTLINE(performance-no-int-to-ptr)
  return reinterpret_cast<jx_rt_learn_msg_hdl*>(static_cast<uintptr_t>(id));
}

jx_status_t LearnChannel::acknowledge(const jx_rt_learn_msg_hdl* handle) {
  const uint64_t id = reinterpret_cast<uintptr_t>(handle);
  const Lock lock(mutex_);
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
  Lock lock(mutex_);
  replaceClient(std::make_shared<const Client>(std::move(client)), lock);
}

void LearnChannel::clearClient() {
  Lock lock(mutex_);
  counts_.unclaimed += std::exchange(waiting_, 0);
  complete_.clear();
  open_ = nullptr;
  filter_.clear();
  device_.service()->set(timer_, ServiceThread::kNever);
  replaceClient(nullptr, lock);
}

bool LearnChannel::hasClient() const {
  const Lock lock(mutex_);
  return client_ != nullptr;
}

void LearnChannel::replaceClient(std::shared_ptr<const Client> client, Lock& lock) {
  client_.swap(client);
  left_.clear();
  for (const auto& [id, message] : unacknowledged_) {
    forget(*message);
    left_.insert(id);
  }
  unacknowledged_.clear();
  changed_.notify_all();
  deliverSoon();
  if (device_.service()->onThread()) return;
  const uint64_t begun = calls_begun_;
  changed_.wait(lock, [this, begun] { return calls_ended_ >= begun; });
}

// --- bounds and counts

jx_model_learn_options_t LearnChannel::options() const {
  const Lock lock(mutex_);
  return options_;
}

void LearnChannel::setOptions(const jx_model_learn_options_t& options) {
  const Lock lock(mutex_);
  options_ = options;
  complete();  // what was begun under other ones
  changed_.notify_all();
  deliverSoon();
}

jx_model_learn_counts_t LearnChannel::counts() const {
  const Lock lock(mutex_);
  jx_model_learn_counts_t counts = counts_;
  counts.waiting = waiting_;
  counts.unacked = unacknowledged_.size();
  return counts;
}

void LearnChannel::end() {
  const Lock lock(mutex_);
  ended_ = true;
  changed_.notify_all();
}

}  // namespace jxmodel
