// How the fields of a header stand in its bytes: read and written in pieces of at most eight bytes.
#pragma once

#include <cstdint>
#include <vector>

#include "model/machine/packet_state.h"

namespace jxmodel {

class HeaderPlan {
 public:
  HeaderPlan(const StateLayout& layout, uint32_t header);

  /// Fills the fields from the bytes of the header, whose varbit has `varbit_bits`.
  void read(const uint8_t* bytes, uint32_t varbit_bits, PacketState& state) const;
  /// Writes the header as it is in the state.
  void write(const PacketState& state, uint8_t* bytes) const;

 private:
  /// Bytes whose bits are those of some fields, from the first to the last.
  struct Piece {
    uint32_t byte = 0, bytes = 0;           // in the header
    uint32_t first_part = 0, end_part = 0;  // into parts_
  };
  struct Part {
    uint32_t limb = 0;
    uint32_t shift = 0;  // of its bits in the piece
    uint64_t mask = 0;   // of its bits in the word
  };

  bool plan();
  bool addWide(const FieldSlot& slot, uint32_t byte);
  uint32_t addPiece(uint32_t first_field, uint32_t byte);
  void readBits(const uint8_t* bytes, uint32_t varbit_bits, PacketState& state) const;
  void writeBits(const PacketState& state, uint8_t* bytes) const;

  const StateLayout& layout_;
  const MachineHeader& header_;
  std::vector<Piece> pieces_;  // none: field by field, bit by bit
  std::vector<Part> parts_;
};

}  // namespace jxmodel
