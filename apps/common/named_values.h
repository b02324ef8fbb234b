// Values with their names, as programs print fields of keys, digests and events.
#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string>
#include <utility>
#include <vector>

#include "entry.h"

namespace jexapps {

/// In the order in which they are printed.
using NamedValues = std::vector<std::pair<std::string, std::string>>;

/// Adds a field of a key and what it matches.
void appendNamed(const KeyFieldView& field, NamedValues* values);

/// An object of texts.
nlohmann::ordered_json jsonOf(const NamedValues& values);
/// " NAME=VALUE" for each.
std::string textOf(const NamedValues& values);

}  // namespace jexapps
