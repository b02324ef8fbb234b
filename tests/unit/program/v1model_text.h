// Machines as text, for tests: operands first, one word per code.
#pragma once

#include <string>
#include <variant>

#include "model/program/machine.h"

namespace jxmodel {

/// "eth.dst 255 &"
std::string expressionText(const Expression& code, const Machine& machine);
/// "assign scalars.x := p0"
std::string stepText(const MachineStep& step, const Machine& machine);

}  // namespace jxmodel
