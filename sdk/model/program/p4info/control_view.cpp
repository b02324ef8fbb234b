#include "model/program/p4info/control_view.h"

#include <algorithm>
#include <charconv>
#include <set>

#include "model/program/layout.h"
#include "model/program/load_failure.h"

namespace jxmodel::p4info {
namespace {

constexpr uint32_t kDefaultTableSize = 1024;  // entries, where P4Info leaves it out
constexpr uint32_t kUnknownWidth = 32;        // bits of a digest field whose width is not said

template <typename List>
bool hasAnnotation(const List& annotations, std::string_view name) {
  return std::any_of(annotations.begin(), annotations.end(), [&](const std::string& text) {
    return text.compare(0, name.size(), name) == 0 &&
           (text.size() == name.size() || text[name.size()] == '(');
  });
}

// The number in the annotation `name(number)`; 0 if there is none.
template <typename List>
uint32_t annotatedNumber(const List& annotations, std::string_view name) {
  for (const std::string& text : annotations) {
    if (text.compare(0, name.size(), name) != 0 || text.size() <= name.size() + 1) continue;
    uint32_t number = 0;
    const char* const begin = text.data() + name.size() + 1;
    if (std::from_chars(begin, text.data() + text.size(), number).ec == std::errc()) return number;
  }
  return 0;
}

ActionScope scopeOf(const ActionRef& reference) {
  if (reference.scope() == TABLE_ONLY || hasAnnotation(reference.annotations(), "@tableonly")) {
    return ActionScope::kEntriesOnly;
  }
  if (reference.scope() == DEFAULT_ONLY || hasAnnotation(reference.annotations(), "@defaultonly")) {
    return ActionScope::kDefaultOnly;
  }
  return ActionScope::kAnywhere;
}

class ViewBuilder {
 public:
  explicit ViewBuilder(const Document& document) : document_(document), info_(document.info()) {}

  ControlView build() {
    for (int i = 0; i < info_.actions_size(); ++i) addAction(i);
    for (int i = 0; i < info_.tables_size(); ++i) addTable(i);
    for (int i = 0; i < info_.action_profiles_size(); ++i) addProfile(i);
    for (int i = 0; i < info_.action_profiles_size(); ++i) {
      if (info_.action_profiles(i).with_selector()) addSelector(i);
    }
    for (int i = 0; i < info_.tables_size(); ++i) linkTable(i);
    for (int i = 0; i < info_.counters_size(); ++i) addCounter(i);
    for (int i = 0; i < info_.direct_counters_size(); ++i) addDirectCounter(i);
    for (int i = 0; i < info_.digests_size(); ++i) addLearn(i);
    return std::move(view_);
  }

 private:
  [[noreturn]] static void fail(const std::string& place, const std::string& reason) {
    throw LoadFailure{place, reason};
  }

  static uint32_t sizeOf(const std::string& place, const std::string& subject, int64_t size,
                         uint32_t otherwise) {
    if (size == 0) return otherwise;
    if (size < 0 || size > kMaxTableSize) {
      fail(place, subject + ": size " + std::to_string(size) + " is not from 1 to " +
                      std::to_string(kMaxTableSize));
    }
    return static_cast<uint32_t>(size);
  }

  void addAction(int index) {
    const p4info::Action& described = info_.actions(index);
    const std::string place = document_.placeOf("actions", index);
    const std::string subject = "action " + described.preamble().name();
    jxmodel::Action action;
    action.id = described.preamble().id();
    action.name = described.preamble().name();
    std::vector<bool> translated;
    std::set<uint32_t> ids;
    for (const auto& given : described.params()) {
      Param param;
      param.id = given.id();
      param.name = given.name();
      if (!ids.insert(param.id).second || param.id == 0) {
        fail(place, subject + ": id " + std::to_string(param.id) + " of parameter " + param.name +
                        " is 0 or already taken");
      }
      if (given.bitwidth() <= 0 || given.bitwidth() > static_cast<int>(kMaxParamWidth)) {
        fail(place,
             subject + ": parameter " + param.name +
                 (given.bitwidth() == 0 ? " has no width (text parameters are not supported)"
                                        : " has " + std::to_string(given.bitwidth()) + " bits"));
      }
      param.width = static_cast<uint32_t>(given.bitwidth());
      translated.push_back(given.has_type_name());
      action.params.push_back(std::move(param));
    }
    view_.program.actions.push_back(std::move(action));
    view_.translated_params.push_back(std::move(translated));
    view_.action_places.push_back(place);
  }

  jx_rt_key_match_type_t matchOf(const std::string& place, const std::string& subject,
                                 const MatchField& field) const {
    if (!field.other_match_type().empty()) {
      fail(place,
           subject + " is matched as " + field.other_match_type() + ", which is not supported");
    }
    switch (field.match_type()) {
      case EXACT:
        return JX_RT_MATCH_EXACT;
      case LPM:
        return JX_RT_MATCH_LPM;
      case TERNARY:
        return JX_RT_MATCH_TERNARY;
      case RANGE:
        return JX_RT_MATCH_RANGE;
      case OPTIONAL:
        return JX_RT_MATCH_OPTIONAL;
      default:
        fail(place, subject + " has no match type that is known");
    }
  }

  void addKey(const p4info::Table& described, const std::string& place, jxmodel::Table* table,
              ControlView::TableFacts* facts) const {
    std::set<uint32_t> ids;
    for (const MatchField& given : described.match_fields()) {
      const std::string subject = "table " + table->name + ": key " + given.name();
      KeyField field;
      field.id = given.id();
      field.name = given.name();
      field.match = matchOf(place, subject, given);
      if (!ids.insert(field.id).second || field.id == 0) {
        fail(place, subject + ": id " + std::to_string(field.id) + " is 0 or already taken");
      }
      if (given.bitwidth() == 0) {
        fail(place, subject + " has no width (text keys are not supported)");
      }
      if (given.bitwidth() < 0) {
        fail(place, subject + " has " + std::to_string(given.bitwidth()) + " bits");
      }
      field.width = static_cast<uint32_t>(given.bitwidth());
      facts->translated.push_back(given.has_type_name());
      table->key.push_back(std::move(field));
    }
  }

  void addActions(const p4info::Table& described, jxmodel::Table* table) const {
    for (const ActionRef& reference : described.action_refs()) {
      table->actions.push_back(static_cast<uint32_t>(document_.indexOf(reference.id())));
      table->action_scopes.push_back(scopeOf(reference));
    }
    const auto anywhere = [](ActionScope scope) { return scope == ActionScope::kAnywhere; };
    if (std::all_of(table->action_scopes.begin(), table->action_scopes.end(), anywhere)) {
      table->action_scopes.clear();
    }
  }

  // The action of a miss, as far as P4Info says it: nothing where it leaves parameters open.
  void addDefault(const p4info::Table& described, const std::string& place,
                  jxmodel::Table* table) const {
    const p4info::ActionCall& call = described.initial_default_action();
    table->constant_default = described.const_default_action_id() != 0;
    const uint32_t id =
        call.action_id() != 0 ? call.action_id() : described.const_default_action_id();
    if (id == 0 || described.implementation_id() != 0) return;
    jxmodel::ActionCall made;
    made.action = static_cast<uint32_t>(document_.indexOf(id));
    for (const Param& param : view_.program.actions[made.action].params) {
      const auto given =
          std::find_if(call.arguments().begin(), call.arguments().end(),
                       [&](const auto& argument) { return argument.param_id() == param.id; });
      if (given == call.arguments().end()) return;
      std::vector<uint8_t> value(given->value().begin(), given->value().end());
      while (value.size() > bytesOf(param.width) && value.front() == 0) value.erase(value.begin());
      if (value.size() > bytesOf(param.width)) {
        fail(place, "table " + table->name + ": the default's value of " + param.name +
                        " is wider than its " + std::to_string(param.width) + " bits");
      }
      value.insert(value.begin(), bytesOf(param.width) - value.size(), 0);
      made.params.insert(made.params.end(), value.begin(), value.end());
    }
    table->default_action = std::move(made);
  }

  void addTable(int index) {
    const p4info::Table& described = info_.tables(index);
    ControlView::TableFacts facts;
    facts.place = document_.placeOf("tables", index);
    facts.initial_entries = described.has_initial_entries();
    jxmodel::Table table;
    table.id = described.preamble().id();
    table.name = described.preamble().name();
    table.size = sizeOf(facts.place, "table " + table.name, described.size(), kDefaultTableSize);
    table.idle_timeout = described.idle_timeout_behavior() == NOTIFY_CONTROL;
    table.constant_entries = described.is_const_table();
    table.hidden = hasAnnotation(described.preamble().annotations(), "@hidden");
    addKey(described, facts.place, &table, &facts);
    addActions(described, &table);
    addDefault(described, facts.place, &table);
    append(std::move(table), std::move(facts));
  }

  uint32_t append(jxmodel::Table table, ControlView::TableFacts facts) {
    view_.program.tables.push_back(std::move(table));
    view_.facts.push_back(std::move(facts));
    return static_cast<uint32_t>(view_.program.tables.size()) - 1;
  }

  // Tables of one profile have the same actions; a profile without tables has none.
  void addProfile(int index) {
    const ActionProfile& described = info_.action_profiles(index);
    ControlView::TableFacts facts;
    facts.place = document_.placeOf("action_profiles", index);
    jxmodel::Table table;
    table.type = JX_RT_TABLE_ACTION_DATA;
    table.id = described.preamble().id();
    table.name = described.preamble().name();
    table.size =
        sizeOf(facts.place, "action profile " + table.name, described.size(), kDefaultTableSize);
    for (int i = 0; i < info_.tables_size(); ++i) {
      if (info_.tables(i).implementation_id() != table.id) continue;
      for (const ActionRef& reference : info_.tables(i).action_refs()) {
        const auto action = static_cast<uint32_t>(document_.indexOf(reference.id()));
        const auto end = table.actions.end();
        if (std::find(table.actions.begin(), end, action) == end) table.actions.push_back(action);
      }
    }
    members_.push_back(append(std::move(table), std::move(facts)));
    selectors_.emplace_back();
  }

  void addSelector(int index) {
    const ActionProfile& described = info_.action_profiles(index);
    const jxmodel::Table& members = view_.program.tables[members_[index]];
    ControlView::TableFacts facts;
    facts.place = document_.placeOf("action_profiles", index);
    jxmodel::Table table;
    table.type = JX_RT_TABLE_SELECTOR;
    table.name = members.name + "_selector";
    table.size = members.size;
    table.action_data_table = members_[index];
    const int limit = described.max_group_size();
    if (limit < 0) fail(facts.place, "action profile " + members.name + ": max_group_size below 0");
    table.max_members = static_cast<uint32_t>(limit);
    if (limit == 0) {
      table.max_members = annotatedNumber(described.preamble().annotations(), "@max_group_size");
    }
    selectors_[index] = append(std::move(table), std::move(facts));
  }

  void linkTable(int index) {
    const uint32_t profile = info_.tables(index).implementation_id();
    if (profile == 0) return;
    const int place = document_.indexOf(profile);
    jxmodel::Table& table = view_.program.tables[index];
    table.action_data_table = members_[place];
    table.selector_table = selectors_[place];
    table.type = table.selector_table ? JX_RT_TABLE_MATCH_SELECTOR : JX_RT_TABLE_MATCH_ACTION_DATA;
  }

  void addCounter(int index) {
    const p4info::Counter& described = info_.counters(index);
    ControlView::TableFacts facts;
    facts.place = document_.placeOf("counters", index);
    jxmodel::Table table;
    table.type = JX_RT_TABLE_COUNTER;
    table.id = described.preamble().id();
    table.name = described.preamble().name();
    table.size = sizeOf(facts.place, "counter " + table.name, described.size(), 0);
    append(std::move(table), std::move(facts));
  }

  void addDirectCounter(int index) {
    const DirectCounter& described = info_.direct_counters(index);
    ControlView::TableFacts facts;
    facts.place = document_.placeOf("direct_counters", index);
    const auto counted = static_cast<uint32_t>(document_.indexOf(described.direct_table_id()));
    jxmodel::Table table;
    table.type = JX_RT_TABLE_COUNTER;
    table.id = described.preamble().id();
    table.name = described.preamble().name();
    table.size = view_.program.tables[counted].size;
    table.counted_table = counted;
    const uint32_t place = append(std::move(table), std::move(facts));
    view_.program.tables[counted].direct_counter = place;
  }

  void addLearn(int index) {
    const Digest& described = info_.digests(index);
    Learn learn;
    learn.id = described.preamble().id();
    learn.name = described.preamble().name();
    for (DigestField& field : digestFields(document_, index)) {
      LearnField made;
      made.field = static_cast<uint32_t>(view_.program.fields.size());
      view_.program.fields.push_back({std::move(field.name), field.width});
      learn.fields.push_back(made);
    }
    view_.program.learns.push_back(std::move(learn));
    view_.learn_places.push_back(document_.placeOf("digests", index));
  }

  const Document& document_;
  const P4Info& info_;
  ControlView view_;
  std::vector<uint32_t> members_;                   // of each profile: its action-data table
  std::vector<std::optional<uint32_t>> selectors_;  // of each profile
};

}  // namespace

ControlView controlView(const Document& document) { return ViewBuilder(document).build(); }

void assumeWidths(Program* program) {
  for (PacketField& field : program->fields) {
    if (field.width == 0) field.width = kUnknownWidth;
  }
}

}  // namespace jxmodel::p4info
