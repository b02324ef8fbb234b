// Calls about entries: faults and checks, then what the kind of table does, under the lock.
#include <utility>

#include "model/base/faults.h"
#include "model/runtime/rt_table.h"

namespace jxmodel {

using std::chrono::milliseconds;

// --- writes that not every kind of table has

jx_status_t RtTable::add(const UpdateReporter&, const RtTableKey&, const RtTableData&) const {
  return JX_NOT_SUPPORTED;
}
jx_status_t RtTable::modify(const UpdateReporter&, uint32_t, const RtTableData&) const {
  return JX_NOT_SUPPORTED;
}
jx_status_t RtTable::remove(const UpdateReporter&, uint32_t) const { return JX_NOT_SUPPORTED; }
void RtTable::move(const UpdateReporter&, uint32_t, uint32_t) const {}
jx_status_t RtTable::setDefault(const UpdateReporter&, const RtTableData&) const {
  return JX_NOT_SUPPORTED;
}
jx_status_t RtTable::clearDefault(const UpdateReporter&) const { return JX_NOT_SUPPORTED; }
jx_status_t RtTable::readDefault(RtTableData*) const { return JX_NOT_SUPPORTED; }
jx_status_t RtTable::addGroupMember(const UpdateReporter&, uint32_t, uint32_t) const {
  return JX_NOT_SUPPORTED;
}
jx_status_t RtTable::deleteGroupMember(const UpdateReporter&, uint32_t, uint32_t) const {
  return JX_NOT_SUPPORTED;
}
jx_status_t RtTable::setGroupMemberActive(const UpdateReporter&, uint32_t, uint32_t, bool) const {
  return JX_NOT_SUPPORTED;
}
jx_status_t RtTable::setFallback(const UpdateReporter&, uint32_t) const { return JX_NOT_SUPPORTED; }
jx_status_t RtTable::clearFallback(const UpdateReporter&) const { return JX_NOT_SUPPORTED; }
jx_status_t RtTable::readFallback(uint32_t*) const { return JX_NOT_SUPPORTED; }
void RtTable::setIdle(const IdleAttributes&, const jx_rt_target_t&) const {}
void RtTable::startSync(const RtTableOperations::CounterSync&, milliseconds) const {}

// --- what the calls share

// The analysis takes the mutex for held in either case.
class ABSL_SCOPED_LOCKABLE RtTable::ReadLock {
 public:
  explicit ReadLock(const RtTable& table)
      ABSL_EXCLUSIVE_LOCK_FUNCTION(table.mutex()) ABSL_NO_THREAD_SAFETY_ANALYSIS
      : mutex_(table.readsWithoutLock() ? nullptr : &table.mutex()) {
    if (mutex_ != nullptr) mutex_->lock();
  }
  ~ReadLock() ABSL_UNLOCK_FUNCTION() ABSL_NO_THREAD_SAFETY_ANALYSIS {
    if (mutex_ != nullptr) mutex_->unlock();
  }
  ReadLock(const ReadLock&) = delete;
  ReadLock& operator=(const ReadLock&) = delete;

 private:
  Mutex* const mutex_;
};

jx_status_t RtTable::checkRead(const jx_rt_target_t& target, uint64_t flags) const {
  if ((flags & ~JX_RT_FLAG_FROM_HARDWARE) != 0) return JX_INVALID_ARGUMENTS;
  return checkTarget(target);
}

jx_status_t RtTable::checkWrite(const jx_rt_target_t& target, uint64_t flags) const {
  if (flags != 0) return JX_INVALID_ARGUMENTS;
  const jx_status_t status = checkTarget(target);
  if (status != JX_SUCCESS) return status;
  return device_.isVirtual() ? JX_SUCCESS : JX_NOT_SUPPORTED;
}

UpdateReporter RtTable::reporterTo(const jx_rt_target_t& target) const {
  return {state_, {target.dev_id, target.pipe_id}};
}

// --- reads

jx_status_t RtTable::tableSizeGet(const jxrt::JxRtSession&, const jx_rt_target_t& target,
                                  uint64_t flags, size_t* size) const {
  JXMODEL_ENTRY("JxRtTable::tableSizeGet");
  const jx_status_t status = checkRead(target, flags);
  if (status != JX_SUCCESS) return status;
  if (size == nullptr) return JX_INVALID_ARGUMENTS;
  *size = description().size;
  return JX_SUCCESS;
}

jx_status_t RtTable::tableUsageGet(const jxrt::JxRtSession&, const jx_rt_target_t& target,
                                   uint64_t flags, uint32_t* count) const {
  JXMODEL_ENTRY("JxRtTable::tableUsageGet");
  const jx_status_t status = checkRead(target, flags);
  if (status != JX_SUCCESS) return status;
  if (count == nullptr) return JX_INVALID_ARGUMENTS;
  const ReadLock lock(*this);
  *count = usage();
  return JX_SUCCESS;
}

jx_status_t RtTable::tableEntryGet(const jxrt::JxRtSession&, const jx_rt_target_t& target,
                                   uint64_t flags, const jxrt::JxRtTableKey& key,
                                   jxrt::JxRtTableData* data) const {
  JXMODEL_ENTRY("JxRtTable::tableEntryGet");
  const jx_status_t status = checkRead(target, flags);
  if (status != JX_SUCCESS) return status;
  const RtTableKey* const own_key = own(key);
  RtTableData* const own_data = own(data);
  if (own_key == nullptr || own_data == nullptr) return JX_INVALID_ARGUMENTS;
  const ReadLock lock(*this);
  const uint32_t slot = slotOf(*own_key);
  if (slot == kNoSlot) return JX_OBJECT_NOT_FOUND;
  readData(slot, flags, own_data);
  return JX_SUCCESS;
}

jx_status_t RtTable::tableEntryGetFirst(const jxrt::JxRtSession&, const jx_rt_target_t& target,
                                        uint64_t flags, jxrt::JxRtTableKey* key,
                                        jxrt::JxRtTableData* data) const {
  JXMODEL_ENTRY("JxRtTable::tableEntryGetFirst");
  const jx_status_t status = checkRead(target, flags);
  if (status != JX_SUCCESS) return status;
  RtTableKey* const own_key = own(key);
  RtTableData* const own_data = own(data);
  if (own_key == nullptr || own_data == nullptr) return JX_INVALID_ARGUMENTS;
  const ReadLock lock(*this);
  const uint32_t slot = usedFrom(0);
  if (slot == kNoSlot) return JX_OBJECT_NOT_FOUND;
  readKey(slot, own_key);
  readData(slot, flags, own_data);
  return JX_SUCCESS;
}

jx_status_t RtTable::tableEntryGetNext(const jxrt::JxRtSession&, const jx_rt_target_t& target,
                                       uint64_t flags, const jxrt::JxRtTableKey& key,
                                       jxrt::JxRtTableKey* next_key,
                                       jxrt::JxRtTableData* data) const {
  JXMODEL_ENTRY("JxRtTable::tableEntryGetNext");
  const jx_status_t status = checkRead(target, flags);
  if (status != JX_SUCCESS) return status;
  const RtTableKey* const own_key = own(key);
  RtTableKey* const own_next = own(next_key);
  RtTableData* const own_data = own(data);
  if (own_key == nullptr || own_next == nullptr || own_data == nullptr) {
    return JX_INVALID_ARGUMENTS;
  }
  const ReadLock lock(*this);
  const uint32_t slot = slotOf(*own_key);
  if (slot == kNoSlot) return JX_OBJECT_NOT_FOUND;
  const uint32_t next = usedFrom(uint64_t{slot} + 1);
  if (next == kNoSlot) return JX_OBJECT_NOT_FOUND;
  readKey(next, own_next);
  readData(next, flags, own_data);
  return JX_SUCCESS;
}

jx_status_t RtTable::tableEntriesGet(const jxrt::JxRtSession&, const jx_rt_target_t& target,
                                     uint64_t flags, uint64_t* cursor, uint32_t count,
                                     std::vector<Entry>* entries) const {
  JXMODEL_ENTRY("JxRtTable::tableEntriesGet");
  const jx_status_t status = checkRead(target, flags);
  if (status != JX_SUCCESS) return status;
  if (cursor == nullptr || entries == nullptr) return JX_INVALID_ARGUMENTS;
  // The cursor is the slot to go on from: an entry keeps its slot as long as it stays.
  const ReadLock lock(*this);
  for (uint32_t seen = 0; seen < count; ++seen) {
    const uint32_t slot = usedFrom(*cursor);
    if (slot == kNoSlot) break;
    auto key = std::make_unique<RtTableKey>(*this);
    auto data = std::make_unique<RtTableData>(*this, nullptr);
    readKey(slot, key.get());
    readData(slot, flags, data.get());
    entries->push_back(Entry{handleOf(slot), std::move(key), std::move(data)});
    *cursor = uint64_t{slot} + 1;
  }
  return JX_SUCCESS;
}

jx_status_t RtTable::tableEntryHandleGet(const jxrt::JxRtSession&, const jx_rt_target_t& target,
                                         const jxrt::JxRtTableKey& key, uint32_t* handle) const {
  JXMODEL_ENTRY("JxRtTable::tableEntryHandleGet");
  const jx_status_t status = checkTarget(target);
  if (status != JX_SUCCESS) return status;
  const RtTableKey* const own_key = own(key);
  if (own_key == nullptr || handle == nullptr) return JX_INVALID_ARGUMENTS;
  const ReadLock lock(*this);
  const uint32_t slot = slotOf(*own_key);
  if (slot == kNoSlot) return JX_OBJECT_NOT_FOUND;
  *handle = handleOf(slot);
  return JX_SUCCESS;
}

jx_status_t RtTable::tableDefaultEntryGet(const jxrt::JxRtSession&, const jx_rt_target_t& target,
                                          uint64_t flags, jxrt::JxRtTableData* data) const {
  JXMODEL_ENTRY("JxRtTable::tableDefaultEntryGet");
  const jx_status_t status = checkRead(target, flags);
  if (status != JX_SUCCESS) return status;
  RtTableData* const own_data = own(data);
  if (own_data == nullptr) return JX_INVALID_ARGUMENTS;
  const ReadLock lock(*this);
  return readDefault(own_data);
}

jx_status_t RtTable::fallbackGet(const jxrt::JxRtSession&, const jx_rt_target_t& target,
                                 uint32_t* member_id) const {
  JXMODEL_ENTRY("JxRtTable::fallbackGet");
  const jx_status_t status = checkTarget(target);
  if (status != JX_SUCCESS) return status;
  if (member_id == nullptr) return JX_INVALID_ARGUMENTS;
  const ReadLock lock(*this);
  return readFallback(member_id);
}

// --- writes of entries

jx_status_t RtTable::tableEntryAdd(const jxrt::JxRtSession&, const jx_rt_target_t& target,
                                   uint64_t flags, const jxrt::JxRtTableKey& key,
                                   const jxrt::JxRtTableData& data) const {
  JXMODEL_ENTRY("JxRtTable::tableEntryAdd");
  const jx_status_t status = checkWrite(target, flags);
  if (status != JX_SUCCESS) return status;
  const RtTableKey* const own_key = own(key);
  const RtTableData* const own_data = own(data);
  if (own_key == nullptr || own_data == nullptr) return JX_INVALID_ARGUMENTS;
  if (!hasWrites()) return JX_NOT_SUPPORTED;
  const MutexLock lock(mutex());
  return add(reporterTo(target), *own_key, *own_data);
}

jx_status_t RtTable::tableEntryMod(const jxrt::JxRtSession&, const jx_rt_target_t& target,
                                   uint64_t flags, const jxrt::JxRtTableKey& key,
                                   const jxrt::JxRtTableData& data) const {
  JXMODEL_ENTRY("JxRtTable::tableEntryMod");
  const jx_status_t status = checkWrite(target, flags);
  if (status != JX_SUCCESS) return status;
  const RtTableKey* const own_key = own(key);
  const RtTableData* const own_data = own(data);
  if (own_key == nullptr || own_data == nullptr) return JX_INVALID_ARGUMENTS;
  if (!hasWrites()) return JX_NOT_SUPPORTED;
  const MutexLock lock(mutex());
  const uint32_t slot = slotOf(*own_key);
  return slot == kNoSlot ? JX_OBJECT_NOT_FOUND : modify(reporterTo(target), slot, *own_data);
}

jx_status_t RtTable::tableEntryMove(const jxrt::JxRtSession&, const jx_rt_target_t& target,
                                    uint64_t flags, const jxrt::JxRtTableKey& key) const {
  JXMODEL_ENTRY("JxRtTable::tableEntryMove");
  const jx_status_t status = checkWrite(target, flags);
  if (status != JX_SUCCESS) return status;
  const RtTableKey* const own_key = own(key);
  if (own_key == nullptr) return JX_INVALID_ARGUMENTS;
  if (!description().has_priority || !hasWrites()) return JX_NOT_SUPPORTED;
  const MutexLock lock(mutex());
  const uint32_t slot = slotOf(*own_key);
  if (slot == kNoSlot) return JX_OBJECT_NOT_FOUND;
  move(reporterTo(target), slot, own_key->priority());
  return JX_SUCCESS;
}

jx_status_t RtTable::tableEntryDel(const jxrt::JxRtSession&, const jx_rt_target_t& target,
                                   uint64_t flags, const jxrt::JxRtTableKey& key) const {
  JXMODEL_ENTRY("JxRtTable::tableEntryDel");
  const jx_status_t status = checkWrite(target, flags);
  if (status != JX_SUCCESS) return status;
  const RtTableKey* const own_key = own(key);
  if (own_key == nullptr) return JX_INVALID_ARGUMENTS;
  if (!hasWrites()) return JX_NOT_SUPPORTED;
  const MutexLock lock(mutex());
  const uint32_t slot = slotOf(*own_key);
  return slot == kNoSlot ? JX_OBJECT_NOT_FOUND : remove(reporterTo(target), slot);
}

// --- writes of defaults, groups and fallbacks

jx_status_t RtTable::tableDefaultEntrySet(const jxrt::JxRtSession&, const jx_rt_target_t& target,
                                          uint64_t flags, const jxrt::JxRtTableData& data) const {
  JXMODEL_ENTRY("JxRtTable::tableDefaultEntrySet");
  const jx_status_t status = checkWrite(target, flags);
  if (status != JX_SUCCESS) return status;
  const RtTableData* const own_data = own(data);
  if (own_data == nullptr) return JX_INVALID_ARGUMENTS;
  const MutexLock lock(mutex());
  return setDefault(reporterTo(target), *own_data);
}

jx_status_t RtTable::tableDefaultEntryClear(const jxrt::JxRtSession&, const jx_rt_target_t& target,
                                            uint64_t flags) const {
  JXMODEL_ENTRY("JxRtTable::tableDefaultEntryClear");
  const jx_status_t status = checkWrite(target, flags);
  if (status != JX_SUCCESS) return status;
  const MutexLock lock(mutex());
  return clearDefault(reporterTo(target));
}

jx_status_t RtTable::groupMemberAdd(const jxrt::JxRtSession&, const jx_rt_target_t& target,
                                    uint32_t group_id, uint32_t member_id) const {
  JXMODEL_ENTRY("JxRtTable::groupMemberAdd");
  const jx_status_t status = checkWrite(target, 0);
  if (status != JX_SUCCESS) return status;
  const MutexLock lock(mutex());
  return addGroupMember(reporterTo(target), group_id, member_id);
}

jx_status_t RtTable::groupMemberDel(const jxrt::JxRtSession&, const jx_rt_target_t& target,
                                    uint32_t group_id, uint32_t member_id) const {
  JXMODEL_ENTRY("JxRtTable::groupMemberDel");
  const jx_status_t status = checkWrite(target, 0);
  if (status != JX_SUCCESS) return status;
  const MutexLock lock(mutex());
  return deleteGroupMember(reporterTo(target), group_id, member_id);
}

jx_status_t RtTable::groupMemberActivate(const jxrt::JxRtSession&, const jx_rt_target_t& target,
                                         uint32_t group_id, uint32_t member_id) const {
  JXMODEL_ENTRY("JxRtTable::groupMemberActivate");
  const jx_status_t status = checkWrite(target, 0);
  if (status != JX_SUCCESS) return status;
  const MutexLock lock(mutex());
  return setGroupMemberActive(reporterTo(target), group_id, member_id, true);
}

jx_status_t RtTable::groupMemberDeactivate(const jxrt::JxRtSession&, const jx_rt_target_t& target,
                                           uint32_t group_id, uint32_t member_id) const {
  JXMODEL_ENTRY("JxRtTable::groupMemberDeactivate");
  const jx_status_t status = checkWrite(target, 0);
  if (status != JX_SUCCESS) return status;
  const MutexLock lock(mutex());
  return setGroupMemberActive(reporterTo(target), group_id, member_id, false);
}

jx_status_t RtTable::fallbackSet(const jxrt::JxRtSession&, const jx_rt_target_t& target,
                                 uint32_t member_id) const {
  JXMODEL_ENTRY("JxRtTable::fallbackSet");
  const jx_status_t status = checkWrite(target, 0);
  if (status != JX_SUCCESS) return status;
  const MutexLock lock(mutex());
  return setFallback(reporterTo(target), member_id);
}

jx_status_t RtTable::fallbackClear(const jxrt::JxRtSession&, const jx_rt_target_t& target) const {
  JXMODEL_ENTRY("JxRtTable::fallbackClear");
  const jx_status_t status = checkWrite(target, 0);
  if (status != JX_SUCCESS) return status;
  const MutexLock lock(mutex());
  return clearFallback(reporterTo(target));
}

// --- who is told of updates, aged entries and syncs

template <typename Function>
jx_status_t RtTable::registerCallback(const jx_rt_target_t& target, bool of_this_kind,
                                      UpdateCallback<Function>* place, Function callback,
                                      void* cookie) const {
  const jx_status_t status = checkWrite(target, 0);
  if (status != JX_SUCCESS) return status;
  if (!of_this_kind) return JX_NOT_SUPPORTED;
  const MutexLock lock(mutex());
  *place = {callback, cookie};
  return JX_SUCCESS;
}

jx_status_t RtTable::matUpdateCbRegister(const jxrt::JxRtSession&, const jx_rt_target_t& target,
                                         pipe_mat_update_cb callback, void* cookie) const {
  JXMODEL_ENTRY("JxRtTable::matUpdateCbRegister");
  return registerCallback(target, state_.match != nullptr, &state_.on_match, callback, cookie);
}

jx_status_t RtTable::adtUpdateCbRegister(const jxrt::JxRtSession&, const jx_rt_target_t& target,
                                         pipe_adt_update_cb callback, void* cookie) const {
  JXMODEL_ENTRY("JxRtTable::adtUpdateCbRegister");
  return registerCallback(target, state_.members != nullptr, &state_.on_member, callback, cookie);
}

jx_status_t RtTable::selUpdateCbRegister(const jxrt::JxRtSession&, const jx_rt_target_t& target,
                                         pipe_sel_update_cb callback, void* cookie) const {
  JXMODEL_ENTRY("JxRtTable::selUpdateCbRegister");
  return registerCallback(target, state_.groups != nullptr, &state_.on_group, callback, cookie);
}

jx_status_t RtTable::idleTableAttributesAllocate(
    jx_rt_idle_table_mode_t mode, std::unique_ptr<jxrt::JxRtTableAttributes>* attributes) const {
  if (attributes == nullptr) return JX_INVALID_ARGUMENTS;
  JXMODEL_ENTRY_OUT("JxRtTable::idleTableAttributesAllocate", attributes);
  if (mode != JX_RT_IDLE_MODE_NOTIFY && mode != JX_RT_IDLE_MODE_POLL) return JX_INVALID_ARGUMENTS;
  if (!description().idle_timeout || mode == JX_RT_IDLE_MODE_POLL) return JX_NOT_SUPPORTED;
  *attributes = std::make_unique<RtIdleAttributes>(*this);
  return JX_SUCCESS;
}

jx_status_t RtTable::tableAttributesSet(const jxrt::JxRtSession&, const jx_rt_target_t& target,
                                        uint64_t flags,
                                        const jxrt::JxRtTableAttributes& attributes) const {
  JXMODEL_ENTRY("JxRtTable::tableAttributesSet");
  const jx_status_t status = checkTarget(target);
  if (status != JX_SUCCESS) return status;
  // Attributes are made by tables alone.
  const auto& mine = static_cast<const RtIdleAttributes&>(attributes);
  const bool known = (flags & ~JX_RT_FLAG_IDLE_TIME) == 0;
  if (!known || &mine.table() != this || mine.attributes() == nullptr) return JX_INVALID_ARGUMENTS;
  setIdle(*mine.attributes(), target);
  return JX_SUCCESS;
}

jx_status_t RtTable::operationsAllocate(
    jx_rt_table_operations_mode_t mode,
    std::unique_ptr<jxrt::JxRtTableOperations>* operations) const {
  if (operations == nullptr) return JX_INVALID_ARGUMENTS;
  JXMODEL_ENTRY_OUT("JxRtTable::operationsAllocate", operations);
  if (mode != JX_RT_OPERATION_COUNTER_SYNC) return JX_INVALID_ARGUMENTS;
  if (state_.counters == nullptr) return JX_NOT_SUPPORTED;
  *operations = std::make_unique<RtTableOperations>(*this);
  return JX_SUCCESS;
}

jx_status_t RtTable::tableOperationsExecute(const jxrt::JxRtTableOperations& operations) const {
  return executeLate(operations, milliseconds(0));
}

jx_status_t RtTable::executeLate(const jxrt::JxRtTableOperations& operations,
                                 milliseconds delay) const {
  const fault::Hit hit = fault::checkWithoutWaiting("JxRtTable::tableOperationsExecute");
  if (hit.isStatus()) return hit.status();
  // Operations are made by tables alone.
  const auto& mine = static_cast<const RtTableOperations&>(operations);
  const RtTableOperations::CounterSync* const sync = mine.counterSync();
  if (&mine.table() != this || sync == nullptr) return JX_INVALID_ARGUMENTS;
  startSync(*sync, delay + hit.delay);
  return JX_SUCCESS;
}

}  // namespace jxmodel
