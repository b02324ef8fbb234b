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

// Ids count positions from 1, so the place in the list follows from the id; the comparison tells
// an id of another program, or of none.
template <typename Item>
const Item* byId(const std::vector<Item>& items, uint32_t id) {
  const uint32_t position = id & 0xFFFF;
  if (position == 0 || position > items.size()) return nullptr;
  const Item& item = items[position - 1];
  return item.id == id ? &item : nullptr;
}

}  // namespace

const Table* Program::tableByName(std::string_view wanted) const { return byName(tables, wanted); }

const Table* Program::tableById(uint32_t table_id) const { return byId(tables, table_id); }

const Action* Program::actionByName(std::string_view wanted) const {
  return byName(actions, wanted);
}

const Action* Program::actionById(uint32_t action_id) const { return byId(actions, action_id); }

}  // namespace jxmodel
