// The front-end for the JSON of the open P4 compiler: programs for the v1model architecture, as a
// control half and the machine that packets go through.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "model/program/layout.h"
#include "model/program/program.h"

namespace jxmodel {

inline constexpr size_t kMaxV1modelBytes = 64u << 20;  // of a file

/// Whether `text` looks like the compiler's JSON rather than a description of our own; it can be
/// wrong in either case.
bool looksLikeV1model(std::string_view text);

/// Reads `text`; `file` stands for it in errors, and its stem is the program's name. False, and
/// *error filled and *out untouched, if something is wrong or cannot be had. `notices` (may be
/// null) gets a line for each construct that does less than its author may expect.
bool programFromV1model(std::string_view text, const std::string& file, UnpackedProgram* out,
                        LoadError* error, std::vector<std::string>* notices = nullptr);

}  // namespace jxmodel
