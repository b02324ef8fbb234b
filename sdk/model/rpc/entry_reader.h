// Turns entries of a table, as the runtime API hands them out, into messages of the control
// service.
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "jxsdk/rt.hpp"
#include "switch.pb.h"

namespace jxmodel::control {

/// Reads the entries of one table of one device. Knows the table's fields and actions, so that an
/// entry costs no look-ups by name. Must not outlive the device; used by one thread at a time.
class EntryReader {
 public:
  /// Learns the table's facts; check `status()` before anything else.
  EntryReader(const jxrt::JxRtTable& table, const jxrt::JxRtSession& session,
              const jx_rt_target_t& target);

  jx_status_t status() const { return status_; }
  jx_rt_table_type_t type() const { return type_; }

  /// Appends up to `count` entries from *cursor on, as JxRtTable::tableEntriesGet. At the end
  /// nothing is appended.
  jx_status_t readChunk(uint64_t* cursor, uint32_t count, jx::control::v1::EntryChunk* chunk);

  /// Appends the fallback and the default entry, those of them that are set.
  jx_status_t readSpecialEntries(jx::control::v1::EntryChunk* chunk) const;

  /// Sets the fields of a key of the table.
  jx_status_t fillKeyFields(
      const jxrt::JxRtTableKey& key,
      google::protobuf::RepeatedPtrField<jx::control::v1::KeyField>* out) const;

 private:
  jx_status_t learnFacts();
  void noteDataField(const jxrt::JxRtFieldInfo& field);
  jx_status_t fillKey(const jxrt::JxRtTableKey& key, jx::control::v1::Entry* entry) const;
  jx_status_t fillKeyField(const jxrt::JxRtTableKey& key, const jxrt::JxRtFieldInfo& field,
                           jx::control::v1::KeyField* out) const;
  jx_status_t fillData(const jxrt::JxRtTableData& data, jx::control::v1::Entry* entry) const;
  jx_status_t fillAction(const jxrt::JxRtTableData& data, jx::control::v1::Entry* entry) const;
  jx_status_t fillGroup(const jxrt::JxRtTableData& data, jx::control::v1::Group* group) const;
  jx_status_t fillCounter(const jxrt::JxRtTableData& data, jx::control::v1::Counter* counter) const;

  const jxrt::JxRtTable& table_;
  const jxrt::JxRtSession& session_;
  const jx_rt_target_t target_;
  jx_status_t status_ = JX_SUCCESS;

  jx_rt_table_type_t type_ = JX_RT_TABLE_MATCH_DIRECT;
  std::vector<jxrt::JxRtFieldInfo> key_fields_;
  bool has_priority_ = false;
  std::vector<jxrt::JxRtActionInfo> actions_;
  // Ids of the data fields that belong to no action, where the table has them.
  std::optional<uint32_t> member_id_, group_id_, ttl_, max_members_, members_, members_active_,
      counter_packets_, counter_bytes_;
  std::vector<jxrt::JxRtTable::Entry> entries_;  // of the present chunk
};

}  // namespace jxmodel::control
