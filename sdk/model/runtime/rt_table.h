// Tables as applications see them. The base has the facts of a table and what all calls share:
// faults, checks, the lock, the reports. Each kind of table is a class of its own and adds what its
// entries are: rt_match_table.h, rt_member_table.h, rt_group_table.h, rt_counter_table.h.
//
// rt_table.cpp has the facts, rt_table_entries.cpp the calls about entries.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

#include "jxsdk/rt.hpp"
#include "model/base/mutex.h"
#include "model/notify/device_core.h"
#include "model/placement/update_reporter.h"
#include "model/program/program.h"
#include "model/runtime/rt_data.h"
#include "model/runtime/rt_idle_attributes.h"
#include "model/runtime/rt_key.h"
#include "model/runtime/rt_operations.h"
#include "model/tables/key_codec.h"
#include "model/tables/table_state.h"

namespace jxmodel {

class RtInfo;

class RtTable : public jxrt::JxRtTable {
 public:
  jx_status_t tableIdGet(uint32_t* id) const final;
  jx_status_t tableNameGet(std::string* name) const final;
  jx_status_t tableTypeGet(jx_rt_table_type_t* type) const final;
  jx_status_t tableHandleGet(pipe_tbl_hdl_t* handle) const final;
  jx_status_t tableSizeGet(const jxrt::JxRtSession& session, const jx_rt_target_t& target,
                           uint64_t flags, size_t* size) const final;
  jx_status_t tableUsageGet(const jxrt::JxRtSession& session, const jx_rt_target_t& target,
                            uint64_t flags, uint32_t* count) const final;
  jx_status_t keyFieldListGet(std::vector<jxrt::JxRtFieldInfo>* fields) const final;
  jx_status_t keyFieldIdGet(const std::string& name, uint32_t* id) const final;
  jx_status_t dataFieldListGet(std::vector<jxrt::JxRtFieldInfo>* fields) const final;
  jx_status_t dataFieldIdGet(const std::string& name, uint32_t* id) const final;
  jx_status_t dataFieldIdGet(const std::string& name, uint32_t action_id, uint32_t* id) const final;
  jx_status_t actionListGet(std::vector<jxrt::JxRtActionInfo>* actions) const final;
  jx_status_t actionIdGet(const std::string& name, uint32_t* id) const final;
  jx_status_t actionDataTableGet(const jxrt::JxRtTable** table) const final;
  jx_status_t selectorTableGet(const jxrt::JxRtTable** table) const final;

  jx_status_t keyAllocate(std::unique_ptr<jxrt::JxRtTableKey>* key) const final;
  jx_status_t keyReset(jxrt::JxRtTableKey* key) const final;
  jx_status_t dataAllocate(std::unique_ptr<jxrt::JxRtTableData>* data) const final;
  jx_status_t dataAllocate(uint32_t action_id,
                           std::unique_ptr<jxrt::JxRtTableData>* data) const final;
  jx_status_t dataReset(jxrt::JxRtTableData* data) const final;
  jx_status_t dataReset(uint32_t action_id, jxrt::JxRtTableData* data) const final;

  jx_status_t tableEntryAdd(const jxrt::JxRtSession& session, const jx_rt_target_t& target,
                            uint64_t flags, const jxrt::JxRtTableKey& key,
                            const jxrt::JxRtTableData& data) const final;
  jx_status_t tableEntryMod(const jxrt::JxRtSession& session, const jx_rt_target_t& target,
                            uint64_t flags, const jxrt::JxRtTableKey& key,
                            const jxrt::JxRtTableData& data) const final;
  jx_status_t tableEntryMove(const jxrt::JxRtSession& session, const jx_rt_target_t& target,
                             uint64_t flags, const jxrt::JxRtTableKey& key) const final;
  jx_status_t tableEntryDel(const jxrt::JxRtSession& session, const jx_rt_target_t& target,
                            uint64_t flags, const jxrt::JxRtTableKey& key) const final;
  jx_status_t tableEntryGet(const jxrt::JxRtSession& session, const jx_rt_target_t& target,
                            uint64_t flags, const jxrt::JxRtTableKey& key,
                            jxrt::JxRtTableData* data) const final;
  jx_status_t tableEntryGetFirst(const jxrt::JxRtSession& session, const jx_rt_target_t& target,
                                 uint64_t flags, jxrt::JxRtTableKey* key,
                                 jxrt::JxRtTableData* data) const final;
  jx_status_t tableEntryGetNext(const jxrt::JxRtSession& session, const jx_rt_target_t& target,
                                uint64_t flags, const jxrt::JxRtTableKey& key,
                                jxrt::JxRtTableKey* next_key,
                                jxrt::JxRtTableData* data) const final;
  jx_status_t tableEntriesGet(const jxrt::JxRtSession& session, const jx_rt_target_t& target,
                              uint64_t flags, uint64_t* cursor, uint32_t count,
                              std::vector<Entry>* entries) const final;
  jx_status_t tableEntryHandleGet(const jxrt::JxRtSession& session, const jx_rt_target_t& target,
                                  const jxrt::JxRtTableKey& key, uint32_t* handle) const final;

  jx_status_t tableDefaultEntrySet(const jxrt::JxRtSession& session, const jx_rt_target_t& target,
                                   uint64_t flags, const jxrt::JxRtTableData& data) const final;
  jx_status_t tableDefaultEntryClear(const jxrt::JxRtSession& session, const jx_rt_target_t& target,
                                     uint64_t flags) const final;
  jx_status_t tableDefaultEntryGet(const jxrt::JxRtSession& session, const jx_rt_target_t& target,
                                   uint64_t flags, jxrt::JxRtTableData* data) const final;

  jx_status_t groupMemberAdd(const jxrt::JxRtSession& session, const jx_rt_target_t& target,
                             uint32_t group_id, uint32_t member_id) const final;
  jx_status_t groupMemberDel(const jxrt::JxRtSession& session, const jx_rt_target_t& target,
                             uint32_t group_id, uint32_t member_id) const final;
  jx_status_t groupMemberActivate(const jxrt::JxRtSession& session, const jx_rt_target_t& target,
                                  uint32_t group_id, uint32_t member_id) const final;
  jx_status_t groupMemberDeactivate(const jxrt::JxRtSession& session, const jx_rt_target_t& target,
                                    uint32_t group_id, uint32_t member_id) const final;
  jx_status_t fallbackSet(const jxrt::JxRtSession& session, const jx_rt_target_t& target,
                          uint32_t member_id) const final;
  jx_status_t fallbackClear(const jxrt::JxRtSession& session,
                            const jx_rt_target_t& target) const final;
  jx_status_t fallbackGet(const jxrt::JxRtSession& session, const jx_rt_target_t& target,
                          uint32_t* member_id) const final;

  jx_status_t matUpdateCbRegister(const jxrt::JxRtSession& session, const jx_rt_target_t& target,
                                  pipe_mat_update_cb callback, void* cookie) const final;
  jx_status_t adtUpdateCbRegister(const jxrt::JxRtSession& session, const jx_rt_target_t& target,
                                  pipe_adt_update_cb callback, void* cookie) const final;
  jx_status_t selUpdateCbRegister(const jxrt::JxRtSession& session, const jx_rt_target_t& target,
                                  pipe_sel_update_cb callback, void* cookie) const final;

  jx_status_t idleTableAttributesAllocate(
      jx_rt_idle_table_mode_t mode,
      std::unique_ptr<jxrt::JxRtTableAttributes>* attributes) const final;
  jx_status_t tableAttributesSet(const jxrt::JxRtSession& session, const jx_rt_target_t& target,
                                 uint64_t flags,
                                 const jxrt::JxRtTableAttributes& attributes) const final;
  jx_status_t operationsAllocate(
      jx_rt_table_operations_mode_t mode,
      std::unique_ptr<jxrt::JxRtTableOperations>* operations) const final;
  jx_status_t tableOperationsExecute(const jxrt::JxRtTableOperations& operations) const final;
  /// As tableOperationsExecute; what is executed completes `delay` late.
  jx_status_t executeLate(const jxrt::JxRtTableOperations& operations,
                          std::chrono::milliseconds delay) const;

  /// The table's name, for as long as the table is there.
  const std::string& name() const { return description().name; }
  const Table& description() const { return *state_.table; }
  const KeyCodec& codec() const { return codec_; }
  /// Whether data of this table has this field that belongs to no action.
  bool hasDataField(uint32_t field_id) const;
  /// Whether a call is for the table's device.
  jx_status_t checkTarget(const jx_rt_target_t& target) const;

 protected:
  /// A field of data that belongs to no action.
  struct DataField {
    uint32_t id;
    const char* name;
    uint32_t width;  // bits
  };
  /// What a kind of table tells the base about itself.
  struct Shape {
    std::vector<DataField> data_fields;
    bool owns_actions = false;  // its entries are actions with parameters
  };
  RtTable(const DeviceCore& device, const RtInfo& info, TableState& state, Shape shape);

  const DeviceCore& device() const { return device_; }
  /// The device's.
  Mutex& mutex() const ABSL_LOCK_RETURNED(device_.mutex()) { return device_.mutex(); }
  TableState& state() const { return state_; }
  bool ownsActions() const { return shape_.owns_actions; }
  /// The action that data was given, with all its parameters. JX_INVALID_ARGUMENTS without one.
  static jx_status_t boundActionOf(const RtTableData& data, BoundAction* action);
  /// The first used slot of a store of entries from `slot` on, kNoSlot if there is none.
  template <typename Store>
  static uint32_t firstUsed(const Store& store, uint64_t slot) {
    for (uint64_t at = slot; at < store.end(); ++at) {
      if (store.used(static_cast<uint32_t>(at))) return static_cast<uint32_t>(at);
    }
    return kNoSlot;
  }

 private:
  // --- what a kind of table adds. A slot names an entry as long as it stays. A write that a kind
  // does not have gives JX_NOT_SUPPORTED.

  /// Whether entries stay as they are without the device's mutex, too. Reads do not take it then.
  virtual bool readsWithoutLock() const { return false; }
  /// Whether entries can be added, modified and deleted at all.
  virtual bool hasWrites() const { return true; }
  virtual uint32_t usage() const ABSL_EXCLUSIVE_LOCKS_REQUIRED(mutex()) = 0;
  /// kNoSlot if there is no such entry.
  virtual uint32_t slotOf(const RtTableKey& key) const ABSL_EXCLUSIVE_LOCKS_REQUIRED(mutex()) = 0;
  virtual uint32_t handleOf(uint32_t slot) const ABSL_EXCLUSIVE_LOCKS_REQUIRED(mutex()) = 0;
  /// The first used slot from `slot` on, kNoSlot if there is none.
  virtual uint32_t usedFrom(uint64_t slot) const ABSL_EXCLUSIVE_LOCKS_REQUIRED(mutex()) = 0;
  virtual void readKey(uint32_t slot, RtTableKey* key) const
      ABSL_EXCLUSIVE_LOCKS_REQUIRED(mutex()) = 0;
  /// `flags` of the read.
  virtual void readData(uint32_t slot, uint64_t flags, RtTableData* data) const
      ABSL_EXCLUSIVE_LOCKS_REQUIRED(mutex()) = 0;

  virtual jx_status_t add(const UpdateReporter& reporter, const RtTableKey& key,
                          const RtTableData& data) const ABSL_EXCLUSIVE_LOCKS_REQUIRED(mutex());
  virtual jx_status_t modify(const UpdateReporter& reporter, uint32_t slot,
                             const RtTableData& data) const ABSL_EXCLUSIVE_LOCKS_REQUIRED(mutex());
  virtual jx_status_t remove(const UpdateReporter& reporter, uint32_t slot) const
      ABSL_EXCLUSIVE_LOCKS_REQUIRED(mutex());
  /// Of a table whose keys have a priority.
  virtual void move(const UpdateReporter& reporter, uint32_t slot, uint32_t priority) const
      ABSL_EXCLUSIVE_LOCKS_REQUIRED(mutex());

  virtual jx_status_t setDefault(const UpdateReporter& reporter, const RtTableData& data) const
      ABSL_EXCLUSIVE_LOCKS_REQUIRED(mutex());
  virtual jx_status_t clearDefault(const UpdateReporter& reporter) const
      ABSL_EXCLUSIVE_LOCKS_REQUIRED(mutex());
  virtual jx_status_t readDefault(RtTableData* data) const ABSL_EXCLUSIVE_LOCKS_REQUIRED(mutex());

  virtual jx_status_t addGroupMember(const UpdateReporter& reporter, uint32_t group_id,
                                     uint32_t member_id) const
      ABSL_EXCLUSIVE_LOCKS_REQUIRED(mutex());
  virtual jx_status_t deleteGroupMember(const UpdateReporter& reporter, uint32_t group_id,
                                        uint32_t member_id) const
      ABSL_EXCLUSIVE_LOCKS_REQUIRED(mutex());
  virtual jx_status_t setGroupMemberActive(const UpdateReporter& reporter, uint32_t group_id,
                                           uint32_t member_id, bool active) const
      ABSL_EXCLUSIVE_LOCKS_REQUIRED(mutex());
  virtual jx_status_t setFallback(const UpdateReporter& reporter, uint32_t member_id) const
      ABSL_EXCLUSIVE_LOCKS_REQUIRED(mutex());
  virtual jx_status_t clearFallback(const UpdateReporter& reporter) const
      ABSL_EXCLUSIVE_LOCKS_REQUIRED(mutex());
  virtual jx_status_t readFallback(uint32_t* member_id) const
      ABSL_EXCLUSIVE_LOCKS_REQUIRED(mutex());

  /// Of a table whose entries age.
  virtual void setIdle(const IdleAttributes& attributes, const jx_rt_target_t& target) const;
  /// Of a table with counters.
  virtual void startSync(const RtTableOperations::CounterSync& sync,
                         std::chrono::milliseconds delay) const;

  // --- what all calls share

  /// Keeps the entries as they are while they are read.
  class ABSL_SCOPED_LOCKABLE ReadLock;

  jx_status_t checkRead(const jx_rt_target_t& target, uint64_t flags) const;
  /// Also that the device is one whose tables are written directly.
  jx_status_t checkWrite(const jx_rt_target_t& target, uint64_t flags) const;
  /// For a write, which is reported before another one happens.
  UpdateReporter reporterTo(const jx_rt_target_t& target) const
      ABSL_EXCLUSIVE_LOCKS_REQUIRED(mutex());
  template <typename Function>
  jx_status_t registerCallback(const jx_rt_target_t& target, bool of_this_kind,
                               UpdateCallback<Function>* place, Function callback,
                               void* cookie) const;
  /// The key or data as this table's own; null if it is another table's.
  const RtTableKey* own(const jxrt::JxRtTableKey& key) const;
  const RtTableData* own(const jxrt::JxRtTableData& data) const;
  RtTableKey* own(jxrt::JxRtTableKey* key) const;
  RtTableData* own(jxrt::JxRtTableData* data) const;
  /// The id of a data field that belongs to no action.
  jx_status_t commonFieldId(const std::string& name, uint32_t* id) const;

  const DeviceCore& device_;
  const RtInfo& info_;
  TableState& state_;
  const KeyCodec codec_;
  const Shape shape_;
};

}  // namespace jxmodel
