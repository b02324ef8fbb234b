#include "unit/model/hand_made.h"

#include <gtest/gtest.h>

namespace jxmodeltest {

using jxmodel::KeyField;
using jxmodel::KeyValue;
using jxmodel::Program;
using jxmodel::Table;

uint32_t HandMade::action(const std::string& name, const std::vector<uint32_t>& widths) {
  jxmodel::Action action;
  action.name = name;
  for (size_t i = 0; i < widths.size(); ++i) {
    jxmodel::Param param;
    param.name = "p" + std::to_string(i);
    param.width = widths[i];
    action.params.push_back(std::move(param));
  }
  auto& actions = unpacked_.program.actions;
  // Entries are given before the program is laid out.
  jxmodel::layOutParams(&action);
  actions.push_back(std::move(action));
  return static_cast<uint32_t>(actions.size() - 1);
}

uint32_t HandMade::add(Table table) {
  auto& tables = unpacked_.program.tables;
  tables.push_back(std::move(table));
  unpacked_.entries.resize(tables.size());
  return static_cast<uint32_t>(tables.size() - 1);
}

uint32_t HandMade::table(const std::string& name, const std::vector<Field>& key, uint32_t size,
                         const std::vector<uint32_t>& actions) {
  Table table;
  table.name = name;
  table.size = size;
  table.actions = actions;
  for (const Field& given : key) {
    KeyField field;
    field.name = "k" + std::to_string(table.key.size());
    field.match = given.match;
    field.width = given.width;
    table.key.push_back(std::move(field));
  }
  return add(std::move(table));
}

uint32_t HandMade::indirect(const std::string& name, const std::vector<Field>& key,
                            uint32_t members, std::optional<uint32_t> selector) {
  const uint32_t index = table(name, key, 64, (*this)[members].actions);
  Table& made = (*this)[index];
  made.type = selector ? JX_RT_TABLE_MATCH_SELECTOR : JX_RT_TABLE_MATCH_ACTION_DATA;
  made.action_data_table = members;
  made.selector_table = selector;
  return index;
}

uint32_t HandMade::members(const std::string& name, uint32_t size,
                           const std::vector<uint32_t>& actions) {
  const uint32_t index = table(name, {}, size, actions);
  (*this)[index].type = JX_RT_TABLE_ACTION_DATA;
  return index;
}

uint32_t HandMade::selector(const std::string& name, uint32_t size, uint32_t members,
                            uint32_t max_members) {
  const uint32_t index = table(name, {}, size, {});
  Table& made = (*this)[index];
  made.type = JX_RT_TABLE_SELECTOR;
  made.action_data_table = members;
  made.max_members = max_members;
  return index;
}

uint32_t HandMade::directCounter(const std::string& name, uint32_t counted) {
  const uint32_t index = table(name, {}, 0, {});
  (*this)[index].type = JX_RT_TABLE_COUNTER;
  (*this)[index].counted_table = counted;
  (*this)[counted].direct_counter = index;
  return index;
}

uint32_t HandMade::learn(const std::string& name, const std::vector<uint32_t>& widths) {
  Program& program = unpacked_.program;
  jxmodel::Learn learn;
  learn.name = name;
  for (const uint32_t width : widths) {
    jxmodel::LearnField field;
    field.field = static_cast<uint32_t>(program.fields.size());
    program.fields.push_back({name + ".f" + std::to_string(learn.fields.size()), width});
    learn.fields.push_back(field);
  }
  program.learns.push_back(std::move(learn));
  return static_cast<uint32_t>(program.learns.size() - 1);
}

void HandMade::entry(uint32_t table, std::vector<KeyValue> key, uint32_t action,
                     std::vector<uint8_t> params, uint32_t priority) {
  jxmodel::UnpackedEntry entry;
  entry.key = std::move(key);
  entry.priority = priority;
  entry.call = {action, std::move(params)};
  unpacked_.entries[table].push_back(std::move(entry));
}

std::shared_ptr<const Program> HandMade::make() {
  jxmodel::LoadError error;
  jxmodel::UnpackedProgram unpacked = unpacked_;
  const bool laid_out = jxmodel::layOut(&unpacked, &error);
  EXPECT_TRUE(laid_out) << error.reason;
  return std::make_shared<const Program>(std::move(unpacked.program));
}

KeyValue is(std::vector<uint8_t> value) {
  KeyValue key;
  key.value = std::move(value);
  return key;
}

KeyValue under(std::vector<uint8_t> value, std::vector<uint8_t> mask) {
  KeyValue key = is(std::move(value));
  key.other = std::move(mask);
  return key;
}

}  // namespace jxmodeltest
