// Keys: where values come from, and how they match.
#include <algorithm>

#include "model/program/v1model/expressions.h"
#include "model/program/v1model/pipelines.h"
#include "model/program/v1model/values.h"

namespace jxmodel::v1model {
namespace {

struct MatchRow {
  const char* name;
  jx_rt_key_match_type_t match;
  int rank;  // a table's kind is the greatest of its keys
};
constexpr MatchRow kMatches[] = {
    {"exact", JX_RT_MATCH_EXACT, 0},       {"valid", JX_RT_MATCH_EXACT, 0},
    {"lpm", JX_RT_MATCH_LPM, 1},           {"ternary", JX_RT_MATCH_TERNARY, 2},
    {"optional", JX_RT_MATCH_OPTIONAL, 2}, {"range", JX_RT_MATCH_RANGE, 3},
};
constexpr int kPriorityRank = 2;  // and above: entries have priorities

const MatchRow& matchOf(const Node& node) {
  const std::string& text = node.string();
  for (const MatchRow& row : kMatches) {
    if (text == row.name) return row;
  }
  node.fail("match type " + shown(text) + " is not known");
}

// [header, field], the name of a header whose validity it is, or an operand.
FieldUse readKeyTarget(const Node& target, const Draft& draft) {
  if (target.isObject()) {
    const Node operand = unwrapped(target);
    if (!isFieldUse(operand)) operand.fail("is not a field, so that its width is not known");
    return readFieldUse(operand, draft);
  }
  FieldUse use;
  if (target.isString()) {
    use.header.index = use.header.like = draft.symbols.headers.names.resolve(target);
    use.validity = true;
    return use;
  }
  const NamedField named = resolveField(target, draft);
  use.header.index = use.header.like = named.header;
  use.number = named.number.value_or(0);
  use.validity = !named.number;
  return use;
}

Expression readKeyValue(const Node& target, const FieldUse& use, Draft* draft) {
  if (target.isObject()) return readExpression(target, {}, draft);
  if (use.validity) return {{ExprOp::kHeaderValid, use.header.index, 0}};
  return {{ExprOp::kField, draft->machine.headers[use.header.index].first_field + use.number, 0}};
}

std::string readKeyName(const Node& node, const FieldUse& use, const Machine& machine) {
  const auto name = node.findValue("name");
  return name ? name->string() : nameOf(use, machine);
}

// Values of other kinds lie in room for an address.
void checkKeyWidth(const Node& node, const KeyField& field) {
  const uint32_t most = field.match == JX_RT_MATCH_EXACT ? kMaxExactKeyWidth : kMaxKeyWidth;
  if (field.width <= most) return;
  node.fail("key " + shown(field.name) + " has " + std::to_string(field.width) + " bits; at most " +
            std::to_string(most) + " can be matched");
}

void readKeyField(const Node& node, CompiledTable* compiled, Table* table, Draft* draft) {
  const Node target = node.at("target");
  const FieldUse use = readKeyTarget(target, *draft);
  const MachineField* const like = likeOf(use, draft->machine);
  KeyField field;
  field.name = readKeyName(node, use, draft->machine);
  field.match = matchOf(node.at("match_type")).match;
  field.width = like == nullptr ? 1 : like->width;
  if (like != nullptr && like->varbit) target.fail("key " + shown(field.name) + " is a varbit");
  checkKeyWidth(node, field);
  compiled->key.push_back(readKeyValue(target, use, draft));
  const auto mask = node.findValue("mask");
  compiled->key_masks.push_back(mask ? readHexOfWidth(*mask, field.width) : std::vector<uint8_t>{});
  table->key.push_back(std::move(field));
}

void checkKinds(const std::vector<Node>& nodes, const CompiledTable& compiled, const Table& table) {
  const MatchRow& kind = matchOf(compiled.node.at("match_type"));
  const KeyField* prefix = nullptr;
  for (size_t i = 0; i < nodes.size(); ++i) {
    const Node type = nodes[i].at("match_type");
    if (matchOf(type).rank > kind.rank) {
      type.fail(compiled.construct() + " is " + kind.name + " but key " + shown(table.key[i].name) +
                " is " + type.string());
    }
    if (table.key[i].match != JX_RT_MATCH_LPM) continue;
    if (prefix != nullptr) {
      type.fail(compiled.construct() + " has two lpm keys: " + shown(prefix->name) + " and " +
                shown(table.key[i].name));
    }
    prefix = &table.key[i];
  }
}

}  // namespace

void readKey(CompiledTable* compiled, Table* table, Draft* draft) {
  const Node list = compiled->node.at("key");
  const std::vector<Node> nodes = itemsOf(list);
  uint32_t bytes = 0;
  for (const Node& node : nodes) {
    readKeyField(node, compiled, table, draft);
    bytes += bytesOf(table->key.back().width);
    if (bytes > kMaxKeyBytes) {
      list.fail("its key has more than " + std::to_string(kMaxKeyBytes) + " bytes");
    }
  }
  checkKinds(nodes, *compiled, *table);
  table->has_priority =
      !nodes.empty() && matchOf(compiled->node.at("match_type")).rank >= kPriorityRank;
}

}  // namespace jxmodel::v1model
