#include "model/rpc/entry_reader.h"

#include <algorithm>
#include <string>

namespace jxmodel::control {
namespace {

namespace pb = jx::control::v1;
using jxrt::JxRtFieldInfo;
using jxrt::JxRtTableData;
using jxrt::JxRtTableKey;

size_t byteCount(const JxRtFieldInfo& field) { return (field.width + 7) / 8; }

/// Memory of one field's value inside a message.
uint8_t* sized(std::string* bytes, size_t size) {
  bytes->resize(size);
  return reinterpret_cast<uint8_t*>(bytes->data());
}

/// Entries of these match kinds can overlap, so that a priority has to decide.
bool needsPriority(const JxRtFieldInfo& field) {
  return field.match_type == JX_RT_MATCH_TERNARY || field.match_type == JX_RT_MATCH_RANGE ||
         field.match_type == JX_RT_MATCH_OPTIONAL;
}

/// Reads a data field that a read may have left unset; `value` stays empty then.
jx_status_t readIfActive(const JxRtTableData& data, std::optional<uint32_t> field,
                         std::optional<uint64_t>* value) {
  if (!field) return JX_SUCCESS;
  bool active = false;
  jx_status_t status = data.isActive(*field, &active);
  if (status != JX_SUCCESS || !active) return status;
  uint64_t read = 0;
  status = data.getValue(*field, &read);
  if (status == JX_SUCCESS) *value = read;
  return status;
}

}  // namespace

EntryReader::EntryReader(const jxrt::JxRtTable& table, const jxrt::JxRtSession& session,
                         const jx_rt_target_t& target)
    : table_(table), session_(session), target_(target) {
  status_ = learnFacts();
}

jx_status_t EntryReader::learnFacts() {
  jx_status_t status = table_.tableTypeGet(&type_);
  if (status != JX_SUCCESS) return status;
  status = table_.keyFieldListGet(&key_fields_);
  if (status != JX_SUCCESS) return status;
  has_priority_ = std::any_of(key_fields_.begin(), key_fields_.end(), needsPriority);
  // Kinds of table without actions may answer that they have no such list.
  status = table_.actionListGet(&actions_);
  if (status != JX_SUCCESS && status != JX_NOT_SUPPORTED) return status;
  std::vector<JxRtFieldInfo> data_fields;
  status = table_.dataFieldListGet(&data_fields);
  if (status != JX_SUCCESS) return status;
  for (const JxRtFieldInfo& field : data_fields) noteDataField(field);
  return JX_SUCCESS;
}

void EntryReader::noteDataField(const JxRtFieldInfo& field) {
  const struct {
    const char* name;
    std::optional<uint32_t> EntryReader::*id;
  } known[] = {
      {JX_RT_FIELD_MEMBER_ID, &EntryReader::member_id_},
      {JX_RT_FIELD_GROUP_ID, &EntryReader::group_id_},
      {JX_RT_FIELD_TTL, &EntryReader::ttl_},
      {JX_RT_FIELD_MAX_MEMBERS, &EntryReader::max_members_},
      {JX_RT_FIELD_MEMBERS, &EntryReader::members_},
      {JX_RT_FIELD_MEMBERS_ACTIVE, &EntryReader::members_active_},
      {JX_RT_FIELD_COUNTER_PKTS, &EntryReader::counter_packets_},
      {JX_RT_FIELD_COUNTER_BYTES, &EntryReader::counter_bytes_},
  };
  for (const auto& row : known) {
    if (field.name == row.name) this->*row.id = field.id;
  }
}

jx_status_t EntryReader::readChunk(uint64_t* cursor, uint32_t count, pb::EntryChunk* chunk) {
  entries_.clear();
  // Of counters people want to see what has been counted, not what the application has synced.
  const uint64_t flags = type_ == JX_RT_TABLE_COUNTER ? JX_RT_FLAG_FROM_HARDWARE : 0;
  jx_status_t status = table_.tableEntriesGet(session_, target_, flags, cursor, count, &entries_);
  if (status != JX_SUCCESS) return status;
  for (const jxrt::JxRtTable::Entry& read : entries_) {
    pb::Entry* entry = chunk->add_entries();
    entry->set_handle(read.handle);
    status = fillKey(*read.key, entry);
    if (status != JX_SUCCESS) return status;
    status = fillData(*read.data, entry);
    if (status != JX_SUCCESS) return status;
  }
  return JX_SUCCESS;
}

jx_status_t EntryReader::readSpecialEntries(pb::EntryChunk* chunk) const {
  if (type_ == JX_RT_TABLE_SELECTOR) {
    uint32_t member_id = 0;
    const jx_status_t status = table_.fallbackGet(session_, target_, &member_id);
    if (status == JX_OBJECT_NOT_FOUND) return JX_SUCCESS;
    if (status != JX_SUCCESS) return status;
    pb::Entry* entry = chunk->add_entries();
    entry->set_role(pb::Entry::ROLE_FALLBACK);
    entry->set_member_id(member_id);
    return JX_SUCCESS;
  }
  std::unique_ptr<JxRtTableData> data;
  jx_status_t status = table_.dataAllocate(&data);
  if (status != JX_SUCCESS) return status;
  status = table_.tableDefaultEntryGet(session_, target_, 0, data.get());
  // Not set, or not a kind of table that has one.
  if (status == JX_OBJECT_NOT_FOUND || status == JX_NOT_SUPPORTED) return JX_SUCCESS;
  if (status != JX_SUCCESS) return status;
  pb::Entry* entry = chunk->add_entries();
  entry->set_role(pb::Entry::ROLE_DEFAULT);
  status = fillData(*data, entry);
  entry->clear_ttl_ms();  // a default entry does not age
  return status;
}

jx_status_t EntryReader::fillKeyFields(
    const JxRtTableKey& key, google::protobuf::RepeatedPtrField<pb::KeyField>* out) const {
  for (const JxRtFieldInfo& field : key_fields_) {
    const jx_status_t status = fillKeyField(key, field, out->Add());
    if (status != JX_SUCCESS) return status;
  }
  return JX_SUCCESS;
}

jx_status_t EntryReader::fillKey(const JxRtTableKey& key, pb::Entry* entry) const {
  jx_status_t status = fillKeyFields(key, entry->mutable_key());
  if (status != JX_SUCCESS || !has_priority_) return status;
  uint32_t priority = 0;
  status = key.priorityGet(&priority);
  if (status == JX_SUCCESS) entry->set_priority(priority);
  return status;
}

jx_status_t EntryReader::fillKeyField(const JxRtTableKey& key, const JxRtFieldInfo& field,
                                      pb::KeyField* out) const {
  const size_t size = byteCount(field);
  out->set_name(field.name);
  out->set_width(field.width);
  switch (field.match_type) {
    case JX_RT_MATCH_EXACT:
      return key.getValue(field.id, size, sized(out->mutable_exact(), size));
    case JX_RT_MATCH_TERNARY: {
      pb::KeyField::Ternary* ternary = out->mutable_ternary();
      return key.getValueAndMask(field.id, size, sized(ternary->mutable_value(), size),
                                 sized(ternary->mutable_mask(), size));
    }
    case JX_RT_MATCH_LPM: {
      uint16_t length = 0;
      const jx_status_t status = key.getValueLpm(
          field.id, size, sized(out->mutable_lpm()->mutable_value(), size), &length);
      out->mutable_lpm()->set_prefix_length(length);
      return status;
    }
    case JX_RT_MATCH_RANGE: {
      pb::KeyField::Range* range = out->mutable_range();
      return key.getValueRange(field.id, size, sized(range->mutable_low(), size),
                               sized(range->mutable_high(), size));
    }
    case JX_RT_MATCH_OPTIONAL: {
      bool valid = false;
      const jx_status_t status = key.getValueOptional(
          field.id, size, sized(out->mutable_optional()->mutable_value(), size), &valid);
      out->mutable_optional()->set_valid(valid);
      return status;
    }
    case JX_RT_MATCH_INVALID:
      break;
  }
  return JX_INTERNAL_ERROR;
}

jx_status_t EntryReader::fillData(const JxRtTableData& data, pb::Entry* entry) const {
  if (type_ == JX_RT_TABLE_SELECTOR) return fillGroup(data, entry->mutable_group());
  if (type_ == JX_RT_TABLE_COUNTER) return fillCounter(data, entry->mutable_counter());
  std::optional<uint64_t> member_id, group_id, ttl;
  jx_status_t status = readIfActive(data, member_id_, &member_id);
  if (status != JX_SUCCESS) return status;
  status = readIfActive(data, group_id_, &group_id);
  if (status != JX_SUCCESS) return status;
  status = readIfActive(data, ttl_, &ttl);
  if (status != JX_SUCCESS) return status;
  if (member_id) entry->set_member_id(static_cast<uint32_t>(*member_id));
  if (group_id) entry->set_group_id(static_cast<uint32_t>(*group_id));
  if (ttl_) entry->set_ttl_ms(static_cast<uint32_t>(ttl.value_or(0)));
  return fillAction(data, entry);
}

jx_status_t EntryReader::fillAction(const JxRtTableData& data, pb::Entry* entry) const {
  uint32_t action_id = 0;
  jx_status_t status = data.actionIdGet(&action_id);
  if (status != JX_SUCCESS || action_id == 0) return status;
  const auto action =
      std::find_if(actions_.begin(), actions_.end(),
                   [action_id](const jxrt::JxRtActionInfo& info) { return info.id == action_id; });
  if (action == actions_.end()) return JX_INTERNAL_ERROR;
  entry->set_action(action->name);
  for (const JxRtFieldInfo& info : action->params) {
    pb::Param* param = entry->add_params();
    param->set_name(info.name);
    param->set_width(info.width);
    const size_t size = byteCount(info);
    status = data.getValue(info.id, size, sized(param->mutable_value(), size));
    if (status != JX_SUCCESS) return status;
  }
  return JX_SUCCESS;
}

jx_status_t EntryReader::fillGroup(const JxRtTableData& data, pb::Group* group) const {
  if (!max_members_ || !members_ || !members_active_) return JX_INTERNAL_ERROR;
  uint64_t max_members = 0;
  std::vector<uint32_t> members;
  std::vector<bool> active;
  jx_status_t status = data.getValue(*max_members_, &max_members);
  if (status != JX_SUCCESS) return status;
  status = data.getValue(*members_, &members);
  if (status != JX_SUCCESS) return status;
  status = data.getValue(*members_active_, &active);
  if (status != JX_SUCCESS) return status;
  if (members.size() != active.size()) return JX_INTERNAL_ERROR;
  group->set_max_members(static_cast<uint32_t>(max_members));
  for (size_t i = 0; i < members.size(); ++i) {
    pb::Group::Member* member = group->add_members();
    member->set_member_id(members[i]);
    member->set_active(active[i]);
  }
  return JX_SUCCESS;
}

jx_status_t EntryReader::fillCounter(const JxRtTableData& data, pb::Counter* counter) const {
  if (!counter_packets_ || !counter_bytes_) return JX_INTERNAL_ERROR;
  uint64_t packets = 0, bytes = 0;
  jx_status_t status = data.getValue(*counter_packets_, &packets);
  if (status != JX_SUCCESS) return status;
  status = data.getValue(*counter_bytes_, &bytes);
  if (status != JX_SUCCESS) return status;
  counter->set_packets(packets);
  counter->set_bytes(bytes);
  return JX_SUCCESS;
}

}  // namespace jxmodel::control
