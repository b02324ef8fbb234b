#include "refusal.h"

#include <algorithm>

#include "command_error.h"
#include "named_values.h"
#include "request.h"

namespace jexapps {
namespace {

using Kind = Operation::Kind;

std::string named(const char* what, uint64_t number) {
  return std::string(what) + " " + std::to_string(number);
}

std::optional<uint32_t> numberIn(const TableFacts& table, const char* field,
                                 const jxrt::JxRtTableData* data) {
  const jxrt::JxRtFieldInfo* info = table.dataField(field);
  bool active = false;
  if (data == nullptr || info == nullptr || data->isActive(info->id, &active) != JX_SUCCESS ||
      !active) {
    return std::nullopt;
  }
  uint64_t number = 0;
  if (data->getValue(info->id, &number) != JX_SUCCESS) return std::nullopt;
  return static_cast<uint32_t>(number);
}

// The members that a group is to have.
std::vector<uint32_t> membersIn(const TableFacts& table, const jxrt::JxRtTableData* data) {
  std::vector<uint32_t> members;
  const jxrt::JxRtFieldInfo* info = table.dataField(JX_RT_FIELD_MEMBERS);
  if (data == nullptr || info == nullptr) return members;
  return data->getValue(info->id, &members) == JX_SUCCESS ? members : std::vector<uint32_t>{};
}

// The number of a key that is a member's or a group's.
uint64_t idOf(const Operation& operation) {
  uint64_t id = 0;
  const TableFacts& table = operation.table;
  if (operation.key != nullptr && !table.key.empty()) operation.key->getValue(table.key[0].id, &id);
  return id;
}

std::string keyText(const Operation& operation) {
  std::vector<KeyFieldView> fields;
  if (operation.key != nullptr) readKey(operation.table, *operation.key, &fields);
  NamedValues values;
  for (const KeyFieldView& field : fields) appendNamed(field, &values);
  return textOf(values);
}

// The thing that the operation is about.
std::string subjectOf(const Operation& operation) {
  switch (operation.kind) {
    case Kind::kDefault:
      return "the default entry";
    case Kind::kFallback:
      return "the fallback";
    case Kind::kMembership:
      return named("member", *operation.member) + " in " + named("group", *operation.group);
    case Kind::kEntry:
      break;
  }
  if (operation.table.type == JX_RT_TABLE_ACTION_DATA) return named("member", idOf(operation));
  if (operation.table.type == JX_RT_TABLE_SELECTOR) return named("group", idOf(operation));
  return "entry" + keyText(operation);
}

const char* entriesOf(const TableFacts& table) {
  if (table.type == JX_RT_TABLE_ACTION_DATA) return " members";
  return table.type == JX_RT_TABLE_SELECTOR ? " groups" : " entries";
}

// Asks the tables what a refused operation met there.
class Diagnosis {
 public:
  Diagnosis(const Shell& shell, const Operation& operation)
      : shell_(shell), operation_(operation), table_(operation.table) {}

  // Empty where nothing better than the status is known, as in the others.
  std::string notFound() const {
    std::string reference = missingReference();
    if (!reference.empty()) return reference;
    switch (operation_.kind) {
      case Kind::kDefault:
        return table_.name + " has no default entry";
      case Kind::kFallback:
        return table_.name + " has no fallback";
      case Kind::kMembership:
        return named("member", *operation_.member) + " is not in " +
               named("group", *operation_.group) + " of " + table_.name;
      case Kind::kEntry:
        break;
    }
    return subjectOf(operation_) + " does not exist in " + table_.name;
  }

  std::string exists() const {
    if (operation_.kind == Kind::kMembership) {
      return named("member", *operation_.member) + " is already in " +
             named("group", *operation_.group) + " of " + table_.name;
    }
    std::vector<uint32_t> members = membersIn(table_, operation_.data);
    std::sort(members.begin(), members.end());
    const auto twice = std::adjacent_find(members.begin(), members.end());
    if (twice != members.end()) return named("member", *twice) + " is given twice";
    return subjectOf(operation_) + " exists already in " + table_.name;
  }

  std::string full() const {
    if (operation_.kind == Kind::kMembership) return fullGroup();
    size_t size = 0;
    uint32_t used = 0;
    const jxrt::JxRtTable& table = *table_.table;
    if (table.tableSizeGet(shell_.session(), shell_.target(), 0, &size) == JX_SUCCESS &&
        table.tableUsageGet(shell_.session(), shell_.target(), 0, &used) == JX_SUCCESS &&
        used >= size) {
      return table_.name + " is full: " + std::to_string(size) + entriesOf(table_);
    }
    return tooManyMembers();
  }

  std::string invalid() const {
    const std::optional<uint32_t> max = numberIn(table_, JX_RT_FIELD_MAX_MEMBERS, operation_.data);
    if (!max) return {};
    return "max=" + std::to_string(*max) + ": groups of " + table_.name +
           " cannot have that many members: " + statusText(JX_INVALID_ARGUMENTS);
  }

  std::string referenced() const {
    return subjectOf(operation_) + " of " + table_.name +
           " is in use: an entry, a group or the fallback refers to it";
  }

  std::string inUse() const {
    return subjectOf(operation_) + " of " + table_.name + " is in use: an entry refers to it";
  }

 private:
  using Lookup = jx_status_t (jxrt::JxRtTable::*)(const jxrt::JxRtTable**) const;

  // The table of members or groups that this one refers to.
  const TableFacts* behind(Lookup lookup) const {
    const jxrt::JxRtTable* table = nullptr;
    if ((table_.table->*lookup)(&table) != JX_SUCCESS || table == nullptr) return nullptr;
    return &shell_.tableOf(table);
  }

  bool has(const TableFacts& table, const char* field, uint32_t id) const {
    uint32_t handle = 0;
    return table.table->tableEntryHandleGet(shell_.session(), shell_.target(),
                                            *makeIdKey(table, field, id), &handle) == JX_SUCCESS;
  }

  std::string missingReference() const {
    const TableFacts* const members = behind(&jxrt::JxRtTable::actionDataTableGet);
    if (members != nullptr) {
      for (const uint32_t id : memberReferences()) {
        if (!has(*members, JX_RT_FIELD_MEMBER_ID, id)) {
          return named("member", id) + " does not exist in " + members->name;
        }
      }
    }
    const std::optional<uint32_t> group = groupReference();
    const TableFacts* const groups =
        operation_.kind == Kind::kMembership ? &table_ : behind(&jxrt::JxRtTable::selectorTableGet);
    if (!group || groups == nullptr || has(*groups, JX_RT_FIELD_GROUP_ID, *group)) return {};
    return named("group", *group) + " does not exist in " + groups->name;
  }

  std::vector<uint32_t> memberReferences() const {
    if (operation_.member) return {*operation_.member};
    const std::optional<uint32_t> one = numberIn(table_, JX_RT_FIELD_MEMBER_ID, operation_.data);
    return one ? std::vector<uint32_t>{*one} : membersIn(table_, operation_.data);
  }

  std::optional<uint32_t> groupReference() const {
    return operation_.group ? operation_.group
                            : numberIn(table_, JX_RT_FIELD_GROUP_ID, operation_.data);
  }

  std::string fullGroup() const {
    DataPtr data;
    if (table_.table->dataAllocate(&data) != JX_SUCCESS ||
        table_.table->tableEntryGet(shell_.session(), shell_.target(), 0,
                                    *makeIdKey(table_, JX_RT_FIELD_GROUP_ID, *operation_.group),
                                    data.get()) != JX_SUCCESS) {
      return {};
    }
    return named("group", *operation_.group) + " of " + table_.name +
           " is full: " + std::to_string(membersIn(table_, data.get()).size()) + " members";
  }

  std::string tooManyMembers() const {
    const size_t given = membersIn(table_, operation_.data).size();
    if (given == 0) return {};
    const std::optional<uint32_t> max = numberIn(table_, JX_RT_FIELD_MAX_MEMBERS, operation_.data);
    if (!max) {
      return subjectOf(operation_) + " of " + table_.name + " cannot have " +
             std::to_string(given) + " members: " + statusText(JX_NOT_ENOUGH_SPACE);
    }
    return subjectOf(operation_) + " takes at most " + std::to_string(*max) + " members, " +
           std::to_string(given) + " are given";
  }

  const Shell& shell_;
  const Operation& operation_;
  const TableFacts& table_;
};

std::string diagnose(const Diagnosis& diagnosis, jx_status_t status) {
  switch (status) {
    case JX_OBJECT_NOT_FOUND:
      return diagnosis.notFound();
    case JX_ALREADY_EXISTS:
      return diagnosis.exists();
    case JX_NOT_ENOUGH_SPACE:
      return diagnosis.full();
    case JX_INVALID_ARGUMENTS:
      return diagnosis.invalid();
    case JX_ACTION_DATA_REFERENCED:
      return diagnosis.referenced();
    case JX_IN_USE:
      return diagnosis.inUse();
    default:
      return {};
  }
}

}  // namespace

std::string refusal(const Shell& shell, const Operation& operation, jx_status_t status) {
  std::string reason = diagnose(Diagnosis(shell, operation), status);
  if (!reason.empty()) return reason;
  return subjectOf(operation) + " of " + operation.table.name + ": " + statusText(status);
}

void check(const Shell& shell, const Operation& operation, jx_status_t status) {
  if (status != JX_SUCCESS) throw CommandError(refusal(shell, operation, status), status);
}

}  // namespace jexapps
