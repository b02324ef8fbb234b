// Tables: which of them the program has, in which order, and what belongs to each.
#include <algorithm>
#include <set>

#include "model/program/v1model/pipelines.h"

namespace jxmodel::v1model {
namespace {

struct TypeRow {
  const char* name;
  jx_rt_table_type_t type;
};
constexpr TypeRow kTypes[] = {
    {"simple", JX_RT_TABLE_MATCH_DIRECT},
    {"indirect", JX_RT_TABLE_MATCH_ACTION_DATA},
    {"indirect_ws", JX_RT_TABLE_MATCH_SELECTOR},
};

jx_rt_table_type_t typeOfTable(const Node& table) {
  const Node type = table.at("type");
  for (const TypeRow& row : kTypes) {
    if (type.string() == row.name) return row.type;
  }
  type.fail("type " + shown(type.string()) + " is not known");
}

// --- what the file has

// By their ids; a file without ids has names of actions that do not repeat.
std::vector<uint32_t> readTableActions(const Node& table, const Draft& draft) {
  std::vector<uint32_t> actions;
  if (const auto ids = table.findValue("action_ids")) {
    for (const Node& id : itemsOf(*ids)) actions.push_back(draft.symbols.actions.resolve(id));
    return actions;
  }
  for (const Node& name : itemsOf(table.at("actions"))) {
    std::optional<uint32_t> found;
    for (uint32_t i = 0; i < draft.shapes.size(); ++i) {
      if (draft.shapes[i].name != name.string()) continue;
      if (found) name.fail("there are several actions " + shown(name.string()));
      found = i;
    }
    if (!found) name.fail("action " + shown(name.string()) + " does not exist");
    actions.push_back(*found);
  }
  return actions;
}

void checkNamesDiffer(const CompiledTable& table, const Draft& draft) {
  std::set<std::string> names;
  for (const uint32_t action : table.actions) {
    const std::string& name = draft.shapes[action].name;
    if (!names.insert(name).second) {
      table.node.fail("action " + shown(name) + " is in its list twice");
    }
  }
}

bool isConstantDefault(const Node& table) {
  const auto call = table.findValue("default_entry");
  if (!call) return false;
  const auto constant = call->findValue("action_const");
  return constant && constant->boolean();
}

// The compiler calls an action by a table that nobody programs.
bool isHelper(const CompiledTable& table) {
  return itemsOf(table.node.at("key")).empty() && table.actions.size() == 1 &&
         typeOfTable(table.node) == JX_RT_TABLE_MATCH_DIRECT && isConstantDefault(table.node) &&
         table.name.compare(0, 4, "tbl_") == 0 && !table.counter && !table.meter;
}

void declareTables(const Node& pipeline, bool ingress, const Draft& draft, Pipelines* pipelines) {
  for (const Node& node : itemsOf(pipeline, "tables")) {
    CompiledTable table(node);
    table.name = pipelines->table_names.declare(node);
    table.ingress = ingress;
    within(table.construct(), [&] {
      node.at("id").number(0, UINT32_MAX);
      table.actions = readTableActions(node, draft);
      checkNamesDiffer(table, draft);
    });
    pipelines->tables.push_back(std::move(table));
  }
}

void declareConditions(const Node& pipeline, bool ingress, Pipelines* pipelines) {
  for (const Node& node : itemsOf(pipeline, "conditionals")) {
    Condition condition(node);
    condition.name = node.at("name").string();
    condition.ingress = ingress;
    node.at("id").number(0, UINT32_MAX);
    pipelines->conditions.push_back(std::move(condition));
  }
}

// Direct counters and meters name their table.
void bindArrays(const std::vector<DeclaredArray>& arrays, const char* what,
                std::optional<uint32_t> CompiledTable::*member, Pipelines* pipelines) {
  for (uint32_t i = 0; i < arrays.size(); ++i) {
    if (!arrays[i].binding) continue;
    within(std::string(what) + " " + shown(arrays[i].name), [&] {
      CompiledTable& table = pipelines->tables[pipelines->table_names.resolve(*arrays[i].binding)];
      if (table.*member) {
        arrays[i].binding->fail(table.construct() + " has another " + what + " already");
      }
      table.*member = i;
    });
  }
}

void checkDirectMeters(const CompiledTable& table, const Draft& draft) {
  const auto name = table.node.findValue("direct_meters");
  if (!name) return;
  if (table.meter != draft.symbols.meters.names.resolve(*name)) {
    name->fail("meter " + shown(name->string()) + " is bound to another table");
  }
}

// --- the program's actions

bool sameParams(const Action& left, const Action& right) {
  if (left.params.size() != right.params.size()) return false;
  for (size_t i = 0; i < left.params.size(); ++i) {
    if (left.params[i].name != right.params[i].name) return false;
    if (left.params[i].width != right.params[i].width) return false;
  }
  return true;
}

// Tables have copies of an action; helpers have their arguments in the body instead.
void checkCopies(const Draft& draft, const Pipelines& pipelines) {
  for (const CompiledTable& table : pipelines.tables) {
    if (table.helper) continue;
    for (const uint32_t action : table.actions) {
      const Action& shape = draft.shapes[action];
      const uint32_t first = *pipelines.program_actions.find(shape.name);
      if (sameParams(shape, draft.out.program.actions[first])) continue;
      table.node.fail(table.construct() + ": action " + shown(shape.name) +
                      " has other parameters than in another table");
    }
  }
}

void addActions(Draft* draft, Pipelines* pipelines) {
  std::vector<bool> used(draft->shapes.size(), false);
  for (const CompiledTable& table : pipelines->tables) {
    if (table.helper) continue;
    for (const uint32_t action : table.actions) used[action] = true;
  }
  std::vector<Action>& actions = draft->out.program.actions;
  for (size_t i = 0; i < used.size(); ++i) {
    const Action& shape = draft->shapes[i];
    if (!used[i] || pipelines->program_actions.has(shape.name)) continue;
    pipelines->program_actions.add(shape.name, static_cast<uint32_t>(actions.size()));
    actions.push_back(shape);
  }
  checkCopies(*draft, *pipelines);
}

// --- the program's tables

uint32_t readTableSize(const CompiledTable& compiled) {
  const Node node = compiled.node.at("max_size");
  const uint32_t size = node.number(0, UINT32_MAX);
  if (size > kMaxTableSize) {
    node.fail("size " + std::to_string(size) + " is above the limit " +
              std::to_string(kMaxTableSize));
  }
  // Without room for entries that it cannot have anyway.
  const bool never_filled =
      itemsOf(compiled.node.at("key")).empty() || compiled.node.findValue("entries");
  if (size == 0 && !never_filled) node.fail("size 0 is below 1");
  return std::max(size, 1u);
}

// The actions of an indirect table are those of its profile, in its order.
void sortLikeProfile(const Profile& profile, const Draft& draft, const Pipelines& pipelines,
                     CompiledTable* compiled) {
  std::vector<uint32_t> sorted;
  for (const uint32_t wanted : profile.actions) {
    for (const uint32_t action : compiled->actions) {
      if (pipelines.program_actions.find(draft.shapes[action].name) == wanted) {
        sorted.push_back(action);
      }
    }
  }
  compiled->actions = std::move(sorted);
}

void readActionsOf(CompiledTable* compiled, Table* table, const Draft& draft,
                   Pipelines* pipelines) {
  for (const uint32_t action : compiled->actions) {
    table->actions.push_back(*pipelines->program_actions.find(draft.shapes[action].name));
  }
  if (table->type == JX_RT_TABLE_MATCH_DIRECT) return;
  compiled->profile =
      useProfile(*compiled, table->type == JX_RT_TABLE_MATCH_SELECTOR, table->actions, pipelines);
  const Profile& profile = pipelines->profiles[*compiled->profile];
  table->actions = profile.actions;
  sortLikeProfile(profile, draft, *pipelines, compiled);
}

void addTable(Table table, std::vector<UnpackedEntry> entries, Draft* draft) {
  draft->out.program.tables.push_back(std::move(table));
  draft->out.entries.push_back(std::move(entries));
}

void addMatchTable(CompiledTable* compiled, Draft* draft, Pipelines* pipelines) {
  Table table;
  std::vector<UnpackedEntry> entries;
  table.name = compiled->name;
  table.type = typeOfTable(compiled->node);
  table.size = readTableSize(*compiled);
  const auto timeout = compiled->node.findValue("support_timeout");
  table.idle_timeout = timeout && timeout->boolean();
  readActionsOf(compiled, &table, *draft, pipelines);
  readKey(compiled, &table, draft);
  readDefault(*compiled, *pipelines, *draft, &table);
  readEntries(*compiled, *pipelines, *draft, &table, &entries);
  checkDirectMeters(*compiled, *draft);
  compiled->index = static_cast<uint32_t>(draft->out.program.tables.size());
  addTable(std::move(table), std::move(entries), draft);
}

// A name that the program's tables leave free.
std::string freeName(const std::string& name, const char* suffix, const Draft& draft) {
  std::string free = name;
  while (draft.out.program.tableByName(free) != nullptr) free += suffix;
  return free;
}

// A table that is addressed by a number. Returns its index.
uint32_t addIndexTable(const std::string& name, jx_rt_table_type_t type, const char* key,
                       uint32_t size, Draft* draft) {
  KeyField field;
  field.name = key;
  field.width = kIndexWidth;
  Table table;
  table.name = name;
  table.type = type;
  table.size = size;
  table.key.push_back(std::move(field));
  const auto index = static_cast<uint32_t>(draft->out.program.tables.size());
  addTable(std::move(table), {}, draft);
  return index;
}

void addProfileTables(Draft* draft, Pipelines* pipelines) {
  std::vector<Table>& tables = draft->out.program.tables;
  for (Profile& profile : pipelines->profiles) {
    if (!profile.used) continue;
    profile.table =
        addIndexTable(freeName(profile.name, "_members", *draft), JX_RT_TABLE_ACTION_DATA,
                      JX_RT_FIELD_MEMBER_ID, profile.size, draft);
    tables.back().actions = profile.actions;
  }
  for (Profile& profile : pipelines->profiles) {
    if (!profile.used || !profile.calculation) continue;
    profile.selector =
        addIndexTable(freeName(profile.name + "_selector", "_", *draft), JX_RT_TABLE_SELECTOR,
                      JX_RT_FIELD_GROUP_ID, profile.size, draft);
    tables.back().action_data_table = profile.table;
    tables.back().actions = profile.actions;
    tables.back().max_members = std::min(profile.size, kMaxGroupMembers);
  }
}

void linkProfiles(const Pipelines& pipelines, Program* program) {
  for (const CompiledTable& compiled : pipelines.tables) {
    if (!compiled.profile) continue;
    const Profile& profile = pipelines.profiles[*compiled.profile];
    Table& table = program->tables[*compiled.index];
    table.action_data_table = profile.table;
    if (table.type == JX_RT_TABLE_MATCH_SELECTOR) table.selector_table = profile.selector;
  }
}

void addIndirectCounters(Draft* draft) {
  for (size_t i = 0; i < draft->counters.size(); ++i) {
    const DeclaredArray& counter = draft->counters[i];
    if (counter.binding) continue;
    draft->machine.counters[i].table =
        addIndexTable(freeName(counter.name, "_counter", *draft), JX_RT_TABLE_COUNTER,
                      JX_RT_FIELD_COUNTER_INDEX, counter.size, draft);
  }
}

void addDirectCounters(const Pipelines& pipelines, Draft* draft) {
  constexpr uint64_t kCellBytes = 16;
  for (size_t i = 0; i < draft->counters.size(); ++i) {
    const DeclaredArray& counter = draft->counters[i];
    if (!counter.binding) continue;
    const uint32_t counted =
        *pipelines.tables[pipelines.table_names.resolve(*counter.binding)].index;
    const uint32_t size = draft->out.program.tables[counted].size;
    reserveState(*counter.binding, "counter " + shown(counter.name), size, kCellBytes, draft);
    const uint32_t index =
        addIndexTable(freeName(counter.name, "_counter", *draft), JX_RT_TABLE_COUNTER,
                      JX_RT_FIELD_COUNTER_INDEX, size, draft);
    draft->out.program.tables[index].counted_table = counted;
    draft->out.program.tables[counted].direct_counter = index;
    draft->machine.counters[i].table = index;
  }
}

void linkDirectMeters(const Pipelines& pipelines, Draft* draft) {
  for (const CompiledTable& table : pipelines.tables) {
    if (!table.meter) continue;
    MachineMeter& meter = draft->machine.meters[*table.meter];
    meter.table = table.index;
    meter.size = draft->out.program.tables[*table.index].size;
  }
}

void checkCount(const Node& root, size_t count, const char* what) {
  if (count <= kMaxNamed) return;
  root.fail(std::to_string(count) + " " + what + " are more than the " + std::to_string(kMaxNamed) +
            " that a program can have");
}

Pipelines findPipelines(const Node& root) {
  std::optional<Node> ingress, egress;
  for (const Node& node : itemsOf(root, "pipelines")) {
    const Node name = node.at("name");
    std::optional<Node>& pipeline = name.string() == "ingress" ? ingress : egress;
    if ((name.string() != "ingress" && name.string() != "egress") || pipeline) {
      name.fail("architecture is not v1model: pipeline " + shown(name.string()));
    }
    const auto calls = node.findValue("action_calls");
    if (calls && !itemsOf(*calls).empty()) {
      calls->fail("architecture is not v1model: action_calls");
    }
    pipeline = node;
  }
  if (!ingress) root.fail("architecture is not v1model: pipeline ingress is missing");
  if (!egress) root.fail("architecture is not v1model: pipeline egress is missing");
  return Pipelines(*ingress, *egress);
}

}  // namespace

void readPipelines(const Node& root, Draft* draft) {
  Pipelines pipelines = findPipelines(root);
  readProfiles(pipelines.ingress, draft, &pipelines);
  readProfiles(pipelines.egress, draft, &pipelines);
  declareTables(pipelines.ingress, true, *draft, &pipelines);
  declareTables(pipelines.egress, false, *draft, &pipelines);
  declareConditions(pipelines.ingress, true, &pipelines);
  declareConditions(pipelines.egress, false, &pipelines);
  bindArrays(draft->counters, "counter", &CompiledTable::counter, &pipelines);
  bindArrays(draft->meters, "meter", &CompiledTable::meter, &pipelines);
  for (CompiledTable& table : pipelines.tables) {
    table.helper = within(table.construct(), [&] { return isHelper(table); });
  }
  addActions(draft, &pipelines);
  for (CompiledTable& table : pipelines.tables) {
    if (table.helper) continue;
    within(table.construct(), [&] { addMatchTable(&table, draft, &pipelines); });
  }
  addProfileTables(draft, &pipelines);
  linkProfiles(pipelines, &draft->out.program);
  addIndirectCounters(draft);
  addDirectCounters(pipelines, draft);
  linkDirectMeters(pipelines, draft);
  checkCount(root, draft->out.program.tables.size(), "tables");
  checkCount(root, draft->out.program.actions.size(), "actions");
  readNodes(pipelines, draft);
}

}  // namespace jxmodel::v1model
