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

  /// The table's action with this id, null if it has none such.
  const Action* actionById(uint32_t id) const {
    for (const uint32_t index : table->actions) {
      if (program->actions[index].id == id) return &program->actions[index];
    }
    return nullptr;
  }
};

}  // namespace jxmodel
