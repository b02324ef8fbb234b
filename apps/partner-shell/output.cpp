#include "output.h"

namespace jexapps {
namespace {

std::string jsonLine(const Result& result, std::optional<uint64_t> line_number) {
  nlohmann::ordered_json object = {{"ok", result.ok}};
  if (!result.ok && line_number) object["line"] = *line_number;
  if (!result.ok) object["error"] = result.text;
  object.update(result.fields);
  // Words of a script need not be UTF-8.
  return object.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
}

std::string textLine(const Result& result, std::optional<uint64_t> line_number) {
  if (result.ok) return result.text.empty() ? "ok" : "ok " + result.text;
  const std::string place = line_number ? "line " + std::to_string(*line_number) + ": " : "";
  return "error: " + place + result.text;
}

}  // namespace

void Output::result(const Result& result, std::optional<uint64_t> line_number) {
  stream_ << (json_ ? jsonLine(result, line_number) : textLine(result, line_number)) << '\n';
  stream_.flush();
}

}  // namespace jexapps
