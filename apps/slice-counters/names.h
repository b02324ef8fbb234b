// Names of tables, from program descriptions.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "block.h"

namespace slice_counters {

/// Where a table's name stands. Ids depend on the description alone (docs/descriptions.md, "Ids stay"):
/// program id << 16 | position from 1. That rule and the names are all that is taken from a
/// description; whether it is right otherwise is for a device to say.
class TableNames {
 public:
  /// Takes the names of a description. Throws std::runtime_error, "FILE: reason", if it cannot be
  /// read, has no names and ids, or has an id of one that was added before.
  void add(const std::string& file);

  /// Null if no description has the id.
  const std::string* find(uint32_t table_id) const;

  /// Id of a table that is given as its id or by its name. Throws std::runtime_error for a name
  /// that no description has, or that two have.
  uint32_t resolve(const std::string& table) const;

 private:
  std::map<uint32_t, std::string> names_;
};

}  // namespace slice_counters
