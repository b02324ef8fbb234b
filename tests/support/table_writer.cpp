#include "support/table_writer.h"

#include <cstring>

namespace jextest {
namespace {

using jxrt::JxRtActionInfo;
using jxrt::JxRtFieldInfo;
using jxrt::JxRtTable;

/// splitmix64: numbers that look random and are the same in every process.
class Sequence {
 public:
  explicit Sequence(uint64_t seed) : state_(seed) {}
  uint64_t next() {
    uint64_t value = (state_ += 0x9E3779B97F4A7C15u);
    value = (value ^ (value >> 30)) * 0xBF58476D1CE4E5B9u;
    value = (value ^ (value >> 27)) * 0x94D049BB133111EBu;
    return value ^ (value >> 31);
  }

 private:
  uint64_t state_;
};

std::vector<uint8_t> randomValue(uint32_t width, Sequence* sequence) {
  std::vector<uint8_t> bytes((width + 7) / 8);
  for (uint8_t& byte : bytes) byte = static_cast<uint8_t>(sequence->next());
  if (width % 8 != 0) bytes[0] = static_cast<uint8_t>(bytes[0] & ((1u << (width % 8)) - 1));
  return bytes;
}

/// Puts `owner` into the four highest bits of a field.
void setTopBits(std::vector<uint8_t>* bytes, uint32_t width, uint32_t owner) {
  for (uint32_t i = 0; i < 4; ++i) {
    const uint32_t bit = width - 1 - i;
    uint8_t& byte = (*bytes)[bytes->size() - 1 - bit / 8];
    const auto mask = static_cast<uint8_t>(1u << (bit % 8));
    const bool set = ((owner >> (3 - i)) & 1) != 0;
    byte = static_cast<uint8_t>(set ? byte | mask : byte & ~mask);
  }
}

struct FieldWriter {
  jxrt::JxRtTableKey& key;
  const JxRtFieldInfo& field;
  Sequence* sequence;
  const uint32_t* owner;  // null: another field tells the owners apart

  std::vector<uint8_t> value() const {
    auto bytes = randomValue(field.width, sequence);
    if (owner != nullptr) setTopBits(&bytes, field.width, *owner);
    return bytes;
  }

  void write() const {
    std::vector<uint8_t> first = value();
    std::vector<uint8_t> second = value();
    switch (field.match_type) {
      case JX_RT_MATCH_TERNARY:
        if (owner != nullptr) setTopBits(&second, field.width, 15);
        must(key.setValueAndMask(field.id, first.data(), second.data(), first.size()), "mask");
        break;
      case JX_RT_MATCH_RANGE:
        if (std::memcmp(first.data(), second.data(), first.size()) > 0) std::swap(first, second);
        must(key.setValueRange(field.id, first.data(), second.data(), first.size()), "range");
        break;
      case JX_RT_MATCH_LPM:
        writePrefix(&first);
        break;
      case JX_RT_MATCH_OPTIONAL:
        must(key.setValueOptional(field.id, first.data(), owner != nullptr || (second[0] & 1) != 0,
                                  first.size()),
             "optional");
        break;
      default:
        must(key.setValue(field.id, first.data(), first.size()), "value");
    }
  }

  void writePrefix(std::vector<uint8_t>* bytes) const {
    const uint32_t least = owner != nullptr ? 4 : 0;
    const auto length = static_cast<uint16_t>(least + sequence->next() % (field.width + 1 - least));
    for (uint32_t bit = 0; bit < field.width - length; ++bit) {
      uint8_t& byte = (*bytes)[bytes->size() - 1 - bit / 8];
      byte = static_cast<uint8_t>(byte & ~(1u << (bit % 8)));
    }
    must(key.setValueLpm(field.id, bytes->data(), length, bytes->size()), "prefix");
  }
};

uint32_t dataField(const JxRtTable& table, const std::string& name) {
  uint32_t id = 0;
  must(table.dataFieldIdGet(name, &id), name.c_str());
  return id;
}

}  // namespace

TableWriter::Key TableWriter::key(const JxRtTable& table, uint32_t n, uint32_t priority) const {
  Key key;
  must(table.keyAllocate(&key), "key");
  std::vector<JxRtFieldInfo> fields;
  must(table.keyFieldListGet(&fields), "key fields");
  Sequence sequence(uint64_t{n} << 8 | owner_);
  bool owned = false;
  for (const JxRtFieldInfo& field : fields) {
    const bool marks = !owned && field.width >= 8;
    owned = owned || marks;
    FieldWriter{*key, field, &sequence, marks ? &owner_ : nullptr}.write();
  }
  if (priority != 0) must(key->prioritySet(priority), "priority");
  return key;
}

TableWriter::Key TableWriter::idKey(const JxRtTable& table, const char* field, uint32_t id) const {
  Key key;
  must(table.keyAllocate(&key), "key");
  uint32_t field_id = 0;
  must(table.keyFieldIdGet(field, &field_id), field);
  must(key->setValue(field_id, uint64_t{id}), field);
  return key;
}

TableWriter::Data TableWriter::actionData(const JxRtTable& table, const std::string& action,
                                          uint64_t seed) const {
  std::vector<JxRtActionInfo> actions;
  must(table.actionListGet(&actions), "actions");
  for (const JxRtActionInfo& info : actions) {
    if (info.name != action) continue;
    Data data;
    must(table.dataAllocate(info.id, &data), "data");
    Sequence sequence(seed);
    for (const JxRtFieldInfo& param : info.params) {
      const auto value = randomValue(param.width, &sequence);
      must(data->setValue(param.id, value.data(), value.size()), param.name.c_str());
    }
    return data;
  }
  must(JX_OBJECT_NOT_FOUND, action.c_str());
  return nullptr;
}

TableWriter::Data TableWriter::reference(const JxRtTable& table, const std::string& field,
                                         uint32_t id) const {
  Data data;
  must(table.dataAllocate(&data), "data");
  must(data->setValue(dataField(table, field), uint64_t{id}), field.c_str());
  return data;
}

jx_status_t TableWriter::add(const std::string& name, uint32_t n, const std::string& action,
                             uint64_t seed, uint32_t priority) const {
  const JxRtTable& t = table(name);
  return t.tableEntryAdd(device_->session(), device_->target(), 0, *key(t, n, priority),
                         *actionData(t, action, seed));
}

jx_status_t TableWriter::modify(const std::string& name, uint32_t n, const std::string& action,
                                uint64_t seed) const {
  const JxRtTable& t = table(name);
  return t.tableEntryMod(device_->session(), device_->target(), 0, *key(t, n, 0),
                         *actionData(t, action, seed));
}

jx_status_t TableWriter::setDefault(const std::string& name, const std::string& action,
                                    uint64_t seed) const {
  const JxRtTable& t = table(name);
  return t.tableDefaultEntrySet(device_->session(), device_->target(), 0,
                                *actionData(t, action, seed));
}

jx_status_t TableWriter::addReference(const std::string& name, uint32_t n, const std::string& field,
                                      uint32_t id) const {
  const JxRtTable& t = table(name);
  return t.tableEntryAdd(device_->session(), device_->target(), 0, *key(t, n, 0),
                         *reference(t, field, id));
}

jx_status_t TableWriter::modifyReference(const std::string& name, uint32_t n,
                                         const std::string& field, uint32_t id) const {
  const JxRtTable& t = table(name);
  return t.tableEntryMod(device_->session(), device_->target(), 0, *key(t, n, 0),
                         *reference(t, field, id));
}

jx_status_t TableWriter::setDefaultReference(const std::string& name, const std::string& field,
                                             uint32_t id) const {
  const JxRtTable& t = table(name);
  return t.tableDefaultEntrySet(device_->session(), device_->target(), 0, *reference(t, field, id));
}

jx_status_t TableWriter::remove(const std::string& name, uint32_t n) const {
  const JxRtTable& t = table(name);
  return t.tableEntryDel(device_->session(), device_->target(), 0, *key(t, n, 0));
}

jx_status_t TableWriter::move(const std::string& name, uint32_t n, uint32_t priority) const {
  const JxRtTable& t = table(name);
  return t.tableEntryMove(device_->session(), device_->target(), 0, *key(t, n, priority));
}

jx_status_t TableWriter::clearDefault(const std::string& name) const {
  return table(name).tableDefaultEntryClear(device_->session(), device_->target(), 0);
}

uint32_t TableWriter::handle(const std::string& name, uint32_t n) const {
  const JxRtTable& t = table(name);
  uint32_t handle = 0;
  must(t.tableEntryHandleGet(device_->session(), device_->target(), *key(t, n, 0), &handle),
       "handle");
  return handle;
}

jx_status_t TableWriter::memberAdd(const std::string& name, uint32_t id, const std::string& action,
                                   uint64_t seed) const {
  const JxRtTable& t = table(name);
  return t.tableEntryAdd(device_->session(), device_->target(), 0,
                         *idKey(t, JX_RT_FIELD_MEMBER_ID, id), *actionData(t, action, seed));
}

jx_status_t TableWriter::memberModify(const std::string& name, uint32_t id,
                                      const std::string& action, uint64_t seed) const {
  const JxRtTable& t = table(name);
  return t.tableEntryMod(device_->session(), device_->target(), 0,
                         *idKey(t, JX_RT_FIELD_MEMBER_ID, id), *actionData(t, action, seed));
}

jx_status_t TableWriter::memberRemove(const std::string& name, uint32_t id) const {
  const JxRtTable& t = table(name);
  return t.tableEntryDel(device_->session(), device_->target(), 0,
                         *idKey(t, JX_RT_FIELD_MEMBER_ID, id));
}

jx_status_t TableWriter::groupCreate(const std::string& name, uint32_t id, const Elements& members,
                                     uint32_t max_members) const {
  const JxRtTable& t = table(name);
  Data data;
  must(t.dataAllocate(&data), "data");
  if (max_members != 0) {
    must(data->setValue(dataField(t, JX_RT_FIELD_MAX_MEMBERS), uint64_t{max_members}), "max");
  }
  if (!members.empty()) {
    std::vector<uint32_t> ids;
    std::vector<bool> states;
    for (const auto& [member, active] : members) {
      ids.push_back(member);
      states.push_back(active);
    }
    must(data->setValue(dataField(t, JX_RT_FIELD_MEMBERS), ids), "members");
    must(data->setValue(dataField(t, JX_RT_FIELD_MEMBERS_ACTIVE), states), "states");
  }
  return t.tableEntryAdd(device_->session(), device_->target(), 0,
                         *idKey(t, JX_RT_FIELD_GROUP_ID, id), *data);
}

jx_status_t TableWriter::groupDestroy(const std::string& name, uint32_t id) const {
  const JxRtTable& t = table(name);
  return t.tableEntryDel(device_->session(), device_->target(), 0,
                         *idKey(t, JX_RT_FIELD_GROUP_ID, id));
}

jx_status_t TableWriter::groupAdd(const std::string& name, uint32_t group, uint32_t member) const {
  return table(name).groupMemberAdd(device_->session(), device_->target(), group, member);
}

jx_status_t TableWriter::groupRemove(const std::string& name, uint32_t group,
                                     uint32_t member) const {
  return table(name).groupMemberDel(device_->session(), device_->target(), group, member);
}

jx_status_t TableWriter::groupActivate(const std::string& name, uint32_t group,
                                       uint32_t member) const {
  return table(name).groupMemberActivate(device_->session(), device_->target(), group, member);
}

jx_status_t TableWriter::groupDeactivate(const std::string& name, uint32_t group,
                                         uint32_t member) const {
  return table(name).groupMemberDeactivate(device_->session(), device_->target(), group, member);
}

jx_status_t TableWriter::fallbackSet(const std::string& name, uint32_t member) const {
  return table(name).fallbackSet(device_->session(), device_->target(), member);
}

jx_status_t TableWriter::fallbackClear(const std::string& name) const {
  return table(name).fallbackClear(device_->session(), device_->target());
}

}  // namespace jextest
