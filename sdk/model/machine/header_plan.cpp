#include "model/machine/header_plan.h"

#include <cstring>

namespace jxmodel {

HeaderPlan::HeaderPlan(const StateLayout& layout, uint32_t header)
    : layout_(layout), header_(layout.machine.headers[header]) {
  if (header_.varbit_field || !plan()) pieces_.clear();
}

/// False where fields and bytes do not fall together often enough.
bool HeaderPlan::plan() {
  uint32_t byte = 0;
  for (uint32_t i = 0; i < header_.field_count;) {
    const FieldSlot& slot = layout_.fields[header_.first_field + i];
    if (slot.limbs > 1) {
      if (!addWide(slot, byte)) return false;
      byte += slot.width / 8;
      ++i;
      continue;
    }
    const uint32_t taken = addPiece(i, byte);
    if (taken == 0) return false;
    byte += pieces_.back().bytes;
    i += taken;
  }
  return true;
}

/// One piece per word of the field.
bool HeaderPlan::addWide(const FieldSlot& slot, uint32_t byte) {
  if (slot.width % 8 != 0) return false;
  uint32_t left = slot.width / 8;
  for (uint32_t i = 0; i < slot.limbs; ++i) {
    const uint32_t bytes = std::min(left, 8U);
    left -= bytes;
    const auto part = static_cast<uint32_t>(parts_.size());
    parts_.push_back({slot.limb + i, 0, maskOf(bytes * 8)});
    pieces_.push_back({byte + left, bytes, part, part + 1});
  }
  return true;
}

/// The most fields from this one on that fill whole bytes, eight at most. Returns how many.
uint32_t HeaderPlan::addPiece(uint32_t first_field, uint32_t byte) {
  uint32_t bits = 0, taken = 0, taken_bits = 0;
  for (uint32_t i = first_field; i < header_.field_count; ++i) {
    const uint32_t width = layout_.fields[header_.first_field + i].width;
    if (bits + width > 64) break;
    bits += width;
    if (bits % 8 != 0) continue;
    taken = i - first_field + 1;
    taken_bits = bits;
  }
  if (taken_bits == 0) return 0;
  const auto first_part = static_cast<uint32_t>(parts_.size());
  uint32_t shift = taken_bits;
  for (uint32_t i = 0; i < taken; ++i) {
    const FieldSlot& slot = layout_.fields[header_.first_field + first_field + i];
    shift -= slot.width;
    parts_.push_back({slot.limb, shift, maskOf(slot.width)});
  }
  pieces_.push_back({byte, taken_bits / 8, first_part, static_cast<uint32_t>(parts_.size())});
  return taken;
}

void HeaderPlan::read(const uint8_t* bytes, uint32_t varbit_bits, PacketState& state) const {
  if (pieces_.empty()) return readBits(bytes, varbit_bits, state);
  uint64_t* const limbs = state.limbs.data();
  for (const Piece& piece : pieces_) {
    const uint64_t bits = loadBig(bytes + piece.byte, piece.bytes);
    for (uint32_t i = piece.first_part; i < piece.end_part; ++i) {
      const Part& part = parts_[i];
      limbs[part.limb] = bits >> part.shift & part.mask;
    }
  }
}

void HeaderPlan::write(const PacketState& state, uint8_t* bytes) const {
  if (pieces_.empty()) return writeBits(state, bytes);
  const uint64_t* const limbs = state.limbs.data();
  for (const Piece& piece : pieces_) {
    uint64_t bits = 0;
    for (uint32_t i = piece.first_part; i < piece.end_part; ++i) {
      bits |= limbs[parts_[i].limb] << parts_[i].shift;
    }
    storeBig(bits, bytes + piece.byte, piece.bytes);
  }
}

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
