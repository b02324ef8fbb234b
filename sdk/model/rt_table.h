// Tables as applications see them: rt_table.cpp has the facts, rt_table_read.cpp the reads,
// rt_table_write.cpp the writes, rt_operations.cpp the operations.
#pragma once

#include <chrono>
#include <cstdint>
#include <mutex>
#include <vector>

#include "jxsdk/rt.hpp"
#include "model/key_codec.h"
#include "model/program.h"
#include "model/rt_data.h"
#include "model/rt_key.h"
#include "model/table_state.h"

namespace jxmodel {

class Device;
class RtInfo;
class UpdateReporter;

class RtTable final : public jxrt::JxRtTable {
 public:
  RtTable(const Device& device, const RtInfo& info, TableState& state);

  jx_status_t tableIdGet(uint32_t* id) const override;
  jx_status_t tableNameGet(std::string* name) const override;
  jx_status_t tableTypeGet(jx_rt_table_type_t* type) const override;
  jx_status_t tableHandleGet(pipe_tbl_hdl_t* handle) const override;
  jx_status_t tableSizeGet(const jxrt::JxRtSession& session, const jx_rt_target_t& target,
                           uint64_t flags, size_t* size) const override;
  jx_status_t tableUsageGet(const jxrt::JxRtSession& session, const jx_rt_target_t& target,
                            uint64_t flags, uint32_t* count) const override;
  jx_status_t keyFieldListGet(std::vector<jxrt::JxRtFieldInfo>* fields) const override;
  jx_status_t keyFieldIdGet(const std::string& name, uint32_t* id) const override;
  jx_status_t dataFieldListGet(std::vector<jxrt::JxRtFieldInfo>* fields) const override;
  jx_status_t dataFieldIdGet(const std::string& name, uint32_t* id) const override;
  jx_status_t dataFieldIdGet(const std::string& name, uint32_t action_id,
                             uint32_t* id) const override;
  jx_status_t actionListGet(std::vector<jxrt::JxRtActionInfo>* actions) const override;
  jx_status_t actionIdGet(const std::string& name, uint32_t* id) const override;
  jx_status_t actionDataTableGet(const jxrt::JxRtTable** table) const override;
  jx_status_t selectorTableGet(const jxrt::JxRtTable** table) const override;

  jx_status_t keyAllocate(std::unique_ptr<jxrt::JxRtTableKey>* key) const override;
  jx_status_t keyReset(jxrt::JxRtTableKey* key) const override;
  jx_status_t dataAllocate(std::unique_ptr<jxrt::JxRtTableData>* data) const override;
  jx_status_t dataAllocate(uint32_t action_id,
                           std::unique_ptr<jxrt::JxRtTableData>* data) const override;
  jx_status_t dataReset(jxrt::JxRtTableData* data) const override;
  jx_status_t dataReset(uint32_t action_id, jxrt::JxRtTableData* data) const override;

  jx_status_t tableEntryAdd(const jxrt::JxRtSession& session, const jx_rt_target_t& target,
                            uint64_t flags, const jxrt::JxRtTableKey& key,
                            const jxrt::JxRtTableData& data) const override;
  jx_status_t tableEntryMod(const jxrt::JxRtSession& session, const jx_rt_target_t& target,
                            uint64_t flags, const jxrt::JxRtTableKey& key,
                            const jxrt::JxRtTableData& data) const override;
  jx_status_t tableEntryMove(const jxrt::JxRtSession& session, const jx_rt_target_t& target,
                             uint64_t flags, const jxrt::JxRtTableKey& key) const override;
  jx_status_t tableEntryDel(const jxrt::JxRtSession& session, const jx_rt_target_t& target,
                            uint64_t flags, const jxrt::JxRtTableKey& key) const override;
  jx_status_t tableEntryGet(const jxrt::JxRtSession& session, const jx_rt_target_t& target,
                            uint64_t flags, const jxrt::JxRtTableKey& key,
                            jxrt::JxRtTableData* data) const override;
  jx_status_t tableEntryGetFirst(const jxrt::JxRtSession& session, const jx_rt_target_t& target,
                                 uint64_t flags, jxrt::JxRtTableKey* key,
                                 jxrt::JxRtTableData* data) const override;
  jx_status_t tableEntryGetNext(const jxrt::JxRtSession& session, const jx_rt_target_t& target,
                                uint64_t flags, const jxrt::JxRtTableKey& key,
                                jxrt::JxRtTableKey* next_key,
                                jxrt::JxRtTableData* data) const override;
  jx_status_t tableEntriesGet(const jxrt::JxRtSession& session, const jx_rt_target_t& target,
                              uint64_t flags, uint64_t* cursor, uint32_t count,
                              std::vector<Entry>* entries) const override;
  jx_status_t tableEntryHandleGet(const jxrt::JxRtSession& session, const jx_rt_target_t& target,
                                  const jxrt::JxRtTableKey& key, uint32_t* handle) const override;

  jx_status_t tableDefaultEntrySet(const jxrt::JxRtSession& session, const jx_rt_target_t& target,
                                   uint64_t flags, const jxrt::JxRtTableData& data) const override;
  jx_status_t tableDefaultEntryClear(const jxrt::JxRtSession& session, const jx_rt_target_t& target,
                                     uint64_t flags) const override;
  jx_status_t tableDefaultEntryGet(const jxrt::JxRtSession& session, const jx_rt_target_t& target,
                                   uint64_t flags, jxrt::JxRtTableData* data) const override;

  jx_status_t groupMemberAdd(const jxrt::JxRtSession& session, const jx_rt_target_t& target,
                             uint32_t group_id, uint32_t member_id) const override;
  jx_status_t groupMemberDel(const jxrt::JxRtSession& session, const jx_rt_target_t& target,
                             uint32_t group_id, uint32_t member_id) const override;
  jx_status_t groupMemberActivate(const jxrt::JxRtSession& session, const jx_rt_target_t& target,
                                  uint32_t group_id, uint32_t member_id) const override;
  jx_status_t groupMemberDeactivate(const jxrt::JxRtSession& session, const jx_rt_target_t& target,
                                    uint32_t group_id, uint32_t member_id) const override;
  jx_status_t fallbackSet(const jxrt::JxRtSession& session, const jx_rt_target_t& target,
                          uint32_t member_id) const override;
  jx_status_t fallbackClear(const jxrt::JxRtSession& session,
                            const jx_rt_target_t& target) const override;
  jx_status_t fallbackGet(const jxrt::JxRtSession& session, const jx_rt_target_t& target,
                          uint32_t* member_id) const override;

  jx_status_t matUpdateCbRegister(const jxrt::JxRtSession& session, const jx_rt_target_t& target,
                                  pipe_mat_update_cb callback, void* cookie) const override;
  jx_status_t adtUpdateCbRegister(const jxrt::JxRtSession& session, const jx_rt_target_t& target,
                                  pipe_adt_update_cb callback, void* cookie) const override;
  jx_status_t selUpdateCbRegister(const jxrt::JxRtSession& session, const jx_rt_target_t& target,
                                  pipe_sel_update_cb callback, void* cookie) const override;

  jx_status_t idleTableAttributesAllocate(
      jx_rt_idle_table_mode_t mode,
      std::unique_ptr<jxrt::JxRtTableAttributes>* attributes) const override;
  jx_status_t tableAttributesSet(const jxrt::JxRtSession& session, const jx_rt_target_t& target,
                                 uint64_t flags,
                                 const jxrt::JxRtTableAttributes& attributes) const override;
  jx_status_t operationsAllocate(
      jx_rt_table_operations_mode_t mode,
      std::unique_ptr<jxrt::JxRtTableOperations>* operations) const override;
  jx_status_t tableOperationsExecute(const jxrt::JxRtTableOperations& operations) const override;
  /// The same; what is executed completes `delay` late.
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

 private:
  struct DataField {
    uint32_t id;
    const char* name;
    uint32_t width;
  };

  bool ownsActions() const;
  /// The id of a data field that belongs to no action.
  jx_status_t commonFieldId(const std::string& name, uint32_t* id) const;
  jx_status_t checkRead(const jx_rt_target_t& target, uint64_t flags) const;
  /// Also that the device is one whose tables are written directly.
  jx_status_t checkWrite(const jx_rt_target_t& target, uint64_t flags) const;
  /// The key or data as this table's own; null if it is another table's.
  const RtTableKey* own(const jxrt::JxRtTableKey& key) const;
  const RtTableData* own(const jxrt::JxRtTableData& data) const;
  RtTableKey* own(jxrt::JxRtTableKey* key) const;
  RtTableData* own(jxrt::JxRtTableData* data) const;

  bool isCounter() const { return description().type == JX_RT_TABLE_COUNTER; }
  /// Keeps the entries as they are; nothing is locked for counters, which go on counting anyway.
  std::unique_lock<std::mutex> lockEntries() const;

  // The lock is held over all of these. The slot of a counter is its index.
  uint32_t slotOf(const RtTableKey& key) const;
  uint32_t handleOf(uint32_t slot) const;
  /// The first used slot from `slot` on, kNoSlot if there is none.
  uint32_t usedFrom(uint64_t slot) const;
  void readKey(uint32_t slot, RtTableKey* key) const;
  /// `flags` of the read.
  void readData(uint32_t slot, uint64_t flags, RtTableData* data) const;
  void readCounter(uint32_t index, uint64_t flags, RtTableData* data) const;
  void readResult(const MatchResult& result, RtTableData* data) const;
  void readGroup(uint32_t slot, RtTableData* data) const;

  jx_status_t resultOf(const RtTableData& data, MatchResult* result) const;
  jx_status_t boundActionOf(const RtTableData& data, BoundAction* action) const;
  jx_status_t membersOf(const RtTableData& data, std::vector<SelectorTable::Member>* members) const;
  jx_status_t addMatch(const UpdateReporter& reporter, const RtTableKey& key,
                       const RtTableData& data) const;
  jx_status_t addMember(const UpdateReporter& reporter, const RtTableKey& key,
                        const RtTableData& data) const;
  jx_status_t addGroup(const UpdateReporter& reporter, const RtTableKey& key,
                       const RtTableData& data) const;
  jx_status_t modifyMatch(const UpdateReporter& reporter, uint32_t slot,
                          const RtTableData& data) const;
  jx_status_t modifyMember(const UpdateReporter& reporter, uint32_t slot,
                           const RtTableData& data) const;
  jx_status_t modifyGroup(const UpdateReporter& reporter, uint32_t slot,
                          const RtTableData& data) const;
  void remakeMembers(const UpdateReporter& reporter, uint32_t slot,
                     const std::vector<SelectorTable::Member>& wanted) const;
  jx_status_t remove(const UpdateReporter& reporter, uint32_t slot) const;
  /// The slots of a group and a member by their ids, for a write of one member of one group.
  jx_status_t findPair(uint32_t group_id, uint32_t member_id, uint32_t* group,
                       uint32_t* member) const;
  jx_status_t setActive(const jx_rt_target_t& target, uint32_t group_id, uint32_t member_id,
                        bool active) const;

  const Device& device_;
  const RtInfo& info_;
  TableState& state_;
  KeyCodec codec_;
  std::vector<DataField> data_fields_;  // that belong to no action
};

}  // namespace jxmodel
