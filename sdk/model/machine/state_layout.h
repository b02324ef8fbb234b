// Where the fields of a machine lie in the state of a packet.
#pragma once

#include <cstdint>
#include <vector>

#include "model/machine/limbs.h"
#include "model/program/machine.h"

namespace jxmodel {

inline constexpr uint32_t kNoIndex = 0xFFFF'FFFF;  // no index

struct FieldSlot {
  uint32_t limb = 0;   // first of its words in PacketState::limbs
  uint32_t limbs = 1;  // 64-bit words
  uint32_t width = 0;  // bits
  uint32_t header = 0;
  uint32_t varbit = kNoIndex;  // of a varbit: index into StateLayout::varbits; it has no words
  bool is_signed = false;
};
struct HeaderSlot {
  uint32_t first_limb = 0, limbs = 0;  // of all its fields
  uint32_t fixed_bits = 0;             // without its varbit
  uint32_t varbit = kNoIndex;          // index into StateLayout::varbits
  uint32_t in_union = kNoIndex;
  bool metadata = false;
};
struct VarbitSlot {
  uint32_t offset = 0;     // in PacketState::varbit_bytes
  uint32_t max_bytes = 0;  // at its longest
};

struct StateLayout {
  explicit StateLayout(const Machine& machine);

  const Machine& machine;
  std::vector<FieldSlot> fields;    // as Machine::fields
  std::vector<HeaderSlot> headers;  // as Machine::headers
  std::vector<VarbitSlot> varbits;
  std::vector<uint32_t> packet_headers;  // those that are no metadata
  uint32_t metadata_limbs = 0;           // the words of metadata come first
  uint32_t limbs = 0;
  uint32_t varbit_bytes = 0;

 private:
  void place(uint32_t header);
};

}  // namespace jxmodel
