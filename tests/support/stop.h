// What a stop of the library looks like from outside.
#pragma once

#include <string>
#include <vector>

#include "support/child.h"

namespace jextest {

/// One line "Error: ...", then the C library's line of a failed assertion, then SIGABRT.
struct Stop {
  std::string error;       ///< the whole line without its end
  std::string source;      ///< "JexPartnerLibServer": the file is JexHybridSlice/<source>.cpp
  std::string function;    ///< part of the function's signature
  std::string expression;  ///< the condition that stands in quotes
};

/// Expects that `child` ends, and that its end is `stop`: exactly one Error line.
void expectStop(Child& child, const Stop& stop);

std::vector<std::string> linesOf(const std::string& text);
/// Lines of `text` that begin with `prefix`.
std::vector<std::string> linesWith(const std::string& text, const std::string& prefix);

}  // namespace jextest
