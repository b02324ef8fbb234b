// Tables of the switch SDK as programs use them: their facts by name, and all of their entries.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "entry.h"
#include "jxsdk/rt.hpp"

namespace jexapps {

/// What there is to know about one table, asked for once.
struct TableFacts {
  const jxrt::JxRtTable* table = nullptr;
  std::string program;
  std::string name;
  uint32_t id = 0;
  uint32_t handle = 0;
  jx_rt_table_type_t type = JX_RT_TABLE_MATCH_DIRECT;
  std::vector<jxrt::JxRtFieldInfo> key;
  std::vector<jxrt::JxRtFieldInfo> data;  // of no action
  std::vector<jxrt::JxRtActionInfo> actions;
  bool has_priority = false;  // a ternary, range or optional key field

  const jxrt::JxRtFieldInfo* keyField(std::string_view field) const;
  const jxrt::JxRtFieldInfo* dataField(std::string_view field) const;
  const jxrt::JxRtActionInfo* action(std::string_view action) const;
  const jxrt::JxRtActionInfo* actionById(uint32_t action_id) const;
};

/// The facts of all tables of all programs of a device, in the profile's and the description's
/// order.
jx_status_t readTableFacts(jx_dev_id_t dev_id, std::vector<TableFacts>* tables);

/// "match_direct", "action_data", ...: the table types as programs print them.
const char* tableKindName(jx_rt_table_type_t type);

/// The SDK's text for a status.
std::string statusText(jx_status_t status);

/// What a key of the table matches, in the order of its fields. `facts` has to outlive the views.
jx_status_t readKey(const TableFacts& facts, const jxrt::JxRtTableKey& key,
                    std::vector<KeyFieldView>* fields);

/// Gives every entry, then the default entry and the fallback if there are any. `facts` has to
/// outlive what the callback keeps of the view. Stops at the first status that is not success.
jx_status_t forEachEntry(const TableFacts& facts, const jxrt::JxRtSession& session,
                         const jx_rt_target_t& target,
                         const std::function<void(const EntryView& entry)>& callback);

}  // namespace jexapps
