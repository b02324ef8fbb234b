#pragma once

#include "shell.h"

namespace jexapps {

/// The command load-routes: adds one entry a line of a file of prefixes.
Result loadRoutes(Shell& shell, Line& line);

}  // namespace jexapps
