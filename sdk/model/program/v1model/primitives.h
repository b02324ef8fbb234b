// One step of an action or of the parser.
#pragma once

#include "model/program/v1model/expressions.h"

namespace jxmodel::v1model {

/// Reads {"op", "parameters"}. `step` is its place in the action, `steps` how many there are.
MachineStep readPrimitive(const Node& primitive, const Scope& scope, size_t step, size_t steps,
                          Draft* draft);

/// A value that goes to where `target` says: the lengths of varbits go along.
MachineStep readAssign(const Node& target, const Node& value, const Scope& scope, Draft* draft);

}  // namespace jxmodel::v1model
