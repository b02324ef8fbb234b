#include "model/notify/idle_watch.h"

#include <algorithm>
#include <utility>

#include "model/base/clock.h"

namespace jxmodel {
namespace {

constexpr uint64_t kNever = DispatchThread::kNever;

}  // namespace

IdleWatch::IdleWatch(const DeviceCore& device, TableState& state)
    : device_(device),
      state_(state),
      // The device stays until the report has returned, which may remove it.
      timer_(device.dispatch()->makeTimer([this, owner = device.owner()](uint64_t moment) {
        if (const auto stays = owner.lock()) look(moment);
      })) {}

void IdleWatch::set(std::shared_ptr<const IdleRequest> request) {
  {
    const MutexLock lock(mutex_);
    request_ = request;
    origin_ = Clock::instance().now();
    calendar_.clear();
    look_of_.clear();
    current_.clear();
    current_at_ = 0;
    expired_.clear();
    setTimer();
    const uint64_t begun = calls_begun_;
    if (!device_.dispatch()->onThread()) {
      changed_.wait(mutex_, [this, begun]() ABSL_EXCLUSIVE_LOCKS_REQUIRED(mutex_) {
        return calls_ended_ >= begun;
      });
    }
  }
  if (request != nullptr) enterAll(request);
}

/// Enters what the table holds already, some entries at a time.
void IdleWatch::enterAll(const std::shared_ptr<const IdleRequest>& request) {
  for (uint32_t slot = 0;;) {
    const MutexLock device_lock(device_.mutex());
    const MutexLock lock(mutex_);
    MatchTable& match = *state_.match;
    const uint32_t end = std::min(slot + kSlice, match.end());
    for (; slot < end && request_ == request; ++slot) {
      if (!match.used(slot)) continue;
      match.markAged(slot, match.lastActiveOf(slot), false);
      enter(slot);
    }
    if (slot >= match.end() || request_ != request) return;
  }
}

void IdleWatch::end() {
  const MutexLock lock(mutex_);
  request_ = nullptr;
}

void IdleWatch::written(uint32_t slot) {
  const MutexLock lock(mutex_);
  if (request_ != nullptr) enter(slot);
}

void IdleWatch::woken(uint32_t slot) { written(slot); }

// --- the calendar

uint64_t IdleWatch::intervalNs() const {
  return std::max(request_->interval_ms, kShortestIntervalMs) * kNsPerMs;
}

/// 0: the entry does not age.
uint64_t IdleWatch::ttlNs(uint32_t slot) const {
  const IdleRequest& bounds = *request_;
  uint32_t ttl = state_.match->ttlOf(slot);
  if (ttl == 0) return 0;
  if (bounds.max_ttl_ms != 0) ttl = std::min(ttl, bounds.max_ttl_ms);
  return std::max(ttl, bounds.min_ttl_ms) * kNsPerMs;
}

/// When the TTL runs out if nothing hits the entry; kNever for one that does not age.
uint64_t IdleWatch::deadlineOf(uint32_t slot) const {
  const uint64_t ttl = ttlNs(slot);
  if (ttl == 0) return kNever;
  return std::max(state_.match->lastActiveOf(slot), Clock::instance().began()) + ttl;
}

/// Puts the entry where it is looked at next, unless it is looked at before.
void IdleWatch::enter(uint32_t slot) {
  const uint64_t deadline = deadlineOf(slot);
  if (deadline == kNever) return;
  const uint64_t interval = intervalNs();
  const uint64_t after = deadline > origin_ ? deadline - origin_ : 0;
  const uint64_t look = std::max<uint64_t>((after + interval - 1) / interval, 1);
  if (slot >= look_of_.size()) look_of_.resize(std::max(slot + size_t{1}, look_of_.size() * 2));
  if (look_of_[slot] != 0 && look_of_[slot] <= look) return;
  look_of_[slot] = look;
  const auto place = calendar_.try_emplace(look).first;
  place->second.push_back(slot);
  if (place == calendar_.begin()) setTimer();
}

void IdleWatch::setTimer() {
  const bool nothing = request_ == nullptr || calendar_.empty();
  device_.dispatch()->set(timer_, nothing ? kNever : timeOf(calendar_.begin()->first));
}

/// The next entry to look at. False if there is none up to this moment.
bool IdleWatch::nextInLook(uint64_t moment, uint32_t* slot) {
  for (;;) {
    while (current_at_ < current_.size()) {
      *slot = current_[current_at_++];
      if (look_of_[*slot] != current_look_) continue;  // entered anew elsewhere
      look_of_[*slot] = 0;
      return true;
    }
    if (calendar_.empty() || timeOf(calendar_.begin()->first) > moment) return false;
    current_look_ = calendar_.begin()->first;
    current_ = std::move(calendar_.begin()->second);
    current_at_ = 0;
    calendar_.erase(calendar_.begin());
  }
}

// --- looks

void IdleWatch::look(uint64_t moment) {
  for (;;) {
    const Finds finds = find(moment);
    report(finds);
    if (!finds.more) return;
  }
}

IdleWatch::Finds IdleWatch::find(uint64_t moment) {
  Finds finds;
  const MutexLock device_lock(device_.mutex());
  const MutexLock lock(mutex_);
  finds.request = request_;
  if (request_ == nullptr) return finds;
  uint32_t slot = 0;
  for (uint32_t i = 0; i < kSlice; ++i) {
    if (!nextInLook(moment, &slot)) {
      setTimer();
      return finds;
    }
    inspect(slot, moment, &finds);
  }
  finds.more = true;
  return finds;
}

void IdleWatch::inspect(uint32_t slot, uint64_t moment, Finds* finds) {
  MatchTable& match = *state_.match;
  while (match.used(slot) && !match.aged(slot)) {
    const uint64_t active = match.lastActiveOf(slot);
    if (deadlineOf(slot) > moment) return enter(slot);
    if (match.markAged(slot, active, true)) return age(slot, finds);
    // A packet has hit it just now.
  }
}

void IdleWatch::age(uint32_t slot, Finds* finds) {
  const MatchTable& match = *state_.match;
  finds->entries.push_back({match.handleOf(slot), match.priorityOf(slot), nullptr});
  const uint8_t* const key = match.keyOf(slot);
  finds->keys.insert(finds->keys.end(), key, key + match.codec().keyBytes());
}

void IdleWatch::report(const Finds& finds) {
  const uint8_t* key = finds.keys.data();
  for (AgedEntry entry : finds.entries) {
    {
      const MutexLock lock(mutex_);
      if (request_ != finds.request) return;
      ++calls_begun_;
    }
    entry.key = key;
    key += state_.match->codec().keyBytes();
    show(entry);
    finds.request->report(entry);
    const MutexLock lock(mutex_);
    ++calls_ended_;
    changed_.notifyAll();
  }
}

/// To those who watch the device.
void IdleWatch::show(const AgedEntry& entry) const {
  if (!device_.events().watched()) return;
  Event event;
  event.kind = Event::Kind::kAged;
  event.program = state_.program->name;
  event.object = state_.table->name;
  event.values.assign(entry.key, entry.key + state_.match->codec().keyBytes());
  event.entry_handle = entry.handle;
  device_.events().raise(std::move(event));
}

// --- entries that age out on request

jx_status_t IdleWatch::expire(uint32_t handle) {
  const MutexLock device_lock(device_.mutex());
  const MutexLock lock(mutex_);
  if (state_.match->findHandle(handle) == kNoSlot) return JX_OBJECT_NOT_FOUND;
  if (request_ == nullptr) return JX_NOT_READY;
  expired_.push_back(handle);
  if (expired_.size() > 1) return JX_SUCCESS;
  device_.dispatch()->post([this, owner = device_.owner()] {
    const auto stays = owner.lock();
    if (stays == nullptr) return;
    for (Finds finds = findExpired(); !finds.entries.empty(); finds = findExpired()) report(finds);
  });
  return JX_SUCCESS;
}

IdleWatch::Finds IdleWatch::findExpired() {
  Finds finds;
  const MutexLock device_lock(device_.mutex());
  const MutexLock lock(mutex_);
  finds.request = request_;
  MatchTable& match = *state_.match;
  for (const uint32_t handle : std::exchange(expired_, {})) {
    const uint32_t slot = match.findHandle(handle);
    if (slot == kNoSlot || match.aged(slot)) continue;
    while (!match.markAged(slot, match.lastActiveOf(slot), true)) {  // a packet hits it just now
    }
    age(slot, &finds);
  }
  return finds;
}

}  // namespace jxmodel
