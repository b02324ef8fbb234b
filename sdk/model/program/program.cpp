#include "model/program/program.h"

#include <algorithm>

namespace jxmodel {
namespace {

template <typename Item>
const Item* byName(const std::vector<Item>& items, std::string_view name) {
  const auto found = std::find_if(items.begin(), items.end(),
                                  [name](const Item& item) { return item.name == name; });
  return found == items.end() ? nullptr : &*found;
}

}  // namespace

const Table* Program::tableByName(std::string_view wanted) const { return byName(tables, wanted); }

const Table* Program::tableById(uint32_t table_id) const { return itemWithId(tables, table_id); }

const Action* Program::actionByName(std::string_view wanted) const {
  return byName(actions, wanted);
}

const Action* Program::actionById(uint32_t action_id) const {
  return itemWithId(actions, action_id);
}

}  // namespace jxmodel
