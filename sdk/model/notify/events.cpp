#include "model/notify/events.h"

#include <algorithm>
#include <utility>

#include "model/base/clock.h"

namespace jxmodel {

void EventWatch::put(const Event& event) {
  const MutexLock lock(mutex_);
  if (queue_.size() >= kMaxEvents) {
    ++lost_;
    return;
  }
  queue_.push_back(event);
  changed_.notifyOne();
}

void EventWatch::end() {
  const MutexLock lock(mutex_);
  ended_ = true;
  changed_.notifyAll();
}

EventWatch::Harvest EventWatch::take(std::chrono::milliseconds patience) {
  const MutexLock lock(mutex_);
  changed_.waitFor(mutex_, patience, [this]() ABSL_EXCLUSIVE_LOCKS_REQUIRED(mutex_) {
    return ended_ || !queue_.empty();
  });
  return {std::exchange(queue_, {}), lost_, ended_};
}

void EventSource::raise(Event event) {
  event.time = Clock::instance().now();
  const MutexLock lock(mutex_);
  for (const auto& watch : watches_) watch->put(event);
}

std::shared_ptr<EventWatch> EventSource::open() {
  auto watch = std::make_shared<EventWatch>();
  const MutexLock lock(mutex_);
  if (ended_) watch->end();
  watches_.push_back(watch);
  watched_.store(true, std::memory_order_release);
  return watch;
}

void EventSource::close(const std::shared_ptr<EventWatch>& watch) {
  const MutexLock lock(mutex_);
  watches_.erase(std::remove(watches_.begin(), watches_.end(), watch), watches_.end());
  watched_.store(!watches_.empty(), std::memory_order_release);
}

void EventSource::end() {
  const MutexLock lock(mutex_);
  ended_ = true;
  for (const auto& watch : watches_) watch->end();
}

}  // namespace jxmodel
