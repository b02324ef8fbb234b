// From what a front-end has read to a program that devices can carry: ids and handles where the
// description has none, the places of fields in packed keys and of parameters in packed
// parameters, the packed keys of entries.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "model/program/program.h"

namespace jxmodel {

inline constexpr uint32_t kMaxProgramId = 4095;
inline constexpr uint32_t kMaxItems = 0x7FFF;  // of one kind: positions share 16 bits with a mark
inline constexpr uint32_t kMaxTableSize = 16'777'216;
inline constexpr uint32_t kMaxGroupMembers = 65'536;
inline constexpr uint32_t kMaxKeyBytes = 1024;
inline constexpr uint32_t kMaxParamBytes = 4096;
inline constexpr uint32_t kIndexWidth = 32;  // bits of a port, a counter index, a member id

/// What an entry says of one key field. Values have bytesOf(width) bytes.
struct KeyValue {
  std::vector<uint8_t> value;  // of a range the low end
  std::vector<uint8_t> other;  // ternary: the mask; range: the high end
  uint32_t prefix = 0;         // lpm: bits
  bool any = false;            // optional: matches anything
};
struct UnpackedEntry {
  std::vector<KeyValue> key;  // as Table::key
  uint32_t priority = 0;      // greater wins
  ActionCall call;
  std::string place;  // where the description has it, for errors; may be empty
};

/// A program whose match kinds and ids are not settled: ids, handles, offsets and packed sizes are
/// still 0 where the description gives none, and no entry is packed.
struct UnpackedProgram {
  Program program;
  std::vector<std::vector<UnpackedEntry>> entries;  // as Program::tables
  /// As Program::tables: where the description has each, for errors. May be shorter.
  std::vector<std::string> places;
};

/// Settles it: gives ids to what has none and handles to the tables, lays out keys and parameters,
/// packs the entries. Tables that are addressed by a number get their key here. An entry of an
/// optional field may still come as a ternary value: mask 0 is "any". False, and place and reason
/// of *error filled, where something does not fit.
bool layOut(UnpackedProgram* unpacked, LoadError* error);

// The parts of it, for a front-end that settles a program as it reads.

/// The program id of a program that is only known by its name.
uint32_t programIdOf(std::string_view name);
/// The id of the item at `index` of its list.
uint32_t idAt(uint32_t program_id, size_t index);
/// Of a learn object.
uint32_t learnIdAt(uint32_t program_id, size_t index);
uint32_t tableHandleAt(uint32_t program_id, jx_rt_table_type_t type, size_t index);
/// Puts the field that addresses a table by a number, $MEMBER_ID and the like, into the key of a
/// table of that type whose key is empty.
void addIndexKey(Table* table);
/// Ids of fields that have none, their places, the bytes of the whole key, has_priority.
void layOutKey(Table* table);
void layOutParams(Action* action);
/// What is wrong with the size of the packed key or parameters; empty: nothing.
std::string keySizeRefusal(const Table& table);
std::string paramSizeRefusal(const Action& action);

}  // namespace jxmodel
