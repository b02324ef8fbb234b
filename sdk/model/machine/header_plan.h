// How the fields of a header stand in its bytes.
#pragma once

#include <cstdint>

#include "model/machine/field_pieces.h"
#include "model/machine/packet_state.h"

namespace jxmodel {

class HeaderPlan {
 public:
  HeaderPlan(const StateLayout& layout, uint32_t header);

  /// Fills the fields from the bytes of the header, whose varbit has `varbit_bits`.
  void read(const uint8_t* bytes, uint32_t varbit_bits, PacketState& state) const {
    if (!pieces_.planned()) return readBits(bytes, varbit_bits, state);
    pieces_.read(bytes, state.limbs.data());
  }
  /// Writes the header as it is in the state.
  void write(const PacketState& state, uint8_t* bytes) const {
    if (!pieces_.planned()) return writeBits(state, bytes);
    pieces_.write(state.limbs.data(), bytes);
  }

 private:
  void readBits(const uint8_t* bytes, uint32_t varbit_bits, PacketState& state) const;
  void writeBits(const PacketState& state, uint8_t* bytes) const;

  const StateLayout& layout_;
  const MachineHeader& header_;
  const FieldPieces pieces_;  // not planned: field by field, bit by bit
};

}  // namespace jxmodel
