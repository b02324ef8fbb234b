#include "named_values.h"

#include <nlohmann/json.hpp>

namespace jexapps {

void appendNamed(const KeyFieldView& field, NamedValues* values) {
  std::string value;
  appendMatch(field.field, field.kind, field.match, &value);
  values->emplace_back(field.field.name, std::move(value));
}

nlohmann::ordered_json jsonOf(const NamedValues& values) {
  auto object = nlohmann::ordered_json::object();
  for (const auto& [name, value] : values) object[name] = value;
  return object;
}

std::string textOf(const NamedValues& values) {
  std::string text;
  for (const auto& [name, value] : values) text.append(" ").append(name).append("=").append(value);
  return text;
}

}  // namespace jexapps
