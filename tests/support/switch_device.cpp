#include "support/switch_device.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>

#include "jxsdk/pipe_mgr.h"

namespace jextest {
namespace {

using jxrt::JxRtFieldInfo;
using jxrt::JxRtTable;
using jxrt::JxRtTableData;
using jxrt::JxRtTableKey;

size_t bytesOf(uint32_t bits) { return (bits + 7) / 8; }

std::string hex(const std::vector<uint8_t>& bytes) {
  static const char digits[] = "0123456789abcdef";
  std::string text;
  for (const uint8_t byte : bytes) {
    text += digits[byte >> 4];
    text += digits[byte & 15];
  }
  return text;
}

std::string keyFieldText(const JxRtTableKey& key, const JxRtFieldInfo& field) {
  std::vector<uint8_t> first(bytesOf(field.width));
  std::vector<uint8_t> second(first.size());
  uint16_t prefix = 0;
  bool valid = false;
  switch (field.match_type) {
    case JX_RT_MATCH_TERNARY:
      must(key.getValueAndMask(field.id, first.size(), first.data(), second.data()), "key mask");
      return hex(first) + "&" + hex(second);
    case JX_RT_MATCH_RANGE:
      must(key.getValueRange(field.id, first.size(), first.data(), second.data()), "key range");
      return hex(first) + ".." + hex(second);
    case JX_RT_MATCH_LPM:
      must(key.getValueLpm(field.id, first.size(), first.data(), &prefix), "key prefix");
      return hex(first) + "/" + std::to_string(prefix);
    case JX_RT_MATCH_OPTIONAL:
      must(key.getValueOptional(field.id, first.size(), first.data(), &valid), "key optional");
      return valid ? hex(first) : "*";
    default:
      must(key.getValue(field.id, first.size(), first.data()), "key value");
      return hex(first);
  }
}

std::string keyText(const JxRtTable& table, const JxRtTableKey& key) {
  std::vector<JxRtFieldInfo> fields;
  must(table.keyFieldListGet(&fields), "key fields");
  std::string text;
  bool has_priority = false;
  for (const JxRtFieldInfo& field : fields) {
    text += " " + field.name + "=" + keyFieldText(key, field);
    has_priority = has_priority || field.match_type == JX_RT_MATCH_TERNARY ||
                   field.match_type == JX_RT_MATCH_RANGE ||
                   field.match_type == JX_RT_MATCH_OPTIONAL;
  }
  if (has_priority) {
    uint32_t priority = 0;
    must(key.priorityGet(&priority), "priority");
    text += " priority=" + std::to_string(priority);
  }
  return text;
}

template <typename Value>
std::string listText(const JxRtTableData& data, uint32_t field_id) {
  std::vector<Value> values;
  must(data.getValue(field_id, &values), "list");
  std::string text = "[";
  for (const Value value : values) text += std::to_string(static_cast<uint64_t>(value)) + ",";
  return text + "]";
}

std::string dataFieldText(const JxRtTableData& data, const JxRtFieldInfo& field) {
  if (field.name == JX_RT_FIELD_MEMBERS) return listText<uint32_t>(data, field.id);
  if (field.name == JX_RT_FIELD_MEMBERS_ACTIVE) return listText<bool>(data, field.id);
  std::vector<uint8_t> value(bytesOf(field.width));
  must(data.getValue(field.id, value.size(), value.data()), "data value");
  return hex(value);
}

std::string dataText(const JxRtTable& table, const JxRtTableData& data) {
  uint32_t action_id = 0;
  must(data.actionIdGet(&action_id), "action");
  std::vector<JxRtFieldInfo> fields;
  must(table.dataFieldListGet(&fields), "data fields");
  std::string text = " ->";
  std::vector<jxrt::JxRtActionInfo> actions;
  must(table.actionListGet(&actions), "actions");
  for (const jxrt::JxRtActionInfo& action : actions) {
    if (action.id != action_id) continue;
    text += " " + action.name;
    fields.insert(fields.end(), action.params.begin(), action.params.end());
  }
  for (const JxRtFieldInfo& field : fields) {
    bool active = false;
    must(data.isActive(field.id, &active), "is active");
    if (active) text += " " + field.name + "=" + dataFieldText(data, field);
  }
  return text;
}

void dumpEntries(const DeviceView& device, const JxRtTable& table, const std::string& name,
                 std::vector<std::string>* lines) {
  uint64_t cursor = 0;
  std::vector<JxRtTable::Entry> entries;
  do {
    entries.clear();
    must(table.tableEntriesGet(device.session(), device.target(), 0, &cursor, 256, &entries),
         "entries");
    for (const JxRtTable::Entry& entry : entries) {
      lines->push_back(name + " #" + std::to_string(entry.handle) + keyText(table, *entry.key) +
                       dataText(table, *entry.data));
    }
  } while (!entries.empty());
}

void dumpDefault(const DeviceView& device, const JxRtTable& table, const std::string& name,
                 std::vector<std::string>* lines) {
  std::unique_ptr<JxRtTableData> data;
  must(table.dataAllocate(&data), "data");
  const jx_status_t status =
      table.tableDefaultEntryGet(device.session(), device.target(), 0, data.get());
  if (status == JX_SUCCESS) lines->push_back(name + " default" + dataText(table, *data));
}

void dumpFallback(const DeviceView& device, const JxRtTable& table, const std::string& name,
                  std::vector<std::string>* lines) {
  uint32_t member = 0;
  if (table.fallbackGet(device.session(), device.target(), &member) == JX_SUCCESS) {
    lines->push_back(name + " fallback member " + std::to_string(member));
  }
}

}  // namespace

std::string programFile(const std::string& name) {
  return std::string(JEX_TEST_SOURCE_ROOT) + "/programs/" + name + ".json";
}

void must(jx_status_t status, const char* what) {
  if (status == JX_SUCCESS) return;
  const char* text = nullptr;
  jx_rt_err_str(status, &text);
  std::fprintf(stderr, "test set-up: %s: %s\n", what, text);
  std::abort();
}

void bringSdkUp() {
  must(jx_drv_init(), "jx_drv_init");
  must(pipe_mgr_init(), "pipe_mgr_init");
  must(jx_rt_module_init(0, 0, nullptr, nullptr), "jx_rt_module_init");
}

Profile::Profile(const std::vector<std::string>& programs, uint32_t handle_base) {
  for (const std::string& program : programs) {
    files_.push_back(program.find('/') == std::string::npos ? programFile(program) : program);
  }
  for (const std::string& file : files_) pointers_.push_back(file.c_str());
  profile_.num_programs = static_cast<uint32_t>(pointers_.size());
  profile_.program_files = pointers_.data();
  profile_.handle_base = handle_base;
}

DeviceView::DeviceView(jx_dev_id_t dev_id) : session_(jxrt::JxRtSession::sessionCreate()) {
  if (!session_) must(JX_MAX_SESSIONS_EXCEEDED, "session");
  target_.dev_id = dev_id;
  target_.pipe_id = JX_PIPE_ALL;
}

std::vector<const JxRtTable*> DeviceView::tables() const {
  std::vector<std::string> programs;
  must(jxrt::JxRtDevMgr::getInstance().jxRtInfoP4NamesGet(id(), &programs), "programs");
  std::vector<const JxRtTable*> all;
  for (const std::string& program : programs) {
    const jxrt::JxRtInfo* info = nullptr;
    must(jxrt::JxRtDevMgr::getInstance().jxRtInfoGet(id(), program, &info), "program");
    std::vector<const JxRtTable*> tables;
    must(info->tablesGet(&tables), "tables");
    all.insert(all.end(), tables.begin(), tables.end());
  }
  return all;
}

const JxRtTable& DeviceView::table(const std::string& name) const {
  for (const JxRtTable* table : tables()) {
    std::string own;
    must(table->tableNameGet(&own), "table name");
    if (own == name) return *table;
  }
  must(JX_TABLE_NOT_FOUND, name.c_str());
  std::abort();
}

std::vector<std::string> DeviceView::dump() const {
  std::vector<std::string> lines;
  for (const JxRtTable* table : tables()) {
    std::string name;
    jx_rt_table_type_t type{};
    must(table->tableNameGet(&name), "table name");
    must(table->tableTypeGet(&type), "table type");
    if (type > JX_RT_TABLE_SELECTOR) continue;  // counters do not travel as updates
    dumpEntries(*this, *table, name, &lines);
    if (type <= JX_RT_TABLE_MATCH_SELECTOR) dumpDefault(*this, *table, name, &lines);
    if (type == JX_RT_TABLE_SELECTOR) dumpFallback(*this, *table, name, &lines);
  }
  std::sort(lines.begin(), lines.end());
  return lines;
}

SwitchDevice::SwitchDevice(DeviceKind kind, jx_dev_id_t dev_id,
                           const std::vector<std::string>& programs, uint32_t handle_base)
    : dev_id_(dev_id) {
  bringSdkUp();
  Profile profile(programs, handle_base);
  const auto add = kind == DeviceKind::kPhysical ? jx_device_add : jx_virtual_device_add;
  must(add(dev_id, profile.get(), JX_DEV_TYPE_MODEL), "device");
  view_ = std::make_unique<DeviceView>(dev_id);
}

SwitchDevice::~SwitchDevice() { jx_device_remove(dev_id_); }

}  // namespace jextest
