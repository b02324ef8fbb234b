#include "model/machine/field_pieces.h"

#include <algorithm>

namespace jxmodel {

FieldPieces::FieldPieces(const std::vector<Item>& items, bool padded)
    : planned_(plan(items, padded)) {
  if (planned_) return;
  pieces_.clear();
  parts_.clear();
}

bool FieldPieces::plan(const std::vector<Item>& items, bool padded) {
  for (size_t i = 0; i < items.size();) {
    if (items[i].width > 64) {
      if (!addWide(items[i])) return false;
      ++i;
      continue;
    }
    const size_t taken = addPiece(items, i, padded);
    if (taken == 0) return false;
    i += taken;
  }
  return true;
}

/// One piece per word of the field.
bool FieldPieces::addWide(const Item& item) {
  if (item.width % 8 != 0 || item.limb == kNoIndex) return false;
  uint32_t left = item.width / 8;
  for (uint32_t i = 0; left != 0; ++i) {
    const uint32_t bytes = std::min(left, 8U);
    left -= bytes;
    const auto part = static_cast<uint32_t>(parts_.size());
    parts_.push_back({item.limb + i, 0, maskOf(bytes * 8)});
    pieces_.push_back({bytes_ + left, bytes, part, part + 1, 0});
  }
  bytes_ += item.width / 8;
  return true;
}

/// The most items from this one on that fill whole bytes, eight at most. Returns how many.
size_t FieldPieces::addPiece(const std::vector<Item>& items, size_t first, bool padded) {
  uint32_t bits = 0, taken_bits = 0;
  size_t taken = 0;
  for (size_t i = first; i < items.size() && bits + items[i].width <= 64; ++i) {
    bits += items[i].width;
    const bool ends = bits % 8 == 0 || (padded && i + 1 == items.size());
    if (!ends) continue;
    taken = i - first + 1;
    taken_bits = (bits + 7) / 8 * 8;
  }
  if (taken_bits == 0) return 0;
  Piece piece;
  piece.byte = bytes_;
  piece.bytes = taken_bits / 8;
  piece.first_part = static_cast<uint32_t>(parts_.size());
  uint32_t shift = taken_bits;
  for (size_t i = first; i < first + taken; ++i) {
    const Item& item = items[i];
    shift -= item.width;
    if (item.limb == kNoIndex) {
      piece.fixed |= item.fixed << shift;
    } else if (item.width != 0) {
      parts_.push_back({item.limb, shift, maskOf(item.width)});
    }
  }
  piece.end_part = static_cast<uint32_t>(parts_.size());
  pieces_.push_back(piece);
  bytes_ += piece.bytes;
  return taken;
}

}  // namespace jxmodel
