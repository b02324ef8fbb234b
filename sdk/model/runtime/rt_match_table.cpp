#include "model/runtime/rt_match_table.h"

#include <memory>
#include <utility>

namespace jxmodel {
namespace {

/// The report of an aged entry to the application. It runs on one thread, so one key serves all.
std::shared_ptr<const IdleRequest> requestOf(const RtTable& table, const IdleAttributes& attributes,
                                             const jx_rt_target_t& target) {
  if (!attributes.enabled) return nullptr;
  auto request = std::make_shared<IdleRequest>();
  request->interval_ms = attributes.interval_ms;
  request->max_ttl_ms = attributes.max_ttl_ms;
  request->min_ttl_ms = attributes.min_ttl_ms;
  request->report = [key = std::make_shared<RtTableKey>(table), attributes,
                     target](const AgedEntry& entry) {
    key->assign(entry.key, entry.priority);
    key->entry_handle = entry.handle;
    attributes.callback(target, key.get(), attributes.cookie);
  };
  return request;
}

}  // namespace

RtTable::Shape RtMatchTable::shapeOf(const Table& table) {
  Shape shape;
  shape.owns_actions = table.type == JX_RT_TABLE_MATCH_DIRECT;
  if (!shape.owns_actions) shape.data_fields.push_back({kFieldMemberId, JX_RT_FIELD_MEMBER_ID, 32});
  if (table.type == JX_RT_TABLE_MATCH_SELECTOR) {
    shape.data_fields.push_back({kFieldGroupId, JX_RT_FIELD_GROUP_ID, 32});
  }
  if (table.idle_timeout) shape.data_fields.push_back({kFieldTtl, JX_RT_FIELD_TTL, 32});
  return shape;
}

RtMatchTable::RtMatchTable(const DeviceCore& device, const RtInfo& info, TableState& state,
                           IdleWatch* watch)
    : RtTable(device, info, state, shapeOf(*state.table)), watch_(watch) {}

void RtMatchTable::readKey(uint32_t slot, RtTableKey* key) const {
  key->assign(match().keyOf(slot), match().priorityOf(slot));
}

void RtMatchTable::readResult(const MatchResult& result, RtTableData* data) const {
  data->member_id = data->group_id = std::nullopt;
  switch (result.kind) {
    case MatchResult::Kind::kAction:
      return data->assignAction(result.action.action, result.action.params);
    case MatchResult::Kind::kMember:
      data->member_id = state().member_state->members->idOf(result.slot);
      return;
    case MatchResult::Kind::kGroup:
      data->group_id = state().group_state->groups->group(result.slot).id;
      return;
  }
}

void RtMatchTable::readData(uint32_t slot, uint64_t, RtTableData* data) const {
  readResult(match().resultOf(slot), data);
  if (description().idle_timeout) data->ttl_ms = match().ttlOf(slot);
}

jx_status_t RtMatchTable::resultOf(const RtTableData& data, bool as_default,
                                   MatchResult* result) const {
  if (ownsActions()) {
    const jx_status_t status = boundActionOf(data, &result->action);
    if (status != JX_SUCCESS) return status;
    return state().allows(*result->action.action, as_default) ? JX_SUCCESS : JX_INVALID_ARGUMENTS;
  }
  if (data.member_id.has_value() == data.group_id.has_value()) return JX_INVALID_ARGUMENTS;
  if (data.member_id) {
    result->kind = MatchResult::Kind::kMember;
    result->slot = state().member_state->members->findId(*data.member_id);
  } else {
    result->kind = MatchResult::Kind::kGroup;
    result->slot = state().group_state->groups->findId(*data.group_id);
  }
  return result->slot == kNoSlot ? JX_OBJECT_NOT_FOUND : JX_SUCCESS;
}

jx_status_t RtMatchTable::add(const UpdateReporter& reporter, const RtTableKey& key,
                              const RtTableData& data) const {
  MatchTable::Addition addition;
  addition.key = key.packed();
  addition.priority = key.priority();
  addition.ttl_ms = data.ttl_ms.value_or(0);
  jx_status_t status = resultOf(data, false, &addition.result);
  if (status != JX_SUCCESS) return status;
  uint32_t slot = kNoSlot;
  status = match().add(addition, &slot);
  if (status == JX_SUCCESS) reporter.matchAdded(slot);
  return status;
}

jx_status_t RtMatchTable::modify(const UpdateReporter& reporter, uint32_t slot,
                                 const RtTableData& data) const {
  MatchResult result;
  const jx_status_t status = resultOf(data, false, &result);
  if (status != JX_SUCCESS) return status;
  match().modify(slot, data.ttl_ms.value_or(match().ttlOf(slot)), result);
  reporter.matchModified(slot);
  return JX_SUCCESS;
}

jx_status_t RtMatchTable::remove(const UpdateReporter& reporter, uint32_t slot) const {
  const uint32_t handle = match().handleOf(slot);
  match().remove(slot);
  reporter.matchDeleted(handle);
  return JX_SUCCESS;
}

void RtMatchTable::move(const UpdateReporter& reporter, uint32_t slot, uint32_t priority) const {
  match().move(slot, priority);
  reporter.matchMoved(slot);
}

jx_status_t RtMatchTable::setDefault(const UpdateReporter& reporter,
                                     const RtTableData& data) const {
  if (description().constant_default) return JX_NOT_SUPPORTED;
  if (data.ttl_ms) return JX_INVALID_ARGUMENTS;  // a default entry does not age
  MatchResult result;
  jx_status_t status = resultOf(data, true, &result);
  if (status != JX_SUCCESS) return status;
  status = match().setDefault(0, result);
  if (status == JX_SUCCESS) reporter.defaultSet();
  return status;
}

jx_status_t RtMatchTable::clearDefault(const UpdateReporter& reporter) const {
  if (description().constant_default) return JX_NOT_SUPPORTED;
  const uint32_t slot = match().defaultEntry();
  if (slot == kNoSlot) return JX_OBJECT_NOT_FOUND;
  const uint32_t handle = match().handleOf(slot);
  match().clearDefault();
  reporter.defaultCleared(handle);
  return JX_SUCCESS;
}

jx_status_t RtMatchTable::readDefault(RtTableData* data) const {
  const uint32_t slot = match().defaultEntry();
  if (slot == kNoSlot) return JX_OBJECT_NOT_FOUND;
  readResult(match().resultOf(slot), data);
  return JX_SUCCESS;
}

void RtMatchTable::setIdle(const IdleAttributes& attributes, const jx_rt_target_t& target) const {
  // No packet hits entries of a virtual device: what ages is the physical device's.
  if (watch_ != nullptr) watch_->set(requestOf(*this, attributes, target));
}

}  // namespace jxmodel
