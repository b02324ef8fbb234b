#include "unit/model/random_writes.h"

#include <algorithm>

#include "model/tables/key_codec.h"

namespace jxmodeltest {
namespace {

constexpr uint32_t kIds = 10;  // members and groups

}  // namespace

Bytes RandomWrites::value(uint32_t width) {
  Bytes bytes(jxmodel::bytesOf(width));
  bytes.back() = static_cast<uint8_t>(pick(3));
  bytes.front() = static_cast<uint8_t>(bytes.front() | pick(3) << 6);
  while (!jxmodel::withinWidth(bytes.data(), width)) {
    bytes.front() = static_cast<uint8_t>(bytes.front() >> 1);
  }
  return bytes;
}

TableUser::KeyPtr RandomWrites::key(const TableUser& user, const jxmodel::Table& table) {
  auto made = user.key();
  for (const jxmodel::KeyField& field : table.key) {
    const Bytes low = value(field.width);
    const Bytes other = value(field.width);
    const size_t size = low.size();
    jx_status_t status = JX_SUCCESS;
    switch (field.match) {
      case JX_RT_MATCH_EXACT:
        status = field.field ? made->setValue(field.id, low.data(), size)
                             : made->setValue(field.id, uint64_t{pick(kIds)});
        break;
      case JX_RT_MATCH_TERNARY:
        status = made->setValueAndMask(field.id, low.data(), other.data(), size);
        break;
      case JX_RT_MATCH_RANGE:
        status = made->setValueRange(field.id, std::min(low, other).data(),
                                     std::max(low, other).data(), size);
        break;
      case JX_RT_MATCH_LPM:
        status = made->setValueLpm(field.id, low.data(),
                                   static_cast<uint16_t>(pick(field.width + 1)), size);
        break;
      default:
        status = made->setValueOptional(field.id, low.data(), pick(2) == 0, size);
    }
    EXPECT_EQ(status, JX_SUCCESS);
  }
  if (table.has_priority) {
    EXPECT_EQ(made->prioritySet(pick(5)), JX_SUCCESS);
  }
  return made;
}

TableUser::DataPtr RandomWrites::action(const TableUser& user) {
  std::vector<jxrt::JxRtActionInfo> actions;
  (*user).actionListGet(&actions);
  const jxrt::JxRtActionInfo& chosen = actions[pick(static_cast<uint32_t>(actions.size()))];
  auto made = user.data(chosen.name, {});
  for (const jxrt::JxRtFieldInfo& param : chosen.params) {
    const Bytes bytes = value(param.width);
    EXPECT_EQ(made->setValue(param.id, bytes.data(), bytes.size()), JX_SUCCESS);
  }
  return made;
}

TableUser::DataPtr RandomWrites::data(const TableUser& user, const jxmodel::Table& table) {
  switch (table.type) {
    case JX_RT_TABLE_SELECTOR: {
      std::vector<uint32_t> ids;
      std::vector<bool> active;
      for (uint32_t count = pick(4); count > 0; --count) {
        ids.push_back(pick(kIds));
        active.push_back(pick(3) != 0);
      }
      return user.members(ids, active);
    }
    case JX_RT_TABLE_MATCH_SELECTOR:
      return user.data(pick(2) == 0 ? jxmodel::kFieldMemberId : jxmodel::kFieldGroupId, pick(kIds));
    case JX_RT_TABLE_MATCH_ACTION_DATA:
      return user.data(jxmodel::kFieldMemberId, pick(kIds));
    default: {
      auto made = action(user);
      if (table.idle_timeout && pick(2) == 0) made->setValue(jxmodel::kFieldTtl, pick(10000));
      return made;
    }
  }
}

jx_status_t RandomWrites::writeGroup(const TableUser& user) {
  const uint32_t group = pick(kIds), member = pick(kIds);
  switch (pick(6)) {
    case 0:
      return user.groupAdd(group, member);
    case 1:
      return user.groupDel(group, member);
    case 2:
      return user.groupActivate(group, member);
    case 3:
      return user.groupDeactivate(group, member);
    case 4:
      return user.setFallback(member);
    default:
      return user.clearFallback();
  }
}

jx_status_t RandomWrites::write() {
  const auto tables = device_.tables();
  std::string name;
  tables[pick(static_cast<uint32_t>(tables.size()))]->tableNameGet(&name);
  const jxmodel::Table& table = *device_.state(name).table;
  const TableUser user(device_, name);
  if (table.type == JX_RT_TABLE_COUNTER) return JX_NOT_SUPPORTED;
  if (table.type == JX_RT_TABLE_SELECTOR && pick(2) == 0) return writeGroup(user);
  switch (pick(8)) {
    case 0:
    case 1:
    case 2:
      return user.add(key(user, table), data(user, table));
    case 3:
      return user.mod(key(user, table), data(user, table));
    case 4:
      return user.del(key(user, table));
    case 5:
      return user.move(key(user, table));
    case 6: {
      const auto made = data(user, table);
      return user.setDefault(made);
    }
    default:
      return pick(4) == 0 ? user.clearDefault() : user.mod(key(user, table), data(user, table));
  }
}

}  // namespace jxmodeltest
