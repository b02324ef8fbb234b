// Entries that a table has from the start.
#include <algorithm>

#include "model/program/json/draft.h"

namespace jxmodel {
namespace {

std::vector<uint8_t> ones(uint32_t width) {
  std::vector<uint8_t> value(bytesOf(width), 0xFF);
  if (width % 8 != 0) value[0] = static_cast<uint8_t>(0xFFU >> (8 - width % 8));
  return value;
}

/// A field that an entry leaves out matches anything.
KeyValue anything(const KeyField& field) {
  KeyValue value;
  value.any = true;
  value.value.assign(bytesOf(field.width), 0);
  value.other = field.match == JX_RT_MATCH_RANGE ? ones(field.width) : value.value;
  return value;
}

KeyValue readKeyValue(const Node& node, const KeyField& field) {
  KeyValue value;
  switch (field.match) {
    case JX_RT_MATCH_TERNARY:
      node.expectObject("a value with a mask", {"value", "mask"});
      value.value = node.at("value").constant(field.width);
      value.other = node.at("mask").constant(field.width);
      return value;
    case JX_RT_MATCH_RANGE:
      node.expectObject("a range", {"low", "high"});
      value.value = node.at("low").constant(field.width);
      value.other = node.at("high").constant(field.width);
      return value;
    case JX_RT_MATCH_LPM:
      node.expectObject("a prefix", {"value", "prefix"});
      value.value = node.at("value").constant(field.width);
      value.prefix = node.at("prefix").number(0, field.width);
      return value;
    default:
      value.value = node.constant(field.width);
      return value;
  }
}

std::vector<KeyValue> readEntryKey(const Node& node, const Table& table) {
  for (const auto& [name, member] : node.members()) {
    const bool known =
        std::any_of(table.key.begin(), table.key.end(),
                    [&name = name](const KeyField& key) { return key.name == name; });
    if (!known) member.fail("field " + inQuotes(name) + " is not in the key");
  }
  std::vector<KeyValue> key;
  for (const KeyField& field : table.key) {
    const auto given = node.find(field.name.c_str());
    if (!given && field.match == JX_RT_MATCH_EXACT) {
      node.fail("field " + inQuotes(field.name) + " is missing");
    }
    key.push_back(given ? readKeyValue(*given, field) : anything(field));
  }
  return key;
}

}  // namespace

std::vector<UnpackedEntry> readEntries(const Node& list, const Draft& draft, const Table& table) {
  std::vector<UnpackedEntry> entries;
  const std::string place = list.place() + '/';
  for (const Node& node : list.items(0, table.size)) {
    node.expectObject("an entry", {"key", "priority", "action", "params"});
    UnpackedEntry entry;
    entry.key = readEntryKey(node.at("key"), table);
    if (const auto priority = node.find("priority")) {
      if (!table.has_priority) priority->fail("entries of this table have no priority");
      entry.priority = priority->number(0, UINT32_MAX);
    }
    entry.call = readActionCall(node, draft, table);
    entry.place = place + std::to_string(entries.size());
    entries.push_back(std::move(entry));
  }
  return entries;
}

}  // namespace jxmodel
