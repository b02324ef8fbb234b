#include "table.h"

#include <algorithm>

namespace jexapps {
namespace {

constexpr uint32_t kEntriesPerRead = 1024;

template <typename Item>
const Item* findByName(const std::vector<Item>& items, std::string_view name) {
  const auto it =
      std::find_if(items.begin(), items.end(), [&](const Item& item) { return item.name == name; });
  return it == items.end() ? nullptr : &*it;
}

bool hasPriority(const std::vector<jxrt::JxRtFieldInfo>& key) {
  return std::any_of(key.begin(), key.end(), [](const jxrt::JxRtFieldInfo& field) {
    return field.match_type == JX_RT_MATCH_TERNARY || field.match_type == JX_RT_MATCH_RANGE ||
           field.match_type == JX_RT_MATCH_OPTIONAL;
  });
}

jx_status_t readFacts(const jxrt::JxRtTable& table, TableFacts* facts) {
  facts->table = &table;
  jx_status_t status = table.tableNameGet(&facts->name);
  if (status == JX_SUCCESS) status = table.tableIdGet(&facts->id);
  if (status == JX_SUCCESS) status = table.tableHandleGet(&facts->handle);
  if (status == JX_SUCCESS) status = table.tableTypeGet(&facts->type);
  if (status == JX_SUCCESS) status = table.keyFieldListGet(&facts->key);
  if (status == JX_SUCCESS) status = table.dataFieldListGet(&facts->data);
  if (status == JX_SUCCESS) status = table.actionListGet(&facts->actions);
  facts->has_priority = hasPriority(facts->key);
  return status;
}

jx_status_t readProgramFacts(const jxrt::JxRtInfo& info, const std::string& program,
                             std::vector<TableFacts>* tables) {
  std::vector<const jxrt::JxRtTable*> found;
  jx_status_t status = info.tablesGet(&found);
  for (const jxrt::JxRtTable* table : found) {
    if (status != JX_SUCCESS) break;
    TableFacts facts;
    facts.program = program;
    status = readFacts(*table, &facts);
    tables->push_back(std::move(facts));
  }
  return status;
}

uint8_t* writableBytes(Bytes* bytes) { return reinterpret_cast<uint8_t*>(bytes->data()); }

// Turns the objects of one table into views. Keeps one view and the ids of the data fields, so that
// an entry costs neither look-ups nor more allocations than its values need.
class EntryReader {
 public:
  explicit EntryReader(const TableFacts& facts) : facts_(facts) {
    for (const jxrt::JxRtFieldInfo& field : facts.key) {
      key_.push_back({{field.name, field.width}, field.match_type, {}});
    }
    member_id_ = dataFieldId(JX_RT_FIELD_MEMBER_ID);
    group_id_ = dataFieldId(JX_RT_FIELD_GROUP_ID);
    max_members_id_ = dataFieldId(JX_RT_FIELD_MAX_MEMBERS);
    members_id_ = dataFieldId(JX_RT_FIELD_MEMBERS);
    active_id_ = dataFieldId(JX_RT_FIELD_MEMBERS_ACTIVE);
    ttl_id_ = dataFieldId(JX_RT_FIELD_TTL);
    packets_id_ = dataFieldId(JX_RT_FIELD_COUNTER_PKTS);
    bytes_id_ = dataFieldId(JX_RT_FIELD_COUNTER_BYTES);
  }

  jx_status_t readEntry(const jxrt::JxRtTable::Entry& entry) {
    start(EntryKind::kEntry);
    view_.handle = entry.handle;
    const jx_status_t status = readKey(*entry.key);
    return status == JX_SUCCESS ? readData(*entry.data) : status;
  }

  jx_status_t readKeyAlone(const jxrt::JxRtTableKey& key) {
    start(EntryKind::kEntry);
    return readKey(key);
  }

  jx_status_t readDefault(const jxrt::JxRtTableData& data) {
    start(EntryKind::kDefault);
    view_.key.clear();
    return readData(data);
  }

  void readFallback(uint32_t member_id) {
    start(EntryKind::kFallback);
    view_.key.clear();
    view_.member = member_id;
  }

  const EntryView& view() const { return view_; }

 private:
  std::optional<uint32_t> dataFieldId(std::string_view name) const {
    const jxrt::JxRtFieldInfo* field = facts_.dataField(name);
    return field == nullptr ? std::nullopt : std::make_optional(field->id);
  }

  void start(EntryKind kind) {
    view_.kind = kind;
    view_.handle = 0;
    view_.key = key_;
    view_.priority.reset();
    view_.action = {};
    view_.params.clear();
    view_.member.reset();
    view_.group.reset();
    view_.max_members.reset();
    view_.members.clear();
    view_.counters.reset();
    view_.ttl_ms.reset();
  }

  jx_status_t readKey(const jxrt::JxRtTableKey& key) {
    for (size_t i = 0; i < view_.key.size(); ++i) {
      const jx_status_t status = readKeyField(key, facts_.key[i].id, &view_.key[i]);
      if (status != JX_SUCCESS) return status;
    }
    if (!facts_.has_priority) return JX_SUCCESS;
    uint32_t priority = 0;
    const jx_status_t status = key.priorityGet(&priority);
    view_.priority = priority;
    return status;
  }

  static jx_status_t readKeyField(const jxrt::JxRtTableKey& key, uint32_t id, KeyFieldView* field) {
    const uint32_t size = bytesOf(field->field.width);
    Match& match = field->match;
    match.value.resize(size);
    switch (field->kind) {
      case JX_RT_MATCH_TERNARY:
        match.second.resize(size);
        return key.getValueAndMask(id, size, writableBytes(&match.value),
                                   writableBytes(&match.second));
      case JX_RT_MATCH_RANGE:
        match.second.resize(size);
        return key.getValueRange(id, size, writableBytes(&match.value),
                                 writableBytes(&match.second));
      case JX_RT_MATCH_LPM:
        return key.getValueLpm(id, size, writableBytes(&match.value), &match.prefix_length);
      case JX_RT_MATCH_OPTIONAL:
        return key.getValueOptional(id, size, writableBytes(&match.value), &match.valid);
      case JX_RT_MATCH_EXACT:
      case JX_RT_MATCH_INVALID:
        break;
    }
    return key.getValue(id, size, writableBytes(&match.value));
  }

  jx_status_t readData(const jxrt::JxRtTableData& data) {
    jx_status_t status = readAction(data);
    if (status == JX_SUCCESS) status = readNumber(data, member_id_, &view_.member);
    if (status == JX_SUCCESS) status = readNumber(data, group_id_, &view_.group);
    if (status == JX_SUCCESS) status = readNumber(data, max_members_id_, &view_.max_members);
    if (status == JX_SUCCESS) status = readMembers(data);
    if (status == JX_SUCCESS) status = readCounters(data);
    if (status == JX_SUCCESS) status = readNumber(data, ttl_id_, &view_.ttl_ms);
    if (view_.ttl_ms == 0u) view_.ttl_ms.reset();  // 0: the entry does not age
    return status;
  }

  jx_status_t readAction(const jxrt::JxRtTableData& data) {
    uint32_t action_id = 0;
    const jx_status_t status = data.actionIdGet(&action_id);
    if (status != JX_SUCCESS || action_id == 0) return status;
    const jxrt::JxRtActionInfo* action = facts_.actionById(action_id);
    if (action == nullptr) return JX_UNEXPECTED_ERROR;
    view_.action = action->name;
    for (const jxrt::JxRtFieldInfo& param : action->params) {
      ParamView shown{{param.name, param.width}, Bytes(bytesOf(param.width), '\0')};
      const jx_status_t read =
          data.getValue(param.id, shown.value.size(), writableBytes(&shown.value));
      if (read != JX_SUCCESS) return read;
      view_.params.push_back(std::move(shown));
    }
    return JX_SUCCESS;
  }

  // A field that the table does not have, or this entry does not use, stays unset.
  static jx_status_t readNumber(const jxrt::JxRtTableData& data, std::optional<uint32_t> id,
                                std::optional<uint32_t>* number) {
    if (!id) return JX_SUCCESS;
    bool active = false;
    jx_status_t status = data.isActive(*id, &active);
    if (status != JX_SUCCESS || !active) return status;
    uint64_t value = 0;
    status = data.getValue(*id, &value);
    if (status == JX_SUCCESS) *number = static_cast<uint32_t>(value);
    return status;
  }

  jx_status_t readMembers(const jxrt::JxRtTableData& data) {
    if (!members_id_ || !active_id_) return JX_SUCCESS;
    std::vector<uint32_t> members;
    std::vector<bool> active;
    jx_status_t status = data.getValue(*members_id_, &members);
    if (status == JX_SUCCESS) status = data.getValue(*active_id_, &active);
    if (status != JX_SUCCESS) return status;
    if (members.size() != active.size()) return JX_UNEXPECTED_ERROR;
    for (size_t i = 0; i < members.size(); ++i) view_.members.push_back({members[i], active[i]});
    return JX_SUCCESS;
  }

  jx_status_t readCounters(const jxrt::JxRtTableData& data) {
    if (!packets_id_ || !bytes_id_) return JX_SUCCESS;
    CounterValues counters;
    jx_status_t status = data.getValue(*packets_id_, &counters.packets);
    if (status == JX_SUCCESS) status = data.getValue(*bytes_id_, &counters.bytes);
    if (status == JX_SUCCESS) view_.counters = counters;
    return status;
  }

  const TableFacts& facts_;
  std::vector<KeyFieldView> key_;  // without values
  std::optional<uint32_t> member_id_, group_id_, max_members_id_, members_id_, active_id_, ttl_id_,
      packets_id_, bytes_id_;
  EntryView view_;
};

bool isNothingSet(jx_status_t status) {
  return status == JX_OBJECT_NOT_FOUND || status == JX_NOT_SUPPORTED;
}

}  // namespace

const jxrt::JxRtFieldInfo* TableFacts::keyField(std::string_view field) const {
  return findByName(key, field);
}

const jxrt::JxRtFieldInfo* TableFacts::dataField(std::string_view field) const {
  return findByName(data, field);
}

const jxrt::JxRtActionInfo* TableFacts::action(std::string_view action) const {
  return findByName(actions, action);
}

const jxrt::JxRtActionInfo* TableFacts::actionById(uint32_t action_id) const {
  const auto it =
      std::find_if(actions.begin(), actions.end(),
                   [&](const jxrt::JxRtActionInfo& action) { return action.id == action_id; });
  return it == actions.end() ? nullptr : &*it;
}

jx_status_t readTableFacts(jx_dev_id_t dev_id, std::vector<TableFacts>* tables) {
  std::vector<std::string> programs;
  const jxrt::JxRtDevMgr& devices = jxrt::JxRtDevMgr::getInstance();
  jx_status_t status = devices.jxRtInfoP4NamesGet(dev_id, &programs);
  std::vector<TableFacts> found;
  for (const std::string& program : programs) {
    const jxrt::JxRtInfo* info = nullptr;
    if (status == JX_SUCCESS) status = devices.jxRtInfoGet(dev_id, program, &info);
    if (status == JX_SUCCESS) status = readProgramFacts(*info, program, &found);
  }
  if (status == JX_SUCCESS) *tables = std::move(found);
  return status;
}

const char* tableKindName(jx_rt_table_type_t type) {
  switch (type) {
    case JX_RT_TABLE_MATCH_DIRECT:
      return "match_direct";
    case JX_RT_TABLE_MATCH_ACTION_DATA:
      return "match_action_data";
    case JX_RT_TABLE_MATCH_SELECTOR:
      return "match_selector";
    case JX_RT_TABLE_ACTION_DATA:
      return "action_data";
    case JX_RT_TABLE_SELECTOR:
      return "selector";
    case JX_RT_TABLE_COUNTER:
      return "counter";
  }
  return "unknown";
}

std::string statusText(jx_status_t status) {
  const char* text = "";
  jx_rt_err_str(status, &text);
  return text;
}

jx_status_t readKey(const TableFacts& facts, const jxrt::JxRtTableKey& key,
                    std::vector<KeyFieldView>* fields) {
  EntryReader reader(facts);
  const jx_status_t status = reader.readKeyAlone(key);
  if (status == JX_SUCCESS) *fields = reader.view().key;
  return status;
}

jx_status_t forEachEntry(const TableFacts& facts, const jxrt::JxRtSession& session,
                         const jx_rt_target_t& target,
                         const std::function<void(const EntryView& entry)>& callback) {
  EntryReader reader(facts);
  const jxrt::JxRtTable& table = *facts.table;
  std::vector<jxrt::JxRtTable::Entry> entries;
  uint64_t cursor = 0;
  do {
    entries.clear();
    const jx_status_t status =
        table.tableEntriesGet(session, target, 0, &cursor, kEntriesPerRead, &entries);
    if (status != JX_SUCCESS) return status;
    for (const jxrt::JxRtTable::Entry& entry : entries) {
      const jx_status_t read = reader.readEntry(entry);
      if (read != JX_SUCCESS) return read;
      callback(reader.view());
    }
  } while (!entries.empty());

  std::unique_ptr<jxrt::JxRtTableData> data;
  jx_status_t status = table.dataAllocate(&data);
  if (status != JX_SUCCESS) return status;
  status = table.tableDefaultEntryGet(session, target, 0, data.get());
  if (status == JX_SUCCESS) status = reader.readDefault(*data);
  if (status == JX_SUCCESS) callback(reader.view());
  if (status != JX_SUCCESS && !isNothingSet(status)) return status;

  uint32_t fallback = 0;
  status = table.fallbackGet(session, target, &fallback);
  if (status == JX_SUCCESS) {
    reader.readFallback(fallback);
    callback(reader.view());
  }
  return isNothingSet(status) ? JX_SUCCESS : status;
}

}  // namespace jexapps
