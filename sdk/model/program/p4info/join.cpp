#include "model/program/p4info/join.h"

#include <algorithm>
#include <optional>
#include <set>

#include "model/program/load_failure.h"

namespace jxmodel::p4info {
namespace {

const char* matchName(jx_rt_key_match_type_t match) {
  switch (match) {
    case JX_RT_MATCH_EXACT:
      return "exact";
    case JX_RT_MATCH_TERNARY:
      return "ternary";
    case JX_RT_MATCH_RANGE:
      return "range";
    case JX_RT_MATCH_LPM:
      return "lpm";
    default:
      return "optional";
  }
}

const char* kindName(jx_rt_table_type_t type) {
  switch (type) {
    case JX_RT_TABLE_ACTION_DATA:
      return "action profile";
    case JX_RT_TABLE_SELECTOR:
      return "action selector";
    case JX_RT_TABLE_COUNTER:
      return "counter";
    default:
      return "table";
  }
}

bool isMatch(const jxmodel::Table& table) { return table.type <= JX_RT_TABLE_MATCH_SELECTOR; }

bool sameKind(const jxmodel::Table& a, const jxmodel::Table& b) {
  return isMatch(a)
             ? isMatch(b)
             : a.type == b.type && a.counted_table.has_value() == b.counted_table.has_value();
}

// The result grows out of the view: its tables and actions come first, in P4Info's order, and what
// only the compiled program has follows. References of the compiled program are numbered anew.
class Join {
 public:
  Join(ControlView view, const UnpackedProgram& compiled)
      : view_(std::move(view)), compiled_(compiled), old_(compiled.program) {
    result_ = compiled;
    result_.entries.clear();
    result_.places.clear();
    result_.program.tables.clear();
    if (old_.machine != nullptr) machine_ = std::make_shared<Machine>(*old_.machine);
  }

  UnpackedProgram join() {
    joinActions();
    pairTables();
    for (size_t i = 0; i < view_.program.tables.size(); ++i) {
      addTable(static_cast<uint32_t>(i));
    }
    for (size_t i = 0; i < old_.tables.size(); ++i) {
      if (!known_[i]) addHidden(static_cast<uint32_t>(i));
    }
    joinLearns();
    renumberMachine();
    result_.program.machine = machine_;
    return std::move(result_);
  }

 private:
  [[noreturn]] static void fail(const std::string& place, const std::string& reason) {
    throw LoadFailure{place, reason};
  }

  // --- actions

  void joinParams(size_t index, const jxmodel::Action& from, jxmodel::Action* action) const {
    const std::string& place = view_.action_places[index];
    const std::string subject = "action " + action->name;
    if (action->params.size() != from.params.size()) {
      fail(place, subject + " has " + std::to_string(action->params.size()) +
                      " parameters in P4Info, " + std::to_string(from.params.size()) +
                      " in the program");
    }
    for (size_t i = 0; i < from.params.size(); ++i) {
      Param& param = action->params[i];
      if (param.name != from.params[i].name) {
        fail(place, subject + ": parameter " + param.name + " is " + from.params[i].name +
                        " in the program");
      }
      if (param.width != from.params[i].width && !view_.translated_params[index][i]) {
        fail(place, subject + ": parameter " + param.name + " has " + std::to_string(param.width) +
                        " bits in P4Info, " + std::to_string(from.params[i].width) +
                        " in the program");
      }
      param.width = from.params[i].width;
    }
  }

  void joinActions() {
    std::vector<jxmodel::Action>& actions = view_.program.actions;
    actions_.resize(old_.actions.size());
    const size_t described = actions.size();
    for (size_t i = 0; i < old_.actions.size(); ++i) {
      const jxmodel::Action& from = old_.actions[i];
      const auto end = actions.begin() + static_cast<std::ptrdiff_t>(described);
      const auto found = std::find_if(actions.begin(), end, [&](const jxmodel::Action& action) {
        return action.name == from.name;
      });
      if (found == end) {
        actions_[i] = static_cast<uint32_t>(actions.size());
        actions.push_back(from);
        continue;
      }
      actions_[i] = static_cast<uint32_t>(found - actions.begin());
      joinParams(actions_[i], from, &*found);
      found->body = from.body;
    }
    result_.program.actions = actions;
  }

  bool isCompiled(const std::string& action) const {
    return std::any_of(old_.actions.begin(), old_.actions.end(),
                       [&](const jxmodel::Action& known) { return known.name == action; });
  }

  // --- which table is which

  std::optional<uint32_t> compiledTable(const jxmodel::Table& wanted) const {
    for (size_t i = 0; i < old_.tables.size(); ++i) {
      const jxmodel::Table& table = old_.tables[i];
      if (!sameKind(table, wanted)) continue;
      // A selector has no name of its own in the source.
      if (table.type == JX_RT_TABLE_SELECTOR
              ? old_.tables[*table.action_data_table].name ==
                    view_.program.tables[*wanted.action_data_table].name
              : table.name == wanted.name) {
        return static_cast<uint32_t>(i);
      }
    }
    return std::nullopt;
  }

  // The node that runs an action where the compiled program does not count the table as one.
  std::optional<size_t> callNode(const jxmodel::Table& wanted) const {
    if (machine_ == nullptr || !isMatch(wanted) || !wanted.key.empty()) return std::nullopt;
    for (size_t i = 0; i < machine_->nodes.size(); ++i) {
      const MachineNode& node = machine_->nodes[i];
      const auto* const call = std::get_if<CallNode>(&node.node);
      if (call != nullptr && call->action && node.name == wanted.name) return i;
    }
    return std::nullopt;
  }

  // Pairs the tables before any is joined: what stands alone on both sides is another program's.
  void pairTables() {
    known_.assign(old_.tables.size(), false);
    tables_.assign(old_.tables.size(), 0);
    std::vector<uint32_t> alone;
    for (size_t i = 0; i < view_.program.tables.size(); ++i) {
      const jxmodel::Table& table = view_.program.tables[i];
      const auto found = compiledTable(table);
      from_.push_back(found);
      calls_.push_back(found ? std::nullopt : callNode(table));
      if (found) {
        known_[*found] = true;
        tables_[*found] = static_cast<uint32_t>(i);
      } else if (!calls_.back()) {
        alone.push_back(static_cast<uint32_t>(i));
      }
    }
    for (const uint32_t i : alone) {
      if (!removedByCompiler(i)) failAlone(i);
    }
    uint32_t next = static_cast<uint32_t>(view_.program.tables.size());
    for (size_t i = 0; i < old_.tables.size(); ++i) {
      if (!known_[i]) tables_[i] = next++;
    }
  }

  [[noreturn]] void failAlone(uint32_t index) const {
    const jxmodel::Table& table = view_.program.tables[index];
    const jxmodel::Table& named =
        table.type == JX_RT_TABLE_SELECTOR ? view_.program.tables[*table.action_data_table] : table;
    fail(view_.facts[index].place, std::string("P4Info ") + kindName(table.type) + " " +
                                       named.name + " has no counterpart in the program");
  }

  // The compiler drops what no packet reaches, and with it the actions that nothing else uses.
  // Such a table can be programmed; a table of another program cannot be taken for one.
  bool removedByCompiler(uint32_t index) const {
    const jxmodel::Table& table = view_.program.tables[index];
    if (table.type == JX_RT_TABLE_COUNTER && !table.counted_table) return false;
    const bool strangers =
        std::any_of(old_.tables.begin(), old_.tables.end(), [&](const auto& own) {
          return sameKind(own, table) && !own.key.empty() && !own.hidden &&
                 !known_[static_cast<size_t>(&own - old_.tables.data())];
        });
    if (strangers) return false;
    if (table.type == JX_RT_TABLE_SELECTOR || table.type == JX_RT_TABLE_ACTION_DATA) {
      return !hasUser(index);
    }
    if (table.counted_table) return !from_[*table.counted_table];
    if (!isMatch(table)) return true;
    return std::none_of(table.actions.begin(), table.actions.end(), [&](uint32_t action) {
      const std::string& name = view_.program.actions[action].name;
      return name != "NoAction" && isCompiled(name);
    });
  }

  // Whether a table that the program has uses the profile or selector.
  bool hasUser(uint32_t index) const {
    for (size_t i = 0; i < view_.program.tables.size(); ++i) {
      const jxmodel::Table& table = view_.program.tables[i];
      const bool user =
          isMatch(table) && (table.action_data_table == index || table.selector_table == index);
      if (user && from_[i]) return true;
    }
    return false;
  }

  // --- tables

  void joinKey(uint32_t index, const jxmodel::Table& from, jxmodel::Table* table) const {
    const std::string& place = view_.facts[index].place;
    const std::string subject = "table " + table->name;
    if (table->key.size() != from.key.size()) {
      fail(place, subject + " has " + std::to_string(table->key.size()) + " keys in P4Info, " +
                      std::to_string(from.key.size()) + " in the program");
    }
    for (size_t i = 0; i < from.key.size(); ++i) {
      KeyField& field = table->key[i];
      const KeyField& other = from.key[i];
      const std::string key = subject + ": key " + field.name;
      if (field.name != other.name) fail(place, key + " is " + other.name + " in the program");
      const bool optional =
          field.match == JX_RT_MATCH_OPTIONAL && other.match == JX_RT_MATCH_TERNARY;
      if (field.match != other.match && !optional) {
        fail(place, key + " is " + matchName(field.match) + " in P4Info, " +
                        matchName(other.match) + " in the program");
      }
      if (field.width != other.width && !view_.facts[index].translated[i]) {
        fail(place, key + " has " + std::to_string(field.width) + " bits in P4Info, " +
                        std::to_string(other.width) + " in the program");
      }
      field.width = other.width;
      field.field = other.field;
    }
  }

  // The actions of the table in the order of the program, whose nodes count on it.
  void joinTableActions(uint32_t index, const jxmodel::Table& from, jxmodel::Table* table) const {
    const std::vector<uint32_t> described = std::move(table->actions);
    const std::vector<ActionScope> scopes = std::move(table->action_scopes);
    table->actions.clear();
    table->action_scopes.clear();
    for (const uint32_t action : from.actions) table->actions.push_back(actions_[action]);
    for (const uint32_t action : described) {
      const auto end = table->actions.end();
      if (std::find(table->actions.begin(), end, action) != end) continue;
      fail(view_.facts[index].place, std::string(kindName(table->type)) + " " + table->name +
                                         ": action " + view_.program.actions[action].name +
                                         " has no counterpart in the program");
    }
    if (scopes.empty()) return;
    for (const uint32_t action : table->actions) {
      const auto found = std::find(described.begin(), described.end(), action);
      table->action_scopes.push_back(found == described.end()
                                         ? ActionScope::kAnywhere
                                         : scopes[static_cast<size_t>(found - described.begin())]);
    }
  }

  std::optional<jxmodel::ActionCall> renumbered(std::optional<jxmodel::ActionCall> call) const {
    if (call) call->action = actions_[call->action];
    return call;
  }

  std::vector<UnpackedEntry> entriesOf(uint32_t old_table) const {
    if (old_table >= compiled_.entries.size()) return {};
    std::vector<UnpackedEntry> entries = compiled_.entries[old_table];
    for (UnpackedEntry& entry : entries) entry.call.action = actions_[entry.call.action];
    return entries;
  }

  std::string placeOf(uint32_t old_table) const {
    return old_table < compiled_.places.size() ? compiled_.places[old_table] : std::string();
  }

  void append(jxmodel::Table table, std::vector<UnpackedEntry> entries, std::string place) {
    result_.program.tables.push_back(std::move(table));
    result_.entries.push_back(std::move(entries));
    result_.places.push_back(std::move(place));
  }

  void addTable(uint32_t index) {
    jxmodel::Table table = view_.program.tables[index];
    if (calls_[index]) return addCalled(std::move(table), *calls_[index]);
    if (!from_[index]) return append(std::move(table), {}, "");
    const jxmodel::Table& from = old_.tables[*from_[index]];
    if (table.type != from.type) {
      fail(view_.facts[index].place,
           "table " + table.name + " has another kind of action profile in the program");
    }
    if (isMatch(table)) {
      joinKey(index, from, &table);
      joinFacts(index, from, &table);
    }
    if (isMatch(table) || table.type == JX_RT_TABLE_ACTION_DATA) {
      joinTableActions(index, from, &table);
    }
    table.name = from.name;  // that of a selector is the program's own
    table.hash_fields = from.hash_fields;
    table.size = std::max(table.size, from.size);
    if (table.max_members == 0) table.max_members = from.max_members;
    append(std::move(table), entriesOf(*from_[index]), placeOf(*from_[index]));
  }

  void joinFacts(uint32_t index, const jxmodel::Table& from, jxmodel::Table* table) const {
    table->default_action = renumbered(from.default_action);
    table->constant_default |= from.constant_default;
    table->idle_timeout |= from.idle_timeout;
    // The program does not tell whether entries that it starts with may be changed.
    table->constant_entries |= from.constant_entries && !view_.facts[index].initial_entries;
  }

  // A table without a key that looked like the compiler's own: its node becomes a table's.
  void addCalled(jxmodel::Table table, size_t node) {
    const CallNode call = std::get<CallNode>(machine_->nodes[node].node);
    const std::string& name = machine_->actions[*call.action].name;
    const auto& actions = result_.program.actions;
    const auto found = std::find_if(actions.begin(), actions.end(),
                                    [&](const auto& action) { return action.name == name; });
    TableNode made;
    made.table = static_cast<uint32_t>(result_.program.tables.size());
    made.actions = {{*call.action, call.next}};
    made.base_next = call.next;
    machine_->nodes[node].node = std::move(made);
    renumbered_.insert(node);
    jxmodel::ActionCall def;
    def.action = static_cast<uint32_t>(found - actions.begin());
    for (const auto& param : call.params) {
      def.params.insert(def.params.end(), param.begin(), param.end());
    }
    table.actions = {def.action};
    table.action_scopes.clear();
    table.default_action = std::move(def);
    append(std::move(table), {}, "");
  }

  // Partners do not see what P4Info does not list.
  void addHidden(uint32_t old_table) {
    jxmodel::Table table = old_.tables[old_table];
    table.hidden = true;
    for (uint32_t& action : table.actions) action = actions_[action];
    table.default_action = renumbered(std::move(table.default_action));
    for (auto* const reference : {&table.action_data_table, &table.selector_table,
                                  &table.direct_counter, &table.counted_table}) {
      if (*reference) *reference = tables_[**reference];
    }
    append(std::move(table), entriesOf(old_table), placeOf(old_table));
  }

  // --- digests

  void joinLearn(size_t index, const Learn& described, Learn* learn) {
    const std::string& place = view_.learn_places[index];
    const std::string subject = "digest " + described.name;
    if (described.fields.size() != learn->fields.size()) {
      fail(place, subject + " has " + std::to_string(described.fields.size()) +
                      " fields in P4Info, " + std::to_string(learn->fields.size()) +
                      " in the program");
    }
    learn->id = described.id;
    learn->name = described.name;
    for (size_t i = 0; i < learn->fields.size(); ++i) {
      const PacketField& field = view_.program.fields[described.fields[i].field];
      PacketField named = result_.program.fields[learn->fields[i].field];
      if (field.width != 0 && field.width != named.width) {
        fail(place, subject + ": field " + field.name + " has " + std::to_string(field.width) +
                        " bits in P4Info, " + std::to_string(named.width) + " in the program");
      }
      named.name = field.name;
      learn->fields[i].field = static_cast<uint32_t>(result_.program.fields.size());
      result_.program.fields.push_back(std::move(named));
    }
  }

  // By name; a tuple has another name in the program, so the rest is paired in order.
  void joinLearns() {
    std::vector<Learn>& learns = result_.program.learns;
    const std::vector<Learn>& described = view_.program.learns;
    std::vector<std::optional<size_t>> pairs(described.size());
    std::set<size_t> taken;
    for (size_t i = 0; i < described.size(); ++i) {
      for (size_t j = 0; j < learns.size(); ++j) {
        if (learns[j].name == described[i].name && taken.insert(j).second) pairs[i] = j;
      }
    }
    size_t next = 0;
    for (size_t i = 0; i < described.size(); ++i) {
      while (!pairs[i] && next < learns.size()) {
        if (taken.insert(next).second) pairs[i] = next;
        ++next;
      }
      if (!pairs[i]) {
        fail(view_.learn_places[i],
             "P4Info digest " + described[i].name + " has no counterpart in the program");
      }
      joinLearn(i, described[i], &learns[*pairs[i]]);
    }
  }

  // --- the machine

  void renumber(uint32_t* table) const { *table = tables_[*table]; }
  void renumber(std::optional<uint32_t>* table) const {
    if (*table) *table = tables_[**table];
  }

  void renumberMachine() {
    if (machine_ == nullptr) return;
    for (size_t i = 0; i < machine_->nodes.size(); ++i) {
      auto* const node = std::get_if<TableNode>(&machine_->nodes[i].node);
      if (node == nullptr || renumbered_.count(i) != 0) continue;
      renumber(&node->table);
      renumber(&node->direct_counter);
    }
    for (MachineMeter& meter : machine_->meters) renumber(&meter.table);
    for (MachineCounter& counter : machine_->counters) renumber(&counter.table);
  }

  ControlView view_;
  const UnpackedProgram& compiled_;
  const Program& old_;
  UnpackedProgram result_;
  std::shared_ptr<Machine> machine_;
  std::vector<uint32_t> actions_;              // of the compiled program: which of the result
  std::vector<uint32_t> tables_;               // likewise
  std::vector<bool> known_;                    // tables of the compiled program that P4Info lists
  std::vector<std::optional<uint32_t>> from_;  // of each table of the view: the compiled one
  std::vector<std::optional<size_t>> calls_;   // or the node that is it
  std::set<size_t> renumbered_;                // nodes that were made here
};

}  // namespace

UnpackedProgram join(ControlView view, const UnpackedProgram& compiled) {
  return Join(std::move(view), compiled).join();
}

}  // namespace jxmodel::p4info
