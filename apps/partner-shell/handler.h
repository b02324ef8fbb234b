// What the handlers of all groups of commands need, and the groups.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "command_error.h"
#include "shell.h"

namespace jexapps {

using Json = nlohmann::ordered_json;

inline Result ok(std::string text = {}, Json fields = Json::object()) {
  return Result{true, std::move(text), std::move(fields)};
}

inline std::string countText(uint64_t count, const char* singular, const char* plural) {
  return std::to_string(count) + " " + (count == 1 ? singular : plural);
}

inline Result okCount(uint64_t entries) {
  return ok(countText(entries, "entry", "entries"), {{"entries", entries}});
}

inline bool isMatchTable(const TableFacts& table) {
  return table.type == JX_RT_TABLE_MATCH_DIRECT || table.type == JX_RT_TABLE_MATCH_ACTION_DATA ||
         table.type == JX_RT_TABLE_MATCH_SELECTOR;
}

/// The table of a line, which has to be of this type.
inline const TableFacts& tableOfType(Shell& shell, const Line& line, jx_rt_table_type_t type) {
  const TableFacts& table = shell.table(line.operands[0]);
  if (table.type == type) return table;
  throw CommandError(table.name + " is no " + tableKindName(type) + " table but " +
                     tableKindName(table.type));
}

/// Waits until the slice agent has handled all that was sent before; throws CommandError if it does
/// not answer. `purpose` names what that is for.
void awaitAgent(Shell& shell, const std::string& purpose);

std::vector<Command> counterCommands();
std::vector<Command> barrierCommands();
std::vector<Command> notificationCommands();

}  // namespace jexapps
