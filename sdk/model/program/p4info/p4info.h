// The front-end for P4Info text: the control half of a program as partners see it. It completes
// what the compiler's JSON says (ids, optional keys, scopes, digest fields, ...), or stands alone,
// for devices that forward no packets.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "model/program/layout.h"
#include "model/program/program.h"

namespace jxmodel {

/// Reads `text` alone; `file` stands for it in errors, and its stem is the program's name. False,
/// and *error filled, if something is wrong.
bool programFromP4Info(std::string_view text, const std::string& file, UnpackedProgram* out,
                       LoadError* error);

/// Takes into *program, which comes from the compiler's JSON, what `text` says of it. Tables stand
/// in P4Info's order afterwards; those that it does not know are hidden and stand last. False, and
/// *error filled and *program untouched, if the two do not fit.
bool joinP4Info(std::string_view text, const std::string& file, UnpackedProgram* program,
                LoadError* error);

}  // namespace jxmodel
