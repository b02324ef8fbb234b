#include "model/program/layout.h"

#include <zlib.h>

#include <algorithm>
#include <cstdio>
#include <map>
#include <set>
#include <utility>

#include "model/program/load_failure.h"

namespace jxmodel {
namespace {

constexpr uint32_t kLearnMark = 0x8000;

uint32_t packedBytesOf(const KeyField& field) {
  switch (field.match) {
    case JX_RT_MATCH_TERNARY:
    case JX_RT_MATCH_RANGE:
      return 2 * field.value_bytes;
    case JX_RT_MATCH_LPM:
    case JX_RT_MATCH_OPTIONAL:
      return field.value_bytes + 1;
    default:
      return field.value_bytes;
  }
}

const char* indexKeyName(jx_rt_table_type_t type) {
  switch (type) {
    case JX_RT_TABLE_ACTION_DATA:
      return JX_RT_FIELD_MEMBER_ID;
    case JX_RT_TABLE_SELECTOR:
      return JX_RT_FIELD_GROUP_ID;
    case JX_RT_TABLE_COUNTER:
      return JX_RT_FIELD_COUNTER_INDEX;
    default:
      return nullptr;
  }
}

std::string sizeRefusal(const char* what, uint32_t bytes, uint32_t most) {
  if (bytes <= most) return {};
  return std::string(what) + " " + std::to_string(bytes) + " bytes, at most " +
         std::to_string(most) + " are allowed";
}

// A value as people read it: decimal where it has at most 64 bits.
std::string textOf(const std::vector<uint8_t>& value) {
  const auto first =
      std::find_if(value.begin(), value.end(), [](uint8_t byte) { return byte != 0; });
  if (value.end() - first <= 8) {
    uint64_t number = 0;
    for (auto byte = first; byte != value.end(); ++byte) number = number << 8 | *byte;
    return std::to_string(number);
  }
  std::string text = "0x";
  for (auto byte = first; byte != value.end(); ++byte) {
    char digits[3];
    std::snprintf(digits, sizeof digits, "%02x", *byte);
    text += digits;
  }
  return text;
}

std::vector<uint8_t> prefixMask(uint32_t width, uint32_t prefix) {
  std::vector<uint8_t> mask(bytesOf(width), 0);
  const uint32_t padding = bytesOf(width) * 8 - width;
  for (uint32_t bit = padding; bit < padding + prefix; ++bit) {
    mask[bit / 8] = static_cast<uint8_t>(mask[bit / 8] | 0x80U >> bit % 8);
  }
  return mask;
}

void clearOutside(const std::vector<uint8_t>& mask, std::vector<uint8_t>* value) {
  for (size_t i = 0; i < mask.size(); ++i)
    (*value)[i] = static_cast<uint8_t>((*value)[i] & mask[i]);
}

// Settles one table; what it finds wrong stands at the table or at one of its entries.
class TableLayout {
 public:
  TableLayout(const Program& program, Table* table, std::string place)
      : program_(program),
        table_(*table),
        place_(std::move(place)),
        subject_("table " + table->name) {}

  void settle() {
    addIndexKey(&table_);
    checkSize();
    checkKey();
    layOutKey(&table_);
    const std::string refusal = keySizeRefusal(table_);
    if (!refusal.empty()) fail(refusal);
    if (table_.default_action) checkCall(*table_.default_action, ActionScope::kEntriesOnly);
  }

  void addEntries(const std::vector<UnpackedEntry>& entries) {
    if (entries.size() > table_.size) {
      fail(std::to_string(entries.size()) + " entries do not fit its size " +
           std::to_string(table_.size));
    }
    const std::string place = place_, subject = subject_;
    for (size_t i = 0; i < entries.size(); ++i) {
      if (!entries[i].place.empty()) place_ = entries[i].place;
      subject_ = subject + ", entry " + std::to_string(i + 1);
      addEntry(entries[i]);
    }
    place_ = place;
    subject_ = subject;
  }

 private:
  [[noreturn]] void fail(const std::string& reason) const {
    throw LoadFailure{place_, subject_ + ": " + reason};
  }

  void checkSize() {
    // A constant table without entries has none to make room for.
    if (table_.size == 0 && table_.constant_entries) table_.size = 1;
    if (table_.size == 0 && table_.type != JX_RT_TABLE_COUNTER) fail("its size is 0");
    if (table_.size > kMaxTableSize) {
      fail("size " + std::to_string(table_.size) + " is above the limit " +
           std::to_string(kMaxTableSize));
    }
    if (table_.type != JX_RT_TABLE_SELECTOR) return;
    if (table_.max_members == 0) table_.max_members = std::min(table_.size, kMaxGroupMembers);
    if (table_.max_members > kMaxGroupMembers) {
      fail("groups of " + std::to_string(table_.max_members) + " members are above the limit " +
           std::to_string(kMaxGroupMembers));
    }
  }

  void checkKey() const {
    const KeyField* prefix = nullptr;
    for (const KeyField& field : table_.key) {
      if (field.width == 0) fail("key " + field.name + " has no width");
      const uint32_t most = field.match == JX_RT_MATCH_EXACT ? kMaxExactKeyWidth : kMaxKeyWidth;
      if (field.width > most) {
        fail("key " + field.name + " has " + std::to_string(field.width) +
             " bits; a key field of its kind has at most " + std::to_string(most));
      }
      if (field.match != JX_RT_MATCH_LPM) continue;
      if (prefix != nullptr) fail("keys " + prefix->name + " and " + field.name + " are both lpm");
      prefix = &field;
    }
  }

  // `excluded`: the scope of actions that must not stand where the call stands.
  void checkCall(const ActionCall& call, ActionScope excluded) const {
    const auto found = std::find(table_.actions.begin(), table_.actions.end(), call.action);
    if (found == table_.actions.end()) {
      const bool known = call.action < program_.actions.size();
      fail("action " + (known ? program_.actions[call.action].name : std::to_string(call.action)) +
           " is none of its actions");
    }
    const Action& action = program_.actions[call.action];
    const auto position = static_cast<size_t>(found - table_.actions.begin());
    if (position < table_.action_scopes.size() && table_.action_scopes[position] == excluded) {
      fail("action " + action.name +
           (excluded == ActionScope::kEntriesOnly ? " is for entries only"
                                                  : " is for the default only"));
    }
    if (call.params.size() != action.param_bytes) {
      fail("action " + action.name + " takes " + std::to_string(action.param_bytes) +
           " bytes of values, not " + std::to_string(call.params.size()));
    }
    for (const Param& param : action.params) {
      const uint32_t spare = bytesOf(param.width) * 8 - param.width;
      if (call.params[param.offset] >> (8 - spare) == 0) continue;
      fail("the value of " + param.name + " is wider than its " + std::to_string(param.width) +
           " bits");
    }
  }

  // `value` in the bytes of the field.
  std::vector<uint8_t> fitted(const KeyField& field, const char* what,
                              const std::vector<uint8_t>& value) const {
    std::vector<uint8_t> bytes(value.begin(), value.end());
    while (bytes.size() > field.value_bytes && bytes.front() == 0) bytes.erase(bytes.begin());
    const uint32_t spare = field.value_bytes * 8 - field.width;
    const bool fits = bytes.size() < field.value_bytes ||
                      (bytes.size() == field.value_bytes && bytes.front() >> (8 - spare) == 0);
    if (!fits) {
      fail(std::string(what) + " " + textOf(value) + " of key " + field.name +
           " is wider than its " + std::to_string(field.width) + " bits");
    }
    bytes.insert(bytes.begin(), field.value_bytes - bytes.size(), 0);
    return bytes;
  }

  void packTernary(const KeyField& field, const KeyValue& given, std::vector<uint8_t>* key) const {
    std::vector<uint8_t> value = fitted(field, "value", given.value);
    const std::vector<uint8_t> mask = fitted(field, "mask", given.other);
    clearOutside(mask, &value);
    key->insert(key->end(), value.begin(), value.end());
    key->insert(key->end(), mask.begin(), mask.end());
  }

  void packRange(const KeyField& field, const KeyValue& given, std::vector<uint8_t>* key) const {
    const std::vector<uint8_t> low = fitted(field, "start", given.value);
    const std::vector<uint8_t> high = fitted(field, "end", given.other);
    if (low > high) fail("start " + textOf(low) + " is above end " + textOf(high));
    key->insert(key->end(), low.begin(), low.end());
    key->insert(key->end(), high.begin(), high.end());
  }

  void packPrefix(const KeyField& field, const KeyValue& given, std::vector<uint8_t>* key) const {
    if (given.prefix > field.width) {
      fail("prefix length " + std::to_string(given.prefix) + " of key " + field.name +
           " is above its " + std::to_string(field.width) + " bits");
    }
    std::vector<uint8_t> value = fitted(field, "value", given.value);
    clearOutside(prefixMask(field.width, given.prefix), &value);
    key->insert(key->end(), value.begin(), value.end());
    key->push_back(static_cast<uint8_t>(given.prefix));
  }

  // Whether an entry leaves an optional field open.
  bool matchesAny(const KeyField& field, const KeyValue& given) const {
    if (given.any) return true;
    if (given.other.empty()) return false;
    const std::vector<uint8_t> mask = fitted(field, "mask", given.other);
    if (mask == prefixMask(field.width, 0)) return true;
    if (mask != prefixMask(field.width, field.width)) {
      fail("mask " + textOf(mask) + " of key " + field.name +
           ", which is optional, has neither all bits nor none");
    }
    return false;
  }

  void packOptional(const KeyField& field, const KeyValue& given, std::vector<uint8_t>* key) const {
    const bool any = matchesAny(field, given);
    const std::vector<uint8_t> value =
        any ? std::vector<uint8_t>(field.value_bytes, 0) : fitted(field, "value", given.value);
    key->insert(key->end(), value.begin(), value.end());
    key->push_back(any ? 0 : 1);
  }

  void packField(const KeyField& field, const KeyValue& given, std::vector<uint8_t>* key) const {
    switch (field.match) {
      case JX_RT_MATCH_TERNARY:
        return packTernary(field, given, key);
      case JX_RT_MATCH_RANGE:
        return packRange(field, given, key);
      case JX_RT_MATCH_LPM:
        return packPrefix(field, given, key);
      case JX_RT_MATCH_OPTIONAL:
        return packOptional(field, given, key);
      default: {
        const std::vector<uint8_t> value = fitted(field, "value", given.value);
        key->insert(key->end(), value.begin(), value.end());
      }
    }
  }

  void addEntry(const UnpackedEntry& given) {
    if (given.key.size() != table_.key.size()) {
      fail("it has " + std::to_string(given.key.size()) + " key values, the table has " +
           std::to_string(table_.key.size()) + " keys");
    }
    InitialEntry entry;
    for (size_t i = 0; i < given.key.size(); ++i)
      packField(table_.key[i], given.key[i], &entry.key);
    entry.priority = table_.has_priority ? given.priority : 0;
    entry.call = given.call;
    checkCall(entry.call, ActionScope::kDefaultOnly);
    const auto [before, fresh] = known_.emplace(std::make_pair(entry.key, entry.priority),
                                                table_.initial_entries.size() + 1);
    if (!fresh) fail("it has the key of entry " + std::to_string(before->second));
    table_.initial_entries.push_back(std::move(entry));
  }

  const Program& program_;
  Table& table_;
  std::string place_;
  std::string subject_;
  std::map<std::pair<std::vector<uint8_t>, uint32_t>, size_t> known_;  // key and priority: which
};

// Ids of what has none. An id that the description gives and that is at another's position leaves
// the next free one to that.
template <typename Item, typename IdAt>
void fillIds(const char* what, std::vector<Item>* items, IdAt id_at) {
  if (items->size() > kMaxItems) {
    throw LoadFailure{"", "there are " + std::to_string(items->size()) + " " + what +
                              "s, at most " + std::to_string(kMaxItems) + " are allowed"};
  }
  std::set<uint32_t> taken;
  for (const Item& item : *items) {
    if (item.id == 0 || taken.insert(item.id).second) continue;
    throw LoadFailure{"", std::string(what) + " " + item.name + ": id " + std::to_string(item.id) +
                              " is already taken"};
  }
  for (size_t i = 0; i < items->size(); ++i) {
    size_t position = i;
    while ((*items)[i].id == 0) {
      const uint32_t id = id_at(position++);
      if (taken.insert(id).second) (*items)[i].id = id;
    }
  }
}

// Tables of different kinds may have one name in the description, but not on a device.
void tellNamesApart(std::vector<Table>* tables) {
  std::set<std::string> taken;
  for (Table& table : *tables) {
    if (taken.insert(table.name).second) continue;
    if (table.type <= JX_RT_TABLE_MATCH_SELECTOR) {
      throw LoadFailure{"", "table " + table.name + " is there twice"};
    }
    const char* const suffix = table.type == JX_RT_TABLE_ACTION_DATA ? "_members"
                               : table.type == JX_RT_TABLE_SELECTOR  ? "_selector"
                                                                     : "_counter";
    while (!taken.insert(table.name).second) table.name += suffix;
  }
}

void checkActions(std::vector<Action>* actions) {
  for (Action& action : *actions) {
    for (const Param& param : action.params) {
      if (param.width >= 1 && param.width <= kMaxParamWidth) continue;
      throw LoadFailure{"", "action " + action.name + ": parameter " + param.name + " has " +
                                std::to_string(param.width) + " bits, not 1 to " +
                                std::to_string(kMaxParamWidth)};
    }
    layOutParams(&action);
    const std::string refusal = paramSizeRefusal(action);
    if (!refusal.empty()) throw LoadFailure{"", "action " + action.name + ": " + refusal};
  }
}

void settle(UnpackedProgram* unpacked) {
  Program& program = unpacked->program;
  if (program.id == 0) program.id = programIdOf(program.name);
  const auto id_at = [&](size_t index) { return idAt(program.id, index); };
  fillIds("action", &program.actions, id_at);
  fillIds("table", &program.tables, id_at);
  fillIds("digest", &program.learns, [&](size_t index) { return learnIdAt(program.id, index); });
  for (Learn& learn : program.learns) {
    for (size_t i = 0; i < learn.fields.size(); ++i) {
      if (learn.fields[i].id == 0) learn.fields[i].id = static_cast<uint32_t>(i) + 1;
    }
  }
  checkActions(&program.actions);
  tellNamesApart(&program.tables);
  for (size_t i = 0; i < program.tables.size(); ++i) {
    Table& table = program.tables[i];
    table.handle = tableHandleAt(program.id, table.type, i);
    TableLayout layout(program, &table, i < unpacked->places.size() ? unpacked->places[i] : "");
    layout.settle();
    if (i < unpacked->entries.size()) layout.addEntries(unpacked->entries[i]);
  }
  // Counters of the hits of single entries are as many as those.
  for (Table& table : program.tables) {
    if (table.counted_table) table.size = program.tables[*table.counted_table].size;
  }
}

}  // namespace

bool layOut(UnpackedProgram* unpacked, LoadError* error) {
  try {
    settle(unpacked);
    return true;
  } catch (const LoadFailure& failure) {
    if (error == nullptr) return false;
    error->place = failure.place.empty() ? "/" : failure.place;
    error->reason = failure.reason;
    return false;
  }
}

uint32_t programIdOf(std::string_view name) {
  const auto* const bytes = reinterpret_cast<const Bytef*>(name.data());
  const uLong sum = crc32(0, bytes, static_cast<uInt>(name.size()));
  return static_cast<uint32_t>(1 + sum % kMaxProgramId);
}

uint32_t idAt(uint32_t program_id, size_t index) {
  return program_id << 16 | (static_cast<uint32_t>(index) + 1);
}

uint32_t learnIdAt(uint32_t program_id, size_t index) {
  return idAt(program_id, index) | kLearnMark;
}

uint32_t tableHandleAt(uint32_t program_id, jx_rt_table_type_t type, size_t index) {
  return (static_cast<uint32_t>(type) + 1) << 28 | idAt(program_id, index);
}

void addIndexKey(Table* table) {
  const char* const name = indexKeyName(table->type);
  if (name == nullptr || !table->key.empty()) return;
  KeyField field;
  field.name = name;
  field.width = kIndexWidth;
  table->key.push_back(std::move(field));
}

void layOutKey(Table* table) {
  table->key_bytes = 0;
  table->has_priority = false;
  for (size_t i = 0; i < table->key.size(); ++i) {
    KeyField& field = table->key[i];
    if (field.id == 0) field.id = static_cast<uint32_t>(i) + 1;
    field.offset = table->key_bytes;
    field.value_bytes = bytesOf(field.width);
    field.packed_bytes = packedBytesOf(field);
    table->key_bytes += field.packed_bytes;
    table->has_priority |= field.match == JX_RT_MATCH_TERNARY || field.match == JX_RT_MATCH_RANGE ||
                           field.match == JX_RT_MATCH_OPTIONAL;
  }
}

void layOutParams(Action* action) {
  action->param_bytes = 0;
  for (size_t i = 0; i < action->params.size(); ++i) {
    Param& param = action->params[i];
    if (param.id == 0) param.id = static_cast<uint32_t>(i) + 1;
    param.offset = action->param_bytes;
    action->param_bytes += bytesOf(param.width);
  }
}

std::string keySizeRefusal(const Table& table) {
  return sizeRefusal("the packed key has", table.key_bytes, kMaxKeyBytes);
}

std::string paramSizeRefusal(const Action& action) {
  return sizeRefusal("the packed parameters have", action.param_bytes, kMaxParamBytes);
}

}  // namespace jxmodel
