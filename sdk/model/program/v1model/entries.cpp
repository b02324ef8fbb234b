// Default actions and the entries that tables have from the start.
#include <algorithm>
#include <set>
#include <tuple>

#include "model/program/v1model/pipelines.h"
#include "model/program/v1model/values.h"

namespace jxmodel::v1model {
namespace {

constexpr uint32_t kHighestPriority = 10'000;  // of the device, for 0 in the file

ActionCall packCall(const ReadCall& call, const Pipelines& pipelines, const Draft& draft) {
  ActionCall packed;
  packed.action = *pipelines.program_actions.find(draft.shapes[call.action].name);
  for (const auto& value : call.params) {
    packed.params.insert(packed.params.end(), value.begin(), value.end());
  }
  return packed;
}

void layOver(const std::vector<uint8_t>& mask, std::vector<uint8_t>* value) {
  for (size_t i = 0; i < mask.size(); ++i) {
    (*value)[i] = static_cast<uint8_t>((*value)[i] & mask[i]);
  }
}

std::vector<uint8_t> prefixMask(uint32_t width, uint32_t prefix) {
  std::vector<uint8_t> mask(bytesOf(width), 0);
  const uint32_t padding = bytesOf(width) * 8 - width;
  for (uint32_t bit = padding; bit < padding + prefix; ++bit) {
    mask[bit / 8] = static_cast<uint8_t>(mask[bit / 8] | 0x80 >> bit % 8);
  }
  return mask;
}

// An exact value, of a validity also true and false.
std::vector<uint8_t> readExactValue(const Node& node, uint32_t width) {
  if (node.isBoolean()) return bytesOfWidth(numberOf(node.boolean() ? 1 : 0), width, node);
  return readHexOfWidth(node, width);
}

KeyValue readPrefixValue(const Node& node, const KeyField& field) {
  KeyValue value;
  value.value = readHexOfWidth(node.at("key"), field.width);
  const Node prefix = node.at("prefix_length");
  value.prefix = prefix.number(0, UINT32_MAX);
  if (value.prefix > field.width) {
    prefix.fail("prefix length " + std::to_string(value.prefix) + " is above the " +
                std::to_string(field.width) + " bits of key " + shown(field.name));
  }
  layOver(prefixMask(field.width, value.prefix), &value.value);
  return value;
}

KeyValue readMaskedValue(const Node& node, const KeyField& field) {
  KeyValue value;
  value.value = readHexOfWidth(node.at("key"), field.width);
  const auto mask = node.findValue("mask");
  value.other = mask ? readHexOfWidth(*mask, field.width) : prefixMask(field.width, field.width);
  layOver(value.other, &value.value);
  return value;
}

KeyValue readRangeValue(const Node& node, const KeyField& field) {
  const Node start = node.at("start");
  const Node end = node.at("end");
  KeyValue value;
  value.value = readHexOfWidth(start, field.width);
  value.other = readHexOfWidth(end, field.width);
  if (value.value > value.other) {
    start.fail("start " + textOf(readHex(start)) + " is above end " + textOf(readHex(end)));
  }
  return value;
}

KeyValue readMatch(const Node& node, const Node& key, const KeyField& field) {
  const Node kind = node.at("match_type");
  const Node wanted = key.at("match_type");
  if (kind.string() != wanted.string()) {
    kind.fail("key " + shown(field.name) + " is " + wanted.string() + ", not " +
              shown(kind.string()));
  }
  switch (field.match) {
    case JX_RT_MATCH_LPM:
      return readPrefixValue(node, field);
    case JX_RT_MATCH_RANGE:
      return readRangeValue(node, field);
    case JX_RT_MATCH_TERNARY:
    case JX_RT_MATCH_OPTIONAL:
      return readMaskedValue(node, field);
    default:
      return {readExactValue(node.at("key"), field.width), {}, 0, false};
  }
}

UnpackedEntry readEntry(const Node& node, const CompiledTable& compiled, const Table& table,
                        const Pipelines& pipelines, const Draft& draft) {
  UnpackedEntry entry;
  const std::vector<Node> keys = itemsOf(compiled.node.at("key"));
  const Node list = node.at("match_key");
  const std::vector<Node> values = itemsOf(list);
  if (values.size() != keys.size()) {
    list.fail("the key has " + std::to_string(keys.size()) + " fields, not " +
              std::to_string(values.size()));
  }
  for (size_t i = 0; i < keys.size(); ++i) {
    entry.key.push_back(readMatch(values[i], keys[i], table.key[i]));
    // Packets come under the table's mask.
    if (table.key[i].match != JX_RT_MATCH_RANGE) {
      layOver(compiled.key_masks[i], &entry.key.back().value);
    }
  }
  entry.call = packCall(readCall(node.at("action_entry"), compiled, draft), pipelines, draft);
  return entry;
}

/// In the file the smaller number wins; entries without one are in the order of the file.
std::vector<uint32_t> readPriorities(const std::vector<Node>& nodes) {
  std::vector<uint32_t> priorities;
  for (const Node& node : nodes) {
    const auto given = node.findValue("priority");
    priorities.push_back(given ? given->number(0, UINT32_MAX)
                               : static_cast<uint32_t>(priorities.size()) + 1);
  }
  return priorities;
}

/// To the device's: the greater wins. Those beyond the range go by their rank.
std::vector<uint32_t> devicePriorities(std::vector<uint32_t> priorities) {
  const std::set<uint32_t> distinct(priorities.begin(), priorities.end());
  if (distinct.empty() || *distinct.rbegin() <= kHighestPriority) {
    for (uint32_t& priority : priorities) priority = kHighestPriority - priority;
    return priorities;
  }
  std::unordered_map<uint32_t, uint32_t> ranks;
  auto rank = static_cast<uint32_t>(distinct.size());
  for (const uint32_t priority : distinct) ranks[priority] = --rank;
  for (uint32_t& priority : priorities) priority = ranks[priority];
  return priorities;
}

/// Finds out whether an entry has been there.
class Duplicates {
 public:
  bool add(const UnpackedEntry& entry) {
    std::vector<std::tuple<std::vector<uint8_t>, std::vector<uint8_t>, uint32_t>> key;
    for (const KeyValue& value : entry.key)
      key.emplace_back(value.value, value.other, value.prefix);
    return seen_.insert({std::move(key), entry.priority}).second;
  }

 private:
  std::set<std::pair<std::vector<std::tuple<std::vector<uint8_t>, std::vector<uint8_t>, uint32_t>>,
                     uint32_t>>
      seen_;
};

}  // namespace

ReadCall readCall(const Node& call, const CompiledTable& table, const Draft& draft) {
  const Node id = call.at("action_id");
  ReadCall read;
  read.action = draft.symbols.actions.resolve(id);
  const Action& shape = draft.shapes[read.action];
  const bool own = std::count(table.actions.begin(), table.actions.end(), read.action) != 0;
  if (!own) id.fail("action " + shown(shape.name) + " is none of its actions");
  const auto data = call.findValue("action_data");
  const std::vector<Node> values = data ? itemsOf(*data) : std::vector<Node>{};
  if (values.size() != shape.params.size()) {
    data.value_or(call).fail("action " + shown(shape.name) + " takes " +
                             std::to_string(shape.params.size()) + " values, not " +
                             std::to_string(values.size()));
  }
  for (size_t i = 0; i < values.size(); ++i) {
    read.params.push_back(readHexOfWidth(values[i], shape.params[i].width));
  }
  return read;
}

void readDefault(const CompiledTable& compiled, const Pipelines& pipelines, const Draft& draft,
                 Table* table) {
  const auto call = compiled.node.findValue("default_entry");
  if (!call) return;
  if (table->type != JX_RT_TABLE_MATCH_DIRECT) {
    call->fail("a table with an action profile has no default entry");
  }
  table->default_action = packCall(readCall(*call, compiled, draft), pipelines, draft);
  const auto constant = call->findValue("action_const");
  table->constant_default = constant && constant->boolean();
}

void readEntries(const CompiledTable& compiled, const Pipelines& pipelines, const Draft& draft,
                 Table* table, std::vector<UnpackedEntry>* entries) {
  const auto list = compiled.node.findValue("entries");
  if (!list) return;
  if (table->type != JX_RT_TABLE_MATCH_DIRECT || table->key.empty()) {
    list->fail("only a table with a key and actions of its own has entries");
  }
  const std::vector<Node> nodes = itemsOf(*list);
  const std::vector<uint32_t> priorities = devicePriorities(readPriorities(nodes));
  Duplicates seen;
  for (size_t i = 0; i < nodes.size(); ++i) {
    within(compiled.construct() + ", entry " + std::to_string(i), [&] {
      entries->push_back(readEntry(nodes[i], compiled, *table, pipelines, draft));
      if (table->has_priority) entries->back().priority = priorities[i];
      if (!seen.add(entries->back())) nodes[i].fail("the same key has been given before");
    });
  }
  table->constant_entries = true;
  table->size = std::max(table->size, static_cast<uint32_t>(entries->size()));
}

}  // namespace jxmodel::v1model
