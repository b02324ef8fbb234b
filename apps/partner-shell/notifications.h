// Queues of notifications, and what is registered on them.
//
// The library stops the process, or the slice agent, over a registration that makes no sense. This
// keeps book, and refuses it before the library hears of it.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "partner.h"

namespace jexapps {

/// Records taken out of a queue; they are given back with the object.
class Records {
 public:
  /// Takes up to `max` out of `queue`, without waiting.
  Records(Partner& partner, PartnerNotificationQueueHandle queue, size_t max);
  ~Records();
  Records(const Records&) = delete;
  Records& operator=(const Records&) = delete;

  const std::vector<void*>& all() const { return records_; }

 private:
  Partner& partner_;
  std::vector<void*> records_;
};

/// What has been registered, tables or digests, by their ids. Each can be once in a process's life.
class Registrations {
 public:
  /// Throws CommandError if `name` is registered, or was.
  void checkNew(uint32_t id, const std::string& name) const;
  void add(uint32_t id, const std::string& name, const std::string& queue);
  /// Throws CommandError if `name` is not registered.
  void remove(uint32_t id, const std::string& name);

  /// The name of something registered on `queue`, empty if there is nothing.
  std::string onQueue(const std::string& queue) const;
  bool isActive(uint32_t id) const;

 private:
  struct Registration {
    std::string name, queue;
    bool active = true;
  };
  std::map<uint32_t, Registration> by_id_;
};

/// Methods throw CommandError for what the library must not be asked.
class Notifications {
 public:
  static constexpr uint32_t kMaxQueueSize = 1'000'000;

  /// `partner` has to outlive this.
  explicit Notifications(Partner& partner) : partner_(partner) {}

  void createQueue(const std::string& name, uint32_t size);
  PartnerNotificationQueueHandle queue(const std::string& name) const;
  std::vector<std::string> queueNames() const;
  /// Throws if something is registered on the queue.
  void checkUnused(const std::string& name) const;
  /// Destroys a queue that has been drained.
  void destroyQueue(const std::string& name);
  /// Destroys a queue with what it holds, and tells how many notifications that were.
  uint64_t discard(const std::string& name);

  void registerIdle(const TableFacts& table, const IdleTimes& times, const std::string& queue);
  void deregisterIdle(const TableFacts& table);
  /// What becomes of a digest that is another partner's.
  enum class Taken : uint8_t { kRefuse, kTakeOver };
  /// Returns a remark for the person, empty if there is none.
  std::string registerDigest(const DigestFacts& digest, const std::string& queue,
                             Taken taken = Taken::kRefuse);
  void deregisterDigest(const DigestFacts& digest);

  /// Deregisters all of these that are registered; false if none was.
  bool deregisterAll(const std::vector<TableFacts>& tables,
                     const std::vector<DigestFacts>& digests);

 private:
  std::string checkFree(const DigestFacts& digest);

  Partner& partner_;
  std::map<std::string, PartnerNotificationQueueHandle> queues_;
  Registrations tables_, digests_;
  bool has_remarked_ = false;  // that nobody could be asked about digests
};

}  // namespace jexapps
