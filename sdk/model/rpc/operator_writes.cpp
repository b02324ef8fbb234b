#include "model/rpc/operator_writes.h"

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "jxsdk/rt.h"
#include "model/placement/plcmt_info.h"

namespace jxmodel::control {
namespace {

namespace pb = jx::control::v1;
using grpc::StatusCode;
using Change = pb::ApplyRequest;

constexpr uint32_t kLastHandle = kNoSlot - 1;

grpc::Status invalid(const std::string& text) { return {StatusCode::INVALID_ARGUMENT, text}; }
grpc::Status refused(const std::string& text) { return {StatusCode::FAILED_PRECONDITION, text}; }

std::string hex(const std::string& bytes) {
  static constexpr char kDigits[] = "0123456789abcdef";
  std::string out = "0x";
  for (const char byte : bytes) {
    out += kDigits[static_cast<uint8_t>(byte) >> 4];
    out += kDigits[static_cast<uint8_t>(byte) & 15];
  }
  return out;
}

/// Whether a value is as long as its field and fits it; `what` names the field.
grpc::Status checkValue(const std::string& what, uint32_t width, const std::string& value) {
  const bool fits = value.size() == bytesOf(width) &&
                    withinWidth(reinterpret_cast<const uint8_t*>(value.data()), width);
  if (fits) return grpc::Status::OK;
  return invalid(what + ": " + hex(value) + " is no value of " + std::to_string(width) +
                 " bits: give " + std::to_string(bytesOf(width)) + " bytes");
}

const char* nameOf(jx_rt_key_match_type_t match) {
  switch (match) {
    case JX_RT_MATCH_EXACT:
      return "an exact value";
    case JX_RT_MATCH_TERNARY:
      return "a value and a mask";
    case JX_RT_MATCH_LPM:
      return "a value and a prefix length";
    case JX_RT_MATCH_RANGE:
      return "a range";
    default:
      return "an optional value";
  }
}

bool ofKind(const pb::KeyField& value, jx_rt_key_match_type_t match) {
  switch (match) {
    case JX_RT_MATCH_EXACT:
      return value.has_exact();
    case JX_RT_MATCH_TERNARY:
      return value.has_ternary();
    case JX_RT_MATCH_LPM:
      return value.has_lpm();
    case JX_RT_MATCH_RANGE:
      return value.has_range();
    case JX_RT_MATCH_OPTIONAL:
      return value.has_optional();
    default:
      return false;
  }
}

/// Clears what the mask leaves out, as tables store values.
void keepMasked(const uint8_t* mask, uint32_t bytes, uint8_t* value) {
  for (uint32_t i = 0; i < bytes; ++i) value[i] &= mask[i];
}

void copyTo(uint8_t* to, const std::string& value) { std::copy(value.begin(), value.end(), to); }

grpc::Status packLpm(const std::string& what, const KeyField& field, const pb::KeyField::Lpm& lpm,
                     uint8_t* packed) {
  if (lpm.prefix_length() > field.width) {
    return invalid(what + ": prefix length " + std::to_string(lpm.prefix_length()) +
                   " is beyond the " + std::to_string(field.width) + " bits of the field");
  }
  grpc::Status status = checkValue(what, field.width, lpm.value());
  if (!status.ok()) return status;
  std::vector<uint8_t> mask(field.value_bytes);
  writePrefixMask(mask.data(), field.width, lpm.prefix_length());
  copyTo(packed, lpm.value());
  keepMasked(mask.data(), field.value_bytes, packed);
  packed[field.value_bytes] = static_cast<uint8_t>(lpm.prefix_length());
  return status;
}

grpc::Status packTernary(const std::string& what, const KeyField& field,
                         const pb::KeyField::Ternary& ternary, uint8_t* packed) {
  grpc::Status status = checkValue(what, field.width, ternary.value());
  if (status.ok()) status = checkValue(what + " (mask)", field.width, ternary.mask());
  if (!status.ok()) return status;
  uint8_t* const mask = packed + field.value_bytes;
  copyTo(packed, ternary.value());
  copyTo(mask, ternary.mask());
  keepMasked(mask, field.value_bytes, packed);
  return status;
}

grpc::Status packRange(const std::string& what, const KeyField& field,
                       const pb::KeyField::Range& range, uint8_t* packed) {
  grpc::Status status = checkValue(what, field.width, range.low());
  if (status.ok()) status = checkValue(what, field.width, range.high());
  if (!status.ok()) return status;
  if (range.low() > range.high()) {
    return invalid(what + ": the range begins at " + hex(range.low()) + ", above its end " +
                   hex(range.high()));
  }
  copyTo(packed, range.low());
  copyTo(packed + field.value_bytes, range.high());
  return status;
}

grpc::Status packOptional(const std::string& what, const KeyField& field,
                          const pb::KeyField::Optional& optional, uint8_t* packed) {
  packed[field.value_bytes] = optional.valid() ? 1 : 0;
  if (!optional.valid()) return grpc::Status::OK;
  grpc::Status status = checkValue(what, field.width, optional.value());
  if (status.ok()) copyTo(packed, optional.value());
  return status;
}

grpc::Status packField(const std::string& what, const KeyField& field, const pb::KeyField& value,
                       uint8_t* packed) {
  if (!ofKind(value, field.match)) return invalid(what + " takes " + nameOf(field.match));
  switch (field.match) {
    case JX_RT_MATCH_LPM:
      return packLpm(what, field, value.lpm(), packed);
    case JX_RT_MATCH_TERNARY:
      return packTernary(what, field, value.ternary(), packed);
    case JX_RT_MATCH_RANGE:
      return packRange(what, field, value.range(), packed);
    case JX_RT_MATCH_OPTIONAL:
      return packOptional(what, field, value.optional(), packed);
    default:
      break;
  }
  grpc::Status status = checkValue(what, field.width, value.exact());
  if (status.ok()) copyTo(packed, value.exact());
  return status;
}

grpc::Status packKey(const Table& table, const Change::AddEntry& change,
                     std::vector<uint8_t>* key) {
  if (change.key_size() != static_cast<int>(table.key.size())) {
    return invalid("table " + table.name + " has " + std::to_string(table.key.size()) +
                   " key fields, not " + std::to_string(change.key_size()));
  }
  key->assign(table.key_bytes, 0);
  for (size_t i = 0; i < table.key.size(); ++i) {
    const KeyField& field = table.key[i];
    grpc::Status status = packField("table " + table.name + ", key " + field.name, field,
                                    change.key(static_cast<int>(i)), key->data() + field.offset);
    if (!status.ok()) return status;
  }
  return grpc::Status::OK;
}

/// What an entry does, as placement operations say it.
struct PackedResult {
  uint32_t action_id = 0;
  std::vector<uint8_t> params;
  uint32_t member = 0, group = 0;  // handles
};

const Action* actionOf(const TableState& owner, const std::string& name) {
  for (const uint32_t index : owner.table->actions) {
    if (owner.program->actions[index].name == name) return &owner.program->actions[index];
  }
  return nullptr;
}

grpc::Status packAction(const TableState& owner, const Change::Result& result, PackedResult* out) {
  const std::string& table = owner.table->name;
  const Action* const action = actionOf(owner, result.action());
  if (action == nullptr) {
    return {StatusCode::NOT_FOUND, "table " + table + " has no action " + result.action()};
  }
  if (result.params_size() != static_cast<int>(action->params.size())) {
    return invalid("action " + action->name + " of table " + table + " takes " +
                   std::to_string(action->params.size()) + " values, not " +
                   std::to_string(result.params_size()));
  }
  out->action_id = action->id;
  out->params.assign(action->param_bytes, 0);
  for (size_t i = 0; i < action->params.size(); ++i) {
    const Param& param = action->params[i];
    const std::string& value = result.params(static_cast<int>(i));
    grpc::Status status =
        checkValue("action " + action->name + ", " + param.name, param.width, value);
    if (!status.ok()) return status;
    copyTo(out->params.data() + param.offset, value);
  }
  return grpc::Status::OK;
}

/// The device's mutex is held.
grpc::Status packResult(const TableState& state, const Change::Result& result, PackedResult* out) {
  const std::string& table = state.table->name;
  if (state.member_state == nullptr) {
    if (result.has_member() || result.has_group()) {
      return invalid("table " + table + " has actions of its own: give one of them");
    }
    return packAction(state, result, out);
  }
  if (result.has_member() == result.has_group() || !result.action().empty()) {
    return invalid("entries of table " + table + " refer to a member of " +
                   state.member_state->table->name + " or a group: give one of them");
  }
  if (result.has_member()) return memberOf(*state.member_state, result.member(), &out->member);
  if (state.group_state == nullptr) {
    return invalid("table " + table + " has no groups: give a member of " +
                   state.member_state->table->name);
  }
  return groupOf(*state.group_state, result.group(), &out->group);
}

/// The lowest free handle from `first` on.
template <typename Entries>
uint32_t freeHandle(const Entries& entries, uint32_t first) {
  uint32_t handle = first == 0 ? kFirstOperatorHandle : first;
  while (handle < kLastHandle && entries.findHandle(handle) != kNoSlot) ++handle;
  return handle;
}

/// The handle of the default entry: the one that it has, or one that no entry gets.
uint32_t defaultHandle(const MatchTable& table) {
  if (table.defaultEntry() != kNoSlot) return table.handleOf(table.defaultEntry());
  uint32_t handle = kLastHandle;
  while (table.findHandle(handle) != kNoSlot) --handle;
  return handle;
}

/// An operation on the table with what an entry does.
pipe_plcmt_info operation(const Table& table, PlcmtOp op, uint32_t handle,
                          const PackedResult& result) {
  pipe_plcmt_info info;
  info.op = op;
  info.handle = handle;
  info.adt_ent_hdl = result.member;
  info.sel_grp_hdl = result.group;
  info.placement.header.table_handle = table.handle;
  info.placement.header.action_id = result.action_id;
  info.placement.header.param_bytes = static_cast<uint16_t>(result.params.size());
  info.placement.params = result.params.data();
  return info;
}

/// What a table answers that refuses an operation that is well formed.
grpc::Status explain(const Table& table, const std::string& what, jx_status_t status) {
  const std::string name = "table " + table.name;
  switch (status) {
    case JX_SUCCESS:
      return grpc::Status::OK;
    case JX_ALREADY_EXISTS:
      return {StatusCode::ALREADY_EXISTS,
              name + " has " + what + " already: delete that one first"};
    case JX_NOT_ENOUGH_SPACE:
      return {StatusCode::RESOURCE_EXHAUSTED,
              name + " is full: it has room for " + std::to_string(table.size) + " entries"};
    case JX_ACTION_DATA_REFERENCED:
    case JX_IN_USE:
      return refused(name + ": " + what + " is in use: delete first what refers to it");
    default:
      break;
  }
  const char* text = "";
  jx_rt_err_str(status, &text);
  return refused(name + " does not take " + what + ": " + text);
}

grpc::Status notOfKind(const Table& table, const std::string& kind) {
  return invalid("table " + table.name + " is no " + kind);
}

std::string tooMany(const char* kind, const std::string& table, uint32_t id) {
  return std::string(kind) + ' ' + std::to_string(id) + " exists several times in " + table +
         ", made by different writers: choose another number";
}

/// The handle of the only one that has this id.
template <typename Entries, typename IdOf>
grpc::Status onlyOne(const Entries& entries, IdOf id_of, const char* kind, const std::string& table,
                     uint32_t id, uint32_t* handle) {
  uint32_t found = 0;
  for (uint32_t slot = 0; slot < entries.end(); ++slot) {
    if (!entries.used(slot) || id_of(slot) != id) continue;
    if (found != 0) return invalid(tooMany(kind, table, id));
    found = entries.handleOf(slot);
  }
  if (found == 0) {
    return {StatusCode::NOT_FOUND, std::string(kind) + ' ' + std::to_string(id) +
                                       " does not exist in " + table + ": add it first"};
  }
  *handle = found;
  return grpc::Status::OK;
}

/// A table holds one entry per key. Of two with different priorities only the greater can match, so
/// the entry at `slot` becomes that one.
grpc::Status outrank(TableState& state, uint32_t slot, pipe_plcmt_info info) {
  if (info.priority < state.match->priorityOf(slot)) return grpc::Status::OK;
  info.handle = state.match->handleOf(slot);
  for (const PlcmtOp op : {PlcmtOp::kMatModify, PlcmtOp::kMatMove}) {
    info.op = op;
    const jx_status_t status = processPlacement(state, info);
    if (status != JX_SUCCESS) return explain(*state.table, "this entry", status);
  }
  return grpc::Status::OK;
}

}  // namespace

grpc::Status memberOf(const TableState& members, uint32_t id, uint32_t* handle) {
  const ActionDataTable& entries = *members.members;
  return onlyOne(
      entries, [&](uint32_t slot) { return entries.idOf(slot); }, "member", members.table->name, id,
      handle);
}

grpc::Status groupOf(const TableState& groups, uint32_t id, uint32_t* handle) {
  const SelectorTable& entries = *groups.groups;
  return onlyOne(
      entries, [&](uint32_t slot) { return entries.group(slot).id; }, "group", groups.table->name,
      id, handle);
}

grpc::Status OperatorWrites::add(const Change::AddEntry& change, uint32_t* handle) {
  const Table& table = *state_.table;
  if (state_.match == nullptr) return notOfKind(table, "match table");
  if (table.constant_entries) {
    return refused("table " + table.name + " has constant entries: the program allows no others");
  }
  if (table.key.empty()) {
    return refused("table " + table.name + " has no key and takes no entries: set its default");
  }
  if (change.priority() != 0 && !table.has_priority) {
    return invalid("entries of table " + table.name + " have no priority: leave out " +
                   std::to_string(change.priority()));
  }
  std::vector<uint8_t> key;
  grpc::Status packed = packKey(table, change, &key);
  if (!packed.ok()) return packed;
  const MutexLock lock(device_.mutex());
  PackedResult result;
  packed = packResult(state_, change.result(), &result);
  if (!packed.ok()) return packed;
  const uint32_t first = change.first_handle() == 0 ? kFirstOperatorHandle : change.first_handle();
  *handle = freeHandle(*state_.match, first);
  pipe_plcmt_info info = operation(table, PlcmtOp::kMatAdd, *handle, result);
  info.priority = change.priority();
  info.placement.key = key.data();
  info.placement.header.key_bytes = static_cast<uint16_t>(key.size());
  const uint32_t slot = state_.match->findKey(key.data());
  if (slot != kNoSlot && state_.match->priorityOf(slot) != info.priority &&
      state_.match->handleOf(slot) >= first) {
    *handle = state_.match->handleOf(slot);
    return outrank(state_, slot, info);
  }
  return explain(table, "an entry with this key", processPlacement(state_, info));
}

grpc::Status OperatorWrites::remove(uint32_t handle) {
  pipe_plcmt_info info;
  info.handle = handle;
  info.op = state_.match != nullptr     ? PlcmtOp::kMatDelete
            : state_.members != nullptr ? PlcmtOp::kAdtDelete
                                        : PlcmtOp::kSelDestroy;
  const std::string what = "the entry of handle " + std::to_string(handle);
  const MutexLock lock(device_.mutex());
  const jx_status_t status = processPlacement(state_, info);
  if (status != JX_OBJECT_NOT_FOUND) return explain(*state_.table, what, status);
  return {StatusCode::NOT_FOUND,
          "table " + state_.table->name + " has no entry of handle " + std::to_string(handle)};
}

grpc::Status OperatorWrites::setDefault(const Change::SetDefault& change) {
  const Table& table = *state_.table;
  if (state_.match == nullptr) return notOfKind(table, "match table");
  if (table.constant_default) {
    return refused("table " + table.name + " has a constant default: the program sets it");
  }
  const MutexLock lock(device_.mutex());
  PackedResult result;
  grpc::Status packed = packResult(state_, change.result(), &result);
  if (!packed.ok()) return packed;
  const auto info = operation(table, PlcmtOp::kMatSetDefault, defaultHandle(*state_.match), result);
  return explain(table, "this default", processPlacement(state_, info));
}

grpc::Status OperatorWrites::addMember(const Change::AddMember& change, uint32_t* handle) {
  const Table& table = *state_.table;
  if (state_.members == nullptr) return notOfKind(table, "action-data table");
  PackedResult result;
  grpc::Status packed = packAction(state_, change.result(), &result);
  if (!packed.ok()) return packed;
  const MutexLock lock(device_.mutex());
  uint32_t taken = 0;
  if (memberOf(state_, change.id(), &taken).error_code() != StatusCode::NOT_FOUND) {
    return explain(table, "member " + std::to_string(change.id()), JX_ALREADY_EXISTS);
  }
  *handle = freeHandle(*state_.members, 0);
  pipe_plcmt_info info = operation(table, PlcmtOp::kAdtAdd, *handle, result);
  info.placement.header.target_id = change.id();
  return explain(table, "member " + std::to_string(change.id()), processPlacement(state_, info));
}

grpc::Status OperatorWrites::addGroup(const Change::AddGroup& change, uint32_t* handle) {
  const Table& table = *state_.table;
  if (state_.groups == nullptr) return notOfKind(table, "selector table");
  if (change.members_size() > static_cast<int>(table.max_members)) {
    return invalid("group " + std::to_string(change.id()) + " of table " + table.name + " has " +
                   std::to_string(change.members_size()) + " members, at most " +
                   std::to_string(table.max_members) + " are possible");
  }
  const std::string name = "group " + std::to_string(change.id());
  const MutexLock lock(device_.mutex());
  uint32_t taken = 0;
  if (groupOf(state_, change.id(), &taken).error_code() != StatusCode::NOT_FOUND) {
    return explain(table, name, JX_ALREADY_EXISTS);
  }
  std::vector<pipe_sel_element> elements;
  for (const uint32_t id : change.members()) {
    uint32_t member = 0;
    grpc::Status found = memberOf(*state_.member_state, id, &member);
    if (!found.ok()) return found;
    elements.push_back({member, 1});
  }
  *handle = freeHandle(*state_.groups, 0);
  pipe_plcmt_info info;
  info.op = PlcmtOp::kSelCreate;
  info.handle = *handle;
  info.group_id = change.id();
  info.adt_tbl_hdl = state_.member_state->table->handle;
  info.num_elements = static_cast<uint32_t>(elements.size());
  info.elements = elements.data();
  return explain(table, name + " with these members", processPlacement(state_, info));
}

grpc::Status OperatorWrites::writeCounter(const Change::WriteCounter& change) {
  const Table& table = *state_.table;
  if (state_.counters == nullptr) return notOfKind(table, "counter table");
  if (change.index() >= state_.counters->size()) {
    return invalid("counter table " + table.name + " has no index " +
                   std::to_string(change.index()) + ": its last one is " +
                   std::to_string(state_.counters->size() - 1));
  }
  state_.counters->exchange(change.index(), {change.value().packets(), change.value().bytes()});
  return grpc::Status::OK;
}

}  // namespace jxmodel::control
