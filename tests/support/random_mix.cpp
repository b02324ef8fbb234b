#include "support/random_mix.h"

#include <algorithm>

namespace jextest {
namespace {

/// Entries of one table that the load knows.
constexpr uint32_t kPool = 400;
/// Actions with more parameters are there for the limits of messages, which stop a Partner.
constexpr uint32_t kWidestParameter = 4096;

bool isExpected(jx_status_t status) {
  return status == JX_SUCCESS || status == JX_ALREADY_EXISTS || status == JX_OBJECT_NOT_FOUND ||
         status == JX_NOT_ENOUGH_SPACE || status == JX_ACTION_DATA_REFERENCED ||
         status == JX_IN_USE;
}

}  // namespace

RandomMix::RandomMix(const DeviceView& device, uint32_t owner, bool shared, uint64_t seed)
    : writer_(device, owner), owner_(owner), shared_(shared), random_(seed) {
  for (const jxrt::JxRtTable* table : device.tables()) {
    Table description;
    if (describe(*table, shared, &description)) tables_.push_back(description);
  }
}

bool RandomMix::describe(const jxrt::JxRtTable& table, bool shared, Table* description) {
  jx_rt_table_type_t type{};
  must(table.tableTypeGet(&type), "table type");
  if (type > JX_RT_TABLE_SELECTOR) return false;
  must(table.tableNameGet(&description->name), "table name");
  description->kind = type == JX_RT_TABLE_MATCH_DIRECT  ? Kind::kDirect
                      : type == JX_RT_TABLE_ACTION_DATA ? Kind::kMembers
                      : type == JX_RT_TABLE_SELECTOR    ? Kind::kGroups
                                                        : Kind::kReference;
  description->has_groups = type == JX_RT_TABLE_MATCH_SELECTOR;
  std::vector<jxrt::JxRtFieldInfo> fields;
  must(table.keyFieldListGet(&fields), "key fields");
  bool can_be_shared = false;
  for (const jxrt::JxRtFieldInfo& field : fields) {
    can_be_shared = can_be_shared || field.width >= 8;
    description->has_priority =
        description->has_priority || field.match_type == JX_RT_MATCH_TERNARY ||
        field.match_type == JX_RT_MATCH_RANGE || field.match_type == JX_RT_MATCH_OPTIONAL;
  }
  std::vector<jxrt::JxRtActionInfo> actions;
  must(table.actionListGet(&actions), "actions");
  for (const jxrt::JxRtActionInfo& action : actions) {
    const bool small = std::all_of(
        action.params.begin(), action.params.end(),
        [](const jxrt::JxRtFieldInfo& param) { return param.width <= kWidestParameter; });
    if (small) description->actions.push_back(action.name);
  }
  return can_be_shared || !shared;
}

const std::string& RandomMix::action(const Table& table) {
  return table.actions[pick(static_cast<uint32_t>(table.actions.size()))];
}

uint64_t RandomMix::run(uint64_t count) {
  uint64_t refused = 0;
  while (count > 0) {
    const jx_status_t status = write();
    if (!isExpected(status)) must(status, "random write");
    if (status == JX_SUCCESS) {
      --count;
    } else {
      ++refused;
    }
  }
  return refused;
}

jx_status_t RandomMix::write() {
  const Table& table = tables_[pick(static_cast<uint32_t>(tables_.size()))];
  switch (table.kind) {
    case Kind::kDirect:
      return writeDirect(table);
    case Kind::kReference:
      return writeReference(table);
    case Kind::kMembers:
      return writeMember(table);
    case Kind::kGroups:
      return writeGroup(table);
  }
  return JX_INTERNAL_ERROR;
}

jx_status_t RandomMix::writeDirect(const Table& table) {
  const uint32_t n = pick(kPool);
  const uint32_t choice = pick(100);
  if (choice < 45) {
    return writer_.add(table.name, n, action(table), random_(),
                       table.has_priority ? 1 + pick(1000) : 0);
  }
  if (choice < 60) return writer_.modify(table.name, n, action(table), random_());
  if (choice < 80) return writer_.remove(table.name, n);
  if (choice < 90) {
    return table.has_priority ? writer_.move(table.name, n, 1 + pick(1000)) : writeDirect(table);
  }
  if (shared_) return writeDirect(table);
  if (choice < 96) return writer_.setDefault(table.name, action(table), random_());
  return writer_.clearDefault(table.name);
}

jx_status_t RandomMix::writeReference(const Table& table) {
  const uint32_t n = pick(kPool);
  const bool to_group = table.has_groups && pick(2) == 0;
  const std::string field = to_group ? JX_RT_FIELD_GROUP_ID : JX_RT_FIELD_MEMBER_ID;
  const uint32_t id = to_group ? group() : member();
  const uint32_t choice = pick(100);
  if (choice < 40) return writer_.addReference(table.name, n, field, id);
  if (choice < 55) return writer_.modifyReference(table.name, n, field, id);
  if (choice < 92) return writer_.remove(table.name, n);
  if (shared_) return writeReference(table);
  if (choice < 96) return writer_.setDefaultReference(table.name, field, id);
  return writer_.clearDefault(table.name);
}

jx_status_t RandomMix::writeMember(const Table& table) {
  const uint32_t choice = pick(100);
  if (choice < 50) return writer_.memberAdd(table.name, member(), action(table), random_());
  if (choice < 75) return writer_.memberModify(table.name, member(), action(table), random_());
  return writer_.memberRemove(table.name, member());
}

jx_status_t RandomMix::writeGroup(const Table& table) {
  const uint32_t choice = pick(100);
  if (choice < 20) {
    TableWriter::Elements elements;
    const uint32_t first = pick(48);
    for (uint32_t i = 0, count = pick(6); i < count; ++i) {
      elements.emplace_back(owner_ * 1000 + 1 + (first + i) % 48, pick(2) == 0);
    }
    return writer_.groupCreate(table.name, group(), elements);
  }
  if (choice < 35) return writer_.groupDestroy(table.name, group());
  if (choice < 55) return writer_.groupAdd(table.name, group(), member());
  if (choice < 70) return writer_.groupRemove(table.name, group(), member());
  if (choice < 80) return writer_.groupActivate(table.name, group(), member());
  if (choice < 90) return writer_.groupDeactivate(table.name, group(), member());
  if (shared_) return writeGroup(table);
  if (choice < 96) return writer_.fallbackSet(table.name, member());
  return writer_.fallbackClear(table.name);
}

}  // namespace jextest
