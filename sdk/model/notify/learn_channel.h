// The way of one learn object's digests from packets to the application that takes them.
//
// Digests gather in a message. It is complete when it is full, when its time is up, or when
// somebody closes it; then it waits for its turn to be delivered on the device's dispatch thread.
// So many messages may be unacknowledged; what comes meanwhile waits, up to a bound. Beyond it a
// digest is lost and counted, or whoever brings it waits.
//
// The learn filter: a packet's digest that equals one on its way is not sent again, so that a host
// that keeps talking does not fill messages before the application could do something about it.
//
// Every digest is counted once: delivered (or still on its way), suppressed, lost, or unclaimed.
//
// Thread safety: any thread may call anything. No lock is held while the application's callback
// runs. The callback is called by the dispatch thread alone, for one message at a time.
#pragma once

#include <absl/container/flat_hash_map.h>
#include <absl/container/flat_hash_set.h>
#include <absl/strings/string_view.h>

#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "jxmodel/notify.h"
#include "model/base/mutex.h"
#include "model/notify/device_core.h"
#include "model/notify/learn_message.h"

namespace jxmodel {

class LearnChannel {
 public:
  /// `device` is a physical one that outlives the channel.
  LearnChannel(const DeviceCore& device, const Program& program, const Learn& learn);
  LearnChannel(const LearnChannel&) = delete;
  LearnChannel& operator=(const LearnChannel&) = delete;

  // --- where digests come from

  enum class Full { kLose, kWait };  // what happens to a digest for which there is no room
  /// Takes the digest of a packet; `values` are LearnLayout::bytes bytes.
  void offer(const uint8_t* values, Full full);
  /// Takes digests as they stand, past the filter, and waits for room. JX_NO_LEARN_CLIENTS: nobody
  /// takes them, or does any more. JX_NOT_READY: the device is being removed.
  jx_status_t inject(const uint8_t* values, size_t count);
  /// Completes the message that digests are gathering in.
  void close();

  // --- who takes them

  /// Takes one message, on the dispatch thread, until it acknowledges the message by its id.
  using Client = std::function<void(const std::shared_ptr<const LearnMessage>& message)>;
  /// Replaces the client, which is not called any more once this has returned (unless the caller is
  /// that client). What waits goes to the new one.
  void setClient(Client client);
  /// The same without a new one. What waits is unclaimed; what was delivered can still be
  /// acknowledged.
  void clearClient();
  bool hasClient() const;
  /// JX_OBJECT_NOT_FOUND: no such message waits for it.
  jx_status_t acknowledge(uint64_t message_id);

  // --- bounds and counts

  jx_model_learn_options_t options() const;
  void setOptions(const jx_model_learn_options_t& options);
  jx_model_learn_counts_t counts() const;
  const LearnLayout& layout() const { return *layout_; }
  const DeviceCore& device() const { return device_; }

  /// Whoever waits for room gives up, now and later. When the device is being removed.
  void end();

 private:
  bool hasRoom() const ABSL_EXCLUSIVE_LOCKS_REQUIRED(mutex_) {
    return waiting_ < options_.max_waiting;
  }
  void waitForRoom() ABSL_EXCLUSIVE_LOCKS_REQUIRED(mutex_);
  void gather(const uint8_t* values) ABSL_EXCLUSIVE_LOCKS_REQUIRED(mutex_);
  void show(const uint8_t* values) const;
  void complete() ABSL_EXCLUSIVE_LOCKS_REQUIRED(mutex_);
  bool canDeliver() const ABSL_EXCLUSIVE_LOCKS_REQUIRED(mutex_);
  void deliverSoon() ABSL_EXCLUSIVE_LOCKS_REQUIRED(mutex_);
  void replaceClient(std::shared_ptr<const Client> client) ABSL_EXCLUSIVE_LOCKS_REQUIRED(mutex_);
  void forget(const LearnMessage& message) ABSL_EXCLUSIVE_LOCKS_REQUIRED(mutex_);

  void deliver();
  absl::string_view valueOf(const uint8_t* values) const {
    return {reinterpret_cast<const char*>(values), layout_->bytes};
  }

  const DeviceCore& device_;
  const Program& program_;
  const Learn& learn_;
  const std::shared_ptr<const LearnLayout> layout_;
  const std::shared_ptr<DispatchThread::Timer> timer_;  // completes a message whose time is up

  mutable Mutex mutex_;
  Condition changed_;
  jx_model_learn_options_t options_ ABSL_GUARDED_BY(mutex_);
  jx_model_learn_counts_t counts_ ABSL_GUARDED_BY(mutex_){};
  std::shared_ptr<const Client> client_ ABSL_GUARDED_BY(mutex_);  // null: nobody takes digests
  // Digests gather in it; null or not empty.
  std::shared_ptr<LearnMessage> open_ ABSL_GUARDED_BY(mutex_);
  std::deque<std::shared_ptr<const LearnMessage>> complete_ ABSL_GUARDED_BY(mutex_);
  uint64_t waiting_ ABSL_GUARDED_BY(mutex_) = 0;  // digests in those two
  // By id.
  absl::flat_hash_map<uint64_t, std::shared_ptr<const LearnMessage>> unacknowledged_
      ABSL_GUARDED_BY(mutex_);
  // Ids that a former client may still acknowledge.
  absl::flat_hash_set<uint64_t> left_ ABSL_GUARDED_BY(mutex_);
  absl::flat_hash_set<std::string> filter_ ABSL_GUARDED_BY(mutex_);  // values on their way
  bool delivery_posted_ ABSL_GUARDED_BY(mutex_) = false;
  uint64_t calls_begun_ ABSL_GUARDED_BY(mutex_) = 0;
  uint64_t calls_ended_ ABSL_GUARDED_BY(mutex_) = 0;
  bool ended_ ABSL_GUARDED_BY(mutex_) = false;
};

}  // namespace jxmodel
