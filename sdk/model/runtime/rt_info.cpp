#include "model/runtime/rt_info.h"

#include "model/base/faults.h"
#include "model/runtime/rt_counter_table.h"
#include "model/runtime/rt_group_table.h"
#include "model/runtime/rt_match_table.h"
#include "model/runtime/rt_member_table.h"

namespace jxmodel {

namespace {

std::unique_ptr<RtTable> makeTable(const DeviceCore& device, const RtInfo& info, TableState& state,
                                   IdleWatch* watch) {
  switch (state.table->type) {
    case JX_RT_TABLE_MATCH_DIRECT:
    case JX_RT_TABLE_MATCH_ACTION_DATA:
    case JX_RT_TABLE_MATCH_SELECTOR:
      return std::make_unique<RtMatchTable>(device, info, state, watch);
    case JX_RT_TABLE_ACTION_DATA:
      return std::make_unique<RtMemberTable>(device, info, state);
    case JX_RT_TABLE_SELECTOR:
      return std::make_unique<RtGroupTable>(device, info, state);
    case JX_RT_TABLE_COUNTER:
      return std::make_unique<RtCounterTable>(device, info, state);
  }
  return nullptr;
}

/// Makes the entries that the description gives the table. Every device of the program has them by
/// itself, under the same handles: no placement callback is told.
void addInitialEntries(TableState& state) {
  MatchTable& match = *state.match;
  const std::vector<InitialEntry>& entries = state.table->initial_entries;
  for (size_t i = 0; i < entries.size(); ++i) {
    const InitialEntry& entry = entries[i];
    // Of two with one key that differ in priority, no packet ever meets the lesser.
    uint32_t slot = match.findKey(entry.key.data());
    if (slot != kNoSlot && match.priorityOf(slot) >= entry.priority) continue;
    if (slot != kNoSlot) match.remove(slot);
    MatchTable::Addition addition;
    addition.handle = EntryHandles::ofInitial(i);
    addition.key = entry.key.data();
    addition.priority = state.table->has_priority ? entry.priority : 0;
    addition.result.action = {&state.program->actions[entry.call.action], entry.call.params.data()};
    match.add(addition, &slot);
  }
}

}  // namespace

RtInfo::RtInfo(const DeviceCore& device, std::shared_ptr<const Program> program,
               std::optional<uint32_t> handle_base)
    : program_(std::move(program)), states_(program_->tables.size()) {
  for (uint32_t i = 0; i < states_.size(); ++i) makeState(i, handle_base, device.reclaimer());
  for (const auto& state : states_) {
    if (state->table->direct_counter) {
      state->direct_counters = states_[*state->table->direct_counter]->counters.get();
    }
    if (state->direct_counters != nullptr) state->match->countIn(state->direct_counters);
    if (state->match != nullptr) addInitialEntries(*state);
  }
  for (const auto& state : states_) {
    const bool ages = state->table->idle_timeout && device.dispatch() != nullptr;
    watches_.push_back(ages ? std::make_unique<IdleWatch>(device, *state) : nullptr);
    state->aging = watches_.back().get();
    tables_.push_back(makeTable(device, *this, *state, watches_.back().get()));
  }
  for (const Learn& learn : program_->learns) {
    if (device.dispatch() != nullptr) {
      channels_.push_back(std::make_unique<LearnChannel>(device, *program_, learn));
    }
    LearnChannel* const channel = channels_.empty() ? nullptr : channels_.back().get();
    learns_.push_back(std::make_unique<RtLearn>(*program_, learn, channel));
  }
}

/// Makes the state of a table after those of the tables behind it.
void RtInfo::makeState(uint32_t index, std::optional<uint32_t> handle_base, Reclaimer* reclaimer) {
  if (states_[index] != nullptr) return;
  const Table& table = program_->tables[index];
  auto state = std::make_unique<TableState>();
  state->program = program_.get();
  state->table = &table;
  if (table.action_data_table) {
    makeState(*table.action_data_table, handle_base, reclaimer);
    state->member_state = states_[*table.action_data_table].get();
  }
  if (table.selector_table) {
    makeState(*table.selector_table, handle_base, reclaimer);
    state->group_state = states_[*table.selector_table].get();
  }
  ActionDataTable* const members =
      state->member_state == nullptr ? nullptr : state->member_state->members.get();
  SelectorTable* const groups =
      state->group_state == nullptr ? nullptr : state->group_state->groups.get();
  switch (table.type) {
    case JX_RT_TABLE_MATCH_DIRECT:
    case JX_RT_TABLE_MATCH_ACTION_DATA:
    case JX_RT_TABLE_MATCH_SELECTOR:
      state->match =
          std::make_unique<MatchTable>(*program_, table, members, groups, handle_base, reclaimer);
      break;
    case JX_RT_TABLE_ACTION_DATA:
      state->members = std::make_unique<ActionDataTable>(*program_, table, handle_base, reclaimer);
      break;
    case JX_RT_TABLE_SELECTOR:
      state->groups = std::make_unique<SelectorTable>(table, members, handle_base, reclaimer);
      break;
    case JX_RT_TABLE_COUNTER:
      // Packets count on physical devices only.
      if (reclaimer != nullptr) state->counters = std::make_unique<CounterTable>(table.size);
      break;
  }
  states_[index] = std::move(state);
}

std::vector<TableState*> RtInfo::states() const {
  std::vector<TableState*> all;
  for (const auto& state : states_) all.push_back(state.get());
  return all;
}

jx_status_t RtInfo::p4NameGet(std::string* name) const {
  JXMODEL_ENTRY("JxRtInfo::p4NameGet");
  if (name == nullptr) return JX_INVALID_ARGUMENTS;
  *name = program_->name;
  return JX_SUCCESS;
}

jx_status_t RtInfo::tablesGet(std::vector<const jxrt::JxRtTable*>* tables) const {
  JXMODEL_ENTRY("JxRtInfo::tablesGet");
  if (tables == nullptr) return JX_INVALID_ARGUMENTS;
  tables->clear();
  for (const auto& table : tables_) tables->push_back(table.get());
  return JX_SUCCESS;
}

jx_status_t RtInfo::tableFromNameGet(const std::string& name, const jxrt::JxRtTable** table) const {
  if (table == nullptr) return JX_INVALID_ARGUMENTS;
  JXMODEL_ENTRY_OUT("JxRtInfo::tableFromNameGet", table);
  for (const auto& candidate : tables_) {
    if (candidate->description().name != name) continue;
    *table = candidate.get();
    return JX_SUCCESS;
  }
  return JX_TABLE_NOT_FOUND;
}

jx_status_t RtInfo::tableFromIdGet(uint32_t id, const jxrt::JxRtTable** table) const {
  if (table == nullptr) return JX_INVALID_ARGUMENTS;
  JXMODEL_ENTRY_OUT("JxRtInfo::tableFromIdGet", table);
  for (const auto& candidate : tables_) {
    if (candidate->description().id != id) continue;
    *table = candidate.get();
    return JX_SUCCESS;
  }
  return JX_TABLE_NOT_FOUND;
}

jx_status_t RtInfo::learnsGet(std::vector<jxrt::JxRtLearn*>* learns) const {
  JXMODEL_ENTRY("JxRtInfo::learnsGet");
  if (learns == nullptr) return JX_INVALID_ARGUMENTS;
  learns->clear();
  for (const auto& learn : learns_) learns->push_back(learn.get());
  return JX_SUCCESS;
}

jx_status_t RtInfo::learnFromNameGet(const std::string& name, jxrt::JxRtLearn** learn) const {
  if (learn == nullptr) return JX_INVALID_ARGUMENTS;
  JXMODEL_ENTRY_OUT("JxRtInfo::learnFromNameGet", learn);
  for (const auto& candidate : learns_) {
    if (candidate->description().name != name) continue;
    *learn = candidate.get();
    return JX_SUCCESS;
  }
  return JX_OBJECT_NOT_FOUND;
}

jx_status_t RtInfo::learnFromIdGet(uint32_t id, jxrt::JxRtLearn** learn) const {
  if (learn == nullptr) return JX_INVALID_ARGUMENTS;
  JXMODEL_ENTRY_OUT("JxRtInfo::learnFromIdGet", learn);
  for (const auto& candidate : learns_) {
    if (candidate->description().id != id) continue;
    *learn = candidate.get();
    return JX_SUCCESS;
  }
  return JX_OBJECT_NOT_FOUND;
}

}  // namespace jxmodel
