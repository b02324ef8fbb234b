#include "model/base/read_copy_update.h"

#include <pthread.h>
#include <signal.h>
#include <urcu/urcu-memb.h>

#include <atomic>

#include "model/base/mutex.h"

#if defined(__SANITIZE_THREAD__)
#include <sanitizer/tsan_interface.h>
#endif

namespace jxmodel {
namespace {

// The sanitizer does not see into liburcu: these stand for the order that it makes.
#if defined(__SANITIZE_THREAD__)
void orderedBefore(void* tag) { __tsan_release(tag); }
void orderedAfter(void* tag) { __tsan_acquire(tag); }
#else
void orderedBefore(void*) {}
void orderedAfter(void*) {}
#endif

// Who drains waits here for a batch.
struct Passing {
  Mutex mutex;
  Condition changed;
};
Passing& passing() {
  static auto* const made = new Passing;  // outlives the thread of the grace periods
  return *made;
}

char sections_tag;  // the end of a section comes before the grace periods that wait for it

/// liburcu knows the threads that read.
struct Registration {
  Registration() { urcu_memb_register_thread(); }
  ~Registration() { urcu_memb_unregister_thread(); }
};

void registerThread() {
  static thread_local const Registration registration;
  (void)registration;
}

/// Starts the thread that waits for grace periods such that no signal is delivered to it.
void startGraceThread() {
  static const bool started = [] {
    sigset_t all, before;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before);
    (void)urcu_memb_get_default_call_rcu_data();
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    return true;
  }();
  (void)started;
}

}  // namespace

ReadSection::ReadSection() {
  registerThread();
  urcu_memb_read_lock();
}

ReadSection::~ReadSection() {
  orderedBefore(&sections_tag);
  urcu_memb_read_unlock();
}

struct Reclaimer::Batch {
  rcu_head head;
  std::atomic<bool> passed{false};
  std::vector<Item> items;

  static void onPassed(rcu_head* head) {
    Batch* const batch = caa_container_of(head, Batch, head);
    orderedAfter(batch);
    orderedAfter(&sections_tag);
    const MutexLock lock(passing().mutex);
    batch->passed.store(true, std::memory_order_release);  // now it may be gone
    passing().changed.notifyAll();
  }
};

Reclaimer::Reclaimer() = default;
Reclaimer::~Reclaimer() { drain(); }

void Reclaimer::defer(Action action, void* owner, uint64_t value) {
  if (open_ == nullptr) {
    open_ = std::make_unique<Batch>();
    open_->items.reserve(kBatch);
  }
  open_->items.push_back({action, owner, value});
  ++pending_;
  if (open_->items.size() == kBatch) handOver();
  runPassed();
}

void Reclaimer::handOver() {
  startGraceThread();
  orderedBefore(open_.get());
  urcu_memb_call_rcu(&open_->head, Batch::onPassed);
  waiting_.push_back(std::move(open_));
}

void Reclaimer::run(const Batch& batch) {
  for (const Item& item : batch.items) item.action(item.owner, item.value);
  pending_ -= batch.items.size();
}

void Reclaimer::runPassed() {
  while (!waiting_.empty() && waiting_.front()->passed.load(std::memory_order_acquire)) {
    const std::unique_ptr<Batch> passed = std::move(waiting_.front());
    waiting_.pop_front();
    run(*passed);
  }
}

void Reclaimer::drain() {
  if (open_ != nullptr) handOver();
  if (waiting_.empty()) return;
  {
    // The last batch passes after all others: they are in one queue.
    const MutexLock lock(passing().mutex);
    const Batch& last = *waiting_.back();
    passing().changed.wait(passing().mutex,
                           [&last] { return last.passed.load(std::memory_order_acquire); });
  }
  runPassed();
}

}  // namespace jxmodel
