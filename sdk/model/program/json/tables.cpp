// Tables: kinds, keys, the actions of each, and how tables refer to one another.
#include <algorithm>

#include "model/program/json/draft.h"

namespace jxmodel {
namespace {

enum class Kind : uint8_t { kMatch, kActionData, kSelector, kCounter };
struct KindRow {
  const char* name;
  Kind kind;
};
constexpr KindRow kKinds[] = {
    {"match", Kind::kMatch},
    {"action_data", Kind::kActionData},
    {"selector", Kind::kSelector},
    {"counter", Kind::kCounter},
};

struct MatchRow {
  const char* name;
  jx_rt_key_match_type_t match;
};
constexpr MatchRow kMatches[] = {
    {"exact", JX_RT_MATCH_EXACT}, {"ternary", JX_RT_MATCH_TERNARY},   {"range", JX_RT_MATCH_RANGE},
    {"lpm", JX_RT_MATCH_LPM},     {"optional", JX_RT_MATCH_OPTIONAL},
};

void readKeyField(const Node& node, const Draft& draft, Table* table) {
  node.expectObject("a key field", {"field", "match"});
  const Node reference = node.at("field");
  const uint32_t index = draft.fields.resolve(reference);
  KeyField field;
  field.field = index;
  field.name = draft.program.fields[index].name;
  field.width = draft.program.fields[index].width;
  field.match = node.at("match").choice("match kind", kMatches).match;
  const bool taken = std::any_of(table->key.begin(), table->key.end(),
                                 [index](const KeyField& other) { return other.field == index; });
  if (taken) reference.fail("field " + inQuotes(field.name) + " is already in the key");
  table->key.push_back(std::move(field));
}

// Which entry wins would be undefined between a longer prefix and another field's priority.
void checkLpm(const std::vector<Node>& nodes, const Table& table) {
  const auto is_lpm = [](const KeyField& field) { return field.match == JX_RT_MATCH_LPM; };
  const auto lpm = std::find_if(table.key.begin(), table.key.end(), is_lpm);
  if (lpm == table.key.end()) return;
  for (size_t i = 0; i < nodes.size(); ++i) {
    const KeyField& field = table.key[i];
    if (&field == &*lpm || field.match == JX_RT_MATCH_EXACT) continue;
    nodes[i].at("match").fail(is_lpm(field) ? "a table has at most one lpm field"
                                            : "beside an lpm field all others must be exact");
  }
}

void readKey(const Node& list, const Draft& draft, Table* table) {
  const std::vector<Node> nodes = list.items(1, kMaxItems);
  for (const Node& node : nodes) readKeyField(node, draft, table);
  checkLpm(nodes, *table);
  layOutKey(table);
  const std::string refusal = keySizeRefusal(*table);
  if (!refusal.empty()) list.fail(refusal);
}

void readActionNames(const Node& list, const Draft& draft, Table* table) {
  for (const Node& node : list.items(1, kMaxItems)) {
    const uint32_t action = draft.actions.resolve(node);
    if (std::count(table->actions.begin(), table->actions.end(), action) != 0) {
      node.fail("action " + inQuotes(node.string()) + " is already in the list");
    }
    table->actions.push_back(action);
  }
}

void checkGiven(const std::optional<Node>& given, const Action& action) {
  if (!given) return;
  for (const auto& [name, node] : given->members()) {
    const bool known =
        std::any_of(action.params.begin(), action.params.end(),
                    [&name = name](const Param& param) { return param.name == name; });
    if (!known) node.fail("action " + inQuotes(action.name) + " has no such parameter");
  }
}

ActionCall readActionCall(const Node& node, const Draft& draft, const Table& table) {
  node.expectObject("a default", {"action", "params"});
  const Node reference = node.at("action");
  ActionCall call;
  call.action = draft.actions.resolve(reference);
  const Action& action = draft.program.actions[call.action];
  if (std::count(table.actions.begin(), table.actions.end(), call.action) == 0) {
    reference.fail("action " + inQuotes(action.name) + " is none of this table's");
  }
  const auto given = node.find("params");
  checkGiven(given, action);
  for (const Param& param : action.params) {
    const auto value = given ? given->find(param.name.c_str()) : std::nullopt;
    if (!value && !param.default_value) {
      given.value_or(node).fail("parameter " + inQuotes(param.name) + " is missing");
    }
    const std::vector<uint8_t> bytes = value ? value->constant(param.width) : *param.default_value;
    call.params.insert(call.params.end(), bytes.begin(), bytes.end());
  }
  return call;
}

uint32_t resolveTable(const Node& reference, jx_rt_table_type_t type, const char* what,
                      const Draft& draft) {
  const uint32_t index = draft.tables.resolve(reference);
  if (draft.program.tables[index].type != type) {
    reference.fail("table " + inQuotes(reference.string()) + " is no " + what + " table");
  }
  return index;
}

jx_rt_table_type_t matchType(const Node& node) {
  if (const auto selector = node.find("selector")) {
    if (!node.has("action_data")) selector->fail("needs 'action_data' beside it");
    return JX_RT_TABLE_MATCH_SELECTOR;
  }
  return node.has("action_data") ? JX_RT_TABLE_MATCH_ACTION_DATA : JX_RT_TABLE_MATCH_DIRECT;
}

void refuseMember(const Node& node, const char* member, const char* reason) {
  if (const auto found = node.find(member)) found->fail(reason);
}

// What a table is, as far as that needs no other table.
Table declareTable(const Node& node, Draft* draft) {
  if (!node.isObject()) node.fail("must be an object");
  const Kind kind = node.at("kind").choice("table kind", kKinds).kind;
  Table table;
  uint32_t min_size = 1;
  switch (kind) {
    case Kind::kMatch:
      node.expectObject("a match table", {"name", "kind", "size", "key", "actions", "default",
                                          "action_data", "selector", "idle_timeout"});
      table.type = matchType(node);
      break;
    case Kind::kActionData:
      node.expectObject("an action_data table", {"name", "kind", "size", "actions"});
      table.type = JX_RT_TABLE_ACTION_DATA;
      break;
    case Kind::kSelector:
      node.expectObject("a selector table",
                        {"name", "kind", "size", "action_data", "max_members", "hash"});
      table.type = JX_RT_TABLE_SELECTOR;
      break;
    case Kind::kCounter:
      node.expectObject("a counter table", {"name", "kind", "size"});
      table.type = JX_RT_TABLE_COUNTER;
      min_size = 0;
      break;
  }
  table.name = draft->tables.declare(node);
  table.size = node.at("size").number(min_size, kMaxTableSize);
  const size_t index = draft->program.tables.size();
  table.id = idAt(draft->program.id, index);
  table.handle = tableHandleAt(draft->program.id, table.type, index);
  addIndexKey(&table);
  layOutKey(&table);
  return table;
}

void readDirect(const Node& node, const Draft& draft, Table* table) {
  readActionNames(node.at("actions"), draft, table);
  const auto call = node.find("default");
  if (call) table->default_action = readActionCall(*call, draft, *table);
}

void readIndirect(const Node& node, const Draft& draft, Table* table) {
  refuseMember(node, "actions", "a table with 'action_data' has the actions of that table");
  refuseMember(node, "default", "a table with 'action_data' has no action as its default");
  table->action_data_table =
      resolveTable(node.at("action_data"), JX_RT_TABLE_ACTION_DATA, "action_data", draft);
  if (const auto selector = node.find("selector")) {
    table->selector_table = resolveTable(*selector, JX_RT_TABLE_SELECTOR, "selector", draft);
  }
}

void readMatch(const Node& node, const Draft& draft, Table* table) {
  readKey(node.at("key"), draft, table);
  if (const auto idle = node.find("idle_timeout")) table->idle_timeout = idle->boolean();
  if (table->type == JX_RT_TABLE_MATCH_DIRECT) {
    readDirect(node, draft, table);
  } else {
    readIndirect(node, draft, table);
  }
}

void readSelector(const Node& node, const Draft& draft, Table* table) {
  table->action_data_table =
      resolveTable(node.at("action_data"), JX_RT_TABLE_ACTION_DATA, "action_data", draft);
  table->max_members = node.at("max_members").number(1, kMaxGroupMembers);
  for (const Node& field : node.at("hash").items(1, kMaxItems)) {
    const uint32_t index = draft.fields.resolve(field);
    if (std::count(table->hash_fields.begin(), table->hash_fields.end(), index) != 0) {
      field.fail("field " + inQuotes(field.string()) + " is already in the list");
    }
    table->hash_fields.push_back(index);
  }
}

void readDetails(const Node& node, const Draft& draft, Table* table) {
  switch (table->type) {
    case JX_RT_TABLE_MATCH_DIRECT:
    case JX_RT_TABLE_MATCH_ACTION_DATA:
    case JX_RT_TABLE_MATCH_SELECTOR:
      readMatch(node, draft, table);
      break;
    case JX_RT_TABLE_ACTION_DATA:
      readActionNames(node.at("actions"), draft, table);
      break;
    case JX_RT_TABLE_SELECTOR:
      readSelector(node, draft, table);
      break;
    case JX_RT_TABLE_COUNTER:
      break;
  }
}

// What needs the details of other tables: a table may be named before it is described.
void link(const Node& node, const std::vector<Table>& tables, Table* table) {
  if (!table->action_data_table) return;
  const Table& members = tables[*table->action_data_table];
  table->actions = members.actions;
  if (!table->selector_table) return;
  const Table& selector = tables[*table->selector_table];
  if (selector.action_data_table != table->action_data_table) {
    node.at("selector")
        .fail("selector " + inQuotes(selector.name) + " has members of " +
              inQuotes(tables[*selector.action_data_table].name) + ", this table of " +
              inQuotes(members.name));
  }
}

}  // namespace

void readTables(const Node& list, Draft* draft) {
  const std::vector<Node> nodes = list.items(1, kMaxItems);
  std::vector<Table>& tables = draft->program.tables;
  for (const Node& node : nodes) tables.push_back(declareTable(node, draft));
  for (size_t i = 0; i < nodes.size(); ++i) readDetails(nodes[i], *draft, &tables[i]);
  for (size_t i = 0; i < nodes.size(); ++i) link(nodes[i], tables, &tables[i]);
}

}  // namespace jxmodel
