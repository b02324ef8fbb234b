#include "request.h"

#include "command_error.h"

namespace jexapps {
namespace {

const jxrt::JxRtFieldInfo* findParam(const TableFacts& facts, const std::string& action_name,
                                     std::string_view name) {
  const jxrt::JxRtActionInfo* action = facts.action(action_name);
  if (action == nullptr) return nullptr;
  for (const jxrt::JxRtFieldInfo& param : action->params) {
    if (param.name == name) return &param;
  }
  return nullptr;
}

void setParam(const TableFacts& facts, const jxrt::JxRtFieldInfo& param, const std::string& text,
              jxrt::JxRtTableData* data) {
  Bytes value;
  std::string error;
  if (!parseValue(text, {param.name, param.width}, &value, &error)) throw CommandError(error);
  check(data->setValue(param.id, rawBytes(value), value.size()), facts.name + ": " + param.name);
}

// A parameter may be left out if the program gives it a default: then it has a value already.
void checkHasDefault(const jxrt::JxRtFieldInfo& param, const jxrt::JxRtActionInfo& action,
                     const jxrt::JxRtTableData& data) {
  std::vector<uint8_t> value(bytesOf(param.width));
  if (data.getValue(param.id, value.size(), value.data()) == JX_SUCCESS) return;
  throw CommandError("parameter '" + param.name + "' of action " + action.name + " is missing");
}

DataPtr makeActionData(const TableFacts& facts, Line* line) {
  const jxrt::JxRtActionInfo* action = facts.action(line->action);
  if (action == nullptr) {
    throw CommandError("table " + facts.name + " has no action '" + line->action +
                       "'; it has: " + namesOf(facts.actions));
  }
  DataPtr data;
  check(facts.table->dataAllocate(action->id, &data), facts.name + ": action " + action->name);
  for (const jxrt::JxRtFieldInfo& param : action->params) {
    const std::optional<std::string> text = line->right.take(param.name);
    if (text) {
      setParam(facts, param, *text, data.get());
    } else {
      checkHasDefault(param, *action, *data);
    }
  }
  if (!line->right.empty()) {
    throw CommandError("action " + action->name + " has no parameter '" +
                       line->right.items()[0].name + "'; it has: " + namesOf(action->params));
  }
  return data;
}

std::string whatEntriesTake(const TableFacts& facts) {
  const bool member = facts.dataField(JX_RT_FIELD_MEMBER_ID) != nullptr;
  const bool group = facts.dataField(JX_RT_FIELD_GROUP_ID) != nullptr;
  if (member && group) return "member=ID or group=ID";
  if (member) return "member=ID";
  return "an action: " + namesOf(facts.actions);
}

// Nothing was said in the place of an action: a reference, or a mistake.
DataPtr makeReferenceData(const TableFacts& facts, Line* line) {
  const std::optional<uint32_t> member = line->right.takeNumber("member");
  const std::optional<uint32_t> group = line->right.takeNumber("group");
  if (member.has_value() == group.has_value()) {
    throw CommandError("an entry of " + facts.name + " takes " + whatEntriesTake(facts) +
                       " after the ->");
  }
  checkNothingLeft(line->right, "after the ->");
  return member ? makeReference(facts, JX_RT_FIELD_MEMBER_ID, *member)
                : makeReference(facts, JX_RT_FIELD_GROUP_ID, *group);
}

}  // namespace

void setKeyField(const TableFacts& facts, const jxrt::JxRtFieldInfo& field, const Match& match,
                 jxrt::JxRtTableKey* key) {
  const uint8_t* value = rawBytes(match.value);
  const size_t size = match.value.size();
  jx_status_t status = JX_NOT_SUPPORTED;
  switch (field.match_type) {
    case JX_RT_MATCH_EXACT:
      status = key->setValue(field.id, value, size);
      break;
    case JX_RT_MATCH_TERNARY:
      status = key->setValueAndMask(field.id, value, rawBytes(match.second), size);
      break;
    case JX_RT_MATCH_RANGE:
      status = key->setValueRange(field.id, value, rawBytes(match.second), size);
      break;
    case JX_RT_MATCH_LPM:
      status = key->setValueLpm(field.id, value, match.prefix_length, size);
      break;
    case JX_RT_MATCH_OPTIONAL:
      status = key->setValueOptional(field.id, value, match.valid, size);
      break;
    case JX_RT_MATCH_INVALID:
      break;
  }
  check(status, facts.name + ": " + field.name);
}

KeyPtr makeKey(const TableFacts& facts, Assignments* left) {
  KeyPtr key;
  check(facts.table->keyAllocate(&key), facts.name);
  for (const jxrt::JxRtFieldInfo& field : facts.key) {
    const std::optional<std::string> text = left->take(field.name);
    if (!text) {
      if (field.match_type != JX_RT_MATCH_EXACT) continue;  // matches anything
      throw CommandError("field '" + field.name + "' of table " + facts.name + " is missing");
    }
    Match match;
    std::string error;
    if (!parseMatch(*text, {field.name, field.width}, field.match_type, &match, &error)) {
      throw CommandError(error);
    }
    setKeyField(facts, field, match, key.get());
  }
  if (!left->empty()) {
    throw CommandError("table " + facts.name + " has no key field '" + left->items()[0].name +
                       "'; it has: " + namesOf(facts.key));
  }
  return key;
}

KeyPtr makeIdKey(const TableFacts& facts, const char* field, uint32_t id) {
  const jxrt::JxRtFieldInfo* info = facts.keyField(field);
  if (info == nullptr) throw CommandError(facts.name + " has no key field " + field);
  KeyPtr key;
  check(facts.table->keyAllocate(&key), facts.name);
  check(key->setValue(info->id, id), facts.name);
  return key;
}

DataPtr makeData(const TableFacts& facts, Line* line) {
  return line->action.empty() ? makeReferenceData(facts, line) : makeActionData(facts, line);
}

DataPtr makeReference(const TableFacts& facts, const char* field, uint32_t id) {
  const bool to_member = std::string_view(field) == JX_RT_FIELD_MEMBER_ID;
  if (facts.dataField(field) == nullptr) {
    throw CommandError("entries of " + facts.name + " refer to no " +
                       (to_member ? "members" : "groups") + "; they take " +
                       whatEntriesTake(facts));
  }
  DataPtr data;
  check(facts.table->dataAllocate(&data), facts.name);
  setDataNumber(facts, field, to_member ? "member" : "group", id, data.get());
  return data;
}

void setDataNumber(const TableFacts& facts, const char* field, const char* what, uint32_t number,
                   jxrt::JxRtTableData* data) {
  const jxrt::JxRtFieldInfo* info = facts.dataField(field);
  if (info == nullptr) throw CommandError("entries of " + facts.name + " have no " + what);
  check(data->setValue(info->id, number), facts.name + ": " + what);
}

std::optional<uint32_t> takeOption(const TableFacts& facts, const char* name, Line* line) {
  std::optional<uint32_t> left, right;
  if (facts.keyField(name) == nullptr) left = line->left.takeNumber(name);
  if (findParam(facts, line->action, name) == nullptr) right = line->right.takeNumber(name);
  if (left && right) throw CommandError(std::string("'") + name + "' is given twice");
  return left ? left : right;
}

void checkNothingLeft(const Assignments& assignments, const std::string& place) {
  if (assignments.empty()) return;
  throw CommandError("unknown '" + assignments.items()[0].name + "=' " + place);
}

}  // namespace jexapps
