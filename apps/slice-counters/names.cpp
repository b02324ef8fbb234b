#include "names.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <fstream>
#include <nlohmann/json.hpp>
#include <stdexcept>

namespace slice_counters {
namespace {

using nlohmann::json;

constexpr uint32_t kMaxProgramId = 4095;
constexpr uint32_t kProgramShift = 16;
constexpr size_t kMaxTables = 0x7FFF;

json parseFile(const std::string& file) {
  std::ifstream in(file);
  if (!in) throw std::runtime_error(file + ": cannot be read: " + std::strerror(errno));
  json description = json::parse(in, nullptr, false);
  if (description.is_discarded()) throw std::runtime_error(file + ": is not JSON");
  return description;
}

/// The member `name` of an object, null if it has none.
const json* memberOf(const json& object, const char* name) {
  if (!object.is_object()) return nullptr;
  const auto at = object.find(name);
  return at == object.end() ? nullptr : &*at;
}

uint32_t programIdOf(const json& description, const std::string& file) {
  const json* const id = memberOf(description, "id");
  const bool fits = id != nullptr && id->is_number_unsigned() && id->get<uint64_t>() >= 1 &&
                    id->get<uint64_t>() <= kMaxProgramId;
  if (!fits) throw std::runtime_error(file + ": /id: is not a number from 1 to 4095");
  return id->get<uint32_t>();
}

}  // namespace

void TableNames::add(const std::string& file) {
  const json description = parseFile(file);
  const uint32_t program_id = programIdOf(description, file);
  const json* const tables = memberOf(description, "tables");
  if (tables == nullptr || !tables->is_array()) {
    throw std::runtime_error(file + ": /tables: is not an array");
  }
  if (tables->size() > kMaxTables) {
    throw std::runtime_error(file + ": /tables: has more than " + std::to_string(kMaxTables));
  }
  uint32_t position = 0;
  for (const json& table : *tables) {
    const json* const name = memberOf(table, "name");
    if (name == nullptr || !name->is_string()) {
      throw std::runtime_error(file + ": /tables/" + std::to_string(position) +
                               "/name: is not a string");
    }
    ++position;
    const uint32_t id = program_id << kProgramShift | position;
    if (!names_.emplace(id, name->get<std::string>()).second) {
      throw std::runtime_error(file + ": /id: another program has the id " +
                               std::to_string(program_id));
    }
  }
}

const std::string* TableNames::find(uint32_t table_id) const {
  const auto at = names_.find(table_id);
  return at == names_.end() ? nullptr : &at->second;
}

uint32_t TableNames::resolve(const std::string& table) const {
  uint32_t id = 0;
  const char* const end = table.data() + table.size();
  const auto [stop, error] = std::from_chars(table.data(), end, id);
  if (error == std::errc() && stop == end) return id;

  const auto has_name = [&](const auto& entry) { return entry.second == table; };
  const auto at = std::find_if(names_.begin(), names_.end(), has_name);
  if (at == names_.end()) {
    throw std::runtime_error("unknown table '" + table +
                             "': give its id, or its program with --program");
  }
  if (std::find_if(std::next(at), names_.end(), has_name) != names_.end()) {
    throw std::runtime_error("two programs have a table '" + table + "': give its id");
  }
  return at->first;
}

}  // namespace slice_counters
