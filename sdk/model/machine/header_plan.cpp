#include "model/machine/header_plan.h"

#include <cstring>

namespace jxmodel {
namespace {

FieldPieces piecesOf(const StateLayout& layout, const MachineHeader& header) {
  if (header.varbit_field) return {};  // no length that is known
  std::vector<FieldPieces::Item> items;
  for (uint32_t i = 0; i < header.field_count; ++i) {
    const FieldSlot& slot = layout.fields[header.first_field + i];
    items.push_back({slot.width, slot.limb, 0});
  }
  return {items, false};
}

}  // namespace

HeaderPlan::HeaderPlan(const StateLayout& layout, uint32_t header)
    : layout_(layout),
      header_(layout.machine.headers[header]),
      pieces_(piecesOf(layout, header_)) {}

void HeaderPlan::readBits(const uint8_t* bytes, uint32_t varbit_bits, PacketState& state) const {
  uint64_t bit = 0;
  for (uint32_t i = 0; i < header_.field_count; ++i) {
    const FieldSlot& slot = layout_.fields[header_.first_field + i];
    if (slot.varbit == kNoIndex) {
      loadBits(bytes, bit, slot.width, state.limbs.data() + slot.limb);
      bit += slot.width;
      continue;
    }
    uint8_t* const to = state.varbit_bytes.data() + layout_.varbits[slot.varbit].offset;
    for (uint32_t at = 0; at < varbit_bits; at += 8) {
      to[at / 8] = static_cast<uint8_t>(loadBits64(bytes, bit + at, 8));
    }
    state.varbit_bits[slot.varbit] = varbit_bits;
    bit += varbit_bits;
  }
}

void HeaderPlan::writeBits(const PacketState& state, uint8_t* bytes) const {
  uint64_t bit = 0;
  for (uint32_t i = 0; i < header_.field_count; ++i) {
    const FieldSlot& slot = layout_.fields[header_.first_field + i];
    if (slot.varbit == kNoIndex) {
      storeBits(state.limbs.data() + slot.limb, slot.width, bytes, bit);
      bit += slot.width;
      continue;
    }
    const uint8_t* const from = state.varbit_bytes.data() + layout_.varbits[slot.varbit].offset;
    const uint32_t bits = state.varbit_bits[slot.varbit];
    for (uint32_t at = 0; at < bits; at += 8) storeBits64(from[at / 8], bytes, bit + at, 8);
    bit += bits;
  }
}

}  // namespace jxmodel
