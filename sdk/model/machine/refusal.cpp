// Why a machine cannot run on a device. Loaders refuse what programs get wrong; this keeps packets
// from references that lead nowhere.
#include "model/machine/compiled_machine.h"

namespace jxmodel {

std::string machineRefusal(const Program& program) {
  const Machine& machine = *program.machine;
  const StateLayout layout(machine);
  const ExpressionCompiler expressions(layout);
  for (const MachineNode& node : machine.nodes) {
    const auto* const table = std::get_if<TableNode>(&node.node);
    if (table == nullptr) continue;
    if (table->table >= program.tables.size() ||
        table->key.size() != program.tables[table->table].key.size() ||
        table->actions.size() != program.tables[table->table].actions.size()) {
      return "node " + node.name + " does not fit its table";
    }
    for (const Expression& key : table->key) {
      const std::string reason = expressions.refusal(key, {});
      if (!reason.empty()) return "table " + node.name + ": " + reason;
    }
  }
  return {};
}

}  // namespace jxmodel
