// Read-copy-update for the tables: packets read without a lock what a writer may be replacing.
//
// A reader stands in a ReadSection. What a writer takes out of the readers' reach is not freed or
// used again before every section that was open then has ended: it is handed to a Reclaimer. Grace
// periods are liburcu's (memb flavour); publication is by std::atomic. This is the only place that
// tells the thread sanitizer about the order that a grace period makes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <vector>

namespace jxmodel {

/// What the thread reads while one of these lives stays readable. Sections nest, are cheap, never
/// block, and are short: at most a burst of packets. Any thread may open them.
class ReadSection {
 public:
  ReadSection();
  ~ReadSection();
  ReadSection(const ReadSection&) = delete;
  ReadSection& operator=(const ReadSection&) = delete;
};

/// Does things later: after all read sections that are open now.
///
/// Not synchronised: calls come under the device's mutex. Never waits, except in drain(). What is
/// due is done by later calls, on their thread, so nothing here needs a lock of its own. Grace
/// periods are asked for by the batch: up to kBatch - 1 things stay undone until more come.
class Reclaimer {
 public:
  static constexpr size_t kBatch = 256;
  /// What is to be done: `owner` and `value` are handed over.
  using Action = void (*)(void* owner, uint64_t value);

  Reclaimer();
  ~Reclaimer();
  Reclaimer(const Reclaimer&) = delete;
  Reclaimer& operator=(const Reclaimer&) = delete;

  void defer(Action action, void* owner, uint64_t value);
  /// Waits for the open sections and does all that is left. Not from within a section.
  void drain();
  /// Things not done yet.
  size_t pending() const { return pending_; }

 private:
  struct Item {
    Action action;
    void* owner;
    uint64_t value;
  };
  struct Batch;

  void handOver();
  void run(const Batch& batch);
  void runPassed();

  std::unique_ptr<Batch> open_;
  std::deque<std::unique_ptr<Batch>> waiting_;  // in the order in which they were handed over
  size_t pending_ = 0;
};

/// Does it later, or at once where there is no reclaimer because nobody reads meanwhile.
inline void defer(Reclaimer* reclaimer, Reclaimer::Action action, void* owner, uint64_t value) {
  if (reclaimer == nullptr) return action(owner, value);
  reclaimer->defer(action, owner, value);
}

/// Deletes an object that readers may still look at; null is nothing.
template <typename Object>
void retire(Reclaimer* reclaimer, Object* object) {
  if (object == nullptr) return;
  const auto destroy = [](void* owner, uint64_t) { delete static_cast<Object*>(owner); };
  defer(reclaimer, destroy, const_cast<void*>(static_cast<const void*>(object)), 0);
}

}  // namespace jxmodel
