// Facts of tables, and the objects that belong to them.
#include "model/runtime/rt_table.h"

#include <typeinfo>
#include <utility>

#include "model/base/faults.h"
#include "model/runtime/rt_info.h"

namespace jxmodel {
namespace {

jxrt::JxRtFieldInfo fieldInfo(const KeyField& field) {
  return {field.id, field.name, field.width, field.match};
}

jxrt::JxRtFieldInfo fieldInfo(const Param& param) {
  return {param.id, param.name, param.width, JX_RT_MATCH_INVALID};
}

}  // namespace

RtTable::RtTable(const DeviceCore& device, const RtInfo& info, TableState& state, Shape shape)
    : device_(device), info_(info), state_(state), codec_(*state.table), shape_(std::move(shape)) {}

bool RtTable::hasDataField(uint32_t field_id) const {
  for (const DataField& field : shape_.data_fields) {
    if (field.id == field_id) return true;
  }
  return false;
}

jx_status_t RtTable::tableIdGet(uint32_t* id) const {
  JXMODEL_ENTRY("JxRtTable::tableIdGet");
  if (id == nullptr) return JX_INVALID_ARGUMENTS;
  *id = description().id;
  return JX_SUCCESS;
}

jx_status_t RtTable::tableNameGet(std::string* name) const {
  JXMODEL_ENTRY("JxRtTable::tableNameGet");
  if (name == nullptr) return JX_INVALID_ARGUMENTS;
  *name = description().name;
  return JX_SUCCESS;
}

jx_status_t RtTable::tableTypeGet(jx_rt_table_type_t* type) const {
  JXMODEL_ENTRY("JxRtTable::tableTypeGet");
  if (type == nullptr) return JX_INVALID_ARGUMENTS;
  *type = description().type;
  return JX_SUCCESS;
}

jx_status_t RtTable::tableHandleGet(pipe_tbl_hdl_t* handle) const {
  JXMODEL_ENTRY("JxRtTable::tableHandleGet");
  if (handle == nullptr) return JX_INVALID_ARGUMENTS;
  *handle = description().handle;
  return JX_SUCCESS;
}

jx_status_t RtTable::keyFieldListGet(std::vector<jxrt::JxRtFieldInfo>* fields) const {
  JXMODEL_ENTRY("JxRtTable::keyFieldListGet");
  if (fields == nullptr) return JX_INVALID_ARGUMENTS;
  fields->clear();
  for (const KeyField& field : description().key) fields->push_back(fieldInfo(field));
  return JX_SUCCESS;
}

jx_status_t RtTable::keyFieldIdGet(const std::string& name, uint32_t* id) const {
  JXMODEL_ENTRY("JxRtTable::keyFieldIdGet");
  if (id == nullptr) return JX_INVALID_ARGUMENTS;
  for (const KeyField& field : description().key) {
    if (field.name != name) continue;
    *id = field.id;
    return JX_SUCCESS;
  }
  return JX_OBJECT_NOT_FOUND;
}

jx_status_t RtTable::dataFieldListGet(std::vector<jxrt::JxRtFieldInfo>* fields) const {
  JXMODEL_ENTRY("JxRtTable::dataFieldListGet");
  if (fields == nullptr) return JX_INVALID_ARGUMENTS;
  fields->clear();
  for (const DataField& field : shape_.data_fields) {
    fields->push_back({field.id, field.name, field.width, JX_RT_MATCH_INVALID});
  }
  return JX_SUCCESS;
}

jx_status_t RtTable::commonFieldId(const std::string& name, uint32_t* id) const {
  for (const DataField& field : shape_.data_fields) {
    if (name != field.name) continue;
    *id = field.id;
    return JX_SUCCESS;
  }
  return JX_OBJECT_NOT_FOUND;
}

jx_status_t RtTable::dataFieldIdGet(const std::string& name, uint32_t* id) const {
  JXMODEL_ENTRY("JxRtTable::dataFieldIdGet");
  return id == nullptr ? JX_INVALID_ARGUMENTS : commonFieldId(name, id);
}

jx_status_t RtTable::dataFieldIdGet(const std::string& name, uint32_t action_id,
                                    uint32_t* id) const {
  JXMODEL_ENTRY("JxRtTable::dataFieldIdGet");
  if (id == nullptr) return JX_INVALID_ARGUMENTS;
  const Action* const action = ownsActions() ? state_.actionById(action_id) : nullptr;
  if (action == nullptr) return JX_OBJECT_NOT_FOUND;
  for (const Param& param : action->params) {
    if (param.name != name) continue;
    *id = param.id;
    return JX_SUCCESS;
  }
  return commonFieldId(name, id);  // a field beside the action's, such as $TTL
}

jx_status_t RtTable::actionListGet(std::vector<jxrt::JxRtActionInfo>* actions) const {
  JXMODEL_ENTRY("JxRtTable::actionListGet");
  if (actions == nullptr) return JX_INVALID_ARGUMENTS;
  actions->clear();
  if (!ownsActions()) return JX_SUCCESS;
  for (const uint32_t index : description().actions) {
    const Action& action = state_.program->actions[index];
    jxrt::JxRtActionInfo info{action.id, action.name, {}};
    for (const Param& param : action.params) info.params.push_back(fieldInfo(param));
    actions->push_back(std::move(info));
  }
  return JX_SUCCESS;
}

jx_status_t RtTable::actionIdGet(const std::string& name, uint32_t* id) const {
  JXMODEL_ENTRY("JxRtTable::actionIdGet");
  if (id == nullptr) return JX_INVALID_ARGUMENTS;
  if (!ownsActions()) return JX_OBJECT_NOT_FOUND;
  for (const uint32_t index : description().actions) {
    const Action& action = state_.program->actions[index];
    if (action.name != name) continue;
    *id = action.id;
    return JX_SUCCESS;
  }
  return JX_OBJECT_NOT_FOUND;
}

jx_status_t RtTable::actionDataTableGet(const jxrt::JxRtTable** table) const {
  if (table == nullptr) return JX_INVALID_ARGUMENTS;
  JXMODEL_ENTRY_OUT("JxRtTable::actionDataTableGet", table);
  const auto& behind = description().action_data_table;
  *table = behind ? &info_.table(*behind) : nullptr;
  return JX_SUCCESS;
}

jx_status_t RtTable::selectorTableGet(const jxrt::JxRtTable** table) const {
  if (table == nullptr) return JX_INVALID_ARGUMENTS;
  JXMODEL_ENTRY_OUT("JxRtTable::selectorTableGet", table);
  const auto& behind = description().selector_table;
  *table = behind ? &info_.table(*behind) : nullptr;
  return JX_SUCCESS;
}

jx_status_t RtTable::keyAllocate(std::unique_ptr<jxrt::JxRtTableKey>* key) const {
  if (key == nullptr) return JX_INVALID_ARGUMENTS;
  JXMODEL_ENTRY_OUT("JxRtTable::keyAllocate", key);
  *key = std::make_unique<RtTableKey>(*this);
  return JX_SUCCESS;
}

jx_status_t RtTable::keyReset(jxrt::JxRtTableKey* key) const {
  JXMODEL_ENTRY("JxRtTable::keyReset");
  RtTableKey* const mine = own(key);
  if (mine == nullptr) return JX_INVALID_ARGUMENTS;
  mine->reset();
  return JX_SUCCESS;
}

jx_status_t RtTable::dataAllocate(std::unique_ptr<jxrt::JxRtTableData>* data) const {
  if (data == nullptr) return JX_INVALID_ARGUMENTS;
  JXMODEL_ENTRY_OUT("JxRtTable::dataAllocate", data);
  *data = std::make_unique<RtTableData>(*this, nullptr);
  return JX_SUCCESS;
}

jx_status_t RtTable::dataAllocate(uint32_t action_id,
                                  std::unique_ptr<jxrt::JxRtTableData>* data) const {
  if (data == nullptr) return JX_INVALID_ARGUMENTS;
  JXMODEL_ENTRY_OUT("JxRtTable::dataAllocate", data);
  if (!ownsActions()) return JX_NOT_SUPPORTED;
  const Action* const action = state_.actionById(action_id);
  if (action == nullptr) return JX_INVALID_ARGUMENTS;
  *data = std::make_unique<RtTableData>(*this, action);
  return JX_SUCCESS;
}

jx_status_t RtTable::dataReset(jxrt::JxRtTableData* data) const {
  JXMODEL_ENTRY("JxRtTable::dataReset");
  RtTableData* const mine = own(data);
  if (mine == nullptr) return JX_INVALID_ARGUMENTS;
  mine->reset(mine->allocatedAction());
  return JX_SUCCESS;
}

jx_status_t RtTable::dataReset(uint32_t action_id, jxrt::JxRtTableData* data) const {
  JXMODEL_ENTRY("JxRtTable::dataReset");
  RtTableData* const mine = own(data);
  if (mine == nullptr) return JX_INVALID_ARGUMENTS;
  if (!ownsActions()) return JX_NOT_SUPPORTED;
  const Action* const action = state_.actionById(action_id);
  if (action == nullptr) return JX_INVALID_ARGUMENTS;
  mine->reset(action);
  return JX_SUCCESS;
}

jx_status_t RtTable::boundActionOf(const RtTableData& data, BoundAction* action) {
  if (data.action() == nullptr || !data.complete()) return JX_INVALID_ARGUMENTS;
  *action = {data.action(), data.params()};
  return JX_SUCCESS;
}

const RtTableKey* RtTable::own(const jxrt::JxRtTableKey& key) const {
  // Keys are made by tables alone.
  const auto& mine = static_cast<const RtTableKey&>(key);
  return &mine.table() == this ? &mine : nullptr;
}

const RtTableData* RtTable::own(const jxrt::JxRtTableData& data) const {
  if (typeid(data) != typeid(RtTableData)) return nullptr;  // a digest's
  const auto& mine = static_cast<const RtTableData&>(data);
  return &mine.table() == this ? &mine : nullptr;
}

RtTableKey* RtTable::own(jxrt::JxRtTableKey* key) const {
  return key == nullptr ? nullptr : const_cast<RtTableKey*>(own(*key));
}

RtTableData* RtTable::own(jxrt::JxRtTableData* data) const {
  return data == nullptr ? nullptr : const_cast<RtTableData*>(own(*data));
}

jx_status_t RtTable::checkTarget(const jx_rt_target_t& target) const {
  return target.dev_id == device_.id() ? JX_SUCCESS : JX_INVALID_ARGUMENTS;
}

}  // namespace jxmodel
