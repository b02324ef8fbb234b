// From the words of a line to the key and data objects of a table. All functions throw
// CommandError with a sentence that names what is wrong.
#pragma once

#include <memory>

#include "jxsdk/rt.hpp"
#include "line.h"
#include "table.h"

namespace jexapps {

using KeyPtr = std::unique_ptr<jxrt::JxRtTableKey>;
using DataPtr = std::unique_ptr<jxrt::JxRtTableData>;

/// Sets one field of a key, by the setter of its match kind.
void setKeyField(const TableFacts& facts, const jxrt::JxRtFieldInfo& field, const Match& match,
                 jxrt::JxRtTableKey* key);

/// The key from the left side of a line: every exact field must be there, others left out match
/// anything. Nothing but key fields may be left on that side.
KeyPtr makeKey(const TableFacts& facts, Assignments* left);

/// The key of a member or group: `field` is its only field.
KeyPtr makeIdKey(const TableFacts& facts, const char* field, uint32_t id);

/// What an entry does, from the right side of a line: ACTION PARAM=VALUE..., member=ID or
/// group=ID. Nothing else may be left on that side.
DataPtr makeData(const TableFacts& facts, Line* line);

/// Data that refers to one member or group; `field` is $MEMBER_ID or $GROUP_ID.
DataPtr makeReference(const TableFacts& facts, const char* field, uint32_t id);

/// Sets a data field that belongs to no action; `what` names it in the error if the table has none.
void setDataNumber(const TableFacts& facts, const char* field, const char* what, uint32_t number,
                   jxrt::JxRtTableData* data);

/// Takes a number that may stand on either side of the arrow, unless a key field or a parameter
/// has that name.
std::optional<uint32_t> takeOption(const TableFacts& facts, const char* name, Line* line);

/// Throws if an assignment is left that nobody has taken.
void checkNothingLeft(const Assignments& assignments, const std::string& place);

/// "a, b, c" for the names of fields or actions.
template <typename Item>
std::string namesOf(const std::vector<Item>& items) {
  std::string names;
  for (const Item& item : items) names += (names.empty() ? "" : ", ") + item.name;
  return names.empty() ? "none" : names;
}

}  // namespace jexapps
