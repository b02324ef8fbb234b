#include "unit/model/model_device.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>

#include "jxsdk/drv.h"
#include "model/runtime/rt_info.h"

namespace jxmodeltest {
namespace {

using jxmodel::Action;
using jxmodel::BoundAction;
using jxmodel::MatchResult;
using jxmodel::TableState;

constexpr const char* kEveryKind = R"({
  "name": "every_kind", "id": 77,
  "fields": [
    {"name": "meta.ingress_port", "width": 9}, {"name": "ethernet.dst", "width": 48},
    {"name": "ipv4.src", "width": 32}, {"name": "ipv4.dst", "width": 32},
    {"name": "ipv6.dst", "width": 128}, {"name": "l4.sport", "width": 16},
    {"name": "l4.dport", "width": 16}],
  "actions": [
    {"name": "nop", "params": [], "body": []},
    {"name": "send", "params": [{"name": "port", "width": 9}, {"name": "mac", "width": 48},
                                {"name": "mark", "width": 32, "default": 5}],
     "body": [{"op": "forward", "port": {"param": "port"}}]}],
  "tables": [
    {"name": "exact", "kind": "match", "size": 8, "idle_timeout": true,
     "key": [{"field": "ethernet.dst", "match": "exact"},
             {"field": "meta.ingress_port", "match": "exact"}],
     "actions": ["nop", "send"], "default": {"action": "nop"}},
    {"name": "lpm", "kind": "match", "size": 64,
     "key": [{"field": "ipv4.dst", "match": "lpm"}], "action_data": "members",
     "selector": "groups"},
    {"name": "via_member", "kind": "match", "size": 64,
     "key": [{"field": "meta.ingress_port", "match": "exact"}, {"field": "ipv6.dst", "match": "lpm"}],
     "action_data": "members"},
    {"name": "acl", "kind": "match", "size": 1024,
     "key": [{"field": "ipv4.src", "match": "ternary"},
             {"field": "l4.sport", "match": "range"}, {"field": "l4.dport", "match": "optional"}],
     "actions": ["nop", "send"]},
    {"name": "members", "kind": "action_data", "size": 16, "actions": ["nop", "send"]},
    {"name": "groups", "kind": "selector", "size": 4, "action_data": "members", "max_members": 6,
     "hash": ["ipv4.src"]},
    {"name": "counters", "kind": "counter", "size": 32}],
  "control": []
})";

std::string hex(const uint8_t* bytes, size_t count) {
  static const char kDigits[] = "0123456789abcdef";
  std::string text;
  for (size_t i = 0; i < count; ++i) {
    text += kDigits[bytes[i] >> 4];
    text += kDigits[bytes[i] & 15];
  }
  return text;
}

std::string number(uint64_t value) { return std::to_string(value); }

std::string show(const BoundAction& action) {
  return action.action->name + "(" + hex(action.params, action.action->param_bytes) + ")";
}

std::string show(const TableState& state, const MatchResult& result) {
  switch (result.kind) {
    case MatchResult::Kind::kAction:
      return show(result.action);
    case MatchResult::Kind::kMember: {
      const auto& members = *state.member_state->members;
      return "member " + number(members.handleOf(result.slot)) + "/" +
             number(members.idOf(result.slot));
    }
    case MatchResult::Kind::kGroup: {
      const auto& groups = *state.group_state->groups;
      return "group " + number(groups.handleOf(result.slot)) + "/" +
             number(groups.group(result.slot).id);
    }
  }
  return {};
}

void dumpMatch(const TableState& state, std::vector<std::string>* lines) {
  const auto& table = *state.match;
  for (uint32_t slot = 0; slot < table.end(); ++slot) {
    if (!table.used(slot)) continue;
    lines->push_back(number(table.handleOf(slot)) + " key " +
                     hex(table.keyOf(slot), table.codec().keyBytes()) + " priority " +
                     number(table.priorityOf(slot)) + " ttl " + number(table.ttlOf(slot)) + " " +
                     show(state, table.resultOf(slot)));
  }
  const uint32_t set = table.defaultEntry();
  if (set == jxmodel::kNoSlot) return;
  lines->push_back("default " + number(table.handleOf(set)) + " " +
                   show(state, table.resultOf(set)));
}

void dumpMembers(const TableState& state, std::vector<std::string>* lines) {
  const auto& table = *state.members;
  for (uint32_t slot = 0; slot < table.end(); ++slot) {
    if (!table.used(slot)) continue;
    lines->push_back(number(table.handleOf(slot)) + "/" + number(table.idOf(slot)) + " " +
                     show(table.actionOf(slot)));
  }
}

void dumpGroups(const TableState& state, std::vector<std::string>* lines) {
  const auto& table = *state.groups;
  for (uint32_t slot = 0; slot < table.end(); ++slot) {
    if (!table.used(slot)) continue;
    const auto& group = table.group(slot);
    std::string line = number(group.handle) + "/" + number(group.id) + " max " +
                       number(group.max_members) + " members";
    for (const auto& member : group.members) {
      line += " " + number(table.memberTable().handleOf(member.slot)) + (member.active ? "+" : "-");
    }
    lines->push_back(line);
  }
  if (table.fallback() == jxmodel::kNoSlot) return;
  lines->push_back("fallback " + number(table.memberTable().handleOf(table.fallback())));
}

void orDie(bool condition, const std::string& what) {
  if (condition) return;
  std::fprintf(stderr, "%s\n", what.c_str());
  std::abort();
}

}  // namespace

void bringSdkUp() {
  orDie(jx_drv_init() == JX_SUCCESS && pipe_mgr_init() == JX_SUCCESS &&
            jx_rt_module_init(0, 0, nullptr, nullptr) == JX_SUCCESS,
        "the SDK does not come up");
}

std::shared_ptr<const jxmodel::Program> delivered(const std::string& name) {
  jxmodel::LoadError error;
  auto program = jxmodel::loadProgramJson(JEX_PROGRAMS_DIR "/" + name + ".json", &error);
  orDie(program != nullptr, error.text());
  return program;
}

std::shared_ptr<const jxmodel::Program> everyKind() {
  jxmodel::LoadError error;
  auto program = jxmodel::parseProgramJson(kEveryKind, "every_kind", &error);
  orDie(program != nullptr, error.text());
  return program;
}

ModelDevice::ModelDevice(jx_dev_id_t id, Kind kind,
                         std::vector<std::shared_ptr<const jxmodel::Program>> programs,
                         uint32_t handle_base)
    : session_(jxrt::JxRtSession::sessionCreate()) {
  bringSdkUp();
  std::string error;
  device_ = jxmodel::Device::create(id, kind, std::move(programs), handle_base, &error);
  orDie(device_ != nullptr, error);
  orDie(jxmodel::DeviceRegistry::instance().add(device_) == JX_SUCCESS, "device number taken");
}

ModelDevice::~ModelDevice() { jx_device_remove(device_->id()); }

std::vector<const jxrt::JxRtTable*> ModelDevice::tables() const {
  std::vector<const jxrt::JxRtTable*> all;
  for (const auto& info : device_->infos()) {
    std::vector<const jxrt::JxRtTable*> some;
    info->tablesGet(&some);
    all.insert(all.end(), some.begin(), some.end());
  }
  return all;
}

const jxrt::JxRtTable& ModelDevice::table(const std::string& name) const {
  for (const jxrt::JxRtTable* table : tables()) {
    std::string table_name;
    table->tableNameGet(&table_name);
    if (table_name == name) return *table;
  }
  orDie(false, "no table " + name);
  std::abort();
}

jxmodel::TableState& ModelDevice::state(const std::string& name) const {
  pipe_tbl_hdl_t handle = 0;
  table(name).tableHandleGet(&handle);
  return *device_->findTable(handle);
}

std::vector<std::string> ModelDevice::dump() const {
  std::vector<std::string> all;
  const jxmodel::MutexLock lock(device_->mutex());
  for (const auto& info : device_->infos()) {
    for (const TableState* state : info->states()) {
      std::vector<std::string> lines;
      if (state->match) dumpMatch(*state, &lines);
      if (state->members) dumpMembers(*state, &lines);
      if (state->groups) dumpGroups(*state, &lines);
      std::sort(lines.begin(), lines.end());
      for (const std::string& line : lines) {
        all.push_back(info->program().name + "." + state->table->name + ": " + line);
      }
    }
  }
  return all;
}

TableUser::KeyPtr TableUser::key() const {
  KeyPtr made;
  EXPECT_EQ(table_.keyAllocate(&made), JX_SUCCESS);
  return made;
}

TableUser::KeyPtr TableUser::key(uint64_t value) const {
  KeyPtr made = key();
  EXPECT_EQ(made->setValue(1, value), JX_SUCCESS);
  return made;
}

TableUser::KeyPtr TableUser::prefix(uint64_t value, uint16_t length) const {
  KeyPtr made = key();
  EXPECT_EQ(made->setValueLpm(1, value, length), JX_SUCCESS);
  return made;
}

TableUser::DataPtr TableUser::data() const {
  DataPtr made;
  EXPECT_EQ(table_.dataAllocate(&made), JX_SUCCESS);
  return made;
}

TableUser::DataPtr TableUser::data(const std::string& action,
                                   const std::vector<uint64_t>& values) const {
  uint32_t action_id = 0;
  EXPECT_EQ(table_.actionIdGet(action, &action_id), JX_SUCCESS);
  DataPtr made;
  EXPECT_EQ(table_.dataAllocate(action_id, &made), JX_SUCCESS);
  for (uint32_t i = 0; i < values.size(); ++i) {
    EXPECT_EQ(made->setValue(i + 1, values[i]), JX_SUCCESS);
  }
  return made;
}

TableUser::DataPtr TableUser::data(uint32_t field, uint64_t value) const {
  DataPtr made = data();
  EXPECT_EQ(made->setValue(field, value), JX_SUCCESS);
  return made;
}

TableUser::DataPtr TableUser::members(const std::vector<uint32_t>& ids) const {
  DataPtr made = data();
  EXPECT_EQ(made->setValue(jxmodel::kFieldMembers, ids), JX_SUCCESS);
  return made;
}

TableUser::DataPtr TableUser::members(const std::vector<uint32_t>& ids,
                                      const std::vector<bool>& active) const {
  DataPtr made = members(ids);
  EXPECT_EQ(made->setValue(jxmodel::kFieldMembersActive, active), JX_SUCCESS);
  return made;
}

jx_status_t TableUser::add(const KeyPtr& key, const DataPtr& data) const {
  return table_.tableEntryAdd(device_.session(), device_.target(), 0, *key, *data);
}

jx_status_t TableUser::mod(const KeyPtr& key, const DataPtr& data) const {
  return table_.tableEntryMod(device_.session(), device_.target(), 0, *key, *data);
}

jx_status_t TableUser::move(const KeyPtr& key) const {
  return table_.tableEntryMove(device_.session(), device_.target(), 0, *key);
}

jx_status_t TableUser::del(const KeyPtr& key) const {
  return table_.tableEntryDel(device_.session(), device_.target(), 0, *key);
}

jx_status_t TableUser::get(const KeyPtr& key, const DataPtr& data) const {
  return table_.tableEntryGet(device_.session(), device_.target(), 0, *key, data.get());
}

jx_status_t TableUser::setDefault(const DataPtr& data) const {
  return table_.tableDefaultEntrySet(device_.session(), device_.target(), 0, *data);
}

jx_status_t TableUser::clearDefault() const {
  return table_.tableDefaultEntryClear(device_.session(), device_.target(), 0);
}

jx_status_t TableUser::getDefault(const DataPtr& data) const {
  return table_.tableDefaultEntryGet(device_.session(), device_.target(), 0, data.get());
}

jx_status_t TableUser::groupAdd(uint32_t group, uint32_t member) const {
  return table_.groupMemberAdd(device_.session(), device_.target(), group, member);
}

jx_status_t TableUser::groupDel(uint32_t group, uint32_t member) const {
  return table_.groupMemberDel(device_.session(), device_.target(), group, member);
}

jx_status_t TableUser::groupActivate(uint32_t group, uint32_t member) const {
  return table_.groupMemberActivate(device_.session(), device_.target(), group, member);
}

jx_status_t TableUser::groupDeactivate(uint32_t group, uint32_t member) const {
  return table_.groupMemberDeactivate(device_.session(), device_.target(), group, member);
}

jx_status_t TableUser::setFallback(uint32_t member) const {
  return table_.fallbackSet(device_.session(), device_.target(), member);
}

jx_status_t TableUser::clearFallback() const {
  return table_.fallbackClear(device_.session(), device_.target());
}

uint32_t TableUser::usage() const {
  uint32_t count = 0;
  EXPECT_EQ(table_.tableUsageGet(device_.session(), device_.target(), 0, &count), JX_SUCCESS);
  return count;
}

uint32_t TableUser::handle(const KeyPtr& key) const {
  uint32_t found = 0;
  table_.tableEntryHandleGet(device_.session(), device_.target(), *key, &found);
  return found;
}

}  // namespace jxmodeltest
