// The control half of P4Info laid over the program of the compiler's JSON.
#pragma once

#include "model/program/layout.h"
#include "model/program/p4info/control_view.h"

namespace jxmodel::p4info {

/// Throws LoadFailure where the two do not fit.
UnpackedProgram join(ControlView view, const UnpackedProgram& compiled);

}  // namespace jxmodel::p4info
