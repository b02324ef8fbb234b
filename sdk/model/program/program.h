// The description of a P4 program: what a loader builds and a device carries. Immutable once made.
//
// Ids and handles depend on the description alone, so one program has the same on every device:
//   table id      program id << 16 | position from 1
//   table handle  (table type + 1) << 28 | table id
//   action id, action handle   program id << 16 | position from 1
//   learn id      program id << 16 | 0x8000 | position from 1
//   field ids     position from 1 (keys; parameters of one action; fields of a learn object)
// Where P4Info says the id of a table, an action, a learn object, a key field or a parameter, that
// is its id; handles stay.
//   data fields that belong to no action: the kField* constants
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "jxsdk/rt.h"
#include "model/program/machine.h"

namespace jxmodel {

inline constexpr uint32_t kFieldMemberId = 0x10001;
inline constexpr uint32_t kFieldGroupId = 0x10002;
inline constexpr uint32_t kFieldMaxMembers = 0x10003;
inline constexpr uint32_t kFieldMembers = 0x10004;
inline constexpr uint32_t kFieldMembersActive = 0x10005;
inline constexpr uint32_t kFieldTtl = 0x10006;
inline constexpr uint32_t kFieldCounterPkts = 0x10007;
inline constexpr uint32_t kFieldCounterBytes = 0x10008;

inline constexpr uint32_t kMaxKeyWidth = 128;  // bits of one key field of any kind but exact
inline constexpr uint32_t kMaxExactKeyWidth = 2048;
inline constexpr uint32_t kMaxParamWidth = 16384;  // bits of one action parameter

/// Bytes of a value of `bits` bits.
constexpr uint32_t bytesOf(uint32_t bits) { return (bits + 7) / 8; }

/// The item with that id, null if there is none. The id mostly gives the position away.
template <typename Item>
const Item* itemWithId(const std::vector<Item>& items, uint32_t id) {
  const uint32_t position = (id & 0xFFFF) - 1;
  if (position < items.size() && items[position].id == id) return &items[position];
  for (const Item& item : items) {
    if (item.id == id) return &item;
  }
  return nullptr;
}

/// A header or metadata field that packets have: "ipv4.dst", "meta.ingress_port".
struct PacketField {
  std::string name;
  uint32_t width = 0;  // bits, 1 to kMaxKeyWidth
};

/// An operand of an action or of the control flow: a packet field (index into Program::fields), a
/// parameter of the action (index into Action::params), or a constant.
struct FieldRef {
  uint32_t index;
};
struct ParamRef {
  uint32_t index;
};
struct Constant {
  std::vector<uint8_t> value;
};  // network byte order
using Operand = std::variant<FieldRef, ParamRef, Constant>;

/// One step of an action.
enum class PrimitiveOp : uint8_t {
  kSet,      // field := source
  kForward,  // leave through port `source`
  kFlood,    // leave through every port but the ingress port
  kDrop,
  kDecrement,  // field := field - 1; drops the packet where that reaches 0 (TTL, hop limit)
  kCount,      // counter table `table` at index `source`
  kDigest,     // learn object `learn`
};
struct Primitive {
  PrimitiveOp op = PrimitiveOp::kDrop;
  uint32_t field = 0;  // kSet, kDecrement: index into Program::fields
  uint32_t table = 0;  // kCount: index into Program::tables
  uint32_t learn = 0;  // kDigest: index into Program::learns
  Operand source = Constant{};
};

struct Param {
  uint32_t id = 0;
  std::string name;
  uint32_t width = 0;   // bits, 1 to kMaxParamWidth
  uint32_t offset = 0;  // of its bytesOf(width) bytes in the packed parameters of the action
  std::optional<std::vector<uint8_t>> default_value;  // may be left out by a writer if set
};

struct Action {
  uint32_t id = 0;
  std::string name;
  std::vector<Param> params;
  uint32_t param_bytes = 0;  // of all parameters, packed in order
  std::vector<Primitive> body;
};

struct KeyField {
  uint32_t id = 0;
  std::string name;
  uint32_t width = 0;  // bits
  jx_rt_key_match_type_t match = JX_RT_MATCH_EXACT;
  std::optional<uint32_t> field;  // index into Program::fields; empty for $MEMBER_ID and the like
  // Place in the packed key. Exact: value. Ternary: value (under the mask), mask. Range: low,
  // high. LPM: value (under the prefix), then one byte of prefix length. Optional: value (0 where
  // it matches anything), then one byte 1 = valid.
  uint32_t offset = 0;
  uint32_t value_bytes = 0;   // bytesOf(width)
  uint32_t packed_bytes = 0;  // of all of the above
};

/// An action with its parameters, as a default of the description.
struct ActionCall {
  uint32_t action = 0;          // index into Program::actions
  std::vector<uint8_t> params;  // packed
};

/// An entry that a match table with actions of its own has from the start.
struct InitialEntry {
  std::vector<uint8_t> key;  // packed
  uint32_t priority = 0;     // greater wins
  ActionCall call;
};

/// Where an action of a table may stand.
enum class ActionScope : uint8_t { kAnywhere, kEntriesOnly, kDefaultOnly };

struct Table {
  uint32_t id = 0;
  uint32_t handle = 0;
  std::string name;
  jx_rt_table_type_t type = JX_RT_TABLE_MATCH_DIRECT;
  uint32_t size = 0;  // entries
  std::vector<KeyField> key;
  uint32_t key_bytes = 0;         // of the packed key
  bool has_priority = false;      // a ternary, range or optional field
  std::vector<uint32_t> actions;  // indices into Program::actions; own, or the action-data table's
  std::optional<uint32_t> action_data_table;  // index into Program::tables
  std::optional<uint32_t> selector_table;     // index into Program::tables
  bool idle_timeout = false;                  // entries may have a TTL
  bool hidden = false;  // of the program's own: the SDK interface does not show it
  std::optional<ActionCall> default_action;  // direct tables
  bool constant_default = false;             // which nobody may change
  /// Made in this order when the device is; the same handles on every device.
  std::vector<InitialEntry> initial_entries;
  bool constant_entries = false;           // nobody adds, changes or removes one
  std::vector<ActionScope> action_scopes;  // as `actions`; empty: all of them anywhere
  std::optional<uint32_t> direct_counter;  // index of the counter table of its entries' hits
  std::optional<uint32_t> counted_table;   // of such a counter table: the table it belongs to
  // Selector tables.
  uint32_t max_members = 0;           // of a group
  std::vector<uint32_t> hash_fields;  // indices into Program::fields that choose the member; none
                                      // where a machine computes the hash
};

struct LearnField {
  uint32_t id = 0;
  uint32_t field = 0;  // index into Program::fields
};

struct Learn {
  uint32_t id = 0;
  std::string name;
  std::vector<LearnField> fields;
};

/// The path of a packet, as a tree of steps done in order.
struct ControlStep;
using ControlBlock = std::vector<ControlStep>;

enum class CompareOp : uint8_t { kEqual, kNotEqual, kLess, kLessEqual, kGreater, kGreaterEqual };

/// Applies a table, runs the action, goes on in one of the two blocks.
struct ApplyTable {
  uint32_t table = 0;  // index into Program::tables
  ControlBlock on_hit, on_miss;
};
/// True if the packet has the header ("ipv4").
struct HeaderValid {
  std::string header;
};
struct Comparison {
  Operand left = Constant{}, right = Constant{};
  CompareOp op = CompareOp::kEqual;
  std::optional<std::vector<uint8_t>> mask;  // laid over both sides first
};
struct Branch {
  std::variant<HeaderValid, Comparison> condition;
  ControlBlock then_block, else_block;
};
struct ControlStep {
  std::variant<ApplyTable, Branch, Primitive> step;
};

struct Program {
  uint32_t id = 0;  // 1 to 4095; programs of one device differ in it
  std::string name;
  std::vector<PacketField> fields;
  std::vector<Action> actions;
  std::vector<Table> tables;
  std::vector<Learn> learns;
  // The way of packets: at most one of the two. Without either packets are dropped.
  ControlBlock control;
  std::shared_ptr<const Machine> machine;

  const Table* tableByName(std::string_view name) const;
  const Table* tableById(uint32_t id) const;
  const Action* actionByName(std::string_view name) const;
  const Action* actionById(uint32_t id) const;
};

/// What a loader found wrong: "router.json: /tables/2/key/0/match: unknown match kind 'lmp'".
struct LoadError {
  std::string file, place, reason;
  std::string text() const { return file + ": " + place + ": " + reason; }
};

/// Loads a description from a JSON file. Null and *error filled if it is not a right one.
std::shared_ptr<const Program> loadProgramJson(const std::string& path, LoadError* error);
/// The same from text; `name` stands for the file in errors.
std::shared_ptr<const Program> parseProgramJson(std::string_view text, const std::string& name,
                                                LoadError* error);

}  // namespace jxmodel
