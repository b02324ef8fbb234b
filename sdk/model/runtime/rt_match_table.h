// Match tables: entries of keys with an action, a member or a group.
#pragma once

#include "model/notify/idle_watch.h"
#include "model/runtime/rt_table.h"

namespace jxmodel {

class RtMatchTable final : public RtTable {
 public:
  /// `watch` is null where entries do not age.
  RtMatchTable(const DeviceCore& device, const RtInfo& info, TableState& state, IdleWatch* watch);

 private:
  static Shape shapeOf(const Table& table);

  bool hasWrites() const override { return state().takesEntries(); }
  uint32_t usage() const override ABSL_EXCLUSIVE_LOCKS_REQUIRED(mutex()) { return match().count(); }
  uint32_t slotOf(const RtTableKey& key) const override ABSL_EXCLUSIVE_LOCKS_REQUIRED(mutex()) {
    return match().findKey(key.packed());
  }
  uint32_t handleOf(uint32_t slot) const override ABSL_EXCLUSIVE_LOCKS_REQUIRED(mutex()) {
    return match().handleOf(slot);
  }
  uint32_t usedFrom(uint64_t slot) const override ABSL_EXCLUSIVE_LOCKS_REQUIRED(mutex()) {
    return firstUsed(match(), slot);
  }
  void readKey(uint32_t slot, RtTableKey* key) const override
      ABSL_EXCLUSIVE_LOCKS_REQUIRED(mutex());
  void readData(uint32_t slot, uint64_t flags, RtTableData* data) const override
      ABSL_EXCLUSIVE_LOCKS_REQUIRED(mutex());

  jx_status_t add(const UpdateReporter& reporter, const RtTableKey& key,
                  const RtTableData& data) const override ABSL_EXCLUSIVE_LOCKS_REQUIRED(mutex());
  jx_status_t modify(const UpdateReporter& reporter, uint32_t slot,
                     const RtTableData& data) const override ABSL_EXCLUSIVE_LOCKS_REQUIRED(mutex());
  jx_status_t remove(const UpdateReporter& reporter, uint32_t slot) const override
      ABSL_EXCLUSIVE_LOCKS_REQUIRED(mutex());
  void move(const UpdateReporter& reporter, uint32_t slot, uint32_t priority) const override
      ABSL_EXCLUSIVE_LOCKS_REQUIRED(mutex());

  jx_status_t setDefault(const UpdateReporter& reporter, const RtTableData& data) const override
      ABSL_EXCLUSIVE_LOCKS_REQUIRED(mutex());
  jx_status_t clearDefault(const UpdateReporter& reporter) const override
      ABSL_EXCLUSIVE_LOCKS_REQUIRED(mutex());
  jx_status_t readDefault(RtTableData* data) const override ABSL_EXCLUSIVE_LOCKS_REQUIRED(mutex());

  void setIdle(const IdleAttributes& attributes, const jx_rt_target_t& target) const override;

  MatchTable& match() const ABSL_EXCLUSIVE_LOCKS_REQUIRED(mutex()) { return *state().match; }
  /// What an entry (or the default entry) does: the data's action, or the member or group that it
  /// names.
  jx_status_t resultOf(const RtTableData& data, bool as_default, MatchResult* result) const
      ABSL_EXCLUSIVE_LOCKS_REQUIRED(mutex());
  void readResult(const MatchResult& result, RtTableData* data) const
      ABSL_EXCLUSIVE_LOCKS_REQUIRED(mutex());

  IdleWatch* const watch_;
};

}  // namespace jxmodel
