// One table of one device: its description, its entries, and who is told of its updates.
#pragma once

#include <memory>

#include "jxsdk/pipe_mgr.h"
#include "model/program/program.h"
#include "model/tables/action_data_table.h"
#include "model/tables/counter_table.h"
#include "model/tables/match_table.h"
#include "model/tables/selector_table.h"

namespace jxmodel {

/// Who ages the entries of a table.
class EntryAging {
 public:
  /// An entry was added or modified. Under the device's mutex.
  virtual void written(uint32_t slot) = 0;
  /// A packet has hit an entry that had aged out. In the ReadSection of the look-up.
  virtual void woken(uint32_t slot) = 0;

 protected:
  ~EntryAging() = default;
};

/// A placement callback with its cookie; a null function tells nobody.
template <typename Function>
struct UpdateCallback {
  Function function = nullptr;
  void* cookie = nullptr;
};

struct TableState {
  const Program* program = nullptr;
  const Table* table = nullptr;

  // Exactly one of these; none for the counter table of a virtual device.
  std::unique_ptr<MatchTable> match;
  std::unique_ptr<ActionDataTable> members;
  std::unique_ptr<SelectorTable> groups;
  std::unique_ptr<CounterTable> counters;

  // The tables behind this one, null where there are none.
  TableState* member_state = nullptr;
  TableState* group_state = nullptr;

  // At most the one of the table's kind.
  UpdateCallback<pipe_mat_update_cb> on_match;
  UpdateCallback<pipe_adt_update_cb> on_member;
  UpdateCallback<pipe_sel_update_cb> on_group;

  /// Of a physical device's table whose entries age; else null.
  EntryAging* aging = nullptr;

  /// Of a physical device's table whose hits are counted per entry; else null.
  CounterTable* direct_counters = nullptr;
  /// The index in it of an entry that a packet has hit, by its slot; kNoSlot, which counts nowhere,
  /// if the entry has none.
  uint32_t directIndexOf(uint32_t slot) const { return match->countIndexOf(slot); }

  /// Whether entries come and go: not in a table without a key, nor where they are constant.
  bool takesEntries() const { return !table->key.empty() && !table->constant_entries; }
  /// Whether an action of the table may be an entry's, or the default's.
  bool allows(const Action& action, bool as_default) const {
    const ActionScope refused = as_default ? ActionScope::kEntriesOnly : ActionScope::kDefaultOnly;
    for (size_t i = 0; i < table->action_scopes.size(); ++i) {
      if (&program->actions[table->actions[i]] == &action)
        return table->action_scopes[i] != refused;
    }
    return true;
  }

  /// The table's action with this id, null if it has none such.
  const Action* actionById(uint32_t id) const {
    for (const uint32_t index : table->actions) {
      if (program->actions[index].id == id) return &program->actions[index];
    }
    return nullptr;
  }
};

}  // namespace jxmodel
