// Fields that stand one behind the other in bytes, read and written in pieces of at most eight
// bytes.
#pragma once

#include <cstdint>
#include <vector>

#include "model/machine/state_layout.h"

namespace jxmodel {

class FieldPieces {
 public:
  /// A field, or bits that are always the same.
  struct Item {
    uint32_t width = 0;  // bits
    uint32_t limb = 0;   // kNoIndex: `fixed` instead
    uint64_t fixed = 0;  // of at most 64 bits
  };
  FieldPieces() = default;  // not planned
  /// Where the bits of the last item end within a byte, zeros are written behind them if `padded`.
  FieldPieces(const std::vector<Item>& items, bool padded);

  /// False where items and bytes do not fall together often enough: then there are no pieces.
  bool planned() const { return planned_; }
  /// Of all items.
  uint32_t bytes() const { return bytes_; }

  void read(const uint8_t* bytes, uint64_t* limbs) const {
    for (const Piece& piece : pieces_) {
      const uint64_t bits = loadBig(bytes + piece.byte, piece.bytes);
      for (uint32_t i = piece.first_part; i < piece.end_part; ++i) {
        const Part& part = parts_[i];
        limbs[part.limb] = bits >> part.shift & part.mask;
      }
    }
  }
  void write(const uint64_t* limbs, uint8_t* bytes) const {
    for (const Piece& piece : pieces_) {
      uint64_t bits = piece.fixed;
      for (uint32_t i = piece.first_part; i < piece.end_part; ++i) {
        bits |= limbs[parts_[i].limb] << parts_[i].shift;
      }
      storeBig(bits, bytes + piece.byte, piece.bytes);
    }
  }

 private:
  /// Bytes whose bits are those of some items, from the first to the last.
  struct Piece {
    uint32_t byte = 0, bytes = 0;           // among all bytes
    uint32_t first_part = 0, end_part = 0;  // into parts_
    uint64_t fixed = 0;
  };
  struct Part {
    uint32_t limb = 0;
    uint32_t shift = 0;  // of its bits in the piece
    uint64_t mask = 0;   // of its bits in the word
  };

  bool plan(const std::vector<Item>& items, bool padded);
  bool addWide(const Item& item);
  size_t addPiece(const std::vector<Item>& items, size_t first, bool padded);

  std::vector<Piece> pieces_;
  std::vector<Part> parts_;
  uint32_t bytes_ = 0;
  bool planned_ = false;
};

}  // namespace jxmodel
