// Tables under ids that no program of the model has: this binary stands between the library and the
// SDK where they name tables, and gives one table another id, on both sides.
#pragma once

#include <cstdint>
#include <string>

namespace jextest {

/// Of a process that is started with it: "NAME=ID". Table NAME says that its id is ID, and who
/// looks for ID finds it.
inline const char* const kTableAliasVariable = "JEX_TEST_TABLE_ALIAS";
inline std::string tableAlias(const std::string& name, uint32_t id) {
  return name + "=" + std::to_string(id);
}

}  // namespace jextest
