#include "notifications.h"

#include "command_error.h"

namespace jexapps {
namespace {

// The slice agent stops over a longer digest.
constexpr size_t kMaxDigestRecord = 2047;

[[noreturn]] void failDigest(const DigestFacts& digest, size_t record) {
  throw CommandError(digest.name + ": a notification takes " + std::to_string(record) +
                     " bytes, and the slice agent sends no more than " +
                     std::to_string(kMaxDigestRecord));
}

void checkDigestFits(const DigestFacts& digest) {
  const size_t record = sizeof(PartnerDigestNotify) + digest.valueBytes();
  if (record > kMaxDigestRecord) failDigest(digest, record);
}

// Whether the SDK takes the attributes that the library will set: what it refuses there would stop
// the process.
void checkIdleAttributes(const TableFacts& table, const IdleTimes& times) {
  if (table.dataField(JX_RT_FIELD_TTL) == nullptr) {
    throw CommandError(table.name + ": its entries do not age");
  }
  if (times.max_ttl != 0 && times.min_ttl > times.max_ttl) {
    throw CommandError(table.name + ": min-ttl=" + std::to_string(times.min_ttl) +
                       " is greater than max-ttl=" + std::to_string(times.max_ttl));
  }
  std::unique_ptr<jxrt::JxRtTableAttributes> attributes;
  check(table.table->idleTableAttributesAllocate(JX_RT_IDLE_MODE_NOTIFY, &attributes), table.name);
  const jxrt::JxRtIdleTmoCb ignore = [](const jx_rt_target_t&, const jxrt::JxRtTableKey*,
                                        const void*) { return JX_SUCCESS; };
  check(attributes->idleTableNotifyModeSet(true, ignore, times.query, times.max_ttl, times.min_ttl,
                                           nullptr),
        table.name + ": these times");
}

}  // namespace

Records::Records(Partner& partner, PartnerNotificationQueueHandle queue, size_t max)
    : partner_(partner), records_(max) {
  records_.resize(partner_.dequeue(queue, records_.data(), max));
}

Records::~Records() { partner_.freeRecords(records_.data(), records_.size()); }

void Registrations::checkNew(uint32_t id, const std::string& name) const {
  const auto it = by_id_.find(id);
  if (it == by_id_.end()) return;
  if (it->second.active) {
    throw CommandError(name + ": it is registered on queue '" + it->second.queue + "'");
  }
  throw CommandError(name +
                     ": it has been registered before, which a partner can do only once "
                     "in its life; start another shell");
}

void Registrations::add(uint32_t id, const std::string& name, const std::string& queue) {
  by_id_.emplace(id, Registration{name, queue});
}

void Registrations::remove(uint32_t id, const std::string& name) {
  const auto it = by_id_.find(id);
  if (it == by_id_.end()) throw CommandError(name + ": it is not registered");
  if (!it->second.active) throw CommandError(name + ": it has been deregistered already");
  it->second.active = false;
}

std::string Registrations::onQueue(const std::string& queue) const {
  for (const auto& [id, registration] : by_id_) {
    if (registration.active && registration.queue == queue) return registration.name;
  }
  return {};
}

bool Registrations::isActive(uint32_t id) const {
  const auto it = by_id_.find(id);
  return it != by_id_.end() && it->second.active;
}

void Notifications::createQueue(const std::string& name, uint32_t size) {
  if (queues_.count(name) != 0) throw CommandError("queue '" + name + "' is there already");
  if (size > kMaxQueueSize) {
    throw CommandError("queue '" + name + "': room for at most " + std::to_string(kMaxQueueSize) +
                       " notifications can be made at once; a queue grows by itself");
  }
  queues_.emplace(name, partner_.createQueue(name, size));
}

PartnerNotificationQueueHandle Notifications::queue(const std::string& name) const {
  const auto it = queues_.find(name);
  if (it != queues_.end()) return it->second;
  throw CommandError("no queue '" + name + "'; queue-create makes one");
}

std::vector<std::string> Notifications::queueNames() const {
  std::vector<std::string> names;
  for (const auto& [name, handle] : queues_) names.push_back(name);
  return names;
}

void Notifications::checkUnused(const std::string& name) const {
  queue(name);
  const std::string table = tables_.onQueue(name);
  const std::string digest = digests_.onQueue(name);
  if (!table.empty()) {
    throw CommandError("queue '" + name + "': table " + table +
                       " is registered on it; idle-deregister it first");
  }
  if (!digest.empty()) {
    throw CommandError("queue '" + name + "': digest " + digest +
                       " is registered on it; digest-deregister it first");
  }
}

void Notifications::destroyQueue(const std::string& name) {
  checkUnused(name);
  partner_.destroyQueue(queue(name));
  queues_.erase(name);
}

uint64_t Notifications::discard(const std::string& name) {
  constexpr size_t kAtOnce = 1024;
  uint64_t count = 0;
  for (size_t taken = kAtOnce; taken > 0; count += taken) {
    taken = Records(partner_, queue(name), kAtOnce).all().size();
  }
  destroyQueue(name);
  return count;
}

void Notifications::registerIdle(const TableFacts& table, const IdleTimes& times,
                                 const std::string& queue_name) {
  const PartnerNotificationQueueHandle handle = queue(queue_name);
  tables_.checkNew(table.id, table.name);
  checkIdleAttributes(table, times);
  partner_.registerIdle(table, times, handle);
  tables_.add(table.id, table.name, queue_name);
}

void Notifications::deregisterIdle(const TableFacts& table) {
  tables_.remove(table.id, table.name);
  partner_.deregisterIdle(table);
}

std::string Notifications::registerDigest(const DigestFacts& digest, const std::string& queue_name,
                                          Taken taken) {
  const PartnerNotificationQueueHandle handle = queue(queue_name);
  digests_.checkNew(digest.id, digest.name);
  checkDigestFits(digest);
  std::string remark = taken == Taken::kRefuse ? checkFree(digest) : "";
  partner_.registerDigest(digest, handle);
  digests_.add(digest.id, digest.name, queue_name);
  return remark;
}

// The device has one taker for a digest: another takes its place, and ends it for both.
std::string Notifications::checkFree(const DigestFacts& digest) {
  const DigestTaken answer = partner_.digestTaken(digest);
  if (answer.taken.value_or(false)) {
    throw CommandError(digest.name +
                       ": another partner takes it, and only one can; with take-over=yes "
                       "that one loses it");
  }
  if (answer.taken || has_remarked_) return {};
  has_remarked_ = true;
  return "the slice agent could not be asked whether another partner takes " + digest.name +
         " and loses it now: " + answer.reason;
}

void Notifications::deregisterDigest(const DigestFacts& digest) {
  digests_.remove(digest.id, digest.name);
  partner_.deregisterDigest(digest);
}

bool Notifications::deregisterAll(const std::vector<TableFacts>& tables,
                                  const std::vector<DigestFacts>& digests) {
  bool any = false;
  for (const TableFacts& table : tables) {
    if (!tables_.isActive(table.id)) continue;
    deregisterIdle(table);
    any = true;
  }
  for (const DigestFacts& digest : digests) {
    if (!digests_.isActive(digest.id)) continue;
    deregisterDigest(digest);
    any = true;
  }
  return any;
}

}  // namespace jexapps
