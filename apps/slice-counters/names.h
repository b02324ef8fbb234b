// Names of tables, from programs.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "block.h"

namespace slice_counters {

/// Where a table's name stands. Ids depend on the program alone (docs/programs.md, "Ids and
/// handles").
class TableNames {
 public:
  /// Takes the names of a program, in any form that devices take. Throws std::runtime_error,
  /// "FILE: place: reason", if it cannot be loaded or has an id of one that was added before.
  void add(const std::string& program);

  /// Null if no program has the id.
  const std::string* find(uint32_t table_id) const;

  /// Id of a table that is given as its id or by its name. Throws std::runtime_error for a name
  /// that no program has, or that two have.
  uint32_t resolve(const std::string& table) const;

 private:
  std::map<uint32_t, std::string> names_;
};

}  // namespace slice_counters
