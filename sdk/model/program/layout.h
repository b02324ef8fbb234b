// From what a front-end has read to a program that devices can carry: ids and handles where the
// description has none, the places of fields in packed keys and of parameters in packed
// parameters, the packed keys of entries.
#pragma once

#include <cstdint>
#include <vector>

#include "model/program/program.h"

namespace jxmodel {

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
};

/// A program whose match kinds and ids are not settled: ids, handles, offsets and packed sizes are
/// still 0 where the description gives none, and no entry is packed.
struct UnpackedProgram {
  Program program;
  std::vector<std::vector<UnpackedEntry>> entries;  // as Program::tables
};

/// Settles it. An entry of an optional field may still come as a ternary value: mask 0 is "any".
/// False, and *error filled, where an entry does not fit its table.
bool layOut(UnpackedProgram* unpacked, LoadError* error);

}  // namespace jxmodel
