#include "names.h"

#include <algorithm>
#include <charconv>
#include <stdexcept>

#include "model/program/load/load.h"

namespace slice_counters {

void TableNames::add(const std::string& program) {
  jxmodel::LoadError error;
  const auto loaded = jxmodel::loadProgram(program, &error);
  if (loaded == nullptr) throw std::runtime_error(error.text());
  for (const jxmodel::Table& table : loaded->tables) {
    if (table.hidden || names_.emplace(table.id, table.name).second) continue;
    throw std::runtime_error(program + ": table " + table.name + ": another program has the id " +
                             std::to_string(table.id));
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
